// Reading JSON files and texts with kivrun's limits (scenario.h): the
// nesting depth checked first, numbers converted exactly, errors named with
// the file, the line and the column.
#include <fcntl.h>
#include <rapidjson/encodedstream.h>
#include <rapidjson/error/en.h>
#include <rapidjson/memorystream.h>
#include <rapidjson/reader.h>
#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "tools/kivrun/scenario.h"

namespace kivrun {
namespace {

// Hands every SAX event on to a document, converting the numbers, which
// the reader passes on as their text (kParseNumbersAsStringsFlag).
class ExactNumbers {
 public:
  explicit ExactNumbers(rapidjson::Document& doc) : doc_(doc) {}
  bool too_big() const { return too_big_; }

  bool Null() { return doc_.Null(); }
  bool Bool(bool b) { return doc_.Bool(b); }
  bool Int(int i) { return doc_.Int(i); }
  bool Uint(unsigned u) { return doc_.Uint(u); }
  bool Int64(int64_t i) { return doc_.Int64(i); }
  bool Uint64(uint64_t u) { return doc_.Uint64(u); }
  bool Double(double d) { return doc_.Double(d); }
  bool String(const char* s, rapidjson::SizeType n, bool copy) { return doc_.String(s, n, copy); }
  bool StartObject() { return doc_.StartObject(); }
  bool Key(const char* s, rapidjson::SizeType n, bool copy) { return doc_.Key(s, n, copy); }
  bool EndObject(rapidjson::SizeType members) { return doc_.EndObject(members); }
  bool StartArray() { return doc_.StartArray(); }
  bool EndArray(rapidjson::SizeType elements) { return doc_.EndArray(elements); }

  // The reader has checked the number's form: -?digits[.digits][(e|E)[+-]digits].
  bool RawNumber(const char* s, rapidjson::SizeType n, bool) {
    const std::string text(s, n);
    const bool integer = text.find_first_of(".eE") == std::string::npos;
    errno = 0;
    char* end = nullptr;
    if (integer && text[0] == '-') {
      const long long i = std::strtoll(text.c_str(), &end, 10);
      if (errno == 0) return doc_.Int64(i);
    } else if (integer) {
      const unsigned long long u = std::strtoull(text.c_str(), &end, 10);
      if (errno == 0) return doc_.Uint64(u);
    }
    errno = 0;
    const double d = std::strtod(text.c_str(), &end);
    if (errno == ERANGE && std::isinf(d)) {
      too_big_ = true;
      return false;
    }
    return doc_.Double(d);  // an underflow is 0 or the nearest subnormal
  }

 private:
  rapidjson::Document& doc_;
  bool too_big_ = false;
};

template <unsigned flags>
rapidjson::ParseResult ParseWith(rapidjson::Document* doc, const char* text, std::size_t size) {
  rapidjson::ParseResult result;
  auto generate = [&](rapidjson::Document& d) {
    ExactNumbers handler(d);
    rapidjson::Reader reader;
    rapidjson::MemoryStream memory(text, size);
    rapidjson::EncodedInputStream<rapidjson::UTF8<>, rapidjson::MemoryStream> stream(memory);
    result = reader.Parse<flags | rapidjson::kParseNumbersAsStringsFlag>(stream, handler);
    if (handler.too_big()) result.Set(rapidjson::kParseErrorNumberTooBig, result.Offset());
    return !result.IsError();
  };
  doc->Populate(generate);
  if (result.IsError()) doc->SetNull();
  return result;
}

constexpr unsigned kParseFlags = kJsonParseFlags;

// Counts how deep lists and objects nest; stops the parse past kMaxJsonDepth.
struct DepthCheck : rapidjson::BaseReaderHandler<rapidjson::UTF8<>, DepthCheck> {
  int depth = 0;
  bool too_deep = false;
  bool Default() { return true; }
  bool StartObject() { return Enter(); }
  bool StartArray() { return Enter(); }
  bool EndObject(rapidjson::SizeType) { return Leave(); }
  bool EndArray(rapidjson::SizeType) { return Leave(); }
  bool Enter() {
    too_deep = ++depth > kMaxJsonDepth;
    return !too_deep;
  }
  bool Leave() {
    --depth;
    return true;
  }
};

std::string Where(const std::string& text, std::size_t offset, int first_line = 1) {
  int line = first_line, column = 1;
  for (std::size_t i = 0; i < offset && i < text.size(); ++i) {
    if (text[i] == '\n') {
      ++line;
      column = 1;
    } else {
      ++column;
    }
  }
  return std::to_string(line) + ":" + std::to_string(column);
}

}  // namespace

rapidjson::ParseResult ParseJson(rapidjson::Document* doc, const char* text, std::size_t size,
                                 bool check_utf8) {
  return check_utf8
             ? ParseWith<kJsonParseFlags>(doc, text, size)
             : ParseWith<kJsonParseFlags & ~rapidjson::kParseValidateEncodingFlag>(doc, text, size);
}

JsonText JsonText::Of(const rapidjson::Value& value) {
  rapidjson::StringBuffer buffer;
  rapidjson::Writer<rapidjson::StringBuffer> writer(buffer);
  value.Accept(writer);
  return FromText(std::string(buffer.GetString(), buffer.GetSize()));
}

JsonText JsonText::FromText(std::string text) {
  JsonText json;
  json.text_ = std::move(text);
  return json;
}

rapidjson::Document JsonText::Parse() const {
  rapidjson::Document doc;
  if (text_.empty()) return doc;
  if (ParseJson(&doc, text_.data(), text_.size()).IsError())
    throw ScenarioError("kivrun: a kept JSON value does not parse: " + text_);
  return doc;
}

std::string Printable(const std::string& text) {
  std::string out;
  for (const char ch : text) {
    const auto byte = static_cast<unsigned char>(ch);
    if (ch == '"' || ch == '\\') {
      out += '\\';
      out += ch;
    } else if (byte < 0x20 || byte == 0x7F) {
      char escaped[8];
      std::snprintf(escaped, sizeof escaped, "\\u%04x", byte);
      out += escaped;
    } else {
      out += ch;
    }
  }
  return out;
}

std::shared_ptr<rapidjson::Document> ParseJsonText(const std::string& content,
                                                   const std::string& name, int first_line) {
  // First the nesting depth alone, so no deeper document is ever built.
  {
    DepthCheck depth;
    rapidjson::Reader reader;
    // A stream that knows where the text ends: rapidjson's UTF-8 check of
    // a string reads a multi-byte character's bytes without looking, so on
    // a NUL-terminated stream a text that ends inside one read past its end.
    rapidjson::MemoryStream memory(content.data(), content.size());
    rapidjson::EncodedInputStream<rapidjson::UTF8<>, rapidjson::MemoryStream> stream(memory);
    // Numbers as text: the depth check converts none.
    reader.Parse<kParseFlags | rapidjson::kParseNumbersAsStringsFlag>(stream, depth);
    if (depth.too_deep) {
      throw ScenarioError(name + ":" + Where(content, reader.GetErrorOffset(), first_line) +
                          ": lists and objects nest deeper than " + std::to_string(kMaxJsonDepth) +
                          " levels");
    }
  }
  auto doc = std::make_shared<rapidjson::Document>();
  const rapidjson::ParseResult parsed = ParseJson(doc.get(), content.c_str(), content.size());
  if (parsed.IsError()) {
    throw ScenarioError(name + ":" + Where(content, parsed.Offset(), first_line) + ": " +
                        rapidjson::GetParseError_En(parsed.Code()));
  }
  return doc;
}

std::string ReadTextFile(const std::string& path, const std::string& what) {
  // O_NONBLOCK: opening a pipe must not wait for a writer.
  const int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
  if (fd < 0) throw ScenarioError(path + ": cannot read the file: " + std::strerror(errno));
  struct Closer {
    int fd;
    ~Closer() { close(fd); }
  } closer{fd};
  struct stat info {};
  if (fstat(fd, &info) != 0) {
    throw ScenarioError(path + ": cannot read the file: " + std::strerror(errno));
  }
  if (S_ISDIR(info.st_mode)) throw ScenarioError(path + ": is a folder, not a file");
  if (!S_ISREG(info.st_mode)) {
    throw ScenarioError(path + ": is not a regular file (a device, a pipe or a socket)");
  }
  const std::string too_large = " bytes; " + what + " may have at most " +
                                std::to_string(kMaxJsonFileBytes) + " bytes (16 MiB)";
  if (info.st_size > kMaxJsonFileBytes) {
    throw ScenarioError(path + ": is " + std::to_string(info.st_size) + too_large);
  }
  // Room for the bytes fstat counted and one more, growing if the file grew
  // since, up to one byte more than allowed.
  const std::size_t most = static_cast<std::size_t>(kMaxJsonFileBytes) + 1;
  std::string content(static_cast<std::size_t>(info.st_size) + 1, '\0');
  std::size_t have = 0;
  while (have < most) {
    if (have == content.size()) content.resize(std::min(most, 2 * content.size()));
    const ssize_t got = read(fd, &content[have], content.size() - have);
    if (got < 0 && errno == EINTR) continue;
    if (got < 0) throw ScenarioError(path + ": cannot read the file: " + std::strerror(errno));
    if (got == 0) break;
    have += static_cast<std::size_t>(got);
  }
  if (have > static_cast<std::size_t>(kMaxJsonFileBytes)) {
    throw ScenarioError(path + ": is more than " + std::to_string(kMaxJsonFileBytes) + too_large);
  }
  content.resize(have);
  return content;
}

std::shared_ptr<rapidjson::Document> ReadJsonFile(const std::string& path) {
  return ParseJsonText(ReadTextFile(path), path);
}

}  // namespace kivrun
