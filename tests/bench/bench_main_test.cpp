// The benchmark programs that run the node, run as programs: the node gets
// an empty /tmp of their own unless --machine-tmp lets it write the
// machine's; where no private /tmp can be had they refuse (exit code 6),
// saying why and naming --machine-tmp; their --help names the option; a
// --benchmark_out file under /tmp is written where it was named; and a
// program that builds the node without choosing its /tmp stops.
//
// The test's own /tmp stands for the machine's (node_tmp_fixture.h).
// frame_tick_bench's store benchmark writes /tmp/left/3060.bmp and
// /tmp/right/3060.bmp.
#include <gtest/gtest.h>

#include <csignal>
#include <filesystem>
#include <string>

#include "tests/support/node_tmp_fixture.h"

namespace {

namespace fs = std::filesystem;

const char kWithoutNamespaces[] = LASERCALI_SOURCE_DIR "/tests/support/without_namespaces.sh ";
const char kStoreOnce[] = " --benchmark_filter=FactoryStore --benchmark_min_time=0";
class BenchMainTest : public testsupport::NodeTmpFixture {
 protected:
  static bool MachineHasThePictures() {
    return fs::exists("/tmp/left/3060.bmp") && fs::exists("/tmp/right/3060.bmp");
  }
};

TEST_F(BenchMainTest, TheNodeWritesIntoAPrivateTmpByDefault) {
  const testsupport::ProgramRun run = Run(std::string(FRAME_TICK_BENCH) + kStoreOnce);
  if (run.status == 6) GTEST_SKIP() << "no private /tmp here";
  EXPECT_EQ(run.status, 0);
  EXPECT_NE(run.out.find("BM_FrameTick_FactoryStore"), std::string::npos) << run.out;
  EXPECT_FALSE(fs::exists("/tmp/left")) << "the node wrote into the machine's /tmp";
  EXPECT_FALSE(fs::exists("/tmp/right"));
}

TEST_F(BenchMainTest, MachineTmpLetsTheNodeWriteTheMachinesTmp) {
  const testsupport::ProgramRun run =
      Run(std::string(FRAME_TICK_BENCH) + " --machine-tmp" + kStoreOnce);
  EXPECT_EQ(run.status, 0);
  EXPECT_NE(run.out.find("BM_FrameTick_FactoryStore"), std::string::npos) << run.out;
  EXPECT_TRUE(MachineHasThePictures());
}

TEST_F(BenchMainTest, WithoutAPrivateTmpEveryProgramRefusesAndNamesTheOption) {
  struct Case {
    const char* program;
    std::string command;
  };
  for (const Case& c : {Case{"frame_tick_bench", std::string(FRAME_TICK_BENCH) + kStoreOnce},
                        Case{"realtime_bench", std::string(REALTIME_BENCH) + " --ticks=80"},
                        Case{"calibration_accuracy", std::string(CALIBRATION_ACCURACY) +
                                                         " --poses 1 --kivrun '" KIVRUN "'"}}) {
    SCOPED_TRACE(c.program);
    const testsupport::ProgramRun run = Run(kWithoutNamespaces + c.command);
    if (run.status == 125) GTEST_SKIP() << "namespaces cannot be forbidden here";
    ExpectRefused(run, c.program);
    EXPECT_EQ(run.out, "") << "nothing ran";
    EXPECT_FALSE(fs::exists("/tmp/left"));
  }
}

TEST_F(BenchMainTest, WithoutAPrivateTmpMachineTmpRuns) {
  const testsupport::ProgramRun run =
      Run(kWithoutNamespaces + std::string(FRAME_TICK_BENCH) + " --machine-tmp" + kStoreOnce);
  if (run.status == 125) GTEST_SKIP() << "namespaces cannot be forbidden here";
  EXPECT_EQ(run.status, 0);
  EXPECT_TRUE(MachineHasThePictures());
}

// --help runs nothing, so it needs no private /tmp.
TEST_F(BenchMainTest, HelpNamesTheOptionEvenWithoutAPrivateTmp) {
  struct Case {
    std::string program;
    const char* first_line;
    const char* own_option;
  };
  for (const Case& c :
       {Case{FRAME_TICK_BENCH, "frame_tick_bench: the CPU time of one tick", nullptr},
        Case{REALTIME_BENCH, "realtime_bench: how closely the main loop's real clock",
             "  --ticks=N       10 ms periods per run"},
        Case{CALIBRATION_ACCURACY, "usage: calibration_accuracy [--poses N]",
             "  --poses N       how many poses"}}) {
    SCOPED_TRACE(c.program);
    testsupport::ProgramRun run = Run(kWithoutNamespaces + c.program + " --help");
    if (run.status == 125) run = Run(c.program + " --help");
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(run.out.rfind(c.first_line, 0), 0u) << run.out;
    if (c.own_option != nullptr) {
      EXPECT_NE(run.out.find(c.own_option), std::string::npos);
    }
    EXPECT_NE(run.out.find("\n  --machine-tmp   let the node write into the machine's /tmp"),
              std::string::npos)
        << run.out;
    EXPECT_NE(run.out.find("refuses to run\n(exit code 6)"), std::string::npos);
  }
  const testsupport::ProgramRun run = Run(std::string(FRAME_TICK_BENCH) + " --help");
  EXPECT_NE(run.out.find("The benchmark library's options:\n"), std::string::npos);
  EXPECT_NE(run.out.find("--benchmark_filter"), std::string::npos);
}

// The user's results file goes where the user named it, in the machine's /tmp.
TEST_F(BenchMainTest, ABenchmarkOutFileUnderTmpIsWrittenThere) {
  const fs::path results = dir_ / "results.json";
  const testsupport::ProgramRun run =
      Run(std::string(FRAME_TICK_BENCH) + kStoreOnce + " --benchmark_out=" + results.string() +
          " --benchmark_out_format=json");
  if (run.status == 6) GTEST_SKIP() << "no private /tmp here";
  EXPECT_EQ(run.status, 0);
  EXPECT_NE(testsupport::ReadFile(results).find("\"name\": \"BM_FrameTick_FactoryStore\""),
            std::string::npos);
  EXPECT_FALSE(fs::exists("/tmp/left"));
}

TEST_F(BenchMainTest, ABadArgumentIsStillReported) {
  testsupport::ProgramRun run = Run(std::string(REALTIME_BENCH) + " --ticks=0");
  if (run.status == 6) GTEST_SKIP() << "no private /tmp here";
  EXPECT_EQ(run.status, 2);
  run = Run(std::string(FRAME_TICK_BENCH) + " --benchmark_filter=x --frobnicate");
  EXPECT_EQ(run.status, 1);
  EXPECT_FALSE(fs::exists("/tmp/left"));
}

// A program that builds BenchNode without StartNodeBenchmarks.
TEST_F(BenchMainTest, BuildingTheNodeWithoutChoosingItsTmpStops) {
  const testsupport::ProgramRun run = Run(UNSTARTED_BENCH);
  EXPECT_EQ(run.status, 128 + SIGABRT);
  ASSERT_FALSE(run.err.empty());
  EXPECT_EQ(run.err[0],
            "BenchNode: the program did not choose the node's /tmp; start its main with "
            "benchsupport::StartNodeBenchmarks (bench/bench_main.h)");
  EXPECT_FALSE(fs::exists("/tmp/left")) << "the node was built";
}

}  // namespace
