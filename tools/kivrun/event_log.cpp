#include "tools/kivrun/event_log.h"

#include <rapidjson/ostreamwrapper.h>
#include <rapidjson/pointer.h>
#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

#include <stdexcept>
#include <utility>
#include <vector>

#include "tools/kivrun/json_values.h"
#include "tools/kivrun/scenario.h"

namespace kivrun {

namespace {

// Length of the well-formed UTF-8 sequence at `s` (Unicode's table of
// well-formed byte sequences: no overlong forms, no surrogates, nothing
// above U+10FFFF), or 0 when the byte there starts none.
std::size_t SequenceLength(const unsigned char* s, std::size_t left) {
  const unsigned char b = s[0];
  if (b < 0x80) return 1;
  std::size_t length = 0;
  unsigned char low = 0x80, high = 0xBF;
  if (b >= 0xC2 && b <= 0xDF) {
    length = 2;
  } else if (b >= 0xE0 && b <= 0xEF) {
    length = 3;
    if (b == 0xE0) low = 0xA0;
    if (b == 0xED) high = 0x9F;
  } else if (b >= 0xF0 && b <= 0xF4) {
    length = 4;
    if (b == 0xF0) low = 0x90;
    if (b == 0xF4) high = 0x8F;
  } else {
    return 0;
  }
  if (left < length) return 0;
  if (s[1] < low || s[1] > high) return 0;
  for (std::size_t i = 2; i < length; ++i) {
    if (s[i] < 0x80 || s[i] > 0xBF) return 0;
  }
  return length;
}

// Writes a value with every string as valid UTF-8, collecting the exact
// bytes of each string that was not (see EventLog).
class Utf8Writer {
 public:
  explicit Utf8Writer(rapidjson::Writer<rapidjson::StringBuffer>& writer) : writer_(writer) {}

  void Value(const rapidjson::Value& value) {
    switch (value.GetType()) {
      case rapidjson::kObjectType:
        writer_.StartObject();
        for (const auto& member : value.GetObject()) Member(member.name, member.value);
        writer_.EndObject();
        break;
      case rapidjson::kArrayType: {
        writer_.StartArray();
        rapidjson::SizeType index = 0;
        for (const auto& element : value.GetArray()) {
          path_.push_back(std::to_string(index++));
          Value(element);
          path_.pop_back();
        }
        writer_.EndArray();
        break;
      }
      case rapidjson::kStringType:
        String(value.GetString(), value.GetStringLength(), Pointer());
        break;
      default:
        value.Accept(writer_);
    }
  }

  void Member(const rapidjson::Value& name, const rapidjson::Value& value) {
    const std::string written = String(name.GetString(), name.GetStringLength(), "");
    path_.push_back(written);
    if (written != std::string(name.GetString(), name.GetStringLength())) {
      raw_.emplace_back("name:" + Pointer(), Hex(name.GetString(), name.GetStringLength()));
    }
    Value(value);
    path_.pop_back();
  }

  // The strings that were not valid UTF-8: [pointer, hex of the exact bytes].
  const std::vector<std::pair<std::string, std::string>>& raw() const { return raw_; }

 private:
  // Writes the text (a key when `pointer` is empty); returns what was written.
  std::string String(const char* text, std::size_t size, const std::string& pointer) {
    std::string written;
    const auto* bytes = reinterpret_cast<const unsigned char*>(text);
    bool valid = true;
    for (std::size_t i = 0; i < size;) {
      const std::size_t length = SequenceLength(bytes + i, size - i);
      if (length == 0) {
        written += "\xEF\xBF\xBD";  // U+FFFD
        valid = false;
        ++i;
      } else {
        written.append(text + i, length);
        i += length;
      }
    }
    if (pointer.empty()) {
      writer_.Key(written.data(), static_cast<rapidjson::SizeType>(written.size()));
    } else {
      writer_.String(written.data(), static_cast<rapidjson::SizeType>(written.size()));
      if (!valid) raw_.emplace_back(pointer, Hex(text, size));
    }
    return written;
  }

  // The JSON Pointer (RFC 6901) of the value being written.
  std::string Pointer() const {
    std::string pointer;
    for (const std::string& token : path_) {
      pointer += '/';
      for (const char ch : token) {
        if (ch == '~') {
          pointer += "~0";
        } else if (ch == '/') {
          pointer += "~1";
        } else {
          pointer += ch;
        }
      }
    }
    return pointer;
  }

  static std::string Hex(const char* text, std::size_t size) {
    static const char kDigits[] = "0123456789abcdef";
    std::string hex;
    hex.reserve(2 * size);
    for (std::size_t i = 0; i < size; ++i) {
      const auto byte = static_cast<unsigned char>(text[i]);
      hex += kDigits[byte >> 4];
      hex += kDigits[byte & 0xF];
    }
    return hex;
  }

  rapidjson::Writer<rapidjson::StringBuffer>& writer_;
  std::vector<std::string> path_;
  std::vector<std::pair<std::string, std::string>> raw_;
};

std::string Unhex(const std::string& hex) {
  auto digit = [](char c) {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    return -1;
  };
  std::string bytes;
  for (std::size_t i = 0; i + 1 < hex.size(); i += 2) {
    const int high = digit(hex[i]), low = digit(hex[i + 1]);
    if (high < 0 || low < 0) break;
    bytes.push_back(static_cast<char>(high << 4 | low));
  }
  if (bytes.size() * 2 != hex.size()) {
    throw std::invalid_argument("\"bytes_hex\" has \"" + Printable(hex) +
                                "\", which is not bytes in hexadecimal");
  }
  return bytes;
}

}  // namespace

void EventLog::Write(const char* kind, const rapidjson::Value& fields) {
  if (before_ && !in_hook_) {
    in_hook_ = true;
    before_();
    in_hook_ = false;
  }
  rapidjson::StringBuffer buffer;
  rapidjson::Writer<rapidjson::StringBuffer> writer(buffer);
  Utf8Writer members(writer);
  writer.StartObject();
  writer.Key("t");
  writer.Int64(now_ ? now_() : 0);
  writer.Key("event");
  writer.String(kind);
  if (fields.IsObject()) {
    for (const auto& member : fields.GetObject()) members.Member(member.name, member.value);
  }
  if (!members.raw().empty()) {
    writer.Key(kBytesHex);
    writer.StartObject();
    for (const auto& [pointer, hex] : members.raw()) {
      writer.Key(pointer.data(), static_cast<rapidjson::SizeType>(pointer.size()));
      writer.String(hex.data(), static_cast<rapidjson::SizeType>(hex.size()));
    }
    writer.EndObject();
  }
  writer.EndObject();
  out_.write(buffer.GetString(), static_cast<std::streamsize>(buffer.GetSize()));
  out_.put('\n');
  ++count_;
  if (after_) after_(std::string(buffer.GetString(), buffer.GetSize()));
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

// Entries are undone from the last: a member name comes before the
// strings inside its value, whose pointers name it as written.
void RestoreBytes(rapidjson::Document& event) {
  const auto found = event.FindMember(EventLog::kBytesHex);
  if (found == event.MemberEnd()) return;
  if (!found->value.IsObject()) {
    throw std::invalid_argument(
        "\"bytes_hex\" needs an object of JSON Pointers and their bytes in hexadecimal");
  }
  std::vector<std::pair<std::string, std::string>> entries;
  for (const auto& entry : found->value.GetObject()) {
    if (!entry.value.IsString()) {
      throw std::invalid_argument(
          "\"bytes_hex\" needs an object of JSON Pointers and their bytes in hexadecimal");
    }
    entries.emplace_back(StringOf(entry.name), Unhex(StringOf(entry.value)));
  }
  auto& allocator = event.GetAllocator();
  for (auto entry = entries.rbegin(); entry != entries.rend(); ++entry) {
    const std::string& key = entry->first;
    const bool is_name = key.rfind("name:", 0) == 0;
    const std::string text = is_name ? key.substr(5) : key;
    const rapidjson::Pointer pointer(text.data(), text.size());
    const auto& raw = entry->second;
    const std::string bad = "\"bytes_hex\" names \"" + Printable(key) + "\", which is not ";
    if (!pointer.IsValid() || pointer.GetTokenCount() == 0 || text == "/bytes_hex") {
      throw std::invalid_argument(bad + "a JSON Pointer to a string of the event");
    }
    if (!is_name) {
      rapidjson::Value* value = pointer.Get(event);
      if (value == nullptr || !value->IsString())
        throw std::invalid_argument(bad + "a string of the event");
      value->SetString(raw.data(), static_cast<rapidjson::SizeType>(raw.size()), allocator);
      continue;
    }
    const std::size_t count = pointer.GetTokenCount();
    const rapidjson::Pointer parent(pointer.GetTokens(), count - 1);
    rapidjson::Value* object = parent.Get(event);
    const auto& token = pointer.GetTokens()[count - 1];
    rapidjson::Value* name = nullptr;
    if (object != nullptr && object->IsObject()) {
      for (auto& member : object->GetObject()) {
        if (member.name.GetStringLength() == token.length &&
            std::string(member.name.GetString(), token.length) ==
                std::string(token.name, token.length)) {
          name = &member.name;
          break;
        }
      }
    }
    if (name == nullptr) throw std::invalid_argument(bad + "a member of the event");
    name->SetString(raw.data(), static_cast<rapidjson::SizeType>(raw.size()), allocator);
  }
  event.EraseMember(event.FindMember(EventLog::kBytesHex));
}

}  // namespace kivrun
