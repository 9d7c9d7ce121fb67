// Frames from a folder of recorded pictures: the two layouts, the distance
// and laser choosing the picture, and what a frame says when its picture is
// missing or cannot be used.
#include "platform/sunxi_cam/picture_folder.h"

#include <gtest/gtest.h>
#include <rapidjson/document.h>
#include <unistd.h>

#include <cstring>
#include <filesystem>
#include <opencv2/core.hpp>
#include <opencv2/imgcodecs.hpp>
#include <stdexcept>
#include <string>

#include "platform/sunxi_cam/camera_sim.h"
#include "platform/sunxi_cam/sunxi_cam.h"
#include "tests/support/camera_log.h"

namespace {

namespace fs = std::filesystem;
namespace sim = sunxi_cam::sim;

class PictureFolderTest : public ::testing::Test {
 protected:
  void SetUp() override {
    sim::Reset();
    sim::SetObserver(&log_);
    char name[] = "/tmp/picture_folder_test_XXXXXX";
    dir_ = mkdtemp(name);
  }
  void TearDown() override {
    sim::Reset();
    fs::remove_all(dir_);
  }

  // Writes a 640 x 480 picture of one gray level (or another size).
  std::string Picture(const std::string& relative, int level, int cols = 640, int rows = 480) {
    const fs::path path = fs::path(dir_) / relative;
    fs::create_directories(path.parent_path());
    EXPECT_TRUE(cv::imwrite(path.string(), cv::Mat(rows, cols, CV_8UC1, cv::Scalar(level))));
    return path.string();
  }

  void Configure(const std::string& json) {
    rapidjson::Document settings;
    settings.Parse(json.c_str());
    ASSERT_FALSE(settings.HasParseError()) << json;
    sim::Configure(settings);
  }
  std::string Settings(const std::string& extra = "") const {
    return R"({"pictures": ")" + dir_ + "\"" + extra + "}";
  }

  // The first luminance byte of the next frame, or -1 when the frame is refused.
  int NextFrame() {
    sunxi_cam::ImageFrame frame;
    if (!camera_.GetImageFrame(&frame)) return -1;
    const int level = frame.data[0];
    camera_.ReturnImageFrame(&frame);
    return level;
  }
  bool Open() { return camera_.OpenCamera(1, sunxi_cam::kPixelFormatNV21, 100, 640, 480); }
  std::string LastReason() const { return log_.lines.empty() ? "" : log_.lines.back(); }

  std::string dir_;
  testsupport::CameraLog log_;
  sunxi_cam::SunxiCam camera_;
};

TEST_F(PictureFolderTest, ByDistanceTheDistanceAndTheLaserChooseThePicture) {
  Picture("35/left.png", 11);
  Picture("35/right.bmp", 12);
  Picture("12.5/left.bmp", 13);
  Picture("12.5/right.bmp", 14);
  Configure(Settings(R"(, "distance": 35)"));
  ASSERT_TRUE(Open());
  EXPECT_EQ(NextFrame(), 11);  // the default pattern: left, right, ...
  EXPECT_EQ(NextFrame(), 12);
  sim::SetDistance(12.5);
  EXPECT_EQ(NextFrame(), 13);
  EXPECT_EQ(NextFrame(), 14);
}

TEST_F(PictureFolderTest, AMissingDistanceRefusesTheFrameNamingTheFileAndKeepsTheNumber) {
  Picture("35/left.png", 11);
  Picture("35/right.png", 12);
  Configure(Settings(R"(, "distance": 40)"));
  ASSERT_TRUE(Open());
  EXPECT_EQ(NextFrame(), -1);
  EXPECT_EQ(LastReason(), "GetImageFrame failed: no left picture for distance 40: '" + dir_ +
                              "/40/left.bmp' or '.png' is missing");
  sim::SetDistance(35);
  sunxi_cam::ImageFrame frame;
  ASSERT_TRUE(camera_.GetImageFrame(&frame));
  EXPECT_EQ(frame.index, 0);  // the refused frame used no sequence number
  EXPECT_EQ(frame.data[0], 11);
}

TEST_F(PictureFolderTest, APictureOfTheWrongSizeIsRefusedNamingTheFile) {
  const std::string small = Picture("20/left.png", 11, 320, 240);
  Picture("20/right.png", 12);
  Configure(Settings(R"(, "distance": 20)"));
  ASSERT_TRUE(Open());
  EXPECT_EQ(NextFrame(), -1);
  EXPECT_EQ(LastReason(), "GetImageFrame failed: image file '" + small +
                              "' is 320 x 240 with 1 channel(s) of 8 bits; the camera needs 640 "
                              "x 480 with one 8-bit channel (grayscale)");
  EXPECT_EQ(NextFrame(), -1);  // still the left frame's turn
}

TEST_F(PictureFolderTest, TheNodesOwnFoldersAreReadAsTheyAre) {
  Picture("left/3560.bmp", 21);
  Picture("right/3560.bmp", 22);
  Picture("pic/chessboard.bmp", 23);
  Configure(Settings(R"(, "distance": 35)"));
  ASSERT_TRUE(Open());
  EXPECT_EQ(NextFrame(), 21);
  EXPECT_EQ(NextFrame(), 22);
}

// A folder a round wrote: its pictures at 35 cm (delt 60), left 21 and
// right 22, and its distance check's, left 51 and right 52.
class RoundFolderTest : public PictureFolderTest {
 protected:
  void RoundFolder() {
    Picture("left/3560.bmp", 21);
    Picture("right/3560.bmp", 22);
    Picture("pic/dis_left.bmp", 51);
    Picture("pic/dis_right.bmp", 52);
  }
};

TEST_F(RoundFolderTest, ADistanceWithAFractionTakesTheDistanceChecksPictures) {
  RoundFolder();
  Configure(Settings(R"(, "distance": 27.5)"));
  ASSERT_TRUE(Open());
  EXPECT_EQ(NextFrame(), 51);
  EXPECT_EQ(NextFrame(), 52);
  sim::SetDistance(35);  // a whole distance shows its numbered pictures
  EXPECT_EQ(NextFrame(), 21);
  EXPECT_EQ(NextFrame(), 22);
}

TEST_F(RoundFolderTest, AWholeDistanceWithoutNumberedPicturesIsAHoleInTheFolder) {
  // The distance check's pictures do not stand in for a missing numbered
  // one: the folder lacks a picture of the round, and the message says which.
  RoundFolder();
  Configure(Settings(R"(, "distance": 20)"));
  ASSERT_TRUE(Open());
  EXPECT_EQ(NextFrame(), -1);
  EXPECT_EQ(LastReason(), "GetImageFrame failed: no left picture for distance 20: '" + dir_ +
                              "/left/2000.bmp' to '2099.bmp' are missing");
  Configure(R"({"picture_offset": 20, "distance": 35})");
  EXPECT_EQ(NextFrame(), -1);
  EXPECT_EQ(LastReason(), "GetImageFrame failed: no left picture for distance 35: '" + dir_ +
                              "/left/3520.bmp' is missing");
}

TEST_F(PictureFolderTest, WithoutTheDistanceChecksPictureTheFileLookedForIsNamed) {
  Picture("left/3560.bmp", 21);
  Picture("right/3560.bmp", 22);
  Picture("pic/dis_right.bmp", 52);
  Configure(Settings(R"(, "distance": 27.5)"));
  ASSERT_TRUE(Open());
  EXPECT_EQ(NextFrame(), -1);
  EXPECT_EQ(LastReason(), "GetImageFrame failed: no left picture for distance 27.5: '" + dir_ +
                              "/pic/dis_left.bmp' is missing (the node's numbered pictures are "
                              "of whole distances)");
}

TEST_F(PictureFolderTest, TwoNumbersForADistanceNeedTheOffset) {
  Picture("left/1020.bmp", 31);
  Picture("left/1060.bmp", 32);
  Picture("right/1020.bmp", 33);
  Picture("right/1060.bmp", 34);
  Configure(Settings(R"(, "distance": 10)"));
  ASSERT_TRUE(Open());
  EXPECT_EQ(NextFrame(), -1);
  EXPECT_EQ(LastReason(), "GetImageFrame failed: no left picture for distance 10: '" + dir_ +
                              "/left' holds 1020.bmp, 1060.bmp; say which with picture_offset "
                              "(the node's delt_factory or delt_app)");
  Configure(R"({"picture_offset": 60})");
  EXPECT_EQ(NextFrame(), 32);
  EXPECT_EQ(NextFrame(), 34);
  Configure(R"({"picture_offset": 20})");
  EXPECT_EQ(NextFrame(), 31);
}

TEST_F(PictureFolderTest, AnImageFileOfASlotComesBeforeTheFolder) {
  Picture("30/left.png", 41);
  Picture("30/right.png", 42);
  const std::string own = Picture("own.png", 43);
  Configure(Settings(R"(, "distance": 30, "images": {"right": ")" + own + "\"}"));
  ASSERT_TRUE(Open());
  EXPECT_EQ(NextFrame(), 41);
  EXPECT_EQ(NextFrame(), 43);
}

TEST_F(PictureFolderTest, NullAndResetGoBackToTheScene) {
  Picture("30/left.png", 41);
  Picture("30/right.png", 42);
  const uint8_t scene_first = sim::Luminance(1)[0];
  Configure(Settings(R"(, "distance": 30)"));
  EXPECT_EQ(sim::Luminance(1)[0], 41);
  Configure(R"({"pictures": null})");
  EXPECT_EQ(sim::Luminance(1)[0], scene_first);
  Configure(Settings());
  EXPECT_EQ(sim::Luminance(1)[0], 41);
  Configure(R"({"reset": true, "distance": 30})");
  EXPECT_EQ(sim::Luminance(1)[0], scene_first);
}

TEST_F(PictureFolderTest, AFolderWithNeitherLayoutOrNoFolderIsRefusedAndChangesNothing) {
  auto refusal = [this](const std::string& json) {
    try {
      Configure(json);
    } catch (const std::invalid_argument& e) {
      return std::string(e.what());
    }
    return std::string("taken");
  };
  Picture("loose.png", 1);
  EXPECT_EQ(refusal(Settings()),
            "camera sim: pictures: '" + dir_ +
                "' holds neither a folder per distance (DIR/35/left.png) nor the node's left/ "
                "and right/ folders (DIR/left/3560.bmp)");
  EXPECT_EQ(refusal(R"({"pictures": ")" + dir_ + "/loose.png\"}"),
            "camera sim: pictures: '" + dir_ + "/loose.png' is not a folder");
  EXPECT_EQ(refusal(R"({"pictures": 5})"), "camera sim: pictures must be a folder name or null");
  EXPECT_EQ(refusal(R"({"picture_offset": 100})"),
            "camera sim: picture_offset must be an integer from 0 to 99, or null");
  ASSERT_TRUE(Open());
  EXPECT_NE(NextFrame(), -1);  // still the scene
}

}  // namespace
