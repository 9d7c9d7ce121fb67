// The /tmp a program gives the node: --machine-tmp taken out of the command
// line, a private /tmp entered, or a refusal that says why and names the
// option.
//
// The test binary already runs in a private /tmp of its own (its main), which
// stands for "the machine's /tmp" here. Each case that enters one runs in a
// child process: a process chooses once for good.
#include "platform/sandbox/node_tmp.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iostream>
#include <sstream>
#include <string>
#include <vector>

namespace {

namespace fs = std::filesystem;

// Runs `body` in a child process; its exit code (or -1 when it did not exit).
int InChild(const std::function<int()>& body) {
  std::cout.flush();
  const pid_t child = fork();
  if (child == 0) _exit(body());
  int status = 0;
  if (child < 0 || waitpid(child, &status, 0) != child) return -1;
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

bool WriteTo(const char* path, const std::string& text) {
  const int fd = open(path, O_WRONLY | O_CLOEXEC);
  if (fd < 0) return false;
  const bool ok = write(fd, text.data(), text.size()) == static_cast<ssize_t>(text.size());
  close(fd);
  return ok;
}

// Moves the calling process into a user namespace of its own in which no
// further user or mount namespace can be made: no private /tmp can be had
// from here on. False where that cannot be done (under qemu user emulation,
// whose threads keep a process out of a new user namespace).
bool ForbidNamespaces() {
  const uid_t uid = geteuid();
  const gid_t gid = getegid();
  return unshare(CLONE_NEWUSER) == 0 && WriteTo("/proc/self/setgroups", "deny") &&
         WriteTo("/proc/self/uid_map", "0 " + std::to_string(uid) + " 1") &&
         WriteTo("/proc/self/gid_map", "0 " + std::to_string(gid) + " 1") &&
         WriteTo("/proc/sys/user/max_user_namespaces", "0") &&
         WriteTo("/proc/sys/user/max_mnt_namespaces", "0");
}

// argv as a program gets it, from `args`; the strings stay in `args`.
std::vector<char*> Argv(std::vector<std::string>& args) {
  std::vector<char*> argv;
  for (std::string& arg : args) argv.push_back(arg.data());
  argv.push_back(nullptr);
  return argv;
}

TEST(TakeMachineTmpTest, TakesEveryOneBeforeTheEndOfTheOptions) {
  std::vector<std::string> args = {"prog", "--machine-tmp", "--benchmark_filter=x", "--machine-tmp",
                                   "--",   "--machine-tmp"};
  std::vector<char*> argv = Argv(args);
  int argc = static_cast<int>(args.size());
  EXPECT_TRUE(sandbox::TakeMachineTmp(&argc, argv.data()));
  ASSERT_EQ(argc, 4);
  EXPECT_STREQ(argv[0], "prog");
  EXPECT_STREQ(argv[1], "--benchmark_filter=x");
  EXPECT_STREQ(argv[2], "--");
  EXPECT_STREQ(argv[3], "--machine-tmp");  // an operand after "--"
  EXPECT_EQ(argv[4], nullptr);
}

TEST(TakeMachineTmpTest, LeavesOtherArgumentsAsTheyAre) {
  std::vector<std::string> args = {"--machine-tmp", "--machine-tmpx", "--machine", "-machine-tmp",
                                   "--machine-tmp=yes"};
  std::vector<char*> argv = Argv(args);
  int argc = static_cast<int>(args.size());
  EXPECT_FALSE(sandbox::TakeMachineTmp(&argc, argv.data()));  // argv[0] is the program
  ASSERT_EQ(argc, 5);
  for (int i = 0; i < argc; ++i) EXPECT_EQ(argv[i], args[static_cast<std::size_t>(i)]);
}

class NodeTmpTest : public ::testing::Test {
 protected:
  void SetUp() override { fs::remove_all("/tmp/left"); }
  void TearDown() override { fs::remove_all("/tmp/left"); }
};

TEST_F(NodeTmpTest, APrivateTmpIsEnteredByDefault) {
  const int code = InChild([] {
    sandbox::PrivateTmp tmp;
    std::ostringstream err;
    if (sandbox::NodeTmpChosen()) return 10;
    if (!sandbox::EnterNodeTmp("prog", false, &tmp, err)) return err.str().empty() ? 11 : 77;
    if (!tmp.entered() || !sandbox::NodeTmpChosen() || !err.str().empty()) return 12;
    fs::create_directories("/tmp/left");
    std::ofstream("/tmp/left/3060.bmp") << "picture";
    return fs::exists("/tmp/left/3060.bmp") ? 0 : 13;
  });
  if (code == 77) GTEST_SKIP() << "no further private /tmp can be had here";
  EXPECT_EQ(code, 0);
  EXPECT_FALSE(fs::exists("/tmp/left")) << "the picture reached the outer /tmp";
}

TEST_F(NodeTmpTest, MachineTmpEntersNothing) {
  const int code = InChild([] {
    sandbox::PrivateTmp tmp;
    std::ostringstream err;
    if (!sandbox::EnterNodeTmp("prog", true, &tmp, err)) return 10;
    if (tmp.entered() || !sandbox::NodeTmpChosen() || !err.str().empty()) return 11;
    fs::create_directories("/tmp/left");
    std::ofstream("/tmp/left/3060.bmp") << "picture";
    return 0;
  });
  EXPECT_EQ(code, 0);
  EXPECT_TRUE(fs::exists("/tmp/left/3060.bmp")) << "the picture did not reach the outer /tmp";
}

TEST_F(NodeTmpTest, WithoutNamespacesItRefusesNamingTheOption) {
  const int code = InChild([] {
    if (!ForbidNamespaces()) return 77;
    sandbox::PrivateTmp tmp;
    std::ostringstream err;
    if (sandbox::EnterNodeTmp("frame_tick_bench", false, &tmp, err)) return 10;
    if (tmp.entered() || sandbox::NodeTmpChosen()) return 11;
    const std::string want_start = "frame_tick_bench: no private /tmp for the node (unshare(";
    const std::string want_end =
        "No space left on device); give --machine-tmp to let the node write into the "
        "machine's /tmp, over the pictures there\n";
    const std::string said = err.str();
    if (said.rfind(want_start, 0) != 0 || said.size() < want_end.size() ||
        said.compare(said.size() - want_end.size(), want_end.size(), want_end) != 0) {
      std::cerr << "said: " << said;
      return 12;
    }
    // Allowed explicitly, the same process goes on with the outer /tmp.
    if (!sandbox::EnterNodeTmp("frame_tick_bench", true, &tmp, err)) return 13;
    return sandbox::NodeTmpChosen() && !tmp.entered() ? 0 : 14;
  });
  if (code == 77) GTEST_SKIP() << "namespaces cannot be forbidden here";
  EXPECT_EQ(code, 0);
}

}  // namespace
