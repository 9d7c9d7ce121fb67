// Loading the plug-in and building nodes by ID; every failure is one line.
#include "platform/kiv/plugin.h"

#include <gtest/gtest.h>

#include <string>

#include "platform/kiv/host.h"
#include "tests/support/console_capture.h"

namespace {

std::string LoadError(const std::string& path, kiv::NodeRegistry& registry) {
  try {
    kiv::NodeLibrary::Load(path, registry);
  } catch (const kiv::LoadError& e) {
    return e.what();
  }
  return "loaded";
}

TEST(PluginTest, LoadsThePluginAndBuildsTheNode) {
  kiv::Host host;
  testsupport::ConsoleCapture console;
  kiv::NodeRegistry registry;
  auto library = kiv::NodeLibrary::Load(LASERCALI_PLUGIN_PATH, registry);
  ASSERT_EQ(registry.count("KivNodeLaserCali"), 1u);
  rapidjson::Document config;
  config.Parse(R"({"name":"n","delt_factory":1,"delt_app":2})");
  auto node = kiv::BuildNode(registry, "KivNodeLaserCali", config);
  ASSERT_NE(node, nullptr);
  EXPECT_EQ(node->NodeName(), "n");
  EXPECT_EQ(console.OutLines().back(), "xxx  ARMxxx");
  node.reset();
  registry.clear();
}

TEST(PluginTest, AMissingFileIsNamed) {
  kiv::NodeRegistry registry;
  const std::string error = LoadError("/nonexistent/liblasercali.so", registry);
  EXPECT_EQ(error.rfind("cannot load plug-in '/nonexistent/liblasercali.so': ", 0), 0u) << error;
}

TEST(PluginTest, ALibraryWithoutTheEntryPointIsRefused) {
  kiv::NodeRegistry registry;
  EXPECT_EQ(LoadError("libm.so.6", registry),
            "plug-in 'libm.so.6' has no entry point Kiv_RegisterNodesFromNodeV3");
}

TEST(PluginTest, AThrowingEntryPointIsReported) {
  kiv::NodeRegistry registry;
  registry["KivNodeLaserCali"] = nullptr;
  EXPECT_EQ(LoadError(LASERCALI_PLUGIN_PATH, registry),
            std::string("plug-in '") + LASERCALI_PLUGIN_PATH +
                "': Kiv_RegisterNodesFromNodeV3 threw std::runtime_error: ID 'KivNodeLaserCali' "
                "already registered");
}

TEST(PluginTest, AnUnknownIdListsTheKnownOnes) {
  kiv::NodeRegistry registry;
  registry["A"] = nullptr;
  registry["B"] = nullptr;
  rapidjson::Document config;
  config.SetObject();
  try {
    kiv::BuildNode(registry, "C", config);
    FAIL() << "built";
  } catch (const kiv::LoadError& e) {
    EXPECT_STREQ(e.what(), "no node 'C' is registered (known: A, B)");
  }
}

TEST(PluginTest, ABuilderExceptionPassesThrough) {
  kiv::Host host;
  testsupport::ConsoleCapture console;
  kiv::NodeRegistry registry;
  auto library = kiv::NodeLibrary::Load(LASERCALI_PLUGIN_PATH, registry);
  rapidjson::Document config;
  config.Parse(R"({"delt_app":2})");
  try {
    kiv::BuildNode(registry, "KivNodeLaserCali", config);
    FAIL() << "built";
  } catch (const std::runtime_error& e) {
    EXPECT_STREQ(e.what(), "can't find cali/delt_factory");
  }
  registry.clear();
}

}  // namespace
