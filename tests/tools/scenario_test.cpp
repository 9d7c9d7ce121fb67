// Reading scenario files: the steps of the factory tool, the app and the
// simulated calculation nodes, and the errors that name file and step.
#include "tools/kivrun/scenario.h"

#include <gtest/gtest.h>
#include <malloc.h>
#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>
#include <stdlib.h>
#include <unistd.h>

#include <cmath>
#include <cstdint>
#include <cstring>
#include <fstream>
#include <limits>
#include <random>
#include <string>

#if defined(__SANITIZE_ADDRESS__)
// The sanitizer's allocator counts what it holds (declared here: not every
// compiler ships the sanitizer's headers).
extern "C" std::size_t __sanitizer_get_current_allocated_bytes();
#endif

namespace {

using kivrun::ResponderSetting;
using kivrun::Step;

class ScenarioTest : public ::testing::Test {
 protected:
  ScenarioTest() {
    char pattern[] = "/tmp/scenario_test.XXXXXX.json";
    const int fd = mkstemps(pattern, 5);
    close(fd);
    path_ = pattern;
  }
  ~ScenarioTest() override { unlink(path_.c_str()); }

  kivrun::Scenario Load(const std::string& steps) {
    std::ofstream(path_) << R"({"config": {"delt_factory": 60, "delt_app": 20}, "steps": [)"
                         << steps << "]}";
    return kivrun::LoadScenario(path_);
  }
  // The error of loading `steps`, or "" when they load.
  std::string Error(const std::string& steps) {
    try {
      Load(steps);
      return "";
    } catch (const kivrun::ScenarioError& e) {
      return e.what();
    }
  }

  std::string path_;
};

TEST_F(ScenarioTest, RepeatTakesASendOrJsonStepAndWhatToWaitFor) {
  const kivrun::Scenario s = Load(
      R"({"repeat": {"send": "CAMERACALI", "fields": {"distance": 5}},
          "until": {"topic": "CAMERACALIRES", "fields": {"kind": 2, "distance": 5}},
          "every_ticks": 7, "limit": 30, "label": "distance 5 accepted"},
         {"repeat": {"json": {"APP": 20}}, "until": {"topic": "laser_state"}, "limit": 2})");
  ASSERT_EQ(s.steps.size(), 2u);
  const Step& repeat = s.steps[0];
  EXPECT_EQ(repeat.kind, Step::Kind::kRepeat);
  ASSERT_TRUE(repeat.repeated);
  EXPECT_EQ(repeat.repeated->kind, Step::Kind::kSend);
  EXPECT_EQ(repeat.repeated->topic, "CAMERACALI");
  EXPECT_EQ(repeat.repeated->value.Parse()["distance"].GetInt(), 5);
  EXPECT_EQ(repeat.until.topic, "CAMERACALIRES");
  EXPECT_EQ(repeat.until.Describe(), "CAMERACALIRES {\"kind\":2,\"distance\":5}");
  EXPECT_EQ(repeat.every_ticks, 7);
  EXPECT_EQ(repeat.limit, 30);
  EXPECT_EQ(repeat.text, "distance 5 accepted");
  // Defaults: every 10 ticks, any record on the topic.
  EXPECT_EQ(s.steps[1].repeated->kind, Step::Kind::kJson);
  EXPECT_EQ(s.steps[1].every_ticks, 10);
  EXPECT_EQ(s.steps[1].until.Describe(), "laser_state {}");
}

TEST_F(ScenarioTest, WaitTakesWhatToWaitForAndHowLong) {
  const kivrun::Scenario s =
      Load(R"({"wait": {"topic": "CAMERACALIRES", "fields": {"kind": 4}}, "within_ticks": 12})");
  ASSERT_EQ(s.steps.size(), 1u);
  EXPECT_EQ(s.steps[0].kind, Step::Kind::kWait);
  EXPECT_EQ(s.steps[0].limit, 12);
  EXPECT_EQ(s.steps[0].until.Describe(), "CAMERACALIRES {\"kind\":4}");
}

TEST_F(ScenarioTest, AStateTextMayBeAwaitedByItsBeginning) {
  const kivrun::Scenario s = Load(
      R"({"wait": {"topic": "laser_state", "fields": {"text_prefix": "2;"}}, "within_ticks": 5},
         {"repeat": {"send": "laser_calibration", "fields": {"distance": 10}},
          "until": {"topic": "laser_state", "fields": {"text_prefix": "2;25"}}, "limit": 3})");
  ASSERT_EQ(s.steps.size(), 2u);
  EXPECT_EQ(s.steps[0].until.Describe(), "laser_state {\"text_prefix\":\"2;\"}");
  EXPECT_EQ(s.steps[1].until.fields.Parse()[kivrun::kTextPrefix].GetString(), std::string("2;25"));
}

TEST_F(ScenarioTest, TextAndTextPrefixAreNotAwaitedTogether) {
  const std::string step1 = path_ + ": step 1";
  EXPECT_EQ(
      Error(R"({"wait": {"topic": "laser_state", "fields": {"text": "2;10", "text_prefix": "2;"}},
                      "within_ticks": 5})"),
      step1 + ": \"wait\": give \"text\" or \"text_prefix\", not both");
  EXPECT_EQ(Error(R"({"repeat": {"send": "A"}, "limit": 2,
                      "until": {"topic": "laser_state", "fields": {"text_prefix": "2;", "text": "2;1"}}})"),
            step1 + ": \"until\": give \"text\" or \"text_prefix\", not both");
  EXPECT_EQ(
      Error(
          R"({"wait": {"topic": "laser_state", "fields": {"text_prefix": 2}}, "within_ticks": 5})"),
      step1 + ": \"wait\": \"text_prefix\" needs a text");
}

// A value kept as text parses back to the very value it was made from, so
// what a log shows of a step can be played again exactly.
TEST_F(ScenarioTest, KeptNumbersParseBackExactly) {
  for (const char* number : {"0.1", "3.0000000000000004", "1e-300", "123456789.12345678",
                             "-2.2250738585072014e-308", "18446744073709551615"}) {
    SCOPED_TRACE(number);
    const kivrun::Scenario s = Load(std::string(R"({"camera": {"x": )") + number + "}}");
    const rapidjson::Document once = s.steps[0].value.Parse();
    const kivrun::JsonText again = kivrun::JsonText::Of(once);
    EXPECT_EQ(again.text(), s.steps[0].value.text());
    EXPECT_TRUE(again.Parse()["x"] == once["x"]);
  }
}

TEST_F(ScenarioTest, ResponderSettings) {
  const kivrun::Scenario s = Load(
      R"({"responder": "plane", "answer": {"result": 1}, "needs": ["/tmp/a.bmp"], "refuse": 9,
          "delay_ms": 30},
         {"responder": "check", "fail": 7},
         {"responder": "distance", "silent": true})");
  ASSERT_EQ(s.steps.size(), 3u);
  const ResponderSetting& plane = *s.steps[0].responder;
  EXPECT_EQ(s.steps[0].kind, Step::Kind::kResponder);
  EXPECT_EQ(plane.node, "plane");
  EXPECT_EQ(plane.mode, ResponderSetting::Mode::kAnswer);
  EXPECT_EQ(plane.answer.Parse()["result"].GetInt(), 1);
  EXPECT_TRUE(plane.has_needs);
  EXPECT_EQ(plane.needs, std::vector<std::string>{"/tmp/a.bmp"});
  EXPECT_TRUE(plane.has_refuse);
  EXPECT_EQ(plane.refuse, 9);
  EXPECT_EQ(plane.delay_us, 30000);
  const ResponderSetting& check = *s.steps[1].responder;
  EXPECT_EQ(check.mode, ResponderSetting::Mode::kFail);
  EXPECT_EQ(check.code, 7);
  EXPECT_FALSE(check.has_needs);
  EXPECT_EQ(check.delay_us, 10000);  // one tick
  EXPECT_EQ(s.steps[2].responder->mode, ResponderSetting::Mode::kSilent);
}

TEST_F(ScenarioTest, AComputingResponderTakesNoAnswerAndNeitherFailsNorStaysSilent) {
  const kivrun::Scenario s = Load(
      R"({"responder": "plane", "compute": true, "needs": ["/tmp/left/1020.bmp"], "refuse": 4},
         {"responder": "distance", "compute": true})");
  ASSERT_EQ(s.steps.size(), 2u);
  const ResponderSetting& plane = *s.steps[0].responder;
  EXPECT_EQ(plane.mode, ResponderSetting::Mode::kCompute);
  EXPECT_EQ(plane.needs, std::vector<std::string>{"/tmp/left/1020.bmp"});
  EXPECT_EQ(plane.refuse, 4);
  EXPECT_EQ(s.steps[1].responder->mode, ResponderSetting::Mode::kCompute);
  const std::string step1 = path_ + ": step 1";
  EXPECT_EQ(Error(R"({"responder": "plane", "compute": true, "answer": {"result": 1}})"),
            step1 + ": a computing responder works out its answer: no \"answer\"");
  EXPECT_EQ(Error(R"({"responder": "plane", "compute": true, "fail": 7})"),
            step1 + ": a computing responder neither fails nor stays silent");
  EXPECT_EQ(Error(R"({"responder": "check", "silent": true, "compute": true})"),
            step1 + ": a computing responder neither fails nor stays silent");
  EXPECT_EQ(Error(R"({"responder": "plane", "compute": false})"),
            step1 + ": \"compute\" takes the value true");
}

TEST_F(ScenarioTest, ErrorsNameTheFileTheStepAndWhatIsWrong) {
  const std::string step1 = path_ + ": step 1";
  EXPECT_EQ(Error(R"({"repeat": {"send": "CAMERACALI"}, "until": {"topic": "X"}})"),
            step1 + ": \"repeat\" needs a \"limit\" (the most requests to send)");
  EXPECT_EQ(Error(R"({"repeat": {"send": "CAMERACALI"}, "limit": 3})"),
            step1 + ": \"repeat\" needs \"until\"");
  EXPECT_EQ(Error(R"({"repeat": {"ticks": 3}, "until": {"topic": "X"}, "limit": 3})"),
            step1 + ": \"repeat\" repeats a send or json step");
  EXPECT_EQ(Error(R"({"repeat": {"send": "A", "ticks": 3}, "until": {"topic": "X"}, "limit": 3})"),
            step1 + ": \"repeat\": a step does one thing; split it");
  EXPECT_EQ(Error(R"({"repeat": {"send": "A"}, "until": {"topic": "X"}, "limit": 0})"),
            step1 + ": \"limit\" needs a whole number from 1 to 100000, not 0");
  EXPECT_EQ(Error(R"({"repeat": {"send": "A"}, "until": {"fields": {}}, "limit": 2})"),
            step1 + ": \"until\" needs a \"topic\"");
  EXPECT_EQ(
      Error(R"({"repeat": {"send": "A"}, "until": {"topic": "X", "text": "2;5"}, "limit": 2})"),
      step1 + ": \"until\": unknown member \"text\" (it has topic and fields)");
  EXPECT_EQ(Error(R"({"wait": {"topic": "X"}})"),
            step1 + ": \"wait\" needs \"within_ticks\" (the most ticks to wait)");
  EXPECT_EQ(Error(R"({"wait": {"topic": "X"}, "ticks": 3})"),
            step1 + ": a step does one thing; split it");
  EXPECT_EQ(
      Error(R"({"send": "CAMERACALI", "every_ticks": 3})"),
      step1 + ": \"every_ticks\" does not belong to a \"send\" step (it takes fields, record)");
  EXPECT_EQ(Error(R"({"responder": "plane", "fail": 7, "silent": true})"),
            step1 + ": a responder either fails or stays silent, not both");
  EXPECT_EQ(Error(R"({"responder": "plane", "silent": true, "answer": {}})"),
            step1 + ": a silent responder gives no \"answer\"");
  EXPECT_EQ(Error(R"({"responder": "plane", "needs": "/tmp/a.bmp"})"),
            step1 + ": \"needs\" needs a list of picture paths");
  EXPECT_EQ(Error(R"({"limit": 3})"),
            step1 +
                ": the step does nothing (a step is one of send, json, advance_us, advance_ms, "
                "ticks, camera, log_frames, trace, teardown, note, responder, repeat, wait)");
  EXPECT_EQ(Error(R"({"sned": "CAMERACALI"})"),
            step1 +
                ": unknown member \"sned\" (a step is one of send, json, advance_us, advance_ms, "
                "ticks, camera, log_frames, trace, teardown, note, responder, repeat, wait)");
}

// Bytes the process has allocated and not freed (the allocator's count).
int64_t AllocatedBytes() {
#if defined(__SANITIZE_ADDRESS__)
  return static_cast<int64_t>(__sanitizer_get_current_allocated_bytes());
#else
  const struct mallinfo2 info = mallinfo2();
  return static_cast<int64_t>(info.uordblks + info.hblkhd);
#endif
}

TEST_F(ScenarioTest, AHundredThousandStepsTakeLittleMemory) {
  std::string steps;
  for (int i = 0; i < 100000; ++i) {
    steps += (i == 0 ? "" : ",\n");
    steps += i % 2 == 0 ? R"({"send": "CAMERACALI", "fields": {"distance": 5}})"
                        : R"({"repeat": {"send": "CAMERACALI", "fields": {"distance": 5}},
                              "until": {"topic": "CAMERACALIRES", "fields": {"kind": 2}},
                              "limit": 20, "label": "accepted"})";
  }
  const int64_t before = AllocatedBytes();
  const kivrun::Scenario s = Load(steps);
  const int64_t held = AllocatedBytes() - before;
  ASSERT_EQ(s.steps.size(), 100000u);
  EXPECT_EQ(s.steps[99999].until.Describe(), "CAMERACALIRES {\"kind\":2}");
  EXPECT_EQ(s.steps[0].value.Parse()["distance"].GetInt(), 5);
  RecordProperty("bytes_held", std::to_string(held));
  EXPECT_LT(held, 100LL * 1024 * 1024) << held << " bytes for 100000 steps";
  // Each step is a plain struct with its JSON kept as short text.
  EXPECT_LT(held / 100000, 1024) << held / 100000 << " bytes a step";
}

TEST_F(ScenarioTest, NestingUpToTheLimitLoadsAndDeeperIsRefused) {
  // The scenario object, "steps", the step and "camera" are 4 levels.
  auto nested = [](int levels) { return std::string(levels, '[') + std::string(levels, ']'); };
  EXPECT_EQ(Error(R"({"json": {"a": )" + nested(kivrun::kMaxJsonDepth - 4) + "}}"), "");
  const std::string error = Error(R"({"json": {"a": )" + nested(kivrun::kMaxJsonDepth - 3) + "}}");
  EXPECT_NE(error.find(path_ + ":1:"), std::string::npos) << error;
  EXPECT_NE(error.find(": lists and objects nest deeper than 64 levels"), std::string::npos)
      << error;
}

TEST_F(ScenarioTest, TextThatIsNotUtf8IsRefusedWhereItStands) {
  EXPECT_EQ(Error("{\"note\": \"bad \xFF byte\"}"), path_ + ":1:74: Invalid encoding in string.");
}

TEST_F(ScenarioTest, PrintableEscapesControlCharacters) {
  EXPECT_EQ(kivrun::Printable(std::string("a\0b\n\"\\\x7f", 7)), "a\\u0000b\\u000a\\\"\\\\\\u007f");
  EXPECT_EQ(kivrun::Printable("caf\xC3\xA9"), "caf\xC3\xA9");
}

// The value of one JSON number, parsed as kivrun parses every text.
rapidjson::Document Number(const std::string& text) {
  rapidjson::Document doc;
  const rapidjson::ParseResult result = kivrun::ParseJson(&doc, text.data(), text.size());
  EXPECT_FALSE(result.IsError()) << text;
  return doc;
}

uint64_t Bits(double d) {
  uint64_t bits;
  std::memcpy(&bits, &d, sizeof bits);
  return bits;
}

TEST(ParseJsonTest, NumbersWhoseDigitsAreAllZeroAreZeroWhateverTheirExponent) {
  for (const char* zero : {
           "0e300",
           "0E+300",
           "0.0e-300",
           "0.00000000000000000000e77",
           "0e-400",
       }) {
    const rapidjson::Document doc = Number(zero);
    ASSERT_TRUE(doc.IsDouble()) << zero;
    EXPECT_EQ(doc.GetDouble(), 0.0) << zero;
  }
  EXPECT_TRUE(std::signbit(Number("-0.0e300").GetDouble()));
}

TEST(ParseJsonTest, IntegersStayIntegersAsFarAs64BitsGo) {
  EXPECT_TRUE(Number("5").IsInt());
  EXPECT_EQ(Number("-2147483649").GetInt64(), -2147483649LL);
  EXPECT_EQ(Number("-9223372036854775808").GetInt64(), std::numeric_limits<int64_t>::min());
  EXPECT_EQ(Number("18446744073709551615").GetUint64(), std::numeric_limits<uint64_t>::max());
  const rapidjson::Document beyond = Number("18446744073709551616");
  ASSERT_TRUE(beyond.IsDouble());
  EXPECT_EQ(beyond.GetDouble(), 18446744073709551616.0);
  EXPECT_TRUE(Number("-0").IsInt());
}

TEST(ParseJsonTest, ADoubleWrittenByTheLogReadsBackBitForBit) {
  std::mt19937_64 random(20261121);
  for (int i = 0; i < 20000; ++i) {
    uint64_t bits = random();
    double value;
    std::memcpy(&value, &bits, sizeof value);
    if (!std::isfinite(value)) continue;
    rapidjson::StringBuffer text;
    rapidjson::Writer<rapidjson::StringBuffer> writer(text);
    writer.Double(value);
    const rapidjson::Document back = Number(text.GetString());
    ASSERT_TRUE(back.IsNumber()) << text.GetString();
    EXPECT_EQ(Bits(back.GetDouble()), bits) << text.GetString();
  }
  EXPECT_EQ(Number("0.1").GetDouble(), 0.1);
  EXPECT_EQ(Number("60.5").GetDouble(), 60.5);
}

TEST(ParseJsonTest, ANumberBeyondADoubleIsRefusedAndTheRestAsRapidjsonDoes) {
  rapidjson::Document doc;
  const std::string huge = "[1, 1e400]";
  rapidjson::ParseResult result = kivrun::ParseJson(&doc, huge.data(), huge.size());
  EXPECT_EQ(result.Code(), rapidjson::kParseErrorNumberTooBig);
  EXPECT_TRUE(doc.IsNull());
  const std::string bad = "{\"a\": \"\xFF\"}";
  EXPECT_EQ(kivrun::ParseJson(&doc, bad.data(), bad.size()).Code(),
            rapidjson::kParseErrorStringInvalidEncoding);
  EXPECT_FALSE(kivrun::ParseJson(&doc, bad.data(), bad.size(), false).IsError());
  const std::string text = R"({"a": [true, null, "x", -1.5, {"b": 2}]})";
  ASSERT_FALSE(kivrun::ParseJson(&doc, text.data(), text.size()).IsError());
  EXPECT_EQ(doc["a"][3].GetDouble(), -1.5);
  EXPECT_EQ(doc["a"][4]["b"].GetInt(), 2);
}

}  // namespace
