// The picture files of a round as the calculation nodes read them.
#include "tools/calc/picture_files.h"

#include <gtest/gtest.h>

#include <fstream>
#include <opencv2/imgcodecs.hpp>
#include <string>
#include <vector>

#include "tests/support/temp_folder.h"

namespace {

void WritePicture(const std::string& path, int rows, int cols, int type) {
  ASSERT_TRUE(cv::imwrite(path, cv::Mat(rows, cols, type, cv::Scalar::all(7))));
}

TEST(PictureProblemTest, NamesWhatIsWrong) {
  testsupport::TempFolder folder;
  EXPECT_EQ(calc::PictureProblem(folder.File("none.bmp")), "missing");
  std::ofstream(folder.File("text.bmp")) << "hello, this is not a picture at all";
  EXPECT_EQ(calc::PictureProblem(folder.File("text.bmp")), "not a BMP file");
  WritePicture(folder.File("small.bmp"), 240, 320, CV_8UC1);
  EXPECT_EQ(calc::PictureProblem(folder.File("small.bmp")), "320 x 240, not 640 x 480");
  WritePicture(folder.File("colour.bmp"), 480, 640, CV_8UC3);
  EXPECT_EQ(calc::PictureProblem(folder.File("colour.bmp")), "24-bit, not 8-bit");
  WritePicture(folder.File("good.bmp"), 480, 640, CV_8UC1);
  EXPECT_EQ(calc::PictureProblem(folder.File("good.bmp")), "");
}

TEST(ReadPictureTest, DecodesWhatTheHeaderPromises) {
  testsupport::TempFolder folder;
  WritePicture(folder.File("good.bmp"), 480, 640, CV_8UC1);
  cv::Mat picture;
  EXPECT_EQ(calc::ReadPicture(folder.File("good.bmp"), &picture), "");
  EXPECT_EQ(picture.at<uint8_t>(479, 639), 7);
  // A header that says 640 x 480, 8 bits, over bytes that end too soon.
  std::string bytes;
  {
    std::ifstream in(folder.File("good.bmp"), std::ios::binary);
    bytes.assign(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
  }
  std::ofstream(folder.File("cut.bmp"), std::ios::binary) << bytes.substr(0, 2000);
  EXPECT_EQ(calc::PictureProblem(folder.File("cut.bmp")), "");
  EXPECT_EQ(calc::ReadPicture(folder.File("cut.bmp"), &picture),
            "cannot be decoded as a 640 x 480 8-bit picture");
}

TEST(FactoryPlanePicturesTest, LeftAndRightOfEveryDistanceNumberedWithTheOffset) {
  const std::vector<std::string> paths = calc::FactoryPlanePictures(60);
  ASSERT_EQ(paths.size(), 18u);
  EXPECT_EQ(paths.front(), "/tmp/left/560.bmp");
  EXPECT_EQ(paths[8], "/tmp/left/4560.bmp");
  EXPECT_EQ(paths[9], "/tmp/right/560.bmp");
  EXPECT_EQ(paths.back(), "/tmp/right/4560.bmp");
  EXPECT_EQ(
      calc::FactoryPictures("a/l", "b/r", 20, {10, 30}),
      (std::vector<std::string>{"a/l/1020.bmp", "a/l/3020.bmp", "b/r/1020.bmp", "b/r/3020.bmp"}));
}

TEST(StripePictureOfTest, TheFolderNamesTheLaserAndTheNumberTheDistance) {
  bool left = false;
  int distance = 0;
  ASSERT_TRUE(calc::StripePictureOf("/tmp/left/560.bmp", &left, &distance));
  EXPECT_TRUE(left);
  EXPECT_EQ(distance, 5);
  ASSERT_TRUE(calc::StripePictureOf("/x/y/right/4560.bmp", &left, &distance));
  EXPECT_FALSE(left);
  EXPECT_EQ(distance, 45);
  ASSERT_TRUE(calc::StripePictureOf("right/3020.bmp", &left, &distance));
  EXPECT_EQ(distance, 30);
  for (const char* path :
       {"/tmp/pic/L.bmp", "/tmp/left/L.bmp", "/tmp/left/99.bmp", "/tmp/left/560.png",
        "/tmp/lefty/560.bmp", "560.bmp", "/tmp/left/5a0.bmp", "/tmp/left/.bmp"}) {
    EXPECT_FALSE(calc::StripePictureOf(path, &left, &distance)) << path;
  }
}

}  // namespace
