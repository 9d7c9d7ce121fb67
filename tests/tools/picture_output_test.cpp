// stripetool::WritePicture and PictureNameProblem: pictures written whole,
// and the message for each that cannot be.
#include "tools/stripe_tool/picture_output.h"

#include <gtest/gtest.h>
#include <stdlib.h>

#include <filesystem>
#include <opencv2/core.hpp>
#include <opencv2/imgcodecs.hpp>
#include <stdexcept>
#include <string>

namespace {

namespace fs = std::filesystem;

class PictureOutputTest : public ::testing::Test {
 protected:
  void SetUp() override {
    char pattern[] = "/tmp/picture_output_test.XXXXXX";
    ASSERT_NE(mkdtemp(pattern), nullptr);
    dir_ = pattern;
  }
  void TearDown() override {
    if (!dir_.empty()) fs::remove_all(dir_);
  }
  std::string Path(const std::string& name) const { return (dir_ / name).string(); }

  // The message WritePicture refuses with ("" when it wrote the picture).
  static std::string Refusal(const std::string& path) {
    try {
      stripetool::WritePicture(path, cv::Mat(4, 6, CV_8UC3, cv::Scalar(1, 2, 3)), "test picture");
    } catch (const std::runtime_error& e) {
      return e.what();
    }
    return "";
  }

  fs::path dir_;
};

TEST_F(PictureOutputTest, ThePictureIsWrittenInTheFormatOfItsExtension) {
  for (const std::string name : {"p.png", "p.bmp", "P.PNG"}) {
    SCOPED_TRACE(name);
    EXPECT_EQ(stripetool::PictureNameProblem(Path(name), "test picture"), "");
    EXPECT_EQ(Refusal(Path(name)), "");
    const cv::Mat read = cv::imread(Path(name), cv::IMREAD_UNCHANGED);
    ASSERT_EQ(read.type(), CV_8UC3);
    EXPECT_EQ(read.at<cv::Vec3b>(3, 5), cv::Vec3b(1, 2, 3));
  }
}

TEST_F(PictureOutputTest, NamesThatCanNeverBeWrittenAreToldBeforehand) {
  const std::string bare = Path("sheet");
  const std::string no_extension = "cannot write the test picture to '" + bare +
                                   "': the file name has no extension (.png, .bmp, ...) to "
                                   "choose the picture format";
  EXPECT_EQ(stripetool::PictureNameProblem(bare, "test picture"), no_extension);
  EXPECT_EQ(Refusal(bare), no_extension);
  EXPECT_FALSE(fs::exists(bare));

  const std::string dotted_folder = Path("a.b/sheet");
  EXPECT_NE(stripetool::PictureNameProblem(dotted_folder, "x").find("has no extension"),
            std::string::npos);

  const std::string odd = Path("sheet.xyz");
  const std::string no_format =
      "cannot write the test picture to '" + odd + "': no picture format for the extension '.xyz'";
  EXPECT_EQ(stripetool::PictureNameProblem(odd, "test picture"), no_format);
  EXPECT_EQ(Refusal(odd), no_format);
  EXPECT_FALSE(fs::exists(odd));
}

TEST_F(PictureOutputTest, AFullDiskOrAMissingFolderIsReported) {
  fs::create_symlink("/dev/full", dir_ / "full.png");
  EXPECT_EQ(Refusal(Path("full.png")),
            "cannot write the test picture to '" + Path("full.png") + "': No space left on device");
  EXPECT_EQ(Refusal(Path("none/p.png")), "cannot write the test picture to '" + Path("none/p.png") +
                                             "': No such file or directory");
}

}  // namespace
