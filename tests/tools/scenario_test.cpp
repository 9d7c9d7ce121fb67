// Reading scenario files: the steps of the factory tool, the app and the
// simulated calculation nodes, and the errors that name file and step.
#include "tools/kivrun/scenario.h"

#include <gtest/gtest.h>
#include <stdlib.h>
#include <unistd.h>

#include <fstream>
#include <string>

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
  EXPECT_EQ((*repeat.repeated->value)["distance"].GetInt(), 5);
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

TEST_F(ScenarioTest, ResponderSettings) {
  const kivrun::Scenario s = Load(
      R"({"responder": "plane", "answer": {"result": 1}, "needs": ["/tmp/a.bmp"], "refuse": 9,
          "delay_ms": 30},
         {"responder": "check", "fail": 7},
         {"responder": "distance", "silent": true})");
  ASSERT_EQ(s.steps.size(), 3u);
  const ResponderSetting& plane = s.steps[0].responder;
  EXPECT_EQ(s.steps[0].kind, Step::Kind::kResponder);
  EXPECT_EQ(plane.node, "plane");
  EXPECT_EQ(plane.mode, ResponderSetting::Mode::kAnswer);
  EXPECT_EQ((*plane.answer)["result"].GetInt(), 1);
  EXPECT_TRUE(plane.has_needs);
  EXPECT_EQ(plane.needs, std::vector<std::string>{"/tmp/a.bmp"});
  EXPECT_TRUE(plane.has_refuse);
  EXPECT_EQ(plane.refuse, 9);
  EXPECT_EQ(plane.delay_us, 30000);
  const ResponderSetting& check = s.steps[1].responder;
  EXPECT_EQ(check.mode, ResponderSetting::Mode::kFail);
  EXPECT_EQ(check.code, 7);
  EXPECT_FALSE(check.has_needs);
  EXPECT_EQ(check.delay_us, 10000);  // one tick
  EXPECT_EQ(s.steps[2].responder.mode, ResponderSetting::Mode::kSilent);
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
            step1 + ": \"limit\" needs a whole number of 1 or more");
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

}  // namespace
