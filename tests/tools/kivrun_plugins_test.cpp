// kivrun as a container of several plug-ins, run as a program: --plugin
// given again loads one more, a scenario names its own plug-ins and nodes,
// and a plug-in file that is missing, is no plug-in or lacks the entry
// point is refused with the file named and exit code 1.
//
// The runs build the node from a configuration without "delt_app", so its
// construction stops (exit code 3) before it makes its picture folders,
// unless a test says otherwise; nothing is written but the test's folder.
#include <gtest/gtest.h>
#include <rapidjson/document.h>
#include <sys/wait.h>

#include <cstdlib>
#include <fstream>
#include <string>
#include <vector>

#include "tests/support/program_run.h"
#include "tests/support/temp_folder.h"

namespace {

using testsupport::Lines;
using testsupport::ProgramRun;
using testsupport::ReadFile;

class KivrunPluginsTest : public ::testing::Test {
 protected:
  KivrunPluginsTest() {
    config_ = Write("config.json", R"({"name": "plugins_test", "delt_factory": 7})");
  }
  std::string Write(const std::string& name, const std::string& text) {
    std::ofstream(folder_.File(name)) << text;
    return folder_.File(name);
  }
  ProgramRun Kivrun(const std::string& args) {
    const std::string command = "cd '" + folder_.path() + "' && " + std::string(KIVRUN) + " " +
                                args + " >'" + folder_.File("out.txt") + "' 2>'" +
                                folder_.File("err.txt") + "'";
    const int raw = std::system(command.c_str());
    ProgramRun run;
    run.status = WIFEXITED(raw) ? WEXITSTATUS(raw) : -1;
    run.out = ReadFile(folder_.File("out.txt"));
    run.err = Lines(ReadFile(folder_.File("err.txt")));
    return run;
  }
  // The events of the log, parsed.
  std::vector<rapidjson::Document> Events(const std::string& log) {
    std::vector<rapidjson::Document> events;
    for (const std::string& line : Lines(log)) {
      events.emplace_back();
      events.back().Parse(line.c_str());
    }
    return events;
  }
  // The first line kivrun wrote on standard error, or "".
  static std::string Error(const ProgramRun& run) { return run.err.empty() ? "" : run.err[0]; }

  testsupport::TempFolder folder_;
  std::string config_;
};

TEST_F(KivrunPluginsTest, APluginFileThatIsMissingIsRefusedWithTheFileNamed) {
  const ProgramRun run = Kivrun("--plugin " + folder_.File("none.so") + " --config " + config_);
  EXPECT_EQ(run.status, 1);
  EXPECT_EQ(Error(run).rfind("kivrun: cannot load plug-in '" + folder_.File("none.so") + "': ", 0),
            0u)
      << Error(run);
  const std::vector<rapidjson::Document> events = Events(run.out);
  ASSERT_EQ(events.size(), 2u);
  EXPECT_STREQ(events[0]["event"].GetString(), "error");
  EXPECT_EQ(events[1]["exit"].GetInt(), 1);
}

TEST_F(KivrunPluginsTest, AFileThatIsNoPluginIsRefusedWithTheFileNamed) {
  const std::string text = Write("text.so", "not a shared object at all\n");
  const ProgramRun run = Kivrun("--plugin " + text + " --config " + config_);
  EXPECT_EQ(run.status, 1);
  EXPECT_EQ(Error(run).rfind("kivrun: cannot load plug-in '" + text + "': ", 0), 0u) << Error(run);
}

TEST_F(KivrunPluginsTest, ALibraryWithoutTheEntryPointIsRefusedWithTheFileNamed) {
  const ProgramRun run =
      Kivrun(std::string("--plugin ") + NO_ENTRY_LIBRARY + " --config " + config_);
  EXPECT_EQ(run.status, 1);
  EXPECT_EQ(Error(run), std::string("kivrun: plug-in '") + NO_ENTRY_LIBRARY +
                            "' has no entry point Kiv_RegisterNodesFromNodeV3");
}

TEST_F(KivrunPluginsTest, PluginGivenAgainLoadsOneMore) {
  const ProgramRun run = Kivrun(std::string("--plugin ") + LASERCALI_PLUGIN_PATH +
                                " --plugin=" + LASERCALC_PLUGIN_PATH + " --config " + config_);
  EXPECT_EQ(run.status, 3) << Error(run);  // the node's construction stops, as the test wants
  const std::vector<rapidjson::Document> events = Events(run.out);
  ASSERT_GE(events.size(), 3u);
  EXPECT_STREQ(events[0]["plugin"].GetString(), "liblasercali.so");
  EXPECT_EQ(events[0]["ids"].Size(), 1u);
  EXPECT_STREQ(events[1]["event"].GetString(), "load");
  EXPECT_STREQ(events[1]["plugin"].GetString(), "liblasercalc.so");
  ASSERT_EQ(events[1]["ids"].Size(), 4u);
  EXPECT_STREQ(events[1]["ids"][3].GetString(), "KivNodeLaserCalcPlane");
  EXPECT_STREQ(events[2]["event"].GetString(), "build");
}

TEST_F(KivrunPluginsTest, AScenariosPluginsAreFoundBesideItAndRefusedWhenMissing) {
  Write("s.json", R"({"config_file": "config.json",
      "plugins": ["plugins/libnowhere.so"], "steps": []})");
  const ProgramRun run = Kivrun("s.json");
  EXPECT_EQ(run.status, 1);
  EXPECT_EQ(Error(run).rfind("kivrun: cannot load plug-in './plugins/libnowhere.so': ", 0), 0u)
      << Error(run);
  Write("bad.json", R"({"config_file": "config.json", "plugins": "liblasercalc.so"})");
  EXPECT_EQ(Error(Kivrun("bad.json")),
            "kivrun: bad.json: \"plugins\" needs a list of plug-in files");
}

TEST_F(KivrunPluginsTest, AScenariosNodesAreCheckedWhenItIsRead) {
  Write("a.json", R"({"config_file": "config.json", "nodes": [{"config": {}}]})");
  EXPECT_EQ(Error(Kivrun("a.json")), "kivrun: a.json: \"nodes\"[0] needs \"node\", the node's ID");
  Write("b.json", R"({"config_file": "config.json", "nodes": [{"node": "X", "cfg": {}}]})");
  EXPECT_EQ(Error(Kivrun("b.json")),
            "kivrun: b.json: \"nodes\"[0]: unknown member \"cfg\" (a node has node, config or "
            "config_file)");
  // A node no plug-in registers: the scenario names the wrong node.
  Write("node.json", R"({"name": "plugins_test", "delt_factory": 7, "delt_app": 2})");
  Write("c.json", R"({"config_file": "node.json", "nodes": [{"node": "KivNodeNone"}]})");
  const ProgramRun run = Kivrun("--private-tmp c.json");
  if (run.status == 6) GTEST_SKIP() << "no private /tmp: " << Error(run);
  EXPECT_EQ(run.status, 1);
  EXPECT_EQ(Error(run).rfind("kivrun: no node 'KivNodeNone' is registered", 0), 0u) << Error(run);
}

}  // namespace
