// The private /tmp: emptying it removes what the process wrote there and
// leaves the folders kept from the machine's /tmp as they are.
//
// The test binary itself already runs in a private /tmp (its main), which
// stands for "the machine's /tmp" here: each case enters a further one in a
// child process, because a process enters a private /tmp once for good.
#include "platform/sandbox/private_tmp.h"

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <functional>
#include <string>

namespace {

namespace fs = std::filesystem;

// Runs `body` in a child process; its exit code (or -1 when it did not exit).
int InChild(const std::function<int()>& body) {
  const pid_t child = fork();
  if (child == 0) _exit(body());
  int status = 0;
  if (child < 0 || waitpid(child, &status, 0) != child) return -1;
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

void Touch(const fs::path& path) {
  fs::create_directories(path.parent_path());
  std::ofstream(path) << "picture";
}

class PrivateTmpTest : public ::testing::Test {
 protected:
  void SetUp() override {
    char pattern[] = "/tmp/private_tmp_test.XXXXXX";
    ASSERT_NE(mkdtemp(pattern), nullptr);
    folder_ = pattern;
    Touch(folder_ / "own.bmp");
  }
  void TearDown() override { fs::remove_all(folder_); }

  fs::path folder_;  // a folder of the outer /tmp, with a file in it
};

TEST_F(PrivateTmpTest, EmptyRemovesWhatWasWrittenAndKeepsTheKeptFolders) {
  const int code = InChild([this] {
    if (chdir(folder_.c_str()) != 0) return 10;  // the working folder is kept
    sandbox::PrivateTmp tmp;
    std::string reason;
    if (!tmp.Enter(&reason)) return 77;
    if (!fs::exists(folder_ / "own.bmp")) return 11;  // kept and visible
    if (fs::exists("/tmp/left")) return 12;           // the rest is a new, empty /tmp
    Touch("/tmp/left/560.bmp");
    Touch("/tmp/pic/chessboard.bmp");
    Touch("/tmp/LL.bmp");
    Touch(folder_ / "inner.bmp");  // the kept folder's contents are the machine's
    if (!tmp.Empty(&reason)) return 13;
    if (fs::exists("/tmp/left") || fs::exists("/tmp/pic") || fs::exists("/tmp/LL.bmp")) return 14;
    if (!fs::exists(folder_ / "own.bmp") || !fs::exists(folder_ / "inner.bmp")) return 15;
    return 0;
  });
  if (code == 77) GTEST_SKIP() << "no further private /tmp can be had here";
  EXPECT_EQ(code, 0);
  // Seen from outside: the kept folder is whole, and nothing else leaked out.
  EXPECT_TRUE(fs::exists(folder_ / "own.bmp"));
  EXPECT_TRUE(fs::exists(folder_ / "inner.bmp"));
  EXPECT_FALSE(fs::exists("/tmp/left/560.bmp"));
  EXPECT_FALSE(fs::exists("/tmp/LL.bmp"));
}

// A path the user named under the outer /tmp leads to the same file after
// Enter(): in a kept folder under its own name, elsewhere through the kept
// descriptor of the outer /tmp.
TEST_F(PrivateTmpTest, OuterLeadsToTheOuterFiles) {
  const fs::path loose = folder_.string() + ".loose.bmp";  // directly in the outer /tmp
  std::ofstream(loose) << "loose";
  const int code = InChild([this, &loose] {
    if (chdir(folder_.c_str()) != 0) return 10;
    sandbox::PrivateTmp tmp;
    if (tmp.Outer(loose.string()) != loose.string()) return 11;  // before Enter: as it is
    std::string reason;
    if (!tmp.Enter(&reason)) return 77;
    const std::string own = (folder_ / "own.bmp").string();
    if (tmp.Outer(own) != own) return 12;  // kept: the same name
    const std::string through = tmp.Outer(loose.string());
    if (through.rfind("/proc/self/fd/", 0) != 0 || fs::exists(loose)) return 13;
    std::ifstream in(through);
    std::string text;
    in >> text;
    if (text != "loose") return 14;
    if (tmp.Outer("relative.bmp") != "relative.bmp" || tmp.Outer("/usr/x") != "/usr/x") return 15;
    return 0;
  });
  fs::remove(loose);
  if (code == 77) GTEST_SKIP() << "no further private /tmp can be had here";
  EXPECT_EQ(code, 0);
}

TEST_F(PrivateTmpTest, EmptyBeforeEnterRemovesNothing) {
  sandbox::PrivateTmp tmp;
  std::string reason;
  EXPECT_FALSE(tmp.Empty(&reason));
  EXPECT_EQ(reason, "not in a private /tmp");
  EXPECT_TRUE(fs::exists(folder_ / "own.bmp"));
}

}  // namespace
