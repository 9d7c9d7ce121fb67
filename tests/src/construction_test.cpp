// Construction, configuration and teardown of the calibration node.
#include <sys/stat.h>

#include <cstdlib>
#include <utility>
#include <algorithm>

#include <gtest/gtest.h>

#include <filesystem>
#include <stdexcept>
#include <string>
#include <vector>

#include "msgs/topics.h"
#include "platform/kiv/host.h"
#include "src/caligetpic.h"
#include "tests/support/node_harness.h"

namespace {

using testsupport::NodeHarness;

// Records the order in which the node sets up its topics.
class WiringLog : public kiv::HostObserver {
 public:
  void OnAdvertise(const std::string& node, const std::string& topic,
                   const std::type_info&) override {
    steps.push_back("advertise " + topic + " by " + node);
  }
  void OnSubscribe(const std::string& node, const std::string& topic, const std::type_info&,
                   int depth) override {
    steps.push_back("subscribe " + topic + " by " + node + " depth " + std::to_string(depth));
  }
  std::vector<std::string> steps;
};

std::string BuildError(const std::string& config) {
  try {
    NodeHarness harness(config);
  } catch (const std::runtime_error& e) {
    return e.what();
  }
  return "no error";
}

TEST(ConstructionTest, DefaultConfigPrintsThreeLinesAndSetsDistances) {
  NodeHarness harness(R"({"delt_factory": 60, "delt_app": 20})");
  EXPECT_EQ(harness.console().OutLines(),
            (std::vector<std::string>{"xxx  delt_factory 60", "xxx  delt_app 20", "xxx  ARMxxx"}));
  EXPECT_EQ(harness.console().Err(), "");
  EXPECT_EQ(kivplugcali::distance_factory, 60);
  EXPECT_EQ(kivplugcali::distance_app, 20);
  EXPECT_EQ(kivplugcali::distance_delt, 60);
  EXPECT_TRUE(harness.publications.empty());
}

TEST(ConstructionTest, SetsUpSixTopicsAndEightSubscriptionsInTableOrder) {
  testsupport::ResetPluginGlobals();
  kiv::Host host;
  WiringLog log;
  host.SetObserver(&log);
  rapidjson::Document config;
  config.Parse(R"({"name":"cali","delt_factory":60,"delt_app":20})");
  testsupport::ConsoleCapture console;
  kiv::NodeRegistry registry;
  Kiv_RegisterNodesFromNodeV3(registry);
  auto node = registry.at("KivNodeLaserCali")(config);

  std::vector<std::string> expected;
  for (const calitopics::TopicRow& row : calitopics::kTopicTable) {
    const std::string topic = row.topic ? row.topic : "cali";
    expected.push_back(row.direction == calitopics::Direction::kAdvertise
                           ? "advertise " + topic + " by cali"
                           : "subscribe " + topic + " by cali depth 10");
  }
  EXPECT_EQ(log.steps, expected);
  EXPECT_EQ(std::count_if(expected.begin(), expected.end(),
                          [](const std::string& s) { return s.rfind("advertise", 0) == 0; }),
            6);
  node.reset();
  host.SetObserver(nullptr);
}

TEST(ConstructionTest, DeltFactoryMustBeAnInt) {
  EXPECT_EQ(BuildError(R"({"delt_factory": 60.5, "delt_app": 20})"),
            "can't find cali/delt_factory");
  EXPECT_EQ(BuildError(R"({"delt_factory": "60", "delt_app": 20})"),
            "can't find cali/delt_factory");
  EXPECT_EQ(BuildError(R"({"delt_app": 20})"), "can't find cali/delt_factory");
}

TEST(ConstructionTest, MissingDeltAppFailsAfterTheFactoryLine) {
  testsupport::ConsoleCapture outer;
  EXPECT_EQ(BuildError(R"({"delt_factory": 60})"), "can't find cali/delt_app");
  EXPECT_EQ(BuildError(R"({"delt_factory": 60, "delt_app": 2.0})"), "can't find cali/delt_app");
}

TEST(ConstructionTest, MissingDeltAppPrintsOnlyTheFactoryLine) {
  testsupport::ResetPluginGlobals();
  kiv::Host host;
  testsupport::ConsoleCapture console;
  kiv::NodeRegistry registry;
  Kiv_RegisterNodesFromNodeV3(registry);
  rapidjson::Document config;
  config.Parse(R"({"delt_factory": 61})");
  EXPECT_THROW(registry.at("KivNodeLaserCali")(config), std::runtime_error);
  EXPECT_EQ(console.OutLines(), std::vector<std::string>{"xxx  delt_factory 61"});
  // Globals already written keep their new values.
  EXPECT_EQ(kivplugcali::distance_factory, 61);
}

TEST(ConstructionTest, ValuesAreCutToTheirLow16Bits) {
  NodeHarness harness(R"({"delt_factory": 70000, "delt_app": -1})");
  EXPECT_EQ(harness.console().OutLines()[0], "xxx  delt_factory 4464");
  EXPECT_EQ(harness.console().OutLines()[1], "xxx  delt_app 65535");
  EXPECT_EQ(kivplugcali::distance_factory, 4464);
  EXPECT_EQ(kivplugcali::distance_delt, 4464);
  EXPECT_EQ(kivplugcali::distance_app, 65535);
}

TEST(ConstructionTest, ExistingFoldersLeaveMinusOne) {
  NodeHarness first;  // makes the folders if they were missing
  NodeHarness harness;
  EXPECT_EQ(kivplugcali::createfile_res, -1);
  EXPECT_TRUE(std::filesystem::is_directory("/tmp/left"));
  EXPECT_TRUE(std::filesystem::is_directory("/tmp/right"));
  EXPECT_TRUE(std::filesystem::is_directory("/tmp/pic"));
}

TEST(ConstructionTest, ExtraMembersAreIgnored) {
  NodeHarness harness(R"({"delt_factory": 5, "delt_app": 6, "colour": "blue", "x": [1, 2]})");
  EXPECT_EQ(harness.console().OutLines().size(), 3u);
  EXPECT_EQ(kivplugcali::distance_factory, 5);
  EXPECT_EQ(kivplugcali::distance_app, 6);
}

TEST(ConstructionTest, AFolderThatCannotBeMadeDoesNotStopConstruction) {
  testsupport::ResetPluginGlobals();
  kivplugcali::pic_path = "/nonexistent-parent/pic";  // both mkdir calls fail
  kiv::Host host;
  testsupport::ConsoleCapture console;
  rapidjson::Document config;
  config.Parse(NodeHarness::kDefaultConfig);
  kivplugcali::KivNodeLaserCali node(config);
  EXPECT_EQ(console.OutLines().size(), 3u);
  EXPECT_EQ(kivplugcali::createfile_res, -1);
  EXPECT_FALSE(std::filesystem::exists("/nonexistent-parent"));
  kivplugcali::pic_path = "/tmp/pic";
}

// This test binary links a mkdir that answers 0 for the paths listed in
// LASERCALI_MKDIR_SUCCEEDS: a second mkdir that succeeds is the one case
// that stops construction.
TEST(ConstructionTest, ASecondMkdirThatSucceedsStopsConstruction) {
  const std::vector<std::pair<std::string, std::string>> folders = {
      {"left", "/tmp/left"}, {"right", "/tmp/right"}, {"pic", "/tmp/pic"}};
  for (const auto& [which, path] : folders) {
    setenv("LASERCALI_MKDIR_SUCCEEDS", path.c_str(), 1);
    testsupport::ResetPluginGlobals();
    kiv::Host host;
    testsupport::ConsoleCapture console;
    kiv::NodeRegistry registry;
    Kiv_RegisterNodesFromNodeV3(registry);
    rapidjson::Document config;
    config.Parse(NodeHarness::kDefaultConfig);
    try {
      registry.at("KivNodeLaserCali")(config);
      ADD_FAILURE() << "built with " << path;
    } catch (const std::runtime_error& e) {
      EXPECT_EQ(std::string(e.what()), "can't create file/" + which);
    }
    EXPECT_EQ(console.OutLines(), std::vector<std::string>{"xxx  can't create file/" + which + " "});
    EXPECT_EQ(kivplugcali::createfile_res, 0);
    EXPECT_EQ(kivplugcali::distance_factory, 0);  // never reached
    unsetenv("LASERCALI_MKDIR_SUCCEEDS");
  }
}

TEST(ConstructionTest, TeardownLeavesCameraAndGlobalsAlone) {
  {
    NodeHarness harness;
    kivplugcali::cameraopen_flag = 1;
    kivplugcali::timer_fd = 7;
  }
  EXPECT_EQ(kivplugcali::cameraopen_flag, 1);
  EXPECT_EQ(kivplugcali::timer_fd, 7);
  EXPECT_EQ(kivplugcali::distance_factory, 60);
}

}  // namespace
