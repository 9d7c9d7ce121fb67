#include "tools/kivrun/event_log.h"

#include <rapidjson/ostreamwrapper.h>
#include <rapidjson/writer.h>

namespace kivrun {

void EventLog::Write(const char* kind, const rapidjson::Value& fields) {
  if (before_ && !in_hook_) {
    in_hook_ = true;
    before_();
    in_hook_ = false;
  }
  rapidjson::StringBuffer buffer;
  rapidjson::Writer<rapidjson::StringBuffer> writer(buffer);
  writer.StartObject();
  writer.Key("t");
  writer.Int64(now_ ? now_() : 0);
  writer.Key("event");
  writer.String(kind);
  if (fields.IsObject()) {
    for (const auto& member : fields.GetObject()) {
      member.name.Accept(writer);
      member.value.Accept(writer);
    }
  }
  writer.EndObject();
  out_.write(buffer.GetString(), static_cast<std::streamsize>(buffer.GetSize()));
  out_.put('\n');
  ++count_;
}

void EventLog::Write(const char* kind) { Write(kind, rapidjson::Value(rapidjson::kObjectType)); }

Fields& Fields::Str(const char* key, const std::string& value) {
  doc_.AddMember(rapidjson::StringRef(key),
                 rapidjson::Value(value.data(), static_cast<rapidjson::SizeType>(value.size()),
                                  doc_.GetAllocator()),
                 doc_.GetAllocator());
  return *this;
}

Fields& Fields::Int(const char* key, int64_t value) {
  doc_.AddMember(rapidjson::StringRef(key), rapidjson::Value(value), doc_.GetAllocator());
  return *this;
}

Fields& Fields::Bool(const char* key, bool value) {
  doc_.AddMember(rapidjson::StringRef(key), rapidjson::Value(value), doc_.GetAllocator());
  return *this;
}

Fields& Fields::Json(const char* key, const rapidjson::Value& value) {
  doc_.AddMember(rapidjson::StringRef(key), rapidjson::Value(value, doc_.GetAllocator()),
                 doc_.GetAllocator());
  return *this;
}

ConsoleTap::ConsoleTap(std::ostream& stream, Sink sink)
    : stream_(stream), original_(stream.rdbuf(this)), sink_(std::move(sink)) {}

ConsoleTap::~ConsoleTap() {
  FlushPartial();
  stream_.rdbuf(original_);
}

void ConsoleTap::FlushPartial() {
  if (line_.empty()) return;
  std::string line;
  line.swap(line_);
  sink_(line);
}

ConsoleTap::int_type ConsoleTap::overflow(int_type c) {
  if (traits_type::eq_int_type(c, traits_type::eof())) return traits_type::not_eof(c);
  const char ch = traits_type::to_char_type(c);
  if (ch == '\n') {
    std::string line;
    line.swap(line_);
    sink_(line);
  } else {
    line_.push_back(ch);
  }
  return c;
}

std::streamsize ConsoleTap::xsputn(const char* s, std::streamsize n) {
  for (std::streamsize i = 0; i < n; ++i) overflow(traits_type::to_int_type(s[i]));
  return n;
}

}  // namespace kivrun
