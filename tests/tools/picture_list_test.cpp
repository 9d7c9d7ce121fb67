// The pictures stripe-inspect finds from its command line, their order, and
// the laser a path names.
#include "tools/stripe_tool/picture_list.h"

#include <gtest/gtest.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "src/stripecut.h"

namespace {

namespace fs = std::filesystem;
using stripetool::LaserInPath;
using stripetool::ListPictures;
using stripetool::NameLess;

class PictureListTest : public ::testing::Test {
 protected:
  void SetUp() override {
    char pattern[] = "/tmp/picture_list_test.XXXXXX";
    ASSERT_NE(mkdtemp(pattern), nullptr);
    dir_ = pattern;
  }
  void TearDown() override {
    if (!dir_.empty()) fs::remove_all(dir_);
  }

  // Makes the file dir_/name (and its folders); returns its path.
  std::string Touch(const std::string& name) {
    fs::create_directories((dir_ / name).parent_path());
    std::ofstream(dir_ / name) << "x";
    return (dir_ / name).string();
  }
  std::string Path(const std::string& name) const { return (dir_ / name).string(); }

  // The paths of the list, relative to dir_.
  std::vector<std::string> Relative(const stripetool::PictureList& list) const {
    std::vector<std::string> paths;
    for (const auto& entry : list.entries) {
      paths.push_back(fs::path(entry.path).lexically_relative(dir_).string());
    }
    return paths;
  }

  fs::path dir_;
};

TEST(NameLessTest, NumbersCompareByTheirValue) {
  EXPECT_TRUE(NameLess("500.bmp", "1000.bmp"));
  EXPECT_FALSE(NameLess("1000.bmp", "500.bmp"));
  EXPECT_TRUE(NameLess("9", "10"));
  EXPECT_TRUE(NameLess("a2b", "a10b"));
  EXPECT_TRUE(NameLess("a10b", "a10c"));
  EXPECT_TRUE(NameLess("LL.bmp", "RR.bmp"));
  EXPECT_TRUE(NameLess("left", "right"));
  EXPECT_TRUE(NameLess("a", "a1"));
  EXPECT_FALSE(NameLess("a1", "a"));
  // The same value written two ways: ordered byte by byte, never equal.
  EXPECT_TRUE(NameLess("007", "7"));
  EXPECT_FALSE(NameLess("7", "007"));
  EXPECT_FALSE(NameLess("7", "7"));
  // Bytes above 127 sort after ASCII.
  EXPECT_TRUE(NameLess("z", "\xc3\xa9"));

  std::vector<std::string> names = {"2000.bmp", "500.bmp", "10000.bmp", "1500.bmp",
                                    "505.bmp",  "LL.bmp",  "1000.bmp"};
  std::sort(names.begin(), names.end(), NameLess);
  EXPECT_EQ(names, (std::vector<std::string>{"500.bmp", "505.bmp", "1000.bmp", "1500.bmp",
                                             "2000.bmp", "10000.bmp", "LL.bmp"}));
}

TEST_F(PictureListTest, FoldersAreWalkedInNameOrderWithTheirSubfolders) {
  Touch("s/right/1000.bmp");
  Touch("s/right/500.PNG");
  Touch("s/left/1000.bmp");
  Touch("s/left/500.bmp");
  Touch("s/left/deeper/5.png");
  Touch("s/LL.bmp");
  Touch("s/notes.txt");
  Touch("s/left/500.bmp.json");
  Touch("s/left/500.jpg");
  fs::create_directories(dir_ / "s/empty");

  const stripetool::PictureList list = ListPictures({Path("s")});
  EXPECT_EQ(Relative(list), (std::vector<std::string>{"s/LL.bmp", "s/left/500.bmp",
                                                      "s/left/1000.bmp", "s/left/deeper/5.png",
                                                      "s/right/500.PNG", "s/right/1000.bmp"}));
  for (const auto& entry : list.entries) EXPECT_EQ(entry.problem, "") << entry.path;
  EXPECT_EQ(list.passed_over, 3u);
}

TEST_F(PictureListTest, TheCommandLinesOrderIsKeptAndFilesAreTakenWhateverTheirName) {
  Touch("b.txt");
  Touch("f/2.bmp");
  Touch("f/1.bmp");
  Touch("a.bmp");
  // A trailing slash on a folder gives no double slash.
  const stripetool::PictureList list =
      ListPictures({Path("b.txt"), Path("f") + "/", Path("a.bmp"), Path("missing.png")});
  ASSERT_EQ(list.entries.size(), 5u);
  EXPECT_EQ(list.entries[0].path, Path("b.txt"));
  EXPECT_EQ(list.entries[1].path, Path("f/1.bmp"));
  EXPECT_EQ(list.entries[2].path, Path("f/2.bmp"));
  EXPECT_EQ(list.entries[3].path, Path("a.bmp"));
  // A file that is not there is still listed: reading it says why.
  EXPECT_EQ(list.entries[4].path, Path("missing.png"));
  for (const auto& entry : list.entries) EXPECT_EQ(entry.problem, "") << entry.path;
  EXPECT_EQ(list.passed_over, 0u);
}

TEST_F(PictureListTest, AFolderWithoutPicturesIsAnEntryWithAProblem) {
  Touch("none/notes.txt");
  fs::create_directories(dir_ / "none/sub");
  const stripetool::PictureList list = ListPictures({Path("none")});
  ASSERT_EQ(list.entries.size(), 1u);
  EXPECT_EQ(list.entries[0].path, Path("none"));
  EXPECT_EQ(list.entries[0].problem,
            "the folder '" + Path("none") + "' holds no .bmp or .png file");
  EXPECT_EQ(list.passed_over, 1u);
}

TEST_F(PictureListTest, LinksToFoldersAreNotFollowedButLinksToFilesAre) {
  Touch("s/a/1.bmp");
  fs::create_directory_symlink(dir_ / "s", dir_ / "s/a/loop");
  fs::create_symlink(dir_ / "s/a/1.bmp", dir_ / "s/a/2.bmp");
  fs::create_symlink(dir_ / "s/a/gone.bmp", dir_ / "s/a/3.bmp");
  const stripetool::PictureList list = ListPictures({Path("s")});
  EXPECT_EQ(Relative(list), (std::vector<std::string>{"s/a/1.bmp", "s/a/2.bmp", "s/a/3.bmp"}));
  // A link to nothing is listed: reading it tells the user.
  EXPECT_EQ(list.entries[2].problem, "");
}

TEST_F(PictureListTest, SpecialFilesWithAPicturesNameAreNeverOpened) {
  fs::create_directories(dir_ / "s");
  ASSERT_EQ(mkfifo(Path("s/pipe.bmp").c_str(), 0600), 0);
  const stripetool::PictureList list = ListPictures({Path("s")});
  ASSERT_EQ(list.entries.size(), 1u);
  EXPECT_EQ(list.entries[0].problem, "'" + Path("s/pipe.bmp") + "' is not a file");
}

TEST_F(PictureListTest, AFolderThatCannotBeReadIsAnEntryWithAProblem) {
  if (geteuid() == 0) GTEST_SKIP() << "root reads every folder";
  Touch("s/a/1.bmp");
  Touch("s/b/1.bmp");
  fs::permissions(dir_ / "s/a", fs::perms::none);
  const stripetool::PictureList list = ListPictures({Path("s")});
  fs::permissions(dir_ / "s/a", fs::perms::owner_all);
  ASSERT_EQ(list.entries.size(), 2u);
  EXPECT_EQ(list.entries[0].problem,
            "cannot read the folder '" + Path("s/a") + "': Permission denied");
  EXPECT_EQ(list.entries[1].path, Path("s/b/1.bmp"));
}

TEST(LaserInPathTest, TheLastWordThatNamesALaserDecides) {
  constexpr int kLeft = kivplugcali::kStripeWalkLeft;
  constexpr int kRight = kivplugcali::kStripeWalkRight;
  EXPECT_EQ(LaserInPath("/tmp/LL.bmp"), kLeft);
  EXPECT_EQ(LaserInPath("/tmp/RR.bmp"), kRight);
  EXPECT_EQ(LaserInPath("/tmp/left/2000.bmp"), kLeft);
  EXPECT_EQ(LaserInPath("/tmp/right/2000.bmp"), kRight);
  EXPECT_EQ(LaserInPath("/data/Right_30.png"), kRight);
  EXPECT_EQ(LaserInPath("/data/left-20.bmp"), kLeft);
  EXPECT_EQ(LaserInPath("/data/rr.bmp"), kRight);
  // The file's own name is nearer than its folder's.
  EXPECT_EQ(LaserInPath("/session/left/RR.bmp"), kRight);
  EXPECT_EQ(LaserInPath("/session/right/x_left.bmp"), kLeft);
  // Words are runs of letters and digits: none of these is one.
  EXPECT_EQ(LaserInPath("/data/bright/leftover.bmp"), std::nullopt);
  EXPECT_EQ(LaserInPath("/data/wall.bmp"), std::nullopt);
  EXPECT_EQ(LaserInPath("/data/left20.bmp"), std::nullopt);
  EXPECT_EQ(LaserInPath("/tmp/stripe_tool_test.a3LL9b/x.png"), std::nullopt);
}

TEST(LaserInPathTest, ARelativePathCountsTheWorkingFolder) {
  const fs::path before = fs::current_path();
  char pattern[] = "/tmp/laser_in_path.XXXXXX";
  ASSERT_NE(mkdtemp(pattern), nullptr);
  fs::create_directories(fs::path(pattern) / "right");
  fs::current_path(fs::path(pattern) / "right");
  const auto laser = LaserInPath("2000.bmp");
  const auto nearer = LaserInPath("left/2000.bmp");
  fs::current_path(before);
  fs::remove_all(pattern);
  EXPECT_EQ(laser, kivplugcali::kStripeWalkRight);
  EXPECT_EQ(nearer, kivplugcali::kStripeWalkLeft);
}

}  // namespace
