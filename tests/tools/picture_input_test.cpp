// stripetool::ReadPicture: the pictures it reads, and the message it gives
// for each one it refuses.
#include "tools/stripe_tool/picture_input.h"

#include <gtest/gtest.h>
#include <stdlib.h>

#include <filesystem>
#include <fstream>
#include <opencv2/core.hpp>
#include <opencv2/imgcodecs.hpp>
#include <stdexcept>
#include <string>

#include "tests/support/stripe_pictures.h"

namespace {

namespace fs = std::filesystem;

class PictureInputTest : public ::testing::Test {
 protected:
  void SetUp() override {
    char pattern[] = "/tmp/picture_input_test.XXXXXX";
    ASSERT_NE(mkdtemp(pattern), nullptr);
    dir_ = pattern;
  }
  void TearDown() override {
    if (!dir_.empty()) fs::remove_all(dir_);
  }

  std::string Path(const std::string& name) const { return (dir_ / name).string(); }
  std::string Picture(const std::string& name, const cv::Mat& picture) {
    EXPECT_TRUE(cv::imwrite(Path(name), picture));
    return Path(name);
  }
  std::string File(const std::string& name, const std::string& bytes) {
    std::ofstream(Path(name), std::ios::binary) << bytes;
    return Path(name);
  }

  // The message ReadPicture refuses `path` with ("" when it reads it).
  static std::string Refusal(const std::string& path, bool gray = false) {
    try {
      stripetool::ReadPicture(path, gray);
    } catch (const std::runtime_error& e) {
      return e.what();
    }
    return "";
  }

  fs::path dir_;
};

TEST_F(PictureInputTest, GrayBmpAndPngAreReadPixelForPixel) {
  const cv::Mat picture = testsupport::NoisyBentStripePicture();
  for (const std::string name : {"p.bmp", "p.png"}) {
    SCOPED_TRACE(name);
    const cv::Mat read = stripetool::ReadPicture(Picture(name, picture), false);
    ASSERT_EQ(read.type(), CV_8UC1);
    ASSERT_EQ(read.rows, 480);
    ASSERT_EQ(read.cols, 640);
    EXPECT_EQ(cv::countNonZero(read != picture), 0);
  }
}

TEST_F(PictureInputTest, ColourIsConvertedOnlyWhenAsked) {
  const cv::Mat gray = testsupport::BentStripePicture();
  cv::Mat colour;
  cv::Mat planes[] = {gray, gray, gray};
  cv::merge(planes, 3, colour);
  const std::string path = Picture("colour.png", colour);
  EXPECT_EQ(Refusal(path), "'" + path +
                               "' is 640 x 480 with 3 8-bit channels; the stripe cut needs 640 x "
                               "480 with one 8-bit channel (--gray converts a colour picture)");
  const cv::Mat read = stripetool::ReadPicture(path, true);
  ASSERT_EQ(read.type(), CV_8UC1);
  EXPECT_EQ(cv::countNonZero(read != gray), 0);

  cv::Mat with_alpha;
  cv::Mat four[] = {gray, gray, gray, cv::Mat(gray.size(), CV_8UC1, cv::Scalar(255))};
  cv::merge(four, 4, with_alpha);
  const std::string alpha_path = Picture("alpha.png", with_alpha);
  EXPECT_NE(Refusal(alpha_path).find("with 4 8-bit channels"), std::string::npos);
  EXPECT_EQ(cv::countNonZero(stripetool::ReadPicture(alpha_path, true) != gray), 0);
}

TEST_F(PictureInputTest, WrongShapesAreNamedWithTheirSizeAndDepth) {
  const std::string small = Picture("small.png", cv::Mat::zeros(100, 200, CV_8UC1));
  EXPECT_EQ(Refusal(small), "'" + small +
                                "' is 200 x 100 with 1 8-bit channel; the stripe cut needs 640 x "
                                "480 with one 8-bit channel");
  const std::string deep = Picture("deep.png", cv::Mat::zeros(480, 640, CV_16UC1));
  EXPECT_EQ(Refusal(deep, true), "'" + deep +
                                     "' is 640 x 480 with 1 16-bit channel; the stripe cut needs "
                                     "640 x 480 with one 8-bit channel");
}

TEST_F(PictureInputTest, FilesThatAreNoPicturesAreRefusedUnread) {
  const std::string missing = Path("missing.png");
  EXPECT_EQ(Refusal(missing), "cannot open '" + missing + "': No such file or directory");
  EXPECT_EQ(Refusal(dir_.string()).rfind("'" + dir_.string() + "' is not a BMP or PNG picture", 0),
            0u)
      << Refusal(dir_.string());

  const std::string text = File("text.png", "not a picture");
  EXPECT_EQ(Refusal(text), "'" + text +
                               "' is not a BMP or PNG picture; the stripe cut needs 640 x 480 "
                               "with one 8-bit channel");
  const std::string jpeg = Path("good.jpg");
  ASSERT_TRUE(cv::imwrite(jpeg, cv::Mat(480, 640, CV_8UC1, cv::Scalar(9))));
  EXPECT_EQ(Refusal(jpeg), "'" + jpeg +
                               "' is not a BMP or PNG picture; the stripe cut needs 640 x 480 "
                               "with one 8-bit channel");

  // A PNG header claiming 100000 x 100000 pixels, and nothing after it.
  std::string png("\x89PNG\r\n\x1a\n\0\0\0\x0dIHDR\0\x01\x86\xa0\0\x01\x86\xa0\x08\0\0\0\0", 29);
  const std::string huge = File("huge.png", png);
  EXPECT_EQ(Refusal(huge), "'" + huge +
                               "' is a PNG picture whose header claims 100000 x 100000 pixels; "
                               "the stripe cut needs 640 x 480 with one 8-bit channel");
}

TEST_F(PictureInputTest, DamagedPicturesNameTheFile) {
  // The start of a good BMP: the header is right, the pixels are missing.
  const std::string whole = Picture("whole.bmp", testsupport::BentStripePicture());
  std::ifstream in(whole, std::ios::binary);
  std::string bytes(2000, '\0');
  in.read(&bytes[0], static_cast<std::streamsize>(bytes.size()));
  const std::string cut = File("cut.bmp", bytes);
  const std::string refusal = Refusal(cut);
  EXPECT_TRUE(refusal == "cannot decode the picture in '" + cut +
                             "': the file is damaged, or not a picture" ||
              refusal == "cannot read a picture from '" + cut + "'")
      << refusal;
}

}  // namespace
