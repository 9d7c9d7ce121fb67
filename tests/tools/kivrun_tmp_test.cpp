// kivrun's /tmp, run as a program: the node gets an empty /tmp of its own
// unless --machine-tmp lets it write the machine's; where no private /tmp can
// be had kivrun refuses (exit code 6), saying why and naming --machine-tmp.
//
// The test's own /tmp stands for the machine's (node_tmp_fixture.h). The
// round played captures one distance, 30 cm, and writes /tmp/left/3000.bmp
// and /tmp/right/3000.bmp.
#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include "tests/support/node_tmp_fixture.h"

namespace {

namespace fs = std::filesystem;

const char kRound[] = LASERCALI_SOURCE_DIR "/tests/scenarios/request_factory_capture.json";
const char kWithoutNamespaces[] = LASERCALI_SOURCE_DIR "/tests/support/without_namespaces.sh";
class KivrunTmpTest : public testsupport::NodeTmpFixture {
 protected:
  // Runs `prefix` kivrun `args` from the scratch folder.
  testsupport::ProgramRun Kivrun(const std::string& args, const std::string& prefix = "") {
    return Run(prefix + KIVRUN + " " + args);
  }
  // The same where no private /tmp can be had; false when that cannot be
  // arranged here (the caller skips).
  bool KivrunWithoutNamespaces(const std::string& args, testsupport::ProgramRun* run) {
    *run = Kivrun(args, std::string(kWithoutNamespaces) + " ");
    return run->status != 125;
  }

  static bool MachineHasThePictures() {
    return fs::exists("/tmp/left/3000.bmp") && fs::exists("/tmp/right/3000.bmp");
  }
};

TEST_F(KivrunTmpTest, TheNodeWritesIntoAPrivateTmpByDefault) {
  const testsupport::ProgramRun run = Kivrun("--log round.jsonl " + std::string(kRound));
  if (run.status == 6) GTEST_SKIP() << "no private /tmp here";
  EXPECT_EQ(run.status, 0);
  EXPECT_NE(testsupport::ReadFile(dir_ / "round.jsonl").find("xxx store_r 30"), std::string::npos)
      << "the round stored its pictures";
  EXPECT_FALSE(fs::exists("/tmp/left")) << "the node wrote into the machine's /tmp";
  EXPECT_FALSE(fs::exists("/tmp/right"));
}

TEST_F(KivrunTmpTest, MachineTmpLetsTheNodeWriteTheMachinesTmp) {
  const testsupport::ProgramRun run =
      Kivrun("--machine-tmp --log round.jsonl " + std::string(kRound));
  EXPECT_EQ(run.status, 0);
  EXPECT_TRUE(run.err.empty());
  EXPECT_TRUE(MachineHasThePictures());
}

TEST_F(KivrunTmpTest, WithoutAPrivateTmpItRefusesAndNamesTheOption) {
  testsupport::ProgramRun run;
  if (!KivrunWithoutNamespaces("--log round.jsonl " + std::string(kRound), &run)) {
    GTEST_SKIP() << "namespaces cannot be forbidden here";
  }
  ExpectRefused(run, "kivrun");
  EXPECT_FALSE(fs::exists(dir_ / "round.jsonl")) << "nothing ran";
  EXPECT_FALSE(fs::exists("/tmp/left"));
  // --pictures-out asks for a private /tmp too.
  ASSERT_TRUE(KivrunWithoutNamespaces("--pictures-out pictures " + std::string(kRound), &run));
  EXPECT_EQ(run.status, 6);
  EXPECT_FALSE(fs::exists(dir_ / "pictures"));
}

TEST_F(KivrunTmpTest, WithoutAPrivateTmpMachineTmpRuns) {
  testsupport::ProgramRun run;
  if (!KivrunWithoutNamespaces("--machine-tmp --log round.jsonl " + std::string(kRound), &run)) {
    GTEST_SKIP() << "namespaces cannot be forbidden here";
  }
  EXPECT_EQ(run.status, 0);
  EXPECT_TRUE(MachineHasThePictures());
}

TEST_F(KivrunTmpTest, MachineTmpGoesWithNoOptionThatWantsAPrivateTmp) {
  const std::string hint = "Try 'kivrun --help' for usage.";
  struct Case {
    const char* args;
    const char* message;
  };
  for (const Case& c :
       {Case{"--machine-tmp --private-tmp",
             "kivrun: --machine-tmp and --private-tmp ask for two different /tmp; give one"},
        Case{"--pictures-out=pictures --mach",
             "kivrun: --pictures-out copies the node's pictures out of its private /tmp; with "
             "--machine-tmp they stay in the machine's /tmp"}}) {
    SCOPED_TRACE(c.args);
    const testsupport::ProgramRun run = Kivrun(std::string(c.args) + " " + kRound);
    EXPECT_EQ(run.status, 2);
    ASSERT_EQ(run.err.size(), 2u);
    EXPECT_EQ(run.err[0], c.message);
    EXPECT_EQ(run.err[1], hint);
    EXPECT_FALSE(fs::exists("/tmp/left"));
  }
}

TEST_F(KivrunTmpTest, HelpNamesBothChoices) {
  const testsupport::ProgramRun run = Kivrun("--help");
  EXPECT_EQ(run.status, 0);
  EXPECT_NE(run.out.find("  --machine-tmp       let the node write into the machine's /tmp"),
            std::string::npos);
  EXPECT_NE(run.out.find("This is the default"), std::string::npos);
}

}  // namespace
