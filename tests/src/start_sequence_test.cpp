// The calibration start sequence: raised publish flags become requests to
// the calculation nodes, in the order plane, camera parameters, distance
// check.
#include <gtest/gtest.h>

#include <exception>
#include <functional>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "tests/src/request_test_support.h"

namespace requesttest {
namespace {

using namespace kivplugcali;
using Lines = std::vector<std::string>;

constexpr char kTagPlaneRequest[] = "src/cameralasercali_377";
constexpr char kTagIEparamRequest[] = "src/cameralasercali_407";
constexpr char kTagDistanceCheckRequest[] = "src/cameralasercali_438";

std::string PlaneRequest(uint8_t code) {
  LaserClibrMsg request;
  request.kind = code;
  return Pub(calitopics::kLaserCalibrReq, kTagPlaneRequest, request);
}

std::string IEparamRequest(uint8_t code) {
  CameraClibrIEParamMsg request;
  request.kind = code;
  return Pub(calitopics::kCameraCaliIEParam, kTagIEparamRequest, request);
}

std::string DistanceCheckRequest(int8_t code) {
  kiv_camera_distance_msg request;
  request.kind = code;
  return Pub(calitopics::kDistanceStartCaculate, kTagDistanceCheckRequest, request);
}

class StartSequenceTest : public RequestTest {};

TEST_F(StartSequenceTest, CameraParametersAloneInAppModeSendCodeFour) {
  APP_USE = 1;
  cameraIEparamcali_publish_flag = 1;
  const Globals before = PluginGlobals();
  harness.node().CameraCaliPStartProcess();

  EXPECT_EQ(Published(), (Lines{IEparamRequest(4)}));
  EXPECT_EQ(Out(), (Lines{"xxx pub_camera_cali_ieparam 0"}));
  EXPECT_EQ(PluginGlobals(), With(before, {{"cameraIEparamcali_publish_flag", "0"}}));
}

TEST_F(StartSequenceTest, PlaneWithResetInAppModeSendsTheFactoryResetCode) {
  APP_USE = 1;
  cameraplanecali_publish_flag = 1;
  cameraplanecali_reset_flag = 1;
  const Globals before = PluginGlobals();
  harness.node().CameraCaliPStartProcess();

  EXPECT_EQ(Published(), (Lines{PlaneRequest(3)}));
  EXPECT_EQ(Out(), (Lines{"xxx pub_camera_cali_plane "}));
  EXPECT_EQ(PluginGlobals(), With(before, {
                                              {"cameraplanecali_publish_flag", "0"},
                                              {"cameraplanecali_reset_flag", "0"},
                                          }));
}

TEST_F(StartSequenceTest, PlaneWithoutResetSendsCodeOneInEitherMode) {
  for (uint8_t app : {0, 1}) {
    SCOPED_TRACE(static_cast<int>(app));
    Forget();
    APP_USE = app;
    cameraplanecali_publish_flag = 1;
    harness.node().CameraCaliPStartProcess();
    EXPECT_EQ(Published(), (Lines{PlaneRequest(1)}));
    EXPECT_EQ(cameraplanecali_publish_flag, 0);
  }
}

struct CodeCase {
  uint8_t app_use;
  int32_t reset;
  uint8_t code;
};

class RequestCodeTest : public StartSequenceTest, public ::testing::WithParamInterface<CodeCase> {};

TEST_P(RequestCodeTest, CameraParametersAndDistanceCheckUseTheCodeOfModeAndReset) {
  const CodeCase& c = GetParam();
  APP_USE = c.app_use;
  cameraIEparamcali_publish_flag = 1;
  cameraIEparamcali_reset_flag = c.reset;
  DistanceCheck_publish_flag = 1;
  DistanceCheck_reset_flag = c.reset;
  const Globals before = PluginGlobals();
  harness.node().CameraCaliPStartProcess();

  EXPECT_EQ(Published(), (Lines{IEparamRequest(c.code), DistanceCheckRequest(c.code)}));
  EXPECT_EQ(Out(), (Lines{"xxx pub_camera_cali_ieparam " + std::to_string(c.reset),
                          "xxx DistanceCheck_publish_flag "}));
  EXPECT_EQ(PluginGlobals(), With(before, {
                                              {"cameraIEparamcali_publish_flag", "0"},
                                              {"cameraIEparamcali_reset_flag", "0"},
                                              {"DistanceCheck_publish_flag", "0"},
                                              {"DistanceCheck_reset_flag", "0"},
                                          }));
}

INSTANTIATE_TEST_SUITE_P(ModeAndReset, RequestCodeTest,
                         ::testing::Values(CodeCase{0, 0, 1}, CodeCase{0, 1, 3}, CodeCase{1, 0, 4},
                                           CodeCase{1, 1, 5},
                                           // Only an APP_USE of exactly 1 is app mode.
                                           CodeCase{2, 0, 1}, CodeCase{2, 1, 3}));

TEST_F(StartSequenceTest, AResetFlagOtherThanOneIsNoReset) {
  cameraplanecali_publish_flag = 1;
  cameraplanecali_reset_flag = 2;
  cameraIEparamcali_publish_flag = 1;
  cameraIEparamcali_reset_flag = -1;
  const Globals before = PluginGlobals();
  harness.node().CameraCaliPStartProcess();

  EXPECT_EQ(Published(), (Lines{PlaneRequest(1), IEparamRequest(1)}));
  EXPECT_EQ(Out(), (Lines{"xxx pub_camera_cali_plane ", "xxx pub_camera_cali_ieparam -1"}));
  EXPECT_EQ(PluginGlobals(), With(before, {
                                              {"cameraplanecali_publish_flag", "0"},
                                              {"cameraIEparamcali_publish_flag", "0"},
                                          }));
}

TEST_F(StartSequenceTest, AllThreeGoOutInOrderWithinOneCall) {
  APP_USE = 1;
  cameraplanecali_publish_flag = 1;
  cameraIEparamcali_publish_flag = 1;
  cameraIEparamcali_reset_flag = 1;
  DistanceCheck_publish_flag = 1;
  cameraplaneCheck_reset_flag = 1;  // consumed elsewhere, left alone here
  const Globals before = PluginGlobals();
  harness.node().CameraCaliPStartProcess();

  EXPECT_EQ(Published(), (Lines{PlaneRequest(1), IEparamRequest(5), DistanceCheckRequest(4)}));
  EXPECT_EQ(Out(), (Lines{"xxx pub_camera_cali_plane ", "xxx pub_camera_cali_ieparam 1",
                          "xxx DistanceCheck_publish_flag "}));
  EXPECT_EQ(PluginGlobals(), With(before, {
                                              {"cameraplanecali_publish_flag", "0"},
                                              {"cameraIEparamcali_publish_flag", "0"},
                                              {"cameraIEparamcali_reset_flag", "0"},
                                              {"DistanceCheck_publish_flag", "0"},
                                          }));
}

TEST_F(StartSequenceTest, ASecondCallStraightAfterPublishesNothing) {
  cameraplanecali_publish_flag = 1;
  cameraIEparamcali_publish_flag = 1;
  DistanceCheck_publish_flag = 1;
  harness.node().CameraCaliPStartProcess();
  Forget();
  const Globals before = PluginGlobals();
  harness.node().CameraCaliPStartProcess();

  EXPECT_TRUE(harness.publications.empty());
  EXPECT_EQ(harness.console().Out(), "");
  EXPECT_EQ(PluginGlobals(), before);
}

TEST_F(StartSequenceTest, NoFlagRaisedDoesNothing) {
  cameraplanecali_reset_flag = 1;
  cameraIEparamcali_reset_flag = 1;
  DistanceCheck_reset_flag = 1;
  const Globals before = PluginGlobals();
  harness.node().CameraCaliPStartProcess();

  EXPECT_TRUE(harness.publications.empty());
  EXPECT_EQ(harness.console().Out(), "");
  EXPECT_EQ(PluginGlobals(), before);
}

TEST_F(StartSequenceTest, RequestsAreFreshRecordsWithOnlyTheCodeSet) {
  cameraplanecali_publish_flag = 1;
  cameraIEparamcali_publish_flag = 1;
  DistanceCheck_publish_flag = 1;
  harness.node().CameraCaliPStartProcess();

  ASSERT_EQ(harness.publications.size(), 3u);
  const std::size_t sizes[] = {sizeof(LaserClibrMsg), sizeof(CameraClibrIEParamMsg),
                               sizeof(kiv_camera_distance_msg)};
  for (std::size_t i = 0; i < 3; ++i) {
    const std::vector<uint8_t>& bytes = harness.publications[i].bytes;
    ASSERT_EQ(bytes.size(), sizes[i]);
    EXPECT_EQ(bytes[0], 1) << i;
    EXPECT_EQ(std::vector<uint8_t>(bytes.begin() + 1, bytes.end()),
              std::vector<uint8_t>(bytes.size() - 1, 0))
        << i;
  }
}

TEST_F(StartSequenceTest, OffTheMainThreadTheFirstRequestThrowsAndTheRestWait) {
  cameraplanecali_publish_flag = 1;
  cameraplanecali_reset_flag = 1;
  cameraIEparamcali_publish_flag = 1;
  cameraIEparamcali_reset_flag = 1;
  const Globals before = PluginGlobals();
  std::string error;
  std::thread worker([&] {
    try {
      harness.node().CameraCaliPStartProcess();
    } catch (const std::runtime_error& e) {
      error = e.what();
    }
  });
  worker.join();

  EXPECT_EQ(error, "src/cameralasercali_377Error publish in sub thread");
  EXPECT_TRUE(harness.publications.empty());
  EXPECT_EQ(Out(), (Lines{"xxx pub_camera_cali_plane "}));
  EXPECT_EQ(harness.console().ErrLines(),
            (Lines{"src/cameralasercali_377Error: publish in sub thread!!"}));
  // The reset flag had selected code 3 and is gone; the publish flag stays,
  // and the camera parameter request was not looked at.
  EXPECT_EQ(PluginGlobals(), With(before, {{"cameraplanecali_reset_flag", "0"}}));
}

TEST_F(StartSequenceTest, ASubscriberOfTheWrongTypeStopsTheSequenceAtItsRequest) {
  harness.host().Subscribe<int>("wrong", calitopics::kCameraCaliIEParam, [](int*) {});
  APP_USE = 1;
  cameraplanecali_publish_flag = 1;
  cameraIEparamcali_publish_flag = 1;
  cameraIEparamcali_reset_flag = 1;
  DistanceCheck_publish_flag = 1;
  DistanceCheck_reset_flag = 1;
  const Globals before = PluginGlobals();

  EXPECT_THROW(
      {
        try {
          harness.node().CameraCaliPStartProcess();
        } catch (const std::runtime_error& e) {
          EXPECT_STREQ(e.what(), "publish type error");
          throw;
        }
      },
      std::runtime_error);

  // The watcher subscribed before the wrong entry still saw the request.
  EXPECT_EQ(Published(), (Lines{PlaneRequest(1), IEparamRequest(5)}));
  EXPECT_EQ(Out(), (Lines{"xxx pub_camera_cali_plane ", "xxx pub_camera_cali_ieparam 1"}));
  EXPECT_EQ(PluginGlobals(), With(before, {
                                              {"cameraplanecali_publish_flag", "0"},
                                              {"cameraIEparamcali_reset_flag", "0"},
                                          }));
}

}  // namespace
}  // namespace requesttest
