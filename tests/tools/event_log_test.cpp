// The event log stays valid UTF-8 and loses nothing: a text that is not
// UTF-8 is written with U+FFFD for each byte outside a well-formed sequence,
// and its exact bytes go into "bytes_hex" under the text's JSON Pointer.
#include "tools/kivrun/event_log.h"

#include <gtest/gtest.h>
#include <rapidjson/document.h>

#include <sstream>
#include <string>

namespace {

using kivrun::EventLog;
using kivrun::Fields;

// Parses one log line, insisting on valid UTF-8.
rapidjson::Document ParseLine(const std::string& line) {
  rapidjson::Document event;
  event.Parse<rapidjson::kParseValidateEncodingFlag>(line.c_str(), line.size());
  EXPECT_FALSE(event.HasParseError()) << line;
  return event;
}

std::string FromHex(const std::string& hex) {
  std::string bytes;
  for (std::size_t i = 0; i + 1 < hex.size(); i += 2) {
    bytes += static_cast<char>(std::stoi(hex.substr(i, 2), nullptr, 16));
  }
  return bytes;
}

// The exact text of the member `pointer` of a logged event.
std::string Exact(const rapidjson::Document& event, const char* member, const char* pointer) {
  const auto raw = event.FindMember(EventLog::kBytesHex);
  if (raw != event.MemberEnd() && raw->value.HasMember(pointer)) {
    return FromHex(raw->value[pointer].GetString());
  }
  return std::string(event[member].GetString(), event[member].GetStringLength());
}

std::string WriteOne(Fields& fields) {
  std::ostringstream out;
  EventLog log(out);
  log.Write("console", fields.value());
  std::string line = out.str();
  EXPECT_EQ(line.back(), '\n');
  line.pop_back();
  EXPECT_EQ(line.find('\n'), std::string::npos);
  return line;
}

TEST(EventLogTest, EveryRawByteOfAConsoleLineComesBackExactly) {
  std::string text = "check_result ";
  for (int byte = 0x80; byte <= 0xFF; ++byte) text += static_cast<char>(byte);
  text += " end";
  Fields fields;
  fields.Str("stream", "stdout").Str("text", text);
  const rapidjson::Document event = ParseLine(WriteOne(fields));
  EXPECT_EQ(Exact(event, "text", "/text"), text);
  // Each of the 128 bytes stands alone: none starts a well-formed sequence
  // with the byte after it, so each is one U+FFFD.
  std::string shown = "check_result ";
  for (int i = 0; i < 128; ++i) shown += "\xEF\xBF\xBD";
  shown += " end";
  EXPECT_EQ(std::string(event["text"].GetString()), shown);
  EXPECT_STREQ(event["stream"].GetString(), "stdout");
}

TEST(EventLogTest, ValidUtf8PassesThroughWithoutBytes) {
  static const char kText[] = "caf\xC3\xA9 \xE2\x82\xAC \xF0\x9F\x98\x80 nul\0end";
  const std::string text(kText, sizeof kText - 1);
  Fields fields;
  fields.Str("text", text);
  const std::string line = WriteOne(fields);
  EXPECT_EQ(line.find(EventLog::kBytesHex), std::string::npos) << line;
  const rapidjson::Document event = ParseLine(line);
  EXPECT_EQ(std::string(event["text"].GetString(), event["text"].GetStringLength()), text);
}

TEST(EventLogTest, MalformedSequencesAreReplacedByteForByte) {
  // Overlong "/", a surrogate, above U+10FFFF, a cut-off sequence at the end.
  const std::string text =
      "a\xC0\xAF"
      "b\xED\xA0\x80"
      "c\xF4\x90\x80\x80"
      "d\xE2\x82";
  Fields fields;
  fields.Str("text", text);
  const rapidjson::Document event = ParseLine(WriteOne(fields));
  EXPECT_EQ(Exact(event, "text", "/text"), text);
  const std::string r = "\xEF\xBF\xBD";
  EXPECT_EQ(std::string(event["text"].GetString()),
            "a" + r + r + "b" + r + r + r + "c" + r + r + r + r + "d" + r + r);
}

TEST(EventLogTest, NestedStringsAndNamesAreFoundByTheirPointers) {
  rapidjson::Document reply(rapidjson::kObjectType);
  auto& a = reply.GetAllocator();
  rapidjson::Value list(rapidjson::kArrayType);
  list.PushBack(rapidjson::Value("ok", a), a);
  list.PushBack(rapidjson::Value("\xFF/~", a), a);
  reply.AddMember(rapidjson::Value("a/b", a), list, a);
  reply.AddMember(rapidjson::Value("k\x80", a), rapidjson::Value("v", a), a);
  Fields fields;
  fields.Json("reply", reply);
  const rapidjson::Document event = ParseLine(WriteOne(fields));
  const rapidjson::Value& raw = event[EventLog::kBytesHex];
  ASSERT_TRUE(raw.HasMember("/reply/a~1b/1"));
  EXPECT_EQ(FromHex(raw["/reply/a~1b/1"].GetString()), "\xFF/~");
  ASSERT_TRUE(raw.HasMember("name:/reply/k\xEF\xBF\xBD"));
  EXPECT_EQ(FromHex(raw["name:/reply/k\xEF\xBF\xBD"].GetString()), "k\x80");
  EXPECT_EQ(raw.MemberCount(), 2u);
  EXPECT_STREQ(event["reply"]["a/b"][0].GetString(), "ok");
}

}  // namespace
