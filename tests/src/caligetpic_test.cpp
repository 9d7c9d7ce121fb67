// Camera capture: the camera session, exposure choice, the frame timer and
// picture saving, driven through the host's virtual clock and the camera
// simulator.
#include "src/caligetpic.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <opencv2/core.hpp>
#include <opencv2/imgcodecs.hpp>
#include <string>
#include <vector>

#include "platform/kiv/host.h"
#include "platform/sunxi_cam/camera_sim.h"
#include "tests/support/camera_log.h"
#include "tests/support/node_harness.h"

namespace {

namespace sim = sunxi_cam::sim;
namespace fs = std::filesystem;
using namespace kivplugcali;
using sim::Fault;
using sim::Operation;
using testsupport::NodeHarness;

constexpr const char* kReturned = "[STB] return_res success cc";
constexpr const char* kExposureSet = "xxx setExposureGain success! ";
// With the default timing, frame 76 of the session is the first one stored:
// frames 50 to 56 take the settings, 56 to 75 settle.
constexpr int kFirstStoredFrame = 76;
constexpr long kTickUs = 10000;

class TimerLog : public kiv::HostObserver {
 public:
  void OnTimerAdded(int id, const std::string& name, long delay, long period) override {
    added.push_back(std::to_string(id) + " " + name + " " + std::to_string(delay) + " " +
                    std::to_string(period));
  }
  void OnTimerDeleted(int id, bool was_running) override {
    deleted.push_back(std::to_string(id) + (was_running ? " running" : " stale"));
  }
  std::vector<std::string> added, deleted;
};

class CaptureTest : public ::testing::Test {
 protected:
  void SetUp() override {
    testsupport::ResetPluginGlobals();
    sim::Reset();
    harness_ = std::make_unique<NodeHarness>();  // the node makes the picture folders
    harness_->host().SetObserver(&timers_);
    sim::SetObserver(&camera_log_);
    distance_delt = 0;
    harness_->console().Clear();
  }
  void TearDown() override {
    sim::SetObserver(nullptr);
    harness_->host().SetObserver(nullptr);
    harness_.reset();
    sim::Reset();
  }

  std::vector<std::string> Lines() const { return harness_->console().OutLines(); }
  int Count(const std::string& line) const {
    const std::vector<std::string> lines = Lines();
    return static_cast<int>(std::count(lines.begin(), lines.end(), line));
  }
  void Clear() { harness_->console().Clear(); }
  kiv::MainLoop& Loop() { return harness_->host().Loop(); }
  // Runs the frame timer for `frames` ticks of the virtual clock.
  void RunFrames(int frames) { Loop().Advance(frames * kTickUs); }
  int Calls(Operation op) const { return sim::GetStatus().calls[static_cast<int>(op)]; }

  KivNode_caligetpic& capture_ = C_caligetpic;
  std::unique_ptr<NodeHarness> harness_;
  TimerLog timers_;
  testsupport::CameraLog camera_log_;
};

std::vector<uint8_t> Frame(uint64_t laser) {
  const uint8_t* plane = sim::Luminance(laser);
  return std::vector<uint8_t>(plane, plane + 640 * 480);
}

std::vector<uint8_t> Bytes(const cv::Mat& image) {
  return std::vector<uint8_t>(image.data, image.data + image.total());
}

// The pixels of a picture file, or nothing when it cannot be read.
std::vector<uint8_t> PictureFile(const std::string& path) {
  const cv::Mat image = cv::imread(path, cv::IMREAD_UNCHANGED);
  if (image.empty() || image.type() != CV_8UC1 || image.cols != 640 || image.rows != 480) return {};
  return Bytes(image);
}

std::vector<uint8_t> FileBytes(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  return std::vector<uint8_t>(std::istreambuf_iterator<char>(in), {});
}

// The BMP file the frame with that laser makes.
std::vector<uint8_t> BmpOf(uint64_t laser) {
  const cv::Mat image(480, 640, CV_8UC1, const_cast<uint8_t*>(sim::Luminance(laser)));
  std::vector<uint8_t> bmp;
  cv::imencode(".bmp", image, bmp);
  return bmp;
}

void Remove(const std::vector<std::string>& paths) {
  for (const std::string& path : paths) fs::remove(path);
}

// --- Camera session -------------------------------------------------------------

TEST_F(CaptureTest, OpenStartsTheCameraAndTheFrameTimerOnce) {
  ASSERT_TRUE(capture_.Camera_Open());
  EXPECT_EQ(Lines(), std::vector<std::string>{"xxx open camera success! "});
  EXPECT_EQ(camera1_open_flag, 1);
  EXPECT_EQ(camera_log_.lines,
            std::vector<std::string>{"OpenCamera 1 " + std::to_string(sunxi_cam::kPixelFormatNV21) +
                                     " 100 640 480 ok"});
  EXPECT_EQ(timers_.added,
            std::vector<std::string>{std::to_string(timer_fd) + " src/caligetpic_310 10000 10000"});
  EXPECT_TRUE(Loop().HasTimer(timer_fd));

  Clear();
  EXPECT_TRUE(capture_.Camera_Open());
  EXPECT_EQ(harness_->console().Out(), "");
  EXPECT_EQ(timers_.added.size(), 1u);
  EXPECT_EQ(sim::GetStatus().open_count, 1);
  EXPECT_EQ(Calls(Operation::kOpen), 1);
}

TEST_F(CaptureTest, OpenRestartsThePictureProgress) {
  set_expgain_flag = 7;
  save_pic_success = 3;
  delay_count = 20;
  ASSERT_TRUE(capture_.Camera_Open());
  EXPECT_EQ(set_expgain_flag, 0);
  EXPECT_EQ(save_pic_success, 0);
  EXPECT_EQ(delay_count, 20);  // not the session's business
}

TEST_F(CaptureTest, TimerPeriodAndFrameRateComeFromTheGlobals) {
  time_interval = 20;
  REAR_VIDEO_FPS = 50;
  ASSERT_TRUE(capture_.Camera_Open());
  EXPECT_EQ(timers_.added,
            std::vector<std::string>{std::to_string(timer_fd) + " src/caligetpic_310 20000 20000"});
  EXPECT_EQ(camera_log_.lines[0],
            "OpenCamera 1 " + std::to_string(sunxi_cam::kPixelFormatNV21) + " 50 640 480 ok");
}

TEST_F(CaptureTest, AFailedOpenStartsNoTimer) {
  sim::SetFault(Operation::kOpen, Fault::Always());
  set_expgain_flag = 5;
  EXPECT_FALSE(capture_.Camera_Open());
  EXPECT_EQ(Lines(), std::vector<std::string>{"xxx open camera fail! "});
  EXPECT_EQ(camera1_open_flag, 0);
  EXPECT_EQ(timer_fd, 0);
  EXPECT_EQ(set_expgain_flag, 5);
  EXPECT_TRUE(timers_.added.empty());
  EXPECT_EQ(Loop().RunTicks(5), 0);
  // The next request tries again.
  EXPECT_FALSE(capture_.Camera_Open());
  EXPECT_EQ(Calls(Operation::kOpen), 2);
}

TEST_F(CaptureTest, ClosingAClosedCameraDoesNothing) {
  timer_fd = 3;
  EXPECT_TRUE(capture_.Camera_Close());
  EXPECT_EQ(harness_->console().Out(), "");
  EXPECT_TRUE(timers_.deleted.empty());
  EXPECT_EQ(Calls(Operation::kClose), 0);
}

TEST_F(CaptureTest, CloseStopsTheCameraAndTheTimer) {
  ASSERT_TRUE(capture_.Camera_Open());
  RunFrames(3);
  Clear();
  EXPECT_TRUE(capture_.Camera_Close());
  EXPECT_EQ(Lines(), std::vector<std::string>{"xxx close camera success! "});
  EXPECT_EQ(camera1_open_flag, 0);
  EXPECT_EQ(timers_.deleted, std::vector<std::string>{std::to_string(timer_fd) + " running"});
  EXPECT_FALSE(sim::GetStatus().open);
  EXPECT_EQ(Loop().RunTicks(5), 0);
}

TEST_F(CaptureTest, AFailedCloseKeepsTheFlagButStopsTheTimer) {
  ASSERT_TRUE(capture_.Camera_Open());
  sim::SetFault(Operation::kClose, Fault::AtCall(1));
  Clear();
  EXPECT_FALSE(capture_.Camera_Close());
  EXPECT_EQ(Lines(), std::vector<std::string>{"xxx close camera fail! "});
  EXPECT_EQ(camera1_open_flag, 1);
  EXPECT_EQ(timers_.deleted, std::vector<std::string>{std::to_string(timer_fd) + " running"});
  EXPECT_EQ(Loop().RunTicks(5), 0);  // no more frames
  EXPECT_EQ(Calls(Operation::kGetFrame), 0);

  // A later close tries again and deletes the stale handle again.
  Clear();
  EXPECT_TRUE(capture_.Camera_Close());
  EXPECT_EQ(Lines(), std::vector<std::string>{"xxx close camera success! "});
  EXPECT_EQ(camera1_open_flag, 0);
  EXPECT_EQ(Calls(Operation::kClose), 2);
  EXPECT_EQ(timers_.deleted, (std::vector<std::string>{std::to_string(timer_fd) + " running",
                                                       std::to_string(timer_fd) + " stale"}));
}

// --- Exposure and gain ---------------------------------------------------------------

struct Choice {
  int app;
  unsigned distance;
  int exposure;
  int gain;
};

class ParamChooseTest : public CaptureTest, public ::testing::WithParamInterface<Choice> {};

TEST_P(ParamChooseTest, ChoosesAndLogs) {
  const Choice& c = GetParam();
  APP_USE = static_cast<uint8_t>(c.app);
  distance_curr = static_cast<uint16_t>(c.distance);
  capture_.param_choose();
  EXPECT_EQ(exposure_value, c.exposure);
  EXPECT_EQ(gain_value, c.gain);
  EXPECT_EQ(Lines(), std::vector<std::string>{"xxx exposure " + std::to_string(c.exposure) +
                                              " gain " + std::to_string(c.gain)});
}

INSTANTIATE_TEST_SUITE_P(
    FactoryAndApp, ParamChooseTest,
    ::testing::Values(Choice{0, 0, 600, 4}, Choice{0, 9, 600, 4}, Choice{0, 10, 1900, 4},
                      Choice{0, 19, 1900, 4}, Choice{0, 20, 1900, 32}, Choice{0, 39, 1900, 32},
                      Choice{0, 40, 1900, 48}, Choice{0, 254, 1900, 48}, Choice{0, 255, 8000, 32},
                      Choice{0, 13107, 1200, 4}, Choice{0, 65535, 1900, 48}, Choice{1, 0, 600, 4},
                      Choice{1, 10, 600, 4}, Choice{1, 11, 1900, 4}, Choice{1, 20, 1900, 4},
                      Choice{1, 21, 1900, 32}, Choice{1, 40, 1900, 32}, Choice{1, 255, 8000, 32},
                      Choice{1, 13107, 600, 4}, Choice{2, 20, 1900, 4}));

TEST_F(CaptureTest, TheCalibrationCodesWinOverTheDistanceBands) {
  dis_chessboard = 5;
  dis_DistanceCheck = 30;
  distance_curr = 5;
  capture_.param_choose();
  EXPECT_EQ(exposure_value, 8000);
  EXPECT_EQ(gain_value, 32);
  distance_curr = 30;
  capture_.param_choose();
  EXPECT_EQ(exposure_value, 1200);
  EXPECT_EQ(gain_value, 4);
  APP_USE = 1;
  capture_.param_choose();
  EXPECT_EQ(exposure_value, 600);
  EXPECT_EQ(gain_value, 4);
}

TEST_F(CaptureTest, SetCurrDisGoesIdle) {
  capture_.set_curr_dis();
  EXPECT_EQ(distance_curr, 50);
  EXPECT_EQ(Lines(), std::vector<std::string>{"xxx set distance_curr = 50 "});
}

// --- setparam and getonepic -------------------------------------------------------------

TEST_F(CaptureTest, SetparamZeroFinishesThePlaneSetAtOnce) {
  cameraIEparamcali_reset_flag = 1;
  EXPECT_TRUE(capture_.setparam(0));
  EXPECT_EQ(harness_->console().Out(), "");
  EXPECT_EQ(distance_curr, 0);
  EXPECT_EQ(save_pic_success, 3);
  EXPECT_EQ(APPcalires_dis, 0);
  EXPECT_EQ(cameraIEparamcali_reset_flag, 0);
  EXPECT_EQ(cameraplanecali_reset_flag, 1);
  EXPECT_EQ(cameraplaneCheck_reset_flag, 1);
  EXPECT_EQ(DistanceCheck_reset_flag, 0);
  EXPECT_EQ(cameraplanecali_publish_flag, 1);
  EXPECT_EQ(cameraIEparamcali_publish_flag, 0);
  EXPECT_EQ(DistanceCheck_publish_flag, 0);

  // Asked again: the set is complete, the flag is raised again.
  cameraplanecali_publish_flag = 0;
  EXPECT_TRUE(capture_.setparam(0));
  EXPECT_EQ(cameraplanecali_publish_flag, 1);
}

TEST_F(CaptureTest, SetparamZeroResetsTheDistanceCheckWhenItsCodeIsZero) {
  dis_DistanceCheck = 0;
  EXPECT_TRUE(capture_.setparam(0));
  EXPECT_EQ(DistanceCheck_reset_flag, 1);
}

TEST_F(CaptureTest, SetparamFiftyTakesNoPicture) {
  save_pic_success = 0;
  EXPECT_TRUE(capture_.setparam(50));
  EXPECT_EQ(harness_->console().Out(), "");
  EXPECT_EQ(distance_curr, 50);
  EXPECT_EQ(save_pic_success, 3);
  EXPECT_EQ(APPcalires_dis, 50);
  EXPECT_EQ(cameraIEparamcali_publish_flag, 0);
  EXPECT_EQ(DistanceCheck_publish_flag, 0);
  EXPECT_EQ(cameraplanecali_publish_flag, 0);
}

TEST_F(CaptureTest, SetparamFiftyPublishesTheSetThatUsesCodeFifty) {
  dis_chessboard = 50;
  EXPECT_TRUE(capture_.setparam(50));
  EXPECT_EQ(cameraIEparamcali_publish_flag, 1);
  EXPECT_EQ(cameraIEparamcali_reset_flag, 1);
  EXPECT_EQ(DistanceCheck_publish_flag, 0);

  testsupport::ResetPluginGlobals();
  dis_DistanceCheck = 50;
  EXPECT_TRUE(capture_.setparam(50));
  EXPECT_EQ(DistanceCheck_publish_flag, 1);
  EXPECT_EQ(DistanceCheck_reset_flag, 1);
  EXPECT_EQ(cameraIEparamcali_publish_flag, 0);
}

TEST_F(CaptureTest, SetparamStartsAPictureAndIsTrueOnceItIsComplete) {
  cameraplanecali_reset_flag = 1;
  cameraplaneCheck_reset_flag = 1;
  set_expgain_flag = 7;
  delay_count = 20;
  save_pic_success = 3;
  EXPECT_FALSE(capture_.setparam(30));
  EXPECT_EQ(Lines(), std::vector<std::string>{"xxx exposure 1900 gain 32"});
  EXPECT_EQ(distance_curr, 30);
  EXPECT_EQ(APPcalires_dis, 30);
  EXPECT_EQ(set_expgain_flag, 0);
  EXPECT_EQ(delay_count, 0);
  EXPECT_EQ(save_pic_success, 0);
  EXPECT_EQ(cameraplanecali_reset_flag, 0);
  EXPECT_EQ(cameraplaneCheck_reset_flag, 0);
  EXPECT_EQ(DistanceCheck_reset_flag, 0);
  EXPECT_EQ(cameraIEparamcali_reset_flag, 0);

  Clear();
  EXPECT_FALSE(capture_.setparam(30));
  save_pic_success = 1;
  EXPECT_FALSE(capture_.setparam(30));
  EXPECT_EQ(harness_->console().Out(), "");  // repeated calls log nothing
  save_pic_success = 3;
  EXPECT_TRUE(capture_.setparam(30));
  EXPECT_EQ(cameraplanecali_publish_flag, 0);
  EXPECT_EQ(cameraIEparamcali_publish_flag, 0);
  EXPECT_EQ(DistanceCheck_publish_flag, 0);
}

TEST_F(CaptureTest, SetparamChessboardAndDistanceCheckRaiseTheirFlags) {
  EXPECT_FALSE(capture_.setparam(255));
  EXPECT_EQ(cameraIEparamcali_reset_flag, 1);
  save_pic_success = 3;
  EXPECT_TRUE(capture_.setparam(255));
  EXPECT_EQ(cameraIEparamcali_publish_flag, 1);
  EXPECT_EQ(DistanceCheck_publish_flag, 0);

  EXPECT_FALSE(capture_.setparam(13107));
  EXPECT_EQ(cameraIEparamcali_reset_flag, 0);
  EXPECT_EQ(DistanceCheck_reset_flag, 1);
  EXPECT_EQ(Lines().back(), "xxx exposure 1200 gain 4");
  save_pic_success = 3;
  EXPECT_TRUE(capture_.setparam(13107));
  EXPECT_EQ(DistanceCheck_publish_flag, 1);
}

TEST_F(CaptureTest, GetonepicRestartsThePictureAndTouchesNoFlag) {
  distance_curr = 30;
  save_pic_success = 3;
  set_expgain_flag = 7;
  delay_count = 20;
  APPcalires_dis = 99;
  cameraplanecali_reset_flag = cameraIEparamcali_reset_flag = DistanceCheck_reset_flag = 7;
  cameraplanecali_publish_flag = cameraIEparamcali_publish_flag = DistanceCheck_publish_flag = 7;
  EXPECT_TRUE(capture_.getonepic(30));
  EXPECT_EQ(Lines(), std::vector<std::string>{"xxx exposure 1900 gain 32"});
  EXPECT_EQ(distance_curr, 30);
  EXPECT_EQ(save_pic_success, 0);
  EXPECT_EQ(set_expgain_flag, 0);
  EXPECT_EQ(delay_count, 0);
  EXPECT_EQ(APPcalires_dis, 99);
  EXPECT_EQ(cameraplanecali_reset_flag + cameraIEparamcali_reset_flag + DistanceCheck_reset_flag,
            21);
  EXPECT_EQ(
      cameraplanecali_publish_flag + cameraIEparamcali_publish_flag + DistanceCheck_publish_flag,
      21);
  EXPECT_TRUE(capture_.getonepic(255));
  EXPECT_EQ(Lines().back(), "xxx exposure 8000 gain 32");
}

// --- Frame timer ---------------------------------------------------------------------------

TEST_F(CaptureTest, ATickWithTheCameraClosedDoesNothing) {
  capture_.GetImageFrameTimer();
  EXPECT_EQ(harness_->console().Out(), "");
  EXPECT_TRUE(camera_log_.lines.empty());
}

TEST_F(CaptureTest, ExposureIsSetFromFrameFiftySevenTimes) {
  ASSERT_TRUE(capture_.Camera_Open());
  capture_.setparam(30);
  Clear();
  RunFrames(50);
  EXPECT_TRUE(camera_log_.Starting("setExposureGain").empty());
  EXPECT_EQ(Lines(), std::vector<std::string>(50, kReturned));
  RunFrames(1);
  EXPECT_EQ(camera_log_.Starting("setExposureGain"),
            std::vector<std::string>{"setExposureGain 1900 32 ok"});
  EXPECT_EQ(set_expgain_flag, 1);
  RunFrames(300);
  EXPECT_EQ(camera_log_.Starting("setExposureGain"),
            std::vector<std::string>(7, "setExposureGain 1900 32 ok"));
  EXPECT_EQ(Count(kExposureSet), 7);
  EXPECT_EQ(set_expgain_flag, 7);
}

TEST_F(CaptureTest, FactoryPictureAtThirtyIsStoredThroughTheTimer) {
  Remove({"/tmp/left/3000.bmp", "/tmp/right/3000.bmp"});
  ASSERT_TRUE(capture_.Camera_Open());
  EXPECT_FALSE(capture_.setparam(30));
  Clear();

  RunFrames(kFirstStoredFrame);  // frames 0 to 75
  EXPECT_EQ(delay_count, 20);
  EXPECT_EQ(save_pic_success, 0);
  EXPECT_FALSE(fs::exists("/tmp/left/3000.bmp"));
  EXPECT_FALSE(capture_.setparam(30));

  RunFrames(1);  // frame 76, left laser
  EXPECT_EQ(save_pic_success, 1);
  EXPECT_EQ(LASER_ID, 1u);
  EXPECT_FALSE(capture_.setparam(30));
  RunFrames(1);  // frame 77, right laser
  EXPECT_EQ(save_pic_success, 3);
  EXPECT_EQ(LASER_ID, 8u);
  RunFrames(10);

  std::vector<std::string> expected(50, kReturned);
  for (int i = 0; i < 7; ++i) {
    expected.push_back(kExposureSet);
    expected.push_back(kReturned);
  }
  expected.insert(expected.end(), 19, kReturned);
  for (const char* line : {"xxx store_l1 30", "xxx store_l 30", kReturned, "xxx store_r1 30",
                           "xxx store_r 30", kReturned}) {
    expected.push_back(line);
  }
  expected.insert(expected.end(), 10, kReturned);
  EXPECT_EQ(Lines(), expected);

  // Each picture is the frame that was stored, byte for byte.
  EXPECT_EQ(PictureFile("/tmp/left/3000.bmp"), Frame(1));
  EXPECT_EQ(PictureFile("/tmp/right/3000.bmp"), Frame(8));
  EXPECT_EQ(FileBytes("/tmp/left/3000.bmp"), BmpOf(1));
  EXPECT_EQ(FileBytes("/tmp/right/3000.bmp"), BmpOf(8));
  EXPECT_EQ(Bytes(pic_save), Frame(8));
  EXPECT_STREQ(filename, "/tmp/right/3000.bmp");

  EXPECT_TRUE(capture_.setparam(30));
  EXPECT_EQ(cameraplanecali_publish_flag, 0);
  EXPECT_EQ(sim::GetStatus().leaks, 0);
}

TEST_F(CaptureTest, PictureNumbersAddTheOffset) {
  distance_delt = 60;
  Remove({"/tmp/left/1560.bmp", "/tmp/right/1560.bmp"});
  ASSERT_TRUE(capture_.Camera_Open());
  capture_.setparam(15);
  RunFrames(kFirstStoredFrame + 2);
  EXPECT_EQ(save_pic_success, 3);
  EXPECT_EQ(PictureFile("/tmp/left/1560.bmp"), Frame(1));
  EXPECT_EQ(PictureFile("/tmp/right/1560.bmp"), Frame(8));
  EXPECT_EQ(camera_log_.Starting("setExposureGain")[0], "setExposureGain 1900 4 ok");
}

TEST_F(CaptureTest, EveryFrameIsHandedBackOnTheTickThatTookIt) {
  ASSERT_TRUE(capture_.Camera_Open());
  capture_.setparam(30);
  const uint8_t* pixels = pic_save.data;
  for (int tick = 0; tick < 120; ++tick) {
    RunFrames(1);
    ASSERT_EQ(sim::GetStatus().frames_out, 0) << tick;
  }
  EXPECT_EQ(save_pic_success, 3);
  EXPECT_EQ(Calls(Operation::kGetFrame), 120);
  EXPECT_EQ(Calls(Operation::kReturnFrame), 120);
  EXPECT_EQ(sim::GetStatus().leaks, 0);
  EXPECT_EQ(pic_save.data, pixels);  // the picture buffer is the preallocated one
  EXPECT_EQ(Count(kReturned), 120);
}

TEST_F(CaptureTest, ALaserIsStoredAgainUntilTheOtherOneComes) {
  sim::SetLaserPattern({1, 1, 1, 8});
  ASSERT_TRUE(capture_.Camera_Open());
  capture_.setparam(30);
  RunFrames(kFirstStoredFrame + 2);  // frames 76 and 77: left
  EXPECT_EQ(save_pic_success, 1);
  RunFrames(2);  // 78 left, 79 right
  EXPECT_EQ(save_pic_success, 3);
  EXPECT_EQ(Count("xxx store_l1 30"), 3);
  EXPECT_EQ(Count("xxx store_l 30"), 3);
  EXPECT_EQ(Count("xxx store_r 30"), 1);
  EXPECT_EQ(delay_count, 20);  // a store does not reset it
}

TEST_F(CaptureTest, ACompleteSetStoresNoMore) {
  ASSERT_TRUE(capture_.Camera_Open());
  capture_.setparam(30);
  RunFrames(kFirstStoredFrame + 2);
  ASSERT_EQ(save_pic_success, 3);
  Clear();
  RunFrames(100);
  EXPECT_EQ(Lines(), std::vector<std::string>(100, kReturned));
  EXPECT_EQ(camera_log_.Starting("setExposureGain").size(), 7u);
}

TEST_F(CaptureTest, TheLaserFieldIsMaskedWithFifteen) {
  sim::SetLaserPattern({0x31, 0x48});
  Remove({"/tmp/left/3000.bmp", "/tmp/right/3000.bmp"});
  ASSERT_TRUE(capture_.Camera_Open());
  capture_.setparam(30);
  RunFrames(1);
  EXPECT_EQ(LASER_ID, 1u);
  RunFrames(1);
  EXPECT_EQ(LASER_ID, 8u);
  RunFrames(kFirstStoredFrame);
  EXPECT_EQ(save_pic_success, 3);
  EXPECT_EQ(PictureFile("/tmp/left/3000.bmp"), Frame(0x31));
  EXPECT_EQ(PictureFile("/tmp/right/3000.bmp"), Frame(0x48));
}

TEST_F(CaptureTest, FramesOfOtherLasersAreNotStored) {
  sim::SetLaserPattern({2, 4, 9});
  ASSERT_TRUE(capture_.Camera_Open());
  capture_.setparam(30);
  RunFrames(200);
  EXPECT_EQ(save_pic_success, 0);
  EXPECT_EQ(LASER_ID, 4u);  // frame 199
  for (const std::string& line : Lines()) {
    EXPECT_EQ(line.find("store"), std::string::npos) << line;
  }
  EXPECT_EQ(delay_count, 20);
}

TEST_F(CaptureTest, TheFirstChessboardFrameCompletesTheSet) {
  sim::SetLaserPattern({4});
  Remove({"/tmp/pic/chessboard.bmp"});
  ASSERT_TRUE(capture_.Camera_Open());
  EXPECT_FALSE(capture_.setparam(255));
  RunFrames(kFirstStoredFrame + 1);
  EXPECT_EQ(save_pic_success, 3);
  RunFrames(20);
  EXPECT_EQ(Count("xxx store 255"), 1);
  EXPECT_EQ(PictureFile("/tmp/pic/chessboard.bmp"), Frame(4));
  EXPECT_EQ(camera_log_.Starting("setExposureGain")[0], "setExposureGain 8000 32 ok");
  EXPECT_TRUE(capture_.setparam(255));
  EXPECT_EQ(cameraIEparamcali_publish_flag, 1);
}

TEST_F(CaptureTest, DistanceCheckStoresBothLasersAndKeepsCopies) {
  Remove({"/tmp/pic/dis_left.bmp", "/tmp/pic/dis_right.bmp"});
  ASSERT_TRUE(capture_.Camera_Open());
  EXPECT_FALSE(capture_.setparam(13107));
  RunFrames(kFirstStoredFrame + 2);
  EXPECT_EQ(save_pic_success, 3);
  EXPECT_EQ(Count("xxx store_l 13107"), 1);
  EXPECT_EQ(Count("xxx store_r 13107"), 1);
  EXPECT_EQ(Count("xxx store_l1 13107"), 0);
  EXPECT_EQ(PictureFile("/tmp/pic/dis_left.bmp"), Frame(1));
  EXPECT_EQ(PictureFile("/tmp/pic/dis_right.bmp"), Frame(8));
  EXPECT_EQ(Bytes(pic_left), Frame(1));
  EXPECT_EQ(Bytes(pic_right), Frame(8));
  EXPECT_EQ(camera_log_.Starting("setExposureGain")[0], "setExposureGain 1200 4 ok");
  EXPECT_TRUE(capture_.setparam(13107));
  EXPECT_EQ(DistanceCheck_publish_flag, 1);
}

TEST_F(CaptureTest, DistanceCheckIgnoresOtherLasers) {
  sim::SetLaserPattern({2});
  ASSERT_TRUE(capture_.Camera_Open());
  capture_.setparam(13107);
  RunFrames(kFirstStoredFrame + 10);
  EXPECT_EQ(save_pic_success, 0);
  EXPECT_EQ(Bytes(pic_left), std::vector<uint8_t>(640 * 480, 0));
}

TEST_F(CaptureTest, PictureFolderPathsComeFromTheGlobals) {
  const std::string folder = "/tmp/caligetpic_test_pictures";
  fs::remove_all(folder);
  fs::create_directories(folder);
  left_path = folder;
  pic_path = folder;
  ASSERT_TRUE(capture_.Camera_Open());
  capture_.setparam(7);
  RunFrames(kFirstStoredFrame + 1);
  EXPECT_EQ(PictureFile(folder + "/700.bmp"), Frame(1));
  capture_.getonepic(255);
  RunFrames(kFirstStoredFrame + 1);
  EXPECT_EQ(PictureFile(folder + "/chessboard.bmp"), Frame(8));  // frame 103
  fs::remove_all(folder);
}

// --- Camera faults during capture ----------------------------------------------------------

TEST_F(CaptureTest, AFailedGetFrameSkipsTheTick) {
  ASSERT_TRUE(capture_.Camera_Open());
  capture_.setparam(30);
  sim::SetFault(Operation::kGetFrame, Fault::AtCall(60));
  Clear();
  RunFrames(59);
  EXPECT_EQ(Lines().size(), 59u + 7u);  // frames 50 to 56 took the settings
  RunFrames(1);
  EXPECT_EQ(Lines().size(), 59u + 7u);  // nothing at all on the skipped tick
  EXPECT_EQ(Calls(Operation::kReturnFrame), 59);
  EXPECT_EQ(delay_count, 3);  // the skipped tick did not count
  // The store comes one tick later than it would have.
  RunFrames(kFirstStoredFrame + 1 - 60);
  EXPECT_EQ(save_pic_success, 0);
  RunFrames(1);
  EXPECT_EQ(save_pic_success, 1);
}

TEST_F(CaptureTest, AFailedExposureSettingIsRetriedAndNotCounted) {
  ASSERT_TRUE(capture_.Camera_Open());
  capture_.setparam(30);
  sim::SetFault(Operation::kSetExposureGain, Fault::AtCall(3));
  Clear();
  RunFrames(53);  // settings on frames 50, 51 and (failing) 52
  EXPECT_EQ(Lines().back(), kReturned);
  EXPECT_EQ(Lines()[Lines().size() - 2], "xxx setExposureGain failed! ");
  EXPECT_EQ(set_expgain_flag, 2);
  RunFrames(5);  // 53 to 57: five more successes
  EXPECT_EQ(set_expgain_flag, 7);
  EXPECT_EQ(Calls(Operation::kSetExposureGain), 8);
  EXPECT_EQ(Count(kExposureSet), 7);
  EXPECT_EQ(Count("xxx setExposureGain failed! "), 1);
  RunFrames(19);  // 58 to 76 settle (the count began on frame 57)
  EXPECT_EQ(save_pic_success, 0);
  RunFrames(1);
  EXPECT_EQ(save_pic_success, 2);  // frame 77 is a right one
}

TEST_F(CaptureTest, AFailedHandBackIsLoggedAndCaptureGoesOn) {
  ASSERT_TRUE(capture_.Camera_Open());
  capture_.setparam(30);
  sim::SetFault(Operation::kReturnFrame, Fault::AtCall(1));
  Clear();
  RunFrames(1);
  EXPECT_EQ(Lines(), std::vector<std::string>{"xxx  return_res fail"});
  RunFrames(1);
  EXPECT_EQ(Lines().back(), kReturned);
  EXPECT_EQ(camera_log_.Starting("leak"), std::vector<std::string>{"leak 0 buffer 0"});
  RunFrames(kFirstStoredFrame);
  EXPECT_EQ(save_pic_success, 3);
}

TEST_F(CaptureTest, CaptureStopsWhenTheCameraIsClosed) {
  ASSERT_TRUE(capture_.Camera_Open());
  capture_.setparam(30);
  RunFrames(40);
  ASSERT_TRUE(capture_.Camera_Close());
  RunFrames(100);
  EXPECT_EQ(Calls(Operation::kGetFrame), 40);
  // A new session counts its frames from 0 again: the settings wait for frame 50.
  ASSERT_TRUE(capture_.Camera_Open());
  RunFrames(50);
  EXPECT_EQ(set_expgain_flag, 0);
  RunFrames(1);
  EXPECT_EQ(set_expgain_flag, 1);
}

// --- App pictures --------------------------------------------------------------------------

TEST_F(CaptureTest, AppCaptureAtTwentyKeepsTheWholePictures) {
  APP_USE = 1;
  Remove({"/tmp/pic/L.bmp", "/tmp/pic/R.bmp"});
  ASSERT_TRUE(capture_.Camera_Open());
  EXPECT_FALSE(capture_.setparam(20));
  RunFrames(kFirstStoredFrame + 2);
  EXPECT_EQ(save_pic_success, 3);
  EXPECT_EQ(PictureFile("/tmp/pic/L.bmp"), Frame(1));
  EXPECT_EQ(PictureFile("/tmp/pic/R.bmp"), Frame(8));
  EXPECT_EQ(camera_log_.Starting("setExposureGain")[0], "setExposureGain 1900 4 ok");
  // The stripe cut logs its own lines between the two store lines.
  const std::vector<std::string> lines = Lines();
  auto first = std::find(lines.begin(), lines.end(), "xxx store_l1 20");
  auto stored = std::find(lines.begin(), lines.end(), "xxx store_l 20");
  EXPECT_LT(first, stored);
  EXPECT_NE(stored, lines.end());
  EXPECT_EQ(Count("xxx store_r1 20"), 1);
  EXPECT_EQ(Count("xxx store_r 20"), 1);
  EXPECT_TRUE(capture_.setparam(20));
}

TEST_F(CaptureTest, AppCaptureElsewhereKeepsNoWholePicture) {
  APP_USE = 1;
  for (unsigned short distance : {10, 30}) {
    SCOPED_TRACE(distance);
    Remove({"/tmp/pic/L.bmp", "/tmp/pic/R.bmp"});
    ASSERT_TRUE(capture_.Camera_Open());
    EXPECT_FALSE(capture_.setparam(distance));
    RunFrames(kFirstStoredFrame + 2);
    EXPECT_EQ(save_pic_success, 3);
    EXPECT_FALSE(fs::exists("/tmp/pic/L.bmp"));
    EXPECT_FALSE(fs::exists("/tmp/pic/R.bmp"));
    EXPECT_EQ(Count("xxx store_l " + std::to_string(distance)), 1);
    EXPECT_EQ(Count("xxx store_r " + std::to_string(distance)), 1);
    ASSERT_TRUE(capture_.Camera_Close());
  }
}

// --- App pictures and the stripe cut ---------------------------------------------------------

// Runs an app capture at `distance` in the scene as configured, until the set is complete.
void AppCapture(KivNode_caligetpic& capture, kiv::MainLoop& loop, unsigned short distance) {
  APP_USE = 1;
  ASSERT_TRUE(capture.Camera_Open());
  EXPECT_FALSE(capture.setparam(distance));
  loop.Advance((kFirstStoredFrame + 2) * kTickUs);
  EXPECT_EQ(save_pic_success, 3);
  EXPECT_TRUE(capture.setparam(distance));
}

class AppDistanceTest : public CaptureTest, public ::testing::WithParamInterface<int> {};

TEST_P(AppDistanceTest, ACleanStripeIsCutAndStored) {
  const int distance = GetParam();
  const std::string left = "/tmp/left/" + std::to_string(distance * 100) + ".bmp";
  const std::string right = "/tmp/right/" + std::to_string(distance * 100) + ".bmp";
  Remove({left, right, "/tmp/LL.bmp", "/tmp/RR.bmp"});
  AppCapture(capture_, Loop(), static_cast<unsigned short>(distance));
  EXPECT_EQ(APPcalires_dis, distance);  // the cut succeeded both times
  EXPECT_EQ(PictureFile("/tmp/LL.bmp"), Frame(1));
  EXPECT_EQ(PictureFile("/tmp/RR.bmp"), Frame(8));
  // The cut pictures keep the wall part of the frame, from row 30 down to
  // 30 rows above the cut line, without the outer columns.
  for (const auto& [path, laser] : {std::pair{left, 1}, std::pair{right, 8}}) {
    SCOPED_TRACE(path);
    const std::vector<uint8_t> cut = PictureFile(path);
    ASSERT_EQ(cut.size(), 640u * 480u);
    const std::vector<uint8_t> frame = Frame(laser);
    auto row_of = [](const std::vector<uint8_t>& image, int row) {
      return std::vector<uint8_t>(image.begin() + row * 640, image.begin() + row * 640 + 640);
    };
    // Rows 30 up to the last kept one are the frame's, columns 1 to 638;
    // everything else is black.
    int last = 29;
    while (last + 1 < 480 && row_of(cut, last + 1) != std::vector<uint8_t>(640, 0)) ++last;
    EXPECT_GT(last - 29, 80);
    for (int row = 0; row < 480; ++row) {
      std::vector<uint8_t> expected(640, 0);
      if (row >= 30 && row <= last) {
        std::copy(frame.begin() + row * 640 + 1, frame.begin() + row * 640 + 639,
                  expected.begin() + 1);
      }
      EXPECT_EQ(row_of(cut, row), expected) << row;
    }
  }
}

INSTANTIATE_TEST_SUITE_P(AppDistances, AppDistanceTest, ::testing::Values(10, 20, 30));

TEST_F(CaptureTest, TwoStripesInARowReport257) {
  sim::Scene scene = sim::GetScene();
  scene.second_stripe = 40;
  sim::SetScene(scene);
  Remove({"/tmp/left/2000.bmp", "/tmp/right/2000.bmp"});
  AppCapture(capture_, Loop(), 20);
  EXPECT_EQ(APPcalires_dis, 257);
  EXPECT_EQ(Count("xxx peak_num >= 2"), 2);
  EXPECT_FALSE(fs::exists("/tmp/left/2000.bmp"));
  EXPECT_FALSE(fs::exists("/tmp/right/2000.bmp"));
  EXPECT_EQ(PictureFile("/tmp/pic/L.bmp"), Frame(1));  // the whole picture is kept all the same
}

TEST_F(CaptureTest, AShortStripeReports258) {
  sim::Scene scene = sim::GetScene();
  scene.gap_from = 0;
  scene.gap_to = 440;
  sim::SetScene(scene);
  Remove({"/tmp/left/3000.bmp", "/tmp/right/3000.bmp"});
  AppCapture(capture_, Loop(), 30);
  EXPECT_EQ(APPcalires_dis, 258);
  EXPECT_EQ(Count("xxx qualified point num1 : 39"), 2);
  EXPECT_FALSE(fs::exists("/tmp/left/3000.bmp"));
}

TEST_F(CaptureTest, AStripeWithoutABendReports258) {
  sim::Scene scene = sim::GetScene();
  scene.wall = false;
  sim::SetScene(scene);
  Remove({"/tmp/left/1000.bmp", "/tmp/right/1000.bmp"});
  AppCapture(capture_, Loop(), 10);
  EXPECT_EQ(APPcalires_dis, 258);
  EXPECT_FALSE(fs::exists("/tmp/left/1000.bmp"));
  EXPECT_FALSE(fs::exists("/tmp/right/1000.bmp"));
}

TEST_F(CaptureTest, ALaterCleanPictureDoesNotClearTheOutcome) {
  // Left frames show two stripes, right frames are clean: the right laser's
  // success leaves the left laser's 257 in place.
  sim::Scene scene = sim::GetScene();
  scene.second_stripe = 40;
  sim::SetScene(scene);
  const std::string clean = "/tmp/caligetpic_test_clean.png";
  sim::Reset();
  cv::imwrite(clean, cv::Mat(480, 640, CV_8UC1, const_cast<uint8_t*>(sim::Luminance(8))).clone());
  sim::SetScene(scene);
  sim::SetObserver(&camera_log_);
  sim::UseImageFile(sim::ImageSlot::kRight, clean);
  AppCapture(capture_, Loop(), 20);
  EXPECT_EQ(APPcalires_dis, 257);
  EXPECT_TRUE(fs::exists("/tmp/right/2000.bmp"));
  fs::remove(clean);
}

}  // namespace
