// What the tests of a program's /tmp for the node share (kivrun, the
// benchmark programs): a scratch folder to run the program from, the node's
// picture places cleared before and after each test, and the refusal line a
// program writes where no private /tmp can be had.
//
// The test binary runs in a private /tmp of its own (its main), which stands
// for "the machine's /tmp" in these tests: a picture the node writes there
// was written into the machine's.
#ifndef LASERCALI_TESTS_SUPPORT_NODE_TMP_FIXTURE_H_
#define LASERCALI_TESTS_SUPPORT_NODE_TMP_FIXTURE_H_

#include <gtest/gtest.h>
#include <stdlib.h>
#include <sys/wait.h>

#include <cstdlib>
#include <filesystem>
#include <string>

#include "tests/support/program_run.h"

namespace testsupport {

class NodeTmpFixture : public ::testing::Test {
 protected:
  void SetUp() override {
    RemoveNodePictures();
    char pattern[] = "/tmp/node_tmp_fixture.XXXXXX";
    ASSERT_NE(mkdtemp(pattern), nullptr);
    dir_ = pattern;
  }
  void TearDown() override {
    RemoveNodePictures();
    if (!dir_.empty()) std::filesystem::remove_all(dir_);
  }

  static void RemoveNodePictures() {
    for (const char* place :
         {"/tmp/left", "/tmp/right", "/tmp/pic", "/tmp/LL.bmp", "/tmp/RR.bmp"}) {
      std::filesystem::remove_all(place);
    }
  }

  // Runs the shell command `command` from the scratch folder. A program
  // killed by signal N has the status 128 + N, as the shell says it.
  ProgramRun Run(const std::string& command) const {
    const std::filesystem::path out = dir_ / "out.txt", err = dir_ / "err.txt";
    const std::string line = "cd '" + dir_.string() + "' && " + command + " >'" + out.string() +
                             "' 2>'" + err.string() + "'";
    const int raw = std::system(line.c_str());
    ProgramRun run;
    run.status = WIFEXITED(raw) ? WEXITSTATUS(raw) : -1;
    run.out = ReadFile(out);
    run.err = Lines(ReadFile(err));
    return run;
  }

  // `program` refused to run for want of a private /tmp: exit code 6, one
  // line on standard error that says why and names --machine-tmp.
  static void ExpectRefused(const ProgramRun& run, const std::string& program) {
    const std::string end =
        "; give --machine-tmp to let the node write into the machine's /tmp, over the pictures "
        "there";
    EXPECT_EQ(run.status, 6);
    ASSERT_EQ(run.err.size(), 1u);
    EXPECT_EQ(run.err[0].rfind(program + ": no private /tmp for the node (unshare(", 0), 0u)
        << run.err[0];
    ASSERT_GE(run.err[0].size(), end.size());
    EXPECT_EQ(run.err[0].substr(run.err[0].size() - end.size()), end);
  }

  std::filesystem::path dir_;
};

}  // namespace testsupport

#endif  // LASERCALI_TESTS_SUPPORT_NODE_TMP_FIXTURE_H_
