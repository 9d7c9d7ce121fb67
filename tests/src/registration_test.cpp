// The plug-in's entry point and the node's builder.
#include <gtest/gtest.h>

#include <stdexcept>
#include <string>

#include "framework/kiv.h"
#include "platform/kiv/host.h"
#include "src/caligetpic.h"
#include "src/cameralasercali.h"
#include "tests/support/console_capture.h"
#include "tests/support/node_harness.h"

namespace {

class VersionLog : public kiv::HostObserver {
 public:
  void OnVersion(const std::string& node, const std::string& commit,
                 const std::string& framework) override {
    nodes.push_back(node);
    commits.push_back(commit);
    frameworks.push_back(framework);
  }
  std::vector<std::string> nodes, commits, frameworks;
};

TEST(RegistrationTest, RegistersTheBuilderUnderItsId) {
  kiv::NodeRegistry registry;
  Kiv_RegisterNodesFromNodeV3(registry);
  ASSERT_EQ(registry.size(), 1u);
  EXPECT_EQ(registry.begin()->first, "KivNodeLaserCali");
  EXPECT_TRUE(static_cast<bool>(registry.begin()->second));
}

TEST(RegistrationTest, ASecondRegistrationThrowsAndKeepsOneEntry) {
  kiv::NodeRegistry registry;
  Kiv_RegisterNodesFromNodeV3(registry);
  const kiv::NodeBuilder* first = &registry.at("KivNodeLaserCali");
  try {
    Kiv_RegisterNodesFromNodeV3(registry);
    FAIL() << "no exception";
  } catch (const std::runtime_error& e) {
    EXPECT_STREQ(e.what(), "ID 'KivNodeLaserCali' already registered");
  }
  EXPECT_EQ(registry.size(), 1u);
  EXPECT_EQ(&registry.at("KivNodeLaserCali"), first);
}

TEST(RegistrationTest, OtherIdsStayAndTheNewOneIsPlacedInStringOrder) {
  kiv::NodeRegistry registry;
  registry["Alpha"] = nullptr;
  registry["KivNodeA"] = nullptr;
  registry["Zeta"] = nullptr;
  Kiv_RegisterNodesFromNodeV3(registry);
  std::vector<std::string> ids;
  for (const auto& entry : registry) ids.push_back(entry.first);
  EXPECT_EQ(ids, (std::vector<std::string>{"Alpha", "KivNodeA", "KivNodeLaserCali", "Zeta"}));
}

TEST(RegistrationTest, TheBuilderRegistersTwoVersionTagsOfFixedLength) {
  testsupport::ResetPluginGlobals();
  kiv::Host host;
  VersionLog log;
  host.SetObserver(&log);
  testsupport::ConsoleCapture console;
  kiv::NodeRegistry registry;
  Kiv_RegisterNodesFromNodeV3(registry);
  rapidjson::Document config;
  config.Parse(R"({"name":"v","delt_factory":1,"delt_app":2})");
  auto node = registry.at("KivNodeLaserCali")(config);
  ASSERT_EQ(log.nodes, std::vector<std::string>{"v"});
  EXPECT_EQ(log.commits[0].size(), 29u);
  EXPECT_EQ(log.frameworks[0].size(), 16u);
  EXPECT_NE(dynamic_cast<kivplugcali::KivNodeLaserCali*>(node.get()), nullptr);
  node.reset();
  host.SetObserver(nullptr);
}

TEST(RegistrationTest, ABuilderCallWithoutDeltFactoryThrowsAndLeaksNothing) {
  testsupport::ResetPluginGlobals();
  kiv::Host host;
  VersionLog log;
  host.SetObserver(&log);
  testsupport::ConsoleCapture console;
  kiv::NodeRegistry registry;
  Kiv_RegisterNodesFromNodeV3(registry);
  rapidjson::Document config;
  config.Parse(R"({"name":"v","delt_app":2})");
  try {
    registry.at("KivNodeLaserCali")(config);
    FAIL() << "built";
  } catch (const std::runtime_error& e) {
    EXPECT_STREQ(e.what(), "can't find cali/delt_factory");
  }
  // No version was registered and the half-built node left no subscription
  // behind (the sanitizer build checks that no memory leaked).
  EXPECT_TRUE(log.nodes.empty());
  for (const std::string& topic : host.TopicOrder()) {
    EXPECT_TRUE(host.FindTopic(topic)->subscribers.empty()) << topic;
  }
  host.SetObserver(nullptr);
}

}  // namespace
