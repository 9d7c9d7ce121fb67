// The camera simulator: sessions, frames, buffers, faults, image files,
// rendered scenes and its JSON settings.
#include "platform/sunxi_cam/camera_sim.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cmath>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <opencv2/core.hpp>
#include <opencv2/imgcodecs.hpp>
#include <string>
#include <utility>
#include <vector>

#include "platform/sunxi_cam/scene.h"
#include "platform/sunxi_cam/sunxi_cam.h"
#include "tests/support/camera_log.h"
#include "tests/support/node_harness.h"

namespace {

namespace sim = sunxi_cam::sim;
using sim::Fault;
using sim::Operation;
using sunxi_cam::ImageFrame;
using sunxi_cam::kPixelFormatNV21;
using sunxi_cam::SunxiCam;

constexpr double kPi = 3.14159265358979323846;

class CameraSimTest : public ::testing::Test {
 protected:
  void SetUp() override {
    testsupport::ResetPluginGlobals();
    sim::Reset();
    sim::SetObserver(&log_);
  }
  void TearDown() override { sim::Reset(); }

  bool Open() { return camera_.OpenCamera(1, kPixelFormatNV21, 100, 640, 480); }
  // Takes a frame and hands it back; returns its record.
  ImageFrame TakeAndReturn() {
    ImageFrame frame;
    EXPECT_TRUE(camera_.GetImageFrame(&frame));
    EXPECT_TRUE(camera_.ReturnImageFrame(&frame));
    return frame;
  }
  // A temporary folder of this test, removed at the end.
  std::string TempDir() {
    if (dir_.empty()) {
      char name[] = "/tmp/camera_sim_test_XXXXXX";
      dir_ = mkdtemp(name);
    }
    return dir_;
  }
  ~CameraSimTest() override {
    if (!dir_.empty()) std::filesystem::remove_all(dir_);
  }

  SunxiCam camera_;
  testsupport::CameraLog log_;
  std::string dir_;
};

std::vector<uint8_t> Plane(uint64_t laser) {
  const uint8_t* p = sim::Luminance(laser);
  return std::vector<uint8_t>(p, p + 640 * 480);
}

// Weighted centre column of the pixels of 100 or more in `row`, or -1.
double RowCentre(const uint8_t* plane, int row) {
  double sum = 0, weighted = 0;
  for (int u = 0; u < 640; ++u) {
    const int value = plane[row * 640 + u];
    if (value >= 100) {
      sum += value;
      weighted += static_cast<double>(value) * u;
    }
  }
  return sum > 0 ? weighted / sum : -1;
}

// Separate runs of pixels of 100 or more in `row`.
int BrightRuns(const uint8_t* plane, int row) {
  int runs = 0;
  bool in = false;
  for (int u = 0; u < 640; ++u) {
    const bool bright = plane[row * 640 + u] >= 100;
    if (bright && !in) ++runs;
    in = bright;
  }
  return runs;
}

// Columns moved per row around `row`, over 3 rows each way.
double SlopeAt(const uint8_t* plane, int row) {
  return std::fabs(RowCentre(plane, row + 3) - RowCentre(plane, row - 3)) / 6.0;
}

// Row where a wall at `distance` meets the floor, for the default camera.
double ExpectedFootRow(double distance) {
  const double h = 5, pitch = 10 * kPi / 180, fy = 450, cy = 240;
  return cy + fy * (h * std::cos(pitch) - distance * std::sin(pitch)) /
                  (distance * std::cos(pitch) + h * std::sin(pitch));
}

// The lowest row, going up from the bottom, where the stripe stops sliding
// sideways (the foot of the wall).
int MeasuredFootRow(const uint8_t* plane) {
  for (int row = 470; row >= 10; --row) {
    if (RowCentre(plane, row + 3) >= 0 && RowCentre(plane, row - 3) >= 0 &&
        SlopeAt(plane, row) < 0.1) {
      return row;
    }
  }
  return -1;
}

// --- Sessions and frames ----------------------------------------------------

TEST_F(CameraSimTest, SequenceNumbersCountFromZeroInEachSession) {
  ASSERT_TRUE(Open());
  EXPECT_EQ(TakeAndReturn().index, 0);
  EXPECT_EQ(TakeAndReturn().index, 1);
  const ImageFrame third = TakeAndReturn();
  EXPECT_EQ(third.index, 2);
  EXPECT_EQ(third.timestamp_us, 20000);  // 100 frames a second
  ASSERT_TRUE(camera_.CloseCamera());
  ASSERT_TRUE(Open());
  EXPECT_EQ(TakeAndReturn().index, 0);
  EXPECT_EQ(sim::GetStatus().open_count, 2);
}

TEST_F(CameraSimTest, AllCameraObjectsShareTheOneCamera) {
  SunxiCam other;
  ASSERT_TRUE(Open());
  EXPECT_FALSE(other.OpenCamera(1, kPixelFormatNV21, 100, 640, 480));
  EXPECT_EQ(log_.lines.back(), "OpenCamera 1 " + std::to_string(kPixelFormatNV21) +
                                   " 100 640 480 failed: camera already open");
  ImageFrame frame;
  ASSERT_TRUE(other.GetImageFrame(&frame));
  EXPECT_TRUE(camera_.ReturnImageFrame(&frame));
  EXPECT_TRUE(other.CloseCamera());
  EXPECT_FALSE(sim::GetStatus().open);
}

TEST_F(CameraSimTest, DefaultLaserPatternAlternatesLeftAndRight) {
  ASSERT_TRUE(Open());
  std::vector<uint64_t> lasers;
  for (int i = 0; i < 5; ++i) lasers.push_back(TakeAndReturn().laser);
  EXPECT_EQ(lasers, (std::vector<uint64_t>{1, 8, 1, 8, 1}));
}

TEST_F(CameraSimTest, LaserPatternRepeatsAndRestartsWithTheSession) {
  sim::SetLaserPattern({0x11, 0x11, 0x28});
  ASSERT_TRUE(Open());
  std::vector<uint64_t> lasers;
  for (int i = 0; i < 4; ++i) lasers.push_back(TakeAndReturn().laser);
  EXPECT_EQ(lasers, (std::vector<uint64_t>{0x11, 0x11, 0x28, 0x11}));
  ASSERT_TRUE(camera_.CloseCamera());
  ASSERT_TRUE(Open());
  EXPECT_EQ(TakeAndReturn().laser, 0x11u);
  EXPECT_THROW(sim::SetLaserPattern({}), std::invalid_argument);
}

TEST_F(CameraSimTest, FramePixelsAreTheSceneOfTheLitLaser) {
  ASSERT_TRUE(Open());
  ImageFrame frame;
  ASSERT_TRUE(camera_.GetImageFrame(&frame));
  ASSERT_NE(frame.data, nullptr);
  EXPECT_EQ(frame.laser, 1u);
  EXPECT_EQ(std::memcmp(frame.data, sim::Luminance(1), 640 * 480), 0);
  EXPECT_NE(std::memcmp(frame.data, sim::Luminance(8), 640 * 480), 0);
  // The VU plane is neutral grey.
  for (int i = 640 * 480; i < sim::kFrameBytes; i += 997) ASSERT_EQ(frame.data[i], 128) << i;
  EXPECT_TRUE(camera_.ReturnImageFrame(&frame));
}

TEST_F(CameraSimTest, FramesOutUseDifferentBuffers) {
  ASSERT_TRUE(Open());
  ImageFrame a, b;
  ASSERT_TRUE(camera_.GetImageFrame(&a));
  ASSERT_TRUE(camera_.ReturnImageFrame(&a));
  ASSERT_TRUE(camera_.GetImageFrame(&b));
  EXPECT_NE(a.buffer, b.buffer);
  EXPECT_NE(a.data, b.data);
  EXPECT_TRUE(camera_.ReturnImageFrame(&b));
  EXPECT_EQ(sim::GetStatus().frames_out, 0);
}

TEST_F(CameraSimTest, AFrameCanBeHandedBackOnlyOnce) {
  ASSERT_TRUE(Open());
  ImageFrame frame;
  ASSERT_TRUE(camera_.GetImageFrame(&frame));
  EXPECT_TRUE(camera_.ReturnImageFrame(&frame));
  EXPECT_FALSE(camera_.ReturnImageFrame(&frame));
  EXPECT_EQ(log_.lines.back(), "ReturnImageFrame 0 failed: frame not out (handed back twice?)");
  ImageFrame forged;
  forged.buffer = 99;
  EXPECT_FALSE(camera_.ReturnImageFrame(&forged));
  EXPECT_EQ(log_.lines.back(), "ReturnImageFrame 0 failed: not a frame of this camera");
}

TEST_F(CameraSimTest, AFrameNotHandedBackIsReportedOnceAsALeak) {
  ASSERT_TRUE(Open());
  ImageFrame first, second, third;
  ASSERT_TRUE(camera_.GetImageFrame(&first));
  ASSERT_TRUE(camera_.GetImageFrame(&second));
  EXPECT_EQ(log_.Starting("leak"), std::vector<std::string>{"leak 0 buffer 0"});
  EXPECT_TRUE(camera_.ReturnImageFrame(&second));
  ASSERT_TRUE(camera_.GetImageFrame(&third));
  EXPECT_TRUE(camera_.ReturnImageFrame(&third));
  EXPECT_EQ(log_.Starting("leak").size(), 1u);
  EXPECT_EQ(sim::GetStatus().leaks, 1);
  EXPECT_EQ(sim::GetStatus().frames_out, 1);
  // The leaked frame can still be handed back late.
  EXPECT_TRUE(camera_.ReturnImageFrame(&first));
  EXPECT_EQ(sim::GetStatus().frames_out, 0);
}

TEST_F(CameraSimTest, ClosingWithAFrameOutReportsALeak) {
  ASSERT_TRUE(Open());
  ImageFrame frame;
  ASSERT_TRUE(camera_.GetImageFrame(&frame));
  ASSERT_TRUE(camera_.CloseCamera());
  EXPECT_EQ(log_.Starting("leak"), std::vector<std::string>{"leak 0 buffer 0"});
  EXPECT_EQ(sim::GetStatus().frames_out, 0);
}

TEST_F(CameraSimTest, NoFrameWhenEveryBufferIsOut) {
  sim::SetBufferCount(2);
  ASSERT_TRUE(Open());
  ImageFrame a, b, c;
  ASSERT_TRUE(camera_.GetImageFrame(&a));
  ASSERT_TRUE(camera_.GetImageFrame(&b));
  EXPECT_FALSE(camera_.GetImageFrame(&c));
  EXPECT_EQ(log_.lines.back(), "GetImageFrame failed: no free frame buffer");
  ASSERT_TRUE(camera_.ReturnImageFrame(&a));
  ASSERT_TRUE(camera_.GetImageFrame(&c));
  EXPECT_EQ(c.index, 2);
  EXPECT_THROW(sim::SetBufferCount(0), std::invalid_argument);
}

TEST_F(CameraSimTest, OpenRefusesWhatTheCameraCannotDo) {
  EXPECT_FALSE(camera_.OpenCamera(2, kPixelFormatNV21, 100, 640, 480));
  EXPECT_FALSE(camera_.OpenCamera(1, 0x32315659, 100, 640, 480));
  EXPECT_FALSE(camera_.OpenCamera(1, kPixelFormatNV21, 0, 640, 480));
  EXPECT_FALSE(camera_.OpenCamera(1, kPixelFormatNV21, 100, 1280, 720));
  const std::string nv21 = std::to_string(kPixelFormatNV21);
  EXPECT_EQ(
      log_.lines,
      (std::vector<std::string>{
          "OpenCamera 2 " + nv21 + " 100 640 480 failed: no camera 2 (the robot has camera 1)",
          "OpenCamera 1 842094169 100 640 480 failed: pixel format 0x32315659 not supported "
          "(NV21 only)",
          "OpenCamera 1 " + nv21 + " 0 640 480 failed: frame rate 0 out of range 1..120",
          "OpenCamera 1 " + nv21 +
              " 100 1280 720 failed: size 1280 x 720 not supported (640 x 480 only)"}));
  EXPECT_FALSE(sim::GetStatus().open);
}

TEST_F(CameraSimTest, OperationsNeedAnOpenCamera) {
  ImageFrame frame;
  EXPECT_FALSE(camera_.CloseCamera());
  EXPECT_FALSE(camera_.GetImageFrame(&frame));
  EXPECT_FALSE(camera_.ReturnImageFrame(&frame));
  EXPECT_FALSE(camera_.setExposureGain(1900, 32));
  EXPECT_EQ(log_.lines,
            (std::vector<std::string>{"CloseCamera failed: camera not open",
                                      "GetImageFrame failed: camera not open",
                                      "ReturnImageFrame 0 failed: camera not open",
                                      "setExposureGain 1900 32 failed: camera not open"}));
}

TEST_F(CameraSimTest, ExposureAndGainAreRecorded) {
  ASSERT_TRUE(Open());
  EXPECT_TRUE(camera_.setExposureGain(600, 4));
  EXPECT_TRUE(camera_.setExposureGain(1900, 48));
  const sim::Status status = sim::GetStatus();
  EXPECT_EQ(status.exposure, 1900);
  EXPECT_EQ(status.gain, 48);
  EXPECT_EQ(status.exposure_sets, 2);
  EXPECT_EQ(log_.Starting("setExposureGain"),
            (std::vector<std::string>{"setExposureGain 600 4 ok", "setExposureGain 1900 48 ok"}));
}

TEST_F(CameraSimTest, ExposureScalingMakesTheSceneDarkerOrBrighter) {
  sim::Scene scene = sim::GetScene();
  scene.exposure_scaling = true;
  scene.background.noise = 0;
  sim::SetScene(scene);
  const int row = 100;  // on the wall
  const int column = static_cast<int>(std::lround(RowCentre(sim::Luminance(1), row)));
  EXPECT_EQ(sim::Luminance(1)[row * 640 + column], 226);  // background 6 + stripe 220
  ASSERT_TRUE(Open());
  ASSERT_TRUE(camera_.setExposureGain(950, 32));
  EXPECT_EQ(sim::Luminance(1)[row * 640 + column], 113);  // (220 + 6) / 2
  ASSERT_TRUE(camera_.setExposureGain(1900, 48));
  EXPECT_EQ(sim::Luminance(1)[row * 640 + column], 255);
}

// --- Faults -------------------------------------------------------------------

// Runs `op` five times, each time where it would otherwise succeed, and
// returns the results.
std::vector<bool> FiveCalls(SunxiCam& camera, Operation op) {
  std::vector<bool> results;
  for (int i = 0; i < 5; ++i) {
    ImageFrame frame;
    switch (op) {
      case Operation::kOpen:
        results.push_back(camera.OpenCamera(1, kPixelFormatNV21, 100, 640, 480));
        if (results.back()) camera.CloseCamera();
        break;
      case Operation::kClose:
        if (!sim::GetStatus().open) camera.OpenCamera(1, kPixelFormatNV21, 100, 640, 480);
        results.push_back(camera.CloseCamera());
        break;
      case Operation::kGetFrame:
        results.push_back(camera.GetImageFrame(&frame));
        if (results.back()) camera.ReturnImageFrame(&frame);
        break;
      case Operation::kReturnFrame:
        camera.GetImageFrame(&frame);
        results.push_back(camera.ReturnImageFrame(&frame));
        break;
      case Operation::kSetExposureGain:
        results.push_back(camera.setExposureGain(1900, 32));
        break;
    }
  }
  return results;
}

class FaultTest : public CameraSimTest, public ::testing::WithParamInterface<Operation> {
 protected:
  void SetUp() override {
    CameraSimTest::SetUp();
    sim::SetBufferCount(16);  // failed hand-backs keep their buffers
    if (GetParam() != Operation::kOpen && GetParam() != Operation::kClose) Open();
  }
};

TEST_P(FaultTest, Always) {
  sim::SetFault(GetParam(), Fault::Always());
  EXPECT_EQ(FiveCalls(camera_, GetParam()), std::vector<bool>(5, false));
  EXPECT_EQ(sim::GetStatus().failures[static_cast<int>(GetParam())], 5);
}

TEST_P(FaultTest, NextCalls) {
  sim::SetFault(GetParam(), Fault::NextCalls(2));
  EXPECT_EQ(FiveCalls(camera_, GetParam()), (std::vector<bool>{false, false, true, true, true}));
}

TEST_P(FaultTest, AtCall) {
  sim::SetFault(GetParam(), Fault::AtCall(3));
  EXPECT_EQ(FiveCalls(camera_, GetParam()), (std::vector<bool>{true, true, false, true, true}));
  EXPECT_FALSE(log_.Starting("").empty());
  bool logged = false;
  for (const std::string& line : log_.lines) {
    logged = logged || line.find("failed: injected fault") != std::string::npos;
  }
  EXPECT_TRUE(logged);
}

TEST_P(FaultTest, NeverAfterClearing) {
  sim::SetFault(GetParam(), Fault::Always());
  sim::SetFault(GetParam(), Fault::Never());
  EXPECT_EQ(FiveCalls(camera_, GetParam()), std::vector<bool>(5, true));
}

INSTANTIATE_TEST_SUITE_P(EachOperation, FaultTest,
                         ::testing::Values(Operation::kOpen, Operation::kClose,
                                           Operation::kGetFrame, Operation::kReturnFrame,
                                           Operation::kSetExposureGain),
                         [](const auto& info) {
                           return std::string(sim::OperationName(info.param));
                         });

TEST_F(CameraSimTest, FailedOperationsChangeNothing) {
  sim::SetFault(Operation::kOpen, Fault::AtCall(1));
  EXPECT_FALSE(Open());
  EXPECT_FALSE(sim::GetStatus().open);
  ASSERT_TRUE(Open());

  sim::SetFault(Operation::kGetFrame, Fault::AtCall(2));
  EXPECT_EQ(TakeAndReturn().index, 0);
  ImageFrame frame;
  EXPECT_FALSE(camera_.GetImageFrame(&frame));
  EXPECT_EQ(TakeAndReturn().index, 1);  // a failed get takes no frame

  sim::SetFault(Operation::kSetExposureGain, Fault::AtCall(1));
  EXPECT_FALSE(camera_.setExposureGain(600, 4));
  EXPECT_EQ(sim::GetStatus().exposure_sets, 0);
  EXPECT_EQ(sim::GetStatus().exposure, 0);

  sim::SetFault(Operation::kClose, Fault::AtCall(1));
  EXPECT_FALSE(camera_.CloseCamera());
  EXPECT_TRUE(sim::GetStatus().open);
  EXPECT_TRUE(camera_.CloseCamera());
}

TEST_F(CameraSimTest, AFailedHandBackLeavesTheFrameOut) {
  ASSERT_TRUE(Open());
  sim::SetFault(Operation::kReturnFrame, Fault::AtCall(1));
  ImageFrame frame;
  ASSERT_TRUE(camera_.GetImageFrame(&frame));
  EXPECT_FALSE(camera_.ReturnImageFrame(&frame));
  EXPECT_EQ(log_.lines.back(), "ReturnImageFrame 0 failed: injected fault");
  ASSERT_TRUE(camera_.GetImageFrame(&frame));
  EXPECT_EQ(log_.Starting("leak"), std::vector<std::string>{"leak 0 buffer 0"});
}

TEST_F(CameraSimTest, ObserverSeesEveryCallInOrder) {
  ASSERT_TRUE(Open());
  TakeAndReturn();
  ASSERT_TRUE(camera_.setExposureGain(1900, 32));
  ASSERT_TRUE(camera_.CloseCamera());
  EXPECT_EQ(log_.lines, (std::vector<std::string>{
                            "OpenCamera 1 " + std::to_string(kPixelFormatNV21) + " 100 640 480 ok",
                            "GetImageFrame 0 laser 1 buffer 0 ok", "ReturnImageFrame 0 ok",
                            "setExposureGain 1900 32 ok", "CloseCamera ok"}));
  const sim::Status status = sim::GetStatus();
  EXPECT_EQ(status.calls[static_cast<int>(Operation::kGetFrame)], 1);
  EXPECT_EQ(status.frames, 1);
}

TEST_F(CameraSimTest, ResetClosesTheCameraAndForgetsEverything) {
  sim::SetLaserPattern({8});
  sim::SetDistance(12);
  sim::SetFault(Operation::kGetFrame, Fault::Always());
  ASSERT_TRUE(Open());
  sim::Reset();
  const size_t logged = log_.lines.size();
  EXPECT_FALSE(sim::GetStatus().open);
  EXPECT_EQ(sim::GetStatus().open_count, 0);
  EXPECT_EQ(sim::LaserPattern(), (std::vector<uint64_t>{1, 8}));
  EXPECT_EQ(sim::GetScene().distance, 30);
  ASSERT_TRUE(Open());
  EXPECT_EQ(TakeAndReturn().laser, 1u);
  EXPECT_EQ(log_.lines.size(), logged);  // the observer went with the reset
}

// --- Image files ------------------------------------------------------------------

TEST_F(CameraSimTest, ImageFileStandsInForItsLaser) {
  cv::Mat image(480, 640, CV_8UC1);
  for (int r = 0; r < 480; ++r) {
    for (int c = 0; c < 640; ++c) image.at<uint8_t>(r, c) = static_cast<uint8_t>((r * 7 + c) % 251);
  }
  const std::string png = TempDir() + "/left.png";
  ASSERT_TRUE(cv::imwrite(png, image));
  const std::vector<uint8_t> right_scene = Plane(8);
  sim::UseImageFile(sim::ImageSlot::kLeft, png);
  ASSERT_TRUE(Open());
  ImageFrame frame;
  ASSERT_TRUE(camera_.GetImageFrame(&frame));
  EXPECT_EQ(std::memcmp(frame.data, image.data, 640 * 480), 0);
  ASSERT_TRUE(camera_.ReturnImageFrame(&frame));
  ASSERT_TRUE(camera_.GetImageFrame(&frame));
  EXPECT_EQ(std::memcmp(frame.data, right_scene.data(), 640 * 480), 0);
  ASSERT_TRUE(camera_.ReturnImageFrame(&frame));
  sim::UseImageFile(sim::ImageSlot::kLeft, "");
  EXPECT_NE(std::memcmp(sim::Luminance(1), image.data, 640 * 480), 0);
}

TEST_F(CameraSimTest, GrayscaleBmpPicturesAreAccepted) {
  const std::string bmp = TempDir() + "/picture.bmp";
  cv::Mat scene(480, 640, CV_8UC1, const_cast<uint8_t*>(sim::Luminance(8)));
  ASSERT_TRUE(cv::imwrite(bmp, scene));
  sim::UseImageFile(sim::ImageSlot::kOther, bmp);
  EXPECT_EQ(std::memcmp(sim::Luminance(2), scene.data, 640 * 480), 0);
}

// The message of the refusal of `path`, or "accepted".
std::string Refusal(const std::string& path) {
  try {
    sim::UseImageFile(sim::ImageSlot::kRight, path);
  } catch (const std::invalid_argument& e) {
    return e.what();
  }
  return "accepted";
}

TEST_F(CameraSimTest, OtherImagesAreRefusedWithAClearMessage) {
  const std::vector<uint8_t> before = Plane(8);
  const std::string colour = TempDir() + "/colour.png";
  ASSERT_TRUE(cv::imwrite(colour, cv::Mat(480, 640, CV_8UC3, cv::Scalar(1, 2, 3))));
  const std::string small = TempDir() + "/small.png";
  ASSERT_TRUE(cv::imwrite(small, cv::Mat(240, 320, CV_8UC1, cv::Scalar(9))));
  const std::string deep = TempDir() + "/deep.png";
  ASSERT_TRUE(cv::imwrite(deep, cv::Mat(480, 640, CV_16UC1, cv::Scalar(9))));
  const std::string text = TempDir() + "/notes.png";
  std::ofstream(text) << "not a picture";

  EXPECT_EQ(Refusal(colour), "camera sim: images.right: image file '" + colour +
                                 "' is 640 x 480 with 3 channel(s) of 8 bits; the camera needs "
                                 "640 x 480 with one 8-bit channel (grayscale)");
  EXPECT_EQ(Refusal(small), "camera sim: images.right: image file '" + small +
                                "' is 320 x 240 with 1 channel(s) of 8 bits; the camera needs "
                                "640 x 480 with one 8-bit channel (grayscale)");
  EXPECT_EQ(Refusal(deep), "camera sim: images.right: image file '" + deep +
                               "' is 640 x 480 with 1 channel(s) of 16 bits; the camera needs "
                               "640 x 480 with one 8-bit channel (grayscale)");
  EXPECT_EQ(Refusal(text), "camera sim: images.right: image file '" + text +
                               "' is not a BMP or PNG picture; the camera needs 640 x 480 with "
                               "one 8-bit channel (grayscale)");
  EXPECT_EQ(Refusal(TempDir() + "/missing.png"),
            "camera sim: images.right: image file '" + TempDir() +
                "/missing.png' does not exist or is not a file");
  EXPECT_EQ(Plane(8), before);  // still the scene
}

TEST_F(CameraSimTest, ImageFilesThatCannotBeUsedAreRefusedUnread) {
  // A BMP header that claims 100000 x 100000 pixels, and no pixels.
  std::string header(54, '\0');
  auto put32 = [&header](std::size_t at, uint32_t value) {
    for (int i = 0; i < 4; ++i) header[at + i] = static_cast<char>((value >> (8 * i)) & 0xFF);
  };
  header[0] = 'B';
  header[1] = 'M';
  put32(10, 54);
  put32(14, 40);
  put32(18, 100000);
  put32(22, 100000);
  header[26] = 1;
  header[28] = 8;
  const std::string huge = TempDir() + "/huge.bmp";
  std::ofstream(huge, std::ios::binary) << header;
  EXPECT_EQ(Refusal(huge), "camera sim: images.right: image file '" + huge +
                               "' is a BMP picture whose header claims 100000 x 100000 pixels; "
                               "the camera needs 640 x 480 with one 8-bit channel (grayscale)");

  const std::string folder = TempDir() + "/folder.png";
  ASSERT_EQ(mkdir(folder.c_str(), 0700), 0);
  EXPECT_EQ(Refusal(folder), "camera sim: images.right: image file '" + folder + "' is a folder");

  const std::string large = TempDir() + "/large.png";
  std::ofstream(large) << "x";
  ASSERT_EQ(truncate(large.c_str(), 16 * 1024 * 1024 + 1), 0);
  EXPECT_EQ(Refusal(large), "camera sim: images.right: image file '" + large +
                                "' is larger than 16777216 bytes (16 MiB)");
}

// --- Scenes -------------------------------------------------------------------------

class SceneDistanceTest : public CameraSimTest, public ::testing::WithParamInterface<double> {};

TEST_P(SceneDistanceTest, StripeSlantsOnTheFloorAndStandsUpOnTheWall) {
  sim::SetDistance(GetParam());
  for (uint64_t laser : {1u, 8u}) {
    SCOPED_TRACE(laser);
    const uint8_t* plane = sim::Luminance(laser);
    const int foot = MeasuredFootRow(plane);
    EXPECT_NEAR(foot, ExpectedFootRow(GetParam()), 4.0);  // the slope window is 6 rows
    // One stripe in every row from the top of the picture to the bottom.
    for (int row = 0; row < 480; row += 7) EXPECT_EQ(BrightRuns(plane, row), 1) << row;
    // Slanted on the floor: between 0.3 and 0.5 columns a row.
    for (int row = foot + 10; row < 470; row += 10) {
      EXPECT_GT(SlopeAt(plane, row), 0.3) << row;
      EXPECT_LT(SlopeAt(plane, row), 0.5) << row;
    }
    // Steep on the wall.
    for (int row = foot - 10; row > 10; row -= 10) EXPECT_LT(SlopeAt(plane, row), 0.1) << row;
  }
  // The left laser's stripe lies left of the right one's, and both lean
  // outwards towards the bottom.
  const uint8_t* left = sim::Luminance(1);
  const uint8_t* right = sim::Luminance(8);
  EXPECT_LT(RowCentre(left, 100), RowCentre(right, 100));
  EXPECT_LT(RowCentre(left, 475), RowCentre(left, 400));
  EXPECT_GT(RowCentre(right, 475), RowCentre(right, 400));
}

INSTANTIATE_TEST_SUITE_P(AppAndFactoryDistances, SceneDistanceTest,
                         ::testing::Values(10.0, 15.0, 20.0, 30.0, 40.0, 45.0));

TEST_F(CameraSimTest, TheFootOfTheWallRisesWithTheDistance) {
  int previous = 480;
  for (double d : {10, 15, 20, 25, 30, 35, 40, 45}) {
    sim::SetDistance(d);
    const int foot = MeasuredFootRow(sim::Luminance(1));
    EXPECT_LT(foot, previous) << d;
    previous = foot;
  }
}

TEST_F(CameraSimTest, AtFiveCentimetresOnlyTheWallIsInView) {
  sim::SetDistance(5);
  const uint8_t* plane = sim::Luminance(1);
  for (int row = 20; row < 460; row += 20) {
    EXPECT_EQ(BrightRuns(plane, row), 1) << row;
    EXPECT_LT(SlopeAt(plane, row), 0.15) << row;  // a wall line far off the picture's centre
  }
}

TEST_F(CameraSimTest, StripeHasACoreAndSoftEdges) {
  sim::Scene scene = sim::GetScene();
  scene.background.noise = 0;
  sim::SetScene(scene);
  const uint8_t* plane = sim::Luminance(1);
  const int row = 100;
  int bright = 0, soft = 0, peak = 0;
  for (int u = 0; u < 640; ++u) {
    const int value = plane[row * 640 + u];
    peak = std::max(peak, value);
    if (value >= 100) ++bright;
    if (value > 20 && value < 200) ++soft;
  }
  EXPECT_EQ(peak, 226);  // the stripe's 220 on the background's 6
  EXPECT_GE(bright, 2);
  EXPECT_LE(bright, 5);
  EXPECT_GE(soft, 2);
  EXPECT_EQ(plane[row * 640 + 600], 6);  // the dark background
}

TEST_F(CameraSimTest, BackgroundIsDarkNoiseAndAmbientLightRaisesIt) {
  const uint8_t* plane = sim::Luminance(1);
  long sum = 0;
  int dark = 0, distinct_values = 0;
  std::vector<int> seen(256, 0);
  for (int row = 0; row < 480; ++row) {
    for (int u = 600; u < 640; ++u) {
      const int value = plane[row * 640 + u];
      sum += value;
      dark += value <= 9 ? 1 : 0;
      if (seen[value]++ == 0) ++distinct_values;
    }
  }
  EXPECT_NEAR(static_cast<double>(sum) / (480 * 40), 6.0, 0.3);
  EXPECT_GT(dark, 480 * 40 * 8 / 10);
  EXPECT_GE(distinct_values, 8);  // noise, not a flat grey

  sim::Scene scene = sim::GetScene();
  scene.background.ambient = 40;
  sim::SetScene(scene);
  sum = 0;
  for (int row = 0; row < 480; ++row) sum += sim::Luminance(1)[row * 640 + 620];
  EXPECT_NEAR(static_cast<double>(sum) / 480, 46.0, 0.5);
}

TEST_F(CameraSimTest, PicturesAreTheSameForTheSameSettings) {
  const std::vector<uint8_t> first = Plane(1);
  sim::Reset();
  EXPECT_EQ(Plane(1), first);
  sim::SetDistance(20);
  sim::SetDistance(30);
  EXPECT_EQ(Plane(1), first);
  sim::Scene scene = sim::GetScene();
  scene.background.seed = 2;
  sim::SetScene(scene);
  EXPECT_NE(Plane(1), first);
}

TEST_F(CameraSimTest, ThePictureIsRenderedOncePerSceneChange) {
  const uint8_t* first = sim::Luminance(1);
  const std::vector<uint8_t> copy = Plane(1);
  EXPECT_EQ(sim::Luminance(1), first);
  sim::SetDistance(20);
  EXPECT_NE(Plane(1), copy);
}

// One change to each member of the scene, each to a value the scene accepts.
std::vector<std::pair<const char*, void (*)(sim::Scene*)>> OneChangeEach() {
  return {
      {"camera.fx", [](sim::Scene* s) { s->camera.fx = 451; }},
      {"camera.fy", [](sim::Scene* s) { s->camera.fy = 449; }},
      {"camera.cx", [](sim::Scene* s) { s->camera.cx = 300; }},
      {"camera.cy", [](sim::Scene* s) { s->camera.cy = 250; }},
      {"camera.height", [](sim::Scene* s) { s->camera.height = 6; }},
      {"camera.pitch", [](sim::Scene* s) { s->camera.pitch = 12; }},
      {"left.x", [](sim::Scene* s) { s->left.x = 1; }},
      {"left.y", [](sim::Scene* s) { s->left.y = 3; }},
      {"left.z", [](sim::Scene* s) { s->left.z = 3; }},
      {"left.yaw", [](sim::Scene* s) { s->left.yaw = -3; }},
      {"left.roll", [](sim::Scene* s) { s->left.roll = 2; }},
      {"left.on", [](sim::Scene* s) { s->left.on = false; }},
      {"right.x", [](sim::Scene* s) { s->right.x = 1; }},
      {"right.y", [](sim::Scene* s) { s->right.y = -3; }},
      {"right.z", [](sim::Scene* s) { s->right.z = 3; }},
      {"right.yaw", [](sim::Scene* s) { s->right.yaw = 3; }},
      {"right.roll", [](sim::Scene* s) { s->right.roll = 2; }},
      {"right.on", [](sim::Scene* s) { s->right.on = false; }},
      {"stripe.peak", [](sim::Scene* s) { s->stripe.peak = 200; }},
      {"stripe.core", [](sim::Scene* s) { s->stripe.core = 3; }},
      {"stripe.edge", [](sim::Scene* s) { s->stripe.edge = 2; }},
      {"background.level", [](sim::Scene* s) { s->background.level = 7; }},
      {"background.noise", [](sim::Scene* s) { s->background.noise = 3; }},
      {"background.ambient", [](sim::Scene* s) { s->background.ambient = 1; }},
      {"background.seed", [](sim::Scene* s) { s->background.seed = 2; }},
      {"distance", [](sim::Scene* s) { s->distance = 25; }},
      {"wall", [](sim::Scene* s) { s->wall = false; }},
      {"wall_height", [](sim::Scene* s) { s->wall_height = 20; }},
      {"second_stripe", [](sim::Scene* s) { s->second_stripe = 40; }},
      {"gap_from", [](sim::Scene* s) { s->gap_from = -5; }},
      {"gap_to", [](sim::Scene* s) { s->gap_to = 300; }},
      {"exposure_scaling", [](sim::Scene* s) { s->exposure_scaling = true; }},
      {"reference_exposure", [](sim::Scene* s) { s->reference_exposure = 1000; }},
      {"reference_gain", [](sim::Scene* s) { s->reference_gain = 16; }},
  };
}

TEST_F(CameraSimTest, ScenesAreTheSameOnlyWhenEveryMemberIs) {
  const sim::Scene base;
  EXPECT_TRUE(sim::SameScene(base, sim::Scene()));
  for (const auto& [member, change] : OneChangeEach()) {
    sim::Scene other = base;
    change(&other);
    EXPECT_FALSE(sim::SameScene(base, other)) << member;
    EXPECT_FALSE(sim::SameScene(other, base)) << member;
    EXPECT_TRUE(sim::SameScene(other, other)) << member;
  }
  // Numbers compare bit for bit.
  sim::Scene zero = base, minus_zero = base;
  zero.left.roll = 0.0;
  minus_zero.left.roll = -0.0;
  EXPECT_FALSE(sim::SameScene(zero, minus_zero));
  sim::Scene nan = base;
  nan.camera.cx = std::nan("");
  EXPECT_TRUE(sim::SameScene(nan, nan));
}

TEST_F(CameraSimTest, RenderingsOutliveResetOnlyForTheSameScene) {
  for (const auto& [member, change] : OneChangeEach()) {
    sim::Reset();
    const std::vector<uint8_t> before_left = Plane(1), before_both = Plane(9);
    sim::Reset();
    sim::Scene scene = sim::GetScene();
    change(&scene);
    sim::SetScene(scene);
    for (unsigned lasers : {1u, 9u}) {
      std::vector<uint8_t> fresh(640 * 480);
      sim::RenderLuminance(scene, lasers, 1.0, fresh.data());
      EXPECT_EQ(Plane(lasers), fresh) << member << ", lasers " << lasers;
    }
    sim::Reset();
    EXPECT_EQ(Plane(1), before_left) << member;
    EXPECT_EQ(Plane(9), before_both) << member;
  }
}

TEST_F(CameraSimTest, EveryBufferKeepsANeutralVuPlane) {
  ASSERT_TRUE(Open());
  for (int i = 0; i < 12; ++i) {
    ImageFrame frame;
    ASSERT_TRUE(camera_.GetImageFrame(&frame));
    EXPECT_EQ(std::memcmp(frame.data, sim::Luminance(frame.laser), 640 * 480), 0) << i;
    for (int at = 640 * 480; at < sim::kFrameBytes; at += 331) ASSERT_EQ(frame.data[at], 128);
    ASSERT_TRUE(camera_.ReturnImageFrame(&frame));
  }
}

// Takes a frame, checks that its pixels are the picture of its laser field
// as the simulator renders it now, and hands it back.
void ExpectFrameShowsItsPicture(SunxiCam& camera, const std::string& when) {
  ImageFrame frame;
  ASSERT_TRUE(camera.GetImageFrame(&frame)) << when;
  EXPECT_EQ(std::memcmp(frame.data, sim::Luminance(frame.laser), 640 * 480), 0)
      << when << ", laser " << frame.laser;
  for (int at = 640 * 480; at < sim::kFrameBytes; at += 331) ASSERT_EQ(frame.data[at], 128);
  ASSERT_TRUE(camera.ReturnImageFrame(&frame)) << when;
}

TEST_F(CameraSimTest, ABufferTakesEachNewPictureOfItsLaser) {
  // One buffer, so every frame reuses it.
  sim::SetBufferCount(1);
  sim::SetLaserPattern({1, 8, 8, 9, 1});
  sim::Scene scene = sim::GetScene();
  scene.exposure_scaling = true;
  sim::SetScene(scene);
  ASSERT_TRUE(Open());
  for (int i = 0; i < 6; ++i) ExpectFrameShowsItsPicture(camera_, "frame " + std::to_string(i));
  // Another brightness, then another scene, with the same buffer and laser.
  ASSERT_TRUE(camera_.setExposureGain(950, 32));
  ExpectFrameShowsItsPicture(camera_, "after the exposure changed");
  scene.distance += 5;
  sim::SetScene(scene);
  ExpectFrameShowsItsPicture(camera_, "after the scene changed");
}

TEST_F(CameraSimTest, BuffersOfAnEndedSessionShowTheNextSessionsPictures) {
  sim::SetBufferCount(4);
  ASSERT_TRUE(Open());
  for (int i = 0; i < 8; ++i) ExpectFrameShowsItsPicture(camera_, "first session");
  ASSERT_TRUE(camera_.CloseCamera());
  // Fewer buffers, and a frame left out when the session ends.
  sim::SetBufferCount(2);
  sim::SetDistance(sim::GetScene().distance + 10);
  ASSERT_TRUE(Open());
  ImageFrame kept;
  ASSERT_TRUE(camera_.GetImageFrame(&kept));
  for (int i = 0; i < 3; ++i) ExpectFrameShowsItsPicture(camera_, "second session");
  ASSERT_TRUE(camera_.CloseCamera());
  // More buffers than before, after a reset to another scene: none is out.
  sim::Reset();
  sim::SetBufferCount(6);
  sim::SetDistance(sim::GetScene().distance + 20);
  ASSERT_TRUE(Open());
  std::vector<ImageFrame> frames(6);
  for (ImageFrame& frame : frames) {
    ASSERT_TRUE(camera_.GetImageFrame(&frame));
    EXPECT_EQ(std::memcmp(frame.data, sim::Luminance(frame.laser), 640 * 480), 0);
  }
  EXPECT_EQ(sim::GetStatus().frames_out, 6);
  for (ImageFrame& frame : frames) ASSERT_TRUE(camera_.ReturnImageFrame(&frame));
}

TEST_F(CameraSimTest, SecondStripeGivesTwoStripesInARow) {
  sim::Scene scene = sim::GetScene();
  scene.second_stripe = 40;
  sim::SetScene(scene);
  for (int row = 0; row < 480; row += 20) EXPECT_EQ(BrightRuns(sim::Luminance(8), row), 2) << row;
}

TEST_F(CameraSimTest, GapRowsLeaveTheStripeDark) {
  sim::Scene scene = sim::GetScene();
  scene.gap_from = 100;
  scene.gap_to = 299;
  sim::SetScene(scene);
  const uint8_t* plane = sim::Luminance(1);
  for (int row = 0; row < 480; ++row) {
    EXPECT_EQ(BrightRuns(plane, row), row >= 100 && row <= 299 ? 0 : 1) << row;
  }
}

TEST_F(CameraSimTest, WithoutAWallTheStripeRunsStraightToTheHorizon) {
  sim::Scene scene = sim::GetScene();
  scene.wall = false;
  sim::SetScene(scene);
  const uint8_t* plane = sim::Luminance(1);
  for (int row = 470; row > 170; row -= 10) EXPECT_GT(SlopeAt(plane, row), 0.3) << row;
  // Nothing above the horizon (row 240 - 450 tan 10 degrees, about 161).
  for (int row = 0; row < 155; ++row) EXPECT_EQ(BrightRuns(plane, row), 0) << row;
}

TEST_F(CameraSimTest, LasersCanBeSwitchedOffAndLitTogether) {
  sim::Scene scene = sim::GetScene();
  scene.left.on = false;
  sim::SetScene(scene);
  EXPECT_EQ(BrightRuns(sim::Luminance(1), 100), 0);
  EXPECT_EQ(BrightRuns(sim::Luminance(9), 100), 1);
  scene.left.on = true;
  sim::SetScene(scene);
  EXPECT_EQ(BrightRuns(sim::Luminance(9), 100), 2);
  EXPECT_EQ(BrightRuns(sim::Luminance(0), 100), 0);
}

TEST_F(CameraSimTest, BadScenesAreRefused) {
  sim::Scene scene = sim::GetScene();
  scene.camera.fx = 0;
  try {
    sim::SetScene(scene);
    FAIL() << "accepted";
  } catch (const std::invalid_argument& e) {
    EXPECT_STREQ(e.what(), "camera sim: scene.camera.fx must be greater than 0 and at most 100000");
  }
  EXPECT_THROW(sim::SetDistance(0), std::invalid_argument);
  EXPECT_EQ(sim::GetScene().distance, 30);
}

std::string ConfigureError(const std::string& json);

TEST_F(CameraSimTest, SceneValuesOutsideTheirRangesNameTheMember) {
  const std::pair<const char*, const char*> cases[] = {
      {R"({"scene": {"camera": {"fx": 1e300}}})",
       "camera sim: scene.camera.fx must be greater than 0 and at most 100000"},
      {R"({"scene": {"camera": {"fy": 100001}}})",
       "camera sim: scene.camera.fy must be greater than 0 and at most 100000"},
      {R"({"scene": {"camera": {"cx": -1e300}}})",
       "camera sim: scene.camera.cx must be between -10000 and 10000"},
      {R"({"scene": {"camera": {"cy": 10001}}})",
       "camera sim: scene.camera.cy must be between -10000 and 10000"},
      {R"({"scene": {"camera": {"height": 1e300}}})",
       "camera sim: scene.camera.height must be greater than 0 and at most 1000"},
      {R"({"scene": {"left_laser": {"x": 1e300}}})",
       "camera sim: scene.left_laser.x must be between -1000 and 1000"},
      {R"({"scene": {"right_laser": {"y": -1001}}})",
       "camera sim: scene.right_laser.y must be between -1000 and 1000"},
      {R"({"scene": {"right_laser": {"z": 1e300}}})",
       "camera sim: scene.right_laser.z must be between 0 and 1000"},
      {R"({"distance": 1e300})", "camera sim: distance must be greater than 0 and at most 10000"},
      {R"({"scene": {"wall_height": 1e300}})",
       "camera sim: scene.wall_height must be greater than 0 and at most 10000"},
  };
  for (const auto& [json, message] : cases) EXPECT_EQ(ConfigureError(json), message) << json;
}

// The extremes of every range render: no conversion of a projected point
// overflows (the sanitizer build checks float-to-int conversions).
TEST_F(CameraSimTest, TheExtremesOfTheSceneRangesRender) {
  const char* const extremes[] = {
      R"({"distance": 10000, "scene": {"camera": {"fx": 100000, "fy": 100000, "cx": -10000,
          "cy": 10000, "height": 1000, "pitch": 79.9}, "wall_height": 10000}})",
      R"({"distance": 0.001, "scene": {"camera": {"fx": 0.001, "fy": 100000, "cx": 10000,
          "cy": -10000, "height": 0.001, "pitch": -79.9},
          "left_laser": {"x": -1000, "y": 1000, "z": 1000, "yaw": 79.9, "roll": -79.9},
          "right_laser": {"x": 1000, "y": -1000, "z": 0, "yaw": -79.9, "roll": 79.9}}})",
      R"({"distance": 5, "scene": {"wall": false, "camera": {"fx": 100000, "fy": 100000,
          "height": 0.001, "pitch": 0}, "left_laser": {"yaw": 79.9, "z": 1000},
          "stripe": {"core": 50, "edge": 20}}})",
  };
  for (const char* json : extremes) {
    ASSERT_EQ(ConfigureError(json), "") << json;
    for (unsigned lasers : {1u, 8u, 9u}) EXPECT_NE(sim::Luminance(lasers), nullptr);
  }
}

// --- The scene's truth ---------------------------------------------------------------

// The point where the ray through pixel (u, v) of the scene's camera meets
// the wall x = distance.
void WallPoint(const sim::CameraModel& c, double u, double v, double distance, double p[3]) {
  const double s = std::sin(c.pitch * kPi / 180), k = std::cos(c.pitch * kPi / 180);
  const double a = (u - c.cx) / c.fx, b = (v - c.cy) / c.fy;
  // right (0, -1, 0), down (-s, 0, -k), forward (k, 0, -s)
  const double dir[3] = {-b * s + k, -a, -b * k - s};
  const double t = distance / dir[0];
  p[0] = distance;
  p[1] = t * dir[1];
  p[2] = c.height + t * dir[2];
}

TEST_F(CameraSimTest, TheTruthOfTheDefaultSceneIsTheDocumentedOne) {
  const sim::SceneTruth truth = sim::Truth();
  EXPECT_EQ(truth.camera.fx, 450);
  EXPECT_EQ(truth.camera.height, 5);
  EXPECT_EQ(truth.camera.pitch, 10);
  EXPECT_TRUE(truth.wall);
  EXPECT_EQ(truth.distance, 30);
  EXPECT_EQ(truth.wall_height, 200);
  EXPECT_TRUE(truth.left_on);
  EXPECT_TRUE(truth.right_on);
  // Left laser: yaw -2, emitter (0, 2.2, 2).
  const double yaw = -2 * kPi / 180;
  EXPECT_NEAR(truth.left.nx, -std::sin(yaw), 1e-12);
  EXPECT_NEAR(truth.left.ny, std::cos(yaw), 1e-12);
  EXPECT_NEAR(truth.left.nz, 0, 1e-12);
  EXPECT_NEAR(truth.left.offset, 2.2 * std::cos(yaw), 1e-12);
  // Right laser: yaw 2, emitter (0, -2.2, 2): its normal still points left.
  EXPECT_NEAR(truth.right.nx, -std::sin(-yaw), 1e-12);
  EXPECT_GT(truth.right.ny, 0);
  EXPECT_NEAR(truth.right.offset, -2.2 * std::cos(yaw), 1e-12);
}

TEST_F(CameraSimTest, ALaserPlaneHasAUnitNormalAndHoldsItsEmitter) {
  sim::LaserModel laser{1.5, -3, 2.5, 4, -2.5, true};
  const sim::LaserPlane plane = sim::PlaneOf(laser);
  EXPECT_NEAR(plane.nx * plane.nx + plane.ny * plane.ny + plane.nz * plane.nz, 1, 1e-12);
  EXPECT_GT(plane.ny, 0);
  EXPECT_NEAR(plane.nx * 1.5 + plane.ny * -3 + plane.nz * 2.5, plane.offset, 1e-12);
  // Roll gives the normal a z part, yaw an x part.
  EXPECT_NEAR(plane.nz, std::sin(-2.5 * kPi / 180), 1e-12);
  EXPECT_NEAR(plane.nx, -std::sin(4 * kPi / 180) * std::cos(-2.5 * kPi / 180), 1e-12);
}

TEST_F(CameraSimTest, TheTruthFollowsTheSettings) {
  rapidjson::Document settings;
  settings.Parse(R"({"distance": 37.5, "scene": {"wall_height": 80,
      "camera": {"fy": 460, "pitch": 12},
      "left_laser": {"yaw": 3, "roll": 2, "y": 3}, "right_laser": {"on": false}}})");
  sim::Configure(settings);
  const sim::SceneTruth truth = sim::Truth();
  EXPECT_EQ(truth.distance, 37.5);
  EXPECT_EQ(truth.wall_height, 80);
  EXPECT_EQ(truth.camera.fy, 460);
  EXPECT_EQ(truth.camera.pitch, 12);
  EXPECT_FALSE(truth.right_on);
  const sim::LaserPlane left = sim::PlaneOf(sim::GetScene().left);
  EXPECT_EQ(truth.left.nx, left.nx);
  EXPECT_EQ(truth.left.nz, left.nz);
  EXPECT_EQ(truth.left.offset, left.offset);
  EXPECT_NEAR(truth.left.nz, std::sin(2 * kPi / 180), 1e-12);
}

TEST_F(CameraSimTest, TheStripeOnTheWallLiesOnTheTruePlane) {
  rapidjson::Document settings;
  settings.Parse(R"({"distance": 25, "scene": {"background": {"noise": 0},
      "left_laser": {"yaw": -4, "roll": 3}, "right_laser": {"yaw": 1, "roll": -2.5, "z": 3}}})");
  sim::Configure(settings);
  const sim::SceneTruth truth = sim::Truth();
  for (uint64_t laser : {1u, 8u}) {
    SCOPED_TRACE(laser);
    const sim::LaserPlane& plane = laser == 1 ? truth.left : truth.right;
    const uint8_t* picture = sim::Luminance(laser);
    for (int row = 20; row < 200; row += 20) {
      const double u = RowCentre(picture, row);
      ASSERT_GE(u, 0) << row;
      double p[3];
      WallPoint(truth.camera, u, row, truth.distance, p);
      // Off the plane by less than a third of a pixel's width on the wall
      // (the centre of the bright pixels is a rough one).
      const double off = plane.nx * p[0] + plane.ny * p[1] + plane.nz * p[2] - plane.offset;
      EXPECT_LT(std::fabs(off), 0.33 * truth.distance / truth.camera.fx) << row;
    }
  }
}

TEST_F(CameraSimTest, ReadingTheTruthChangesNoPicture) {
  const std::vector<uint8_t> before = Plane(1);
  const sim::Status status = sim::GetStatus();
  (void)sim::Truth();
  EXPECT_EQ(Plane(1), before);
  EXPECT_EQ(sim::GetStatus().frames, status.frames);
}

// --- JSON settings ---------------------------------------------------------------------

std::string ConfigureError(const std::string& json) {
  rapidjson::Document doc;
  doc.Parse(json.c_str());
  if (doc.HasParseError()) return "bad test json";
  try {
    sim::Configure(doc);
  } catch (const std::invalid_argument& e) {
    return e.what();
  }
  return "";
}

TEST_F(CameraSimTest, ConfigureAppliesEverySetting) {
  const std::string png = TempDir() + "/gray.png";
  ASSERT_TRUE(cv::imwrite(png, cv::Mat(480, 640, CV_8UC1, cv::Scalar(77))));
  const std::string json = R"({
    "distance": 20,
    "laser_pattern": [8, 8, 1],
    "buffers": 2,
    "scene": {
      "camera": {"fx": 400, "fy": 410, "cx": 319.5, "cy": 239.5, "height": 6, "pitch": 12},
      "left_laser": {"x": 1, "y": 2.5, "z": 3, "yaw": -1, "roll": 2, "on": false},
      "right_laser": {"y": -2.5},
      "stripe": {"peak": 200, "core": 3, "edge": 1.5},
      "background": {"level": 4, "noise": 1, "ambient": 10, "seed": 7},
      "wall": false, "wall_height": 150, "second_stripe": 30, "gap_rows": [10, 20],
      "exposure_scaling": true, "reference_exposure": 1000, "reference_gain": 16
    },
    "images": {"other": ")" +
                           png + R"("},
    "faults": {"open": {"at": 2}, "close": "always", "get_frame": {"next": 1},
               "return_frame": "never", "set_exposure_gain": "always"}
  })";
  ASSERT_EQ(ConfigureError(json), "");
  const sim::Scene& s = sim::GetScene();
  EXPECT_EQ(s.distance, 20);
  EXPECT_EQ(s.camera.fx, 400);
  EXPECT_EQ(s.camera.fy, 410);
  EXPECT_EQ(s.camera.cx, 319.5);
  EXPECT_EQ(s.camera.height, 6);
  EXPECT_EQ(s.camera.pitch, 12);
  EXPECT_EQ(s.left.x, 1);
  EXPECT_EQ(s.left.y, 2.5);
  EXPECT_EQ(s.left.yaw, -1);
  EXPECT_EQ(s.left.roll, 2);
  EXPECT_FALSE(s.left.on);
  EXPECT_EQ(s.right.y, -2.5);
  EXPECT_EQ(s.right.yaw, 2);  // untouched members keep their values
  EXPECT_EQ(s.stripe.peak, 200);
  EXPECT_EQ(s.stripe.edge, 1.5);
  EXPECT_EQ(s.background.seed, 7u);
  EXPECT_EQ(s.background.ambient, 10);
  EXPECT_FALSE(s.wall);
  EXPECT_EQ(s.wall_height, 150);
  EXPECT_EQ(s.second_stripe, 30);
  EXPECT_EQ(s.gap_from, 10);
  EXPECT_EQ(s.gap_to, 20);
  EXPECT_TRUE(s.exposure_scaling);
  EXPECT_EQ(s.reference_exposure, 1000);
  EXPECT_EQ(s.reference_gain, 16);
  EXPECT_EQ(sim::LaserPattern(), (std::vector<uint64_t>{8, 8, 1}));
  EXPECT_EQ(sim::Luminance(2)[1234], 77);

  EXPECT_TRUE(Open());  // open: fails at call 2
  EXPECT_FALSE(camera_.CloseCamera());
  ImageFrame frame;
  EXPECT_FALSE(camera_.GetImageFrame(&frame));
  EXPECT_TRUE(camera_.GetImageFrame(&frame));
  EXPECT_EQ(frame.laser, 8u);
  EXPECT_TRUE(camera_.ReturnImageFrame(&frame));
  EXPECT_FALSE(camera_.setExposureGain(1, 1));
  EXPECT_EQ(log_.lines.back(), "setExposureGain 1 1 failed: injected fault");
  EXPECT_FALSE(Open());
  EXPECT_EQ(log_.lines.back(), "OpenCamera 1 " + std::to_string(kPixelFormatNV21) +
                                   " 100 640 480 failed: injected fault");
}

TEST_F(CameraSimTest, ConfigureResetStartsFromTheDefaults) {
  sim::SetDistance(12);
  sim::SetLaserPattern({8});
  sim::SetFault(Operation::kOpen, Fault::Always());
  ASSERT_EQ(ConfigureError(R"({"laser_pattern": [1], "reset": true})"), "");
  EXPECT_EQ(sim::GetScene().distance, 30);
  EXPECT_EQ(sim::LaserPattern(), std::vector<uint64_t>{1});
  EXPECT_TRUE(Open());
}

TEST_F(CameraSimTest, ConfigureNamesTheBadMemberAndChangesNothing) {
  EXPECT_EQ(ConfigureError(R"({"distance": 20, "scene": {"camera": {"fx": "big"}}})"),
            "camera sim: scene.camera.fx must be a number");
  EXPECT_EQ(sim::GetScene().distance, 30);
  EXPECT_EQ(ConfigureError(R"({"scene": {"camera": {"focal": 1}}})"),
            "camera sim: scene.camera.focal is not a camera setting");
  EXPECT_EQ(ConfigureError(R"({"colour": 1})"), "camera sim: colour is not a camera setting");
  EXPECT_EQ(ConfigureError(R"({"laser_pattern": [1, -8]})"),
            "camera sim: laser_pattern[1] must be an integer of 0 or more");
  EXPECT_EQ(ConfigureError(R"({"laser_pattern": []})"),
            "camera sim: laser_pattern must be a non-empty array");
  EXPECT_EQ(ConfigureError(R"({"distance": 0})"),
            "camera sim: distance must be greater than 0 and at most 10000");
  EXPECT_EQ(ConfigureError(R"({"scene": {"stripe": {"peak": 300}}})"),
            "camera sim: scene.stripe.peak must be between 0 and 255");
  EXPECT_EQ(ConfigureError(R"({"scene": {"gap_rows": [5]}})"),
            "camera sim: scene.gap_rows must be [from, to] (two integers) or null");
  EXPECT_EQ(ConfigureError(R"({"faults": {"open": "sometimes"}})"),
            "camera sim: faults.open must be \"never\", \"always\", {\"next\": N} or {\"at\": K} "
            "with N, K >= 1");
  EXPECT_EQ(ConfigureError(R"({"faults": {"focus": "always"}})"),
            "camera sim: faults.focus is not a camera setting");
  EXPECT_EQ(ConfigureError(R"({"buffers": 0})"), "camera sim: buffers must be between 1 and 64");
  EXPECT_EQ(ConfigureError(R"({"reset": 1})"), "camera sim: reset must be true or false");
  EXPECT_EQ(ConfigureError(R"({"images": {"left": 5}})"),
            "camera sim: images.left must be a file name or null");
  EXPECT_EQ(ConfigureError(R"([1, 2])"), "camera sim: settings must be an object");
  // A good member before a bad one is not applied either.
  EXPECT_EQ(ConfigureError(R"({"faults": {"open": "always"}, "distance": -1})"),
            "camera sim: distance must be greater than 0 and at most 10000");
  EXPECT_TRUE(Open());
  EXPECT_EQ(sim::GetScene().distance, 30);
  EXPECT_EQ(sim::LaserPattern(), (std::vector<uint64_t>{1, 8}));
}

TEST_F(CameraSimTest, TheDocumentedExamplesApply) {
  EXPECT_EQ(ConfigureError(R"({"reset": true, "distance": 35})"), "");
  EXPECT_EQ(sim::GetScene().distance, 35);
  EXPECT_EQ(
      ConfigureError(
          R"({"distance": 20, "scene": {"second_stripe": 40, "background": {"ambient": 20}}})"),
      "");
  EXPECT_EQ(BrightRuns(sim::Luminance(1), 300), 2);
  EXPECT_EQ(
      ConfigureError(R"({"distance": 30, "scene": {"gap_rows": [0, 440]}, "laser_pattern": [8]})"),
      "");
  EXPECT_EQ(sim::LaserPattern(), std::vector<uint64_t>{8});
  EXPECT_EQ(
      ConfigureError(R"({"faults": {"set_exposure_gain": {"next": 2}, "get_frame": {"at": 3}}})"),
      "");
  EXPECT_EQ(ConfigureError(R"({"scene": {"camera": {"height": 4, "pitch": 15},
                                         "stripe": {"core": 3, "edge": 1.5, "peak": 200}}})"),
            "");
  EXPECT_EQ(ConfigureError(R"({"faults": {"open": "always"}})"), "");
  EXPECT_FALSE(Open());
}

}  // namespace
