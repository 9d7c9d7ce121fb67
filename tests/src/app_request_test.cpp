// The app's laser calibration request ("laser_calibration").
//
// Replies to the app travel as state text on "laser_state"; camera-state
// replies and the laser power check go out on "CAMERACALIRES". Every test
// checks both topics, the console lines and the globals afterwards.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/src/request_test_support.h"

namespace requesttest {
namespace {

using namespace kivplugcali;
using Lines = std::vector<std::string>;
using AppRecord = kiv_camera_APPcalires_msg;

constexpr char kTagClosed[] = "src/cameralasercali_479";
constexpr char kTagLaserPowerCheck[] = "src/cameralasercali_500";
constexpr char kTagOpening[] = "src/cameralasercali_510";
constexpr char kTagOpened[] = "src/cameralasercali_515";
constexpr char kTagPlaneRequest[] = "src/cameralasercali_377";
constexpr char kTagIEparamRequest[] = "src/cameralasercali_407";
constexpr char kTagDistanceCheckRequest[] = "src/cameralasercali_438";

// The relay's console line for a state text.
std::string Relayed(const std::string& text) { return "xxx APP laser_camera_calires_send " + text; }

class AppRequestTest : public RequestTest {
 protected:
  void SetUp() override {
    RequestTest::SetUp();
    // A factory request came last; both records hold earlier results.
    APP_USE = 0;
    distance_delt = distance_factory;
    msg_camera_calires = EarlierRecord<kiv_camera_calires_msg>();
    msg_camera_APPcalires = EarlierRecord<AppRecord>();
  }

  // The two lines every app request starts with.
  static Lines Start(uint16_t value) {
    return {"xxx dis_tmp " + std::to_string(value), "xxx APP_USE 1 20"};
  }

  static Lines Join(Lines first, const Lines& second) {
    first.insert(first.end(), second.begin(), second.end());
    return first;
  }

  // The globals every app request sets.
  static Globals AppMode(Globals changes = {}) {
    changes["APP_USE"] = "1";
    changes["distance_delt"] = "20";
    return changes;
  }
};

TEST_F(AppRequestTest, ResetAcknowledgesAndLeavesTheCameraParameterResetAlone) {
  cameraIEparamcali_reset_flag = 0;
  const Globals before = PluginGlobals();
  SendApp(0x1111);

  const AppRecord ack = DistanceReply(EarlierRecord<AppRecord>(), 0x1111);
  EXPECT_EQ(Published(), (Lines{State(kStateDistanceTag, "2;4369")}));
  EXPECT_EQ(Out(),
            Join(Start(4369), {Relayed("2;4369"), "xxx set distance_curr = 50 ", "xxx 0x1111 "}));
  EXPECT_EQ(PluginGlobals(), With(before, AppMode({
                                              {"cameraplanecali_reset_flag", "1"},
                                              {"cameraplaneCheck_reset_flag", "1"},
                                              {"DistanceCheck_reset_flag", "1"},
                                              {"distance_curr", "50"},
                                              {"msg_camera_APPcalires", Hex(ack)},
                                          })));
}

TEST_F(AppRequestTest, ResetKeepsARaisedCameraParameterResetRaised) {
  cameraIEparamcali_reset_flag = 1;
  SendApp(0x1111);
  EXPECT_EQ(cameraIEparamcali_reset_flag, 1);
}

TEST_F(AppRequestTest, CloseWithTheCameraClosedAcknowledgesOnlyToTheApp) {
  const Globals before = PluginGlobals();
  SendApp(0x2222);

  const AppRecord ack = DistanceReply(EarlierRecord<AppRecord>(), 0x2222);
  EXPECT_EQ(Published(), (Lines{State(kStateDistanceTag, "2;8738")}));
  EXPECT_EQ(Out(), Join(Start(8738), {Relayed("2;8738"), "xxx Camera_Close2 "}));
  EXPECT_EQ(PluginGlobals(), With(before, AppMode({{"msg_camera_APPcalires", Hex(ack)}})));
}

TEST_F(AppRequestTest, CloseWithTheCameraOpenRepliesOnBothTopics) {
  HoldCameraOpen();
  const Globals before = PluginGlobals();
  SendApp(0x2222);

  const kiv_camera_calires_msg closed = CameraState(EarlierRecord<kiv_camera_calires_msg>(), 0);
  const AppRecord ack = DistanceReply(EarlierRecord<AppRecord>(), 0x2222);
  EXPECT_EQ(Published(), (Lines{CaliRes(kTagClosed, closed), State(kStateDistanceTag, "2;8738")}));
  EXPECT_EQ(Out(), Join(Start(8738),
                        {"xxx close camera success! ", Relayed("2;8738"), "xxx Camera_Close1 "}));
  EXPECT_EQ(PluginGlobals(), With(before, AppMode({
                                              {"cameraopen_flag", "0"},
                                              {"camera1_open_flag", "0"},
                                              {"msg_camera_calires", Hex(closed)},
                                              {"msg_camera_APPcalires", Hex(ack)},
                                          })));
  EXPECT_FALSE(sim::GetStatus().open);
}

TEST_F(AppRequestTest, CloseThatFailsKeepsTheCameraOpenAndSaysNothing) {
  HoldCameraOpen();
  sim::SetFault(sim::Operation::kClose, sim::Fault::Always());
  const Globals before = PluginGlobals();
  SendApp(0x2222);

  EXPECT_TRUE(harness.publications.empty());
  EXPECT_EQ(Out(), Join(Start(8738), {"xxx close camera fail! "}));
  EXPECT_EQ(PluginGlobals(), With(before, AppMode()));
  EXPECT_EQ(cameraopen_flag, 1);

  // The next close tries again.
  sim::SetFault(sim::Operation::kClose, sim::Fault::Never());
  SendApp(0x2222);
  EXPECT_EQ(cameraopen_flag, 0);
  EXPECT_FALSE(sim::GetStatus().open);
}

TEST_F(AppRequestTest, LaserPowerCheckGoesOutEvenWithTheCameraClosed) {
  const Globals before = PluginGlobals();
  SendApp(0x4444);

  kiv_camera_calires_msg check = EarlierRecord<kiv_camera_calires_msg>();
  check.kind = 5;
  EXPECT_EQ(Published(), (Lines{CaliRes(kTagLaserPowerCheck, check)}));
  EXPECT_EQ(Out(), Join(Start(17476), {"xxx pub_check_laserpower "}));
  EXPECT_EQ(PluginGlobals(), With(before, AppMode({{"msg_camera_calires", Hex(check)}})));
  EXPECT_EQ(sim::GetStatus().calls[static_cast<int>(sim::Operation::kOpen)], 0);
}

TEST_F(AppRequestTest, LaserPowerCheckWithTheCameraOpenLeavesItOpen) {
  HoldCameraOpen();
  SendApp(0x4444);
  kiv_camera_calires_msg check = EarlierRecord<kiv_camera_calires_msg>();
  check.kind = 5;
  EXPECT_EQ(Published(), (Lines{CaliRes(kTagLaserPowerCheck, check)}));
  EXPECT_EQ(cameraopen_flag, 1);
  EXPECT_TRUE(sim::GetStatus().open);
}

TEST_F(AppRequestTest, FirstRequestOpensTheCameraWithTwoReplies) {
  const Globals before = PluginGlobals();
  SendApp(10);

  const kiv_camera_calires_msg opening =
      CameraStateNoDistance(EarlierRecord<kiv_camera_calires_msg>(), 0);
  const kiv_camera_calires_msg opened = CameraState(opening, 1);
  EXPECT_EQ(Published(), (Lines{CaliRes(kTagOpening, opening), CaliRes(kTagOpened, opened)}));
  EXPECT_EQ(Out(), Join(Start(10), {
                                       "xxx open camera success! ",
                                       "xxx Camera_Open OK",
                                       "xxx cameraopen_flag:1",
                                       "xxx distance trans 10",
                                       "xxx dis_suit_flag = 1 ",
                                       "xxx exposure 600 gain 4",
                                       "xxx distance fail 10",
                                   }));
  EXPECT_EQ(PluginGlobals(), With(before, AppMode({
                                              {"cameraopen_flag", "1"},
                                              {"camera1_open_flag", "1"},
                                              {"timer_fd", "1"},
                                              {"distance_curr", "10"},
                                              {"APPcalires_dis", "10"},
                                              {"exposure_value", "600"},
                                              {"gain_value", "4"},
                                              {"msg_camera_calires", Hex(opened)},
                                          })));
}

struct AppOpenFailureCase {
  uint16_t value;
  AppRecord (*form)(AppRecord);
  const char* tag;
  const char* text;
};

AppRecord Refused(AppRecord record) { return DistanceReply(record, 316); }

class AppOpenFailureTest : public AppRequestTest,
                           public ::testing::WithParamInterface<AppOpenFailureCase> {};

TEST_P(AppOpenFailureTest, SaysSoTwiceAndRepliesToTheAppByRequestKind) {
  const AppOpenFailureCase& c = GetParam();
  sim::SetFault(sim::Operation::kOpen, sim::Fault::Always());
  const Globals before = PluginGlobals();
  SendApp(c.value);

  const kiv_camera_calires_msg opening =
      CameraStateNoDistance(EarlierRecord<kiv_camera_calires_msg>(), 0);
  const AppRecord failed = c.form(EarlierRecord<AppRecord>());
  EXPECT_EQ(Published(), (Lines{CaliRes(kTagOpening, opening), State(c.tag, c.text)}));
  EXPECT_EQ(Out(), Join(Start(c.value), {
                                            "xxx open camera fail! ",
                                            "xxx Camera_Open fail",
                                            "xxx Camera_Open fail",
                                            Relayed(c.text),
                                            "xxx cameraopen_flag:0",
                                        }));
  EXPECT_EQ(PluginGlobals(), With(before, AppMode({
                                              {"msg_camera_calires", Hex(opening)},
                                              {"msg_camera_APPcalires", Hex(failed)},
                                          })));
}

// The earlier record's plane values are 0x5100 + i, its check values 0x4100 + i.
INSTANTIATE_TEST_SUITE_P(
    ByValue, AppOpenFailureTest,
    ::testing::Values(AppOpenFailureCase{255, &ChessboardFailed<AppRecord>, kStateIEparamTag,
                                         "3;60;60;15615"},
                      AppOpenFailureCase{0, &CalibrationFailed<AppRecord>, kStatePlaneCheckTag,
                                         "4;6000;600;6000;600;60;60;60;60;60;60;60;60;60;60;60"},
                      AppOpenFailureCase{20, &Refused, kStateDistanceTag, "2;316"},
                      AppOpenFailureCase{5, &Refused, kStateDistanceTag, "2;316"},
                      AppOpenFailureCase{0x3333, &Refused, kStateDistanceTag, "2;316"}));

TEST_F(AppRequestTest, FiveIsOutOfRangeForTheApp) {
  HoldCameraOpen();
  const Globals before = PluginGlobals();
  SendApp(5);

  EXPECT_TRUE(harness.publications.empty());
  EXPECT_EQ(Out(), Join(Start(5), {
                                      "xxx cameraopen_flag:1",
                                      "xxx distance trans 5",
                                      "xxx distance out of range ",
                                  }));
  EXPECT_EQ(PluginGlobals(), With(before, AppMode()));
}

TEST_F(AppRequestTest, OnlyZeroTenTwentyAndThirtyAreSuitable) {
  HoldCameraOpen();
  for (uint16_t value = 0; value <= 60; ++value) {
    Forget();
    SendApp(value);
    const Lines lines = Out();
    const bool suitable = value == 0 || value == 10 || value == 20 || value == 30;
    ASSERT_GE(lines.size(), 5u) << value;
    EXPECT_EQ(lines[4], suitable ? "xxx dis_suit_flag = 1 " : "xxx distance out of range ")
        << value;
    EXPECT_EQ(std::count(lines.begin(), lines.end(), "xxx dis_suit_flag = 1 "), suitable ? 1 : 0)
        << value;
  }
}

TEST_F(AppRequestTest, TwentyIsAcknowledgedWithWhatTheCaptureReported) {
  HoldCameraOpen();
  SendApp(20);
  EXPECT_TRUE(harness.publications.empty());
  EXPECT_EQ(Out(), Join(Start(20), {
                                       "xxx cameraopen_flag:1",
                                       "xxx distance trans 20",
                                       "xxx dis_suit_flag = 1 ",
                                       "xxx exposure 1900 gain 4",
                                       "xxx distance fail 20",
                                   }));
  CompletePictures();

  const std::string dis = std::to_string(APPcalires_dis);
  const Globals before = PluginGlobals();
  SendApp(20);

  const AppRecord ack = DistanceReply(EarlierRecord<AppRecord>(), APPcalires_dis);
  EXPECT_EQ(Published(), (Lines{State(kStateDistanceTag, "2;" + dis)}));
  EXPECT_EQ(Out(), Join(Start(20), {
                                       "xxx cameraopen_flag:1",
                                       "xxx distance trans 20",
                                       "xxx dis_suit_flag = 1 ",
                                       "xxx distance OK 20",
                                       Relayed("2;" + dis),
                                       "xxx pub_laser_camera_APPcalires 2 " + dis,
                                   }));
  EXPECT_EQ(PluginGlobals(), With(before, AppMode({{"msg_camera_APPcalires", Hex(ack)}})));
}

TEST_F(AppRequestTest, TheAcknowledgeCarriesTheCaptureOutcomeNotTheRequestValue) {
  HoldCameraOpen();
  SendApp(30);
  CompletePictures();
  APPcalires_dis = 257;  // the stripe cut found two stripes
  const Globals before = PluginGlobals();
  SendApp(30);

  const AppRecord ack = DistanceReply(EarlierRecord<AppRecord>(), 257);
  EXPECT_EQ(Published(), (Lines{State(kStateDistanceTag, "2;257")}));
  EXPECT_EQ(Out(), Join(Start(30), {
                                       "xxx cameraopen_flag:1",
                                       "xxx distance trans 30",
                                       "xxx dis_suit_flag = 1 ",
                                       "xxx distance OK 30",
                                       Relayed("2;257"),
                                       "xxx pub_laser_camera_APPcalires 2 257",
                                   }));
  EXPECT_EQ(PluginGlobals(), With(before, AppMode({{"msg_camera_APPcalires", Hex(ack)}})));
}

TEST_F(AppRequestTest, ZeroStartsThePlaneCalibrationWithTheFactoryCode) {
  HoldCameraOpen();
  const Globals before = PluginGlobals();
  SendApp(0);

  LaserClibrMsg request;
  request.kind = 3;
  EXPECT_EQ(Published(), (Lines{Pub(calitopics::kLaserCalibrReq, kTagPlaneRequest, request)}));
  EXPECT_EQ(Out(), Join(Start(0), {
                                      "xxx cameraopen_flag:1",
                                      "xxx distance trans 0",
                                      "xxx dis_suit_flag = 1 ",
                                      "xxx distance OK 0",
                                      "xxx pub_camera_cali_plane ",
                                  }));
  EXPECT_EQ(PluginGlobals(), With(before, AppMode({
                                              {"distance_curr", "0"},
                                              {"APPcalires_dis", "0"},
                                              {"save_pic_success", "3"},
                                              {"cameraplaneCheck_reset_flag", "1"},
                                          })));
}

TEST_F(AppRequestTest, ChessboardStartsTheCameraParameterCalibrationWithTheAppResetCode) {
  HoldCameraOpen();
  SendApp(255);
  EXPECT_EQ(Out(),
            Join(Start(255), {
                                 "xxx cameraopen_flag:1",
                                 "xxx distance trans 255",
                                 "xxx dis_chessboard || dis_DistanceCheck dis_suit_flag = 1 ",
                                 "xxx exposure 8000 gain 32",
                                 "xxx distance fail 255",
                             }));
  CompletePictures();
  const Globals before = PluginGlobals();
  SendApp(255);

  CameraClibrIEParamMsg request;
  request.kind = 5;
  EXPECT_EQ(Published(), (Lines{Pub(calitopics::kCameraCaliIEParam, kTagIEparamRequest, request)}));
  EXPECT_EQ(Out(),
            Join(Start(255), {
                                 "xxx cameraopen_flag:1",
                                 "xxx distance trans 255",
                                 "xxx dis_chessboard || dis_DistanceCheck dis_suit_flag = 1 ",
                                 "xxx distance OK 255",
                                 "xxx pub_camera_cali_ieparam 1",
                             }));
  EXPECT_EQ(PluginGlobals(), With(before, AppMode({{"cameraIEparamcali_reset_flag", "0"}})));
}

TEST_F(AppRequestTest, DistanceCheckStartsWithTheAppResetCode) {
  HoldCameraOpen();
  SendApp(0x3333);
  EXPECT_EQ(Out(),
            Join(Start(13107), {
                                   "xxx cameraopen_flag:1",
                                   "xxx distance trans 13107",
                                   "xxx dis_chessboard || dis_DistanceCheck dis_suit_flag = 1 ",
                                   "xxx exposure 600 gain 4",
                                   "xxx distance fail 13107",
                               }));
  CompletePictures();
  const Globals before = PluginGlobals();
  SendApp(0x3333);

  kiv_camera_distance_msg request;
  request.kind = 5;
  EXPECT_EQ(Published(),
            (Lines{Pub(calitopics::kDistanceStartCaculate, kTagDistanceCheckRequest, request)}));
  EXPECT_EQ(Out(),
            Join(Start(13107), {
                                   "xxx cameraopen_flag:1",
                                   "xxx distance trans 13107",
                                   "xxx dis_chessboard || dis_DistanceCheck dis_suit_flag = 1 ",
                                   "xxx distance OK 13107",
                                   "xxx DistanceCheck_publish_flag ",
                               }));
  EXPECT_EQ(PluginGlobals(), With(before, AppMode({{"DistanceCheck_reset_flag", "0"}})));
}

TEST_F(AppRequestTest, AppModeLastsUntilTheNextFactoryRequest) {
  SendApp(0x4444);
  EXPECT_EQ(APP_USE, 1);
  EXPECT_EQ(distance_delt, 20);
  SendFactory(0x1111);
  EXPECT_EQ(APP_USE, 0);
  EXPECT_EQ(distance_delt, 60);
}

// Each app reply form writes only its own fields of the app record, and the
// factory record only where a reply goes out on "CAMERACALIRES".
TEST_F(AppRequestTest, EachReplyFormWritesOnlyItsOwnFields) {
  const AppRecord earlier = EarlierRecord<AppRecord>();
  const kiv_camera_calires_msg factory_earlier = EarlierRecord<kiv_camera_calires_msg>();
  struct Step {
    const char* what;
    void (*prepare)();
    uint16_t value;
    AppRecord expected;
  };
  const Step steps[] = {
      {"acknowledge reset", [] {}, 0x1111, DistanceReply(earlier, 0x1111)},
      {"acknowledge close", [] {}, 0x2222, DistanceReply(earlier, 0x2222)},
      {"acknowledge distance",
       [] {
         cameraopen_flag = 1;
         APPcalires_dis = 258;
         distance_curr = 10;
         save_pic_success = 3;
       },
       10, DistanceReply(earlier, 258)},
      {"distance-refused", [] { sim::SetFault(sim::Operation::kOpen, sim::Fault::Always()); }, 10,
       DistanceReply(earlier, 316)},
      {"chessboard-failed", [] { sim::SetFault(sim::Operation::kOpen, sim::Fault::Always()); }, 255,
       ChessboardFailed(earlier)},
      {"calibration-failed", [] { sim::SetFault(sim::Operation::kOpen, sim::Fault::Always()); }, 0,
       CalibrationFailed(earlier)},
  };
  for (const Step& step : steps) {
    SCOPED_TRACE(step.what);
    sim::Reset();
    cameraopen_flag = 0;
    camera1_open_flag = 0;
    msg_camera_APPcalires = earlier;
    msg_camera_calires = factory_earlier;
    step.prepare();
    SendApp(step.value);
    EXPECT_EQ(Hex(msg_camera_APPcalires), Hex(step.expected));
  }

  // The factory record: the laser power check writes its kind alone.
  msg_camera_calires = factory_earlier;
  SendApp(0x4444);
  kiv_camera_calires_msg check = factory_earlier;
  check.kind = 5;
  EXPECT_EQ(Hex(msg_camera_calires), Hex(check));
}

}  // namespace
}  // namespace requesttest
