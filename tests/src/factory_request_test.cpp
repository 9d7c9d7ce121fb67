// The factory calibration request ("CAMERACALI").
//
// Every test checks what went out on the topics (topic, trace tag, every
// byte), the console lines and the plug-in's globals afterwards. The camera
// is the simulator; tests that need a finished picture set run the frame
// timer on the host's virtual clock.
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <string>
#include <vector>

#include "tests/src/request_test_support.h"

namespace requesttest {
namespace {

using namespace kivplugcali;
using Lines = std::vector<std::string>;

constexpr char kTagClosedOpen[] = "src/cameralasercali_640";
constexpr char kTagClosedIdle[] = "src/cameralasercali_648";
constexpr char kTagOpening[] = "src/cameralasercali_663";
constexpr char kTagOpened[] = "src/cameralasercali_669";
constexpr char kTagChessboardFailed[] = "src/cameralasercali_683";
constexpr char kTagCalibrationFailed[] = "src/cameralasercali_702";
constexpr char kTagDistanceRefused[] = "src/cameralasercali_708";
constexpr char kTagDistanceAccepted[] = "src/cameralasercali_745";
constexpr char kTagPlaneRequest[] = "src/cameralasercali_377";
constexpr char kTagIEparamRequest[] = "src/cameralasercali_407";
constexpr char kTagDistanceCheckRequest[] = "src/cameralasercali_438";

class FactoryRequestTest : public RequestTest {
 protected:
  void SetUp() override {
    RequestTest::SetUp();
    // As an app request would have left them: the factory request must set
    // both back.
    APP_USE = 1;
    distance_delt = distance_app;
    msg_camera_calires = EarlierRecord<kiv_camera_calires_msg>();
  }

  // The globals every factory request sets.
  static Globals FactoryMode(Globals changes = {}) {
    changes["APP_USE"] = "0";
    changes["distance_delt"] = "60";
    return changes;
  }
};

TEST_F(FactoryRequestTest, ResetWithTheCameraClosedRaisesFourFlagsAndPublishesNothing) {
  const Globals before = PluginGlobals();
  SendFactory(0x1111);

  EXPECT_TRUE(harness.publications.empty());
  EXPECT_EQ(Out(), (Lines{"xxx set distance_curr = 50 "}));
  EXPECT_EQ(PluginGlobals(), With(before, FactoryMode({
                                              {"cameraplanecali_reset_flag", "1"},
                                              {"cameraplaneCheck_reset_flag", "1"},
                                              {"DistanceCheck_reset_flag", "1"},
                                              {"cameraIEparamcali_reset_flag", "1"},
                                              {"distance_curr", "50"},
                                          })));
  EXPECT_EQ(sim::GetStatus().calls[static_cast<int>(sim::Operation::kOpen)], 0);
}

TEST_F(FactoryRequestTest, ResetWithTheCameraOpenLeavesItOpen) {
  HoldCameraOpen();
  const Globals before = PluginGlobals();
  SendFactory(0x1111);

  EXPECT_TRUE(harness.publications.empty());
  EXPECT_EQ(Out(), (Lines{"xxx set distance_curr = 50 "}));
  EXPECT_EQ(PluginGlobals(), With(before, FactoryMode({
                                              {"cameraplanecali_reset_flag", "1"},
                                              {"cameraplaneCheck_reset_flag", "1"},
                                              {"DistanceCheck_reset_flag", "1"},
                                              {"cameraIEparamcali_reset_flag", "1"},
                                              {"distance_curr", "50"},
                                          })));
  EXPECT_TRUE(sim::GetStatus().open);
}

TEST_F(FactoryRequestTest, CloseWithTheCameraClosedStillRepliesCameraClosed) {
  const kiv_camera_calires_msg earlier = msg_camera_calires;
  const Globals before = PluginGlobals();
  SendFactory(0x2222);

  const kiv_camera_calires_msg closed = CameraState(earlier, 0);
  EXPECT_EQ(Published(), (Lines{CaliRes(kTagClosedIdle, closed)}));
  EXPECT_EQ(harness.publications[0].bytes[0], 1);
  EXPECT_EQ(harness.publications[0].bytes[1], 0);
  EXPECT_EQ(Out(), (Lines{"xxx Camera_Close2 "}));
  EXPECT_EQ(PluginGlobals(), With(before, FactoryMode({{"msg_camera_calires", Hex(closed)}})));
  EXPECT_EQ(sim::GetStatus().calls[static_cast<int>(sim::Operation::kClose)], 0);
}

TEST_F(FactoryRequestTest, CloseWithTheCameraOpenClosesItAndStopsTheFrameTimer) {
  HoldCameraOpen();
  ASSERT_EQ(harness.host().Loop().TimerCount(), 1u);
  const kiv_camera_calires_msg earlier = msg_camera_calires;
  const Globals before = PluginGlobals();
  SendFactory(0x2222);

  const kiv_camera_calires_msg closed = CameraState(earlier, 0);
  EXPECT_EQ(Published(), (Lines{CaliRes(kTagClosedOpen, closed)}));
  EXPECT_EQ(Out(), (Lines{"xxx close camera success! ", "xxx Camera_Close1 "}));
  EXPECT_EQ(PluginGlobals(), With(before, FactoryMode({
                                              {"cameraopen_flag", "0"},
                                              {"camera1_open_flag", "0"},
                                              {"msg_camera_calires", Hex(closed)},
                                          })));
  EXPECT_FALSE(sim::GetStatus().open);
  EXPECT_EQ(harness.host().Loop().TimerCount(), 0u);
}

TEST_F(FactoryRequestTest, CloseThatFailsStillMarksTheCameraClosed) {
  HoldCameraOpen();
  sim::SetFault(sim::Operation::kClose, sim::Fault::Always());
  const kiv_camera_calires_msg earlier = msg_camera_calires;
  const Globals before = PluginGlobals();
  SendFactory(0x2222);

  const kiv_camera_calires_msg closed = CameraState(earlier, 0);
  EXPECT_EQ(Published(), (Lines{CaliRes(kTagClosedOpen, closed)}));
  EXPECT_EQ(Out(), (Lines{"xxx close camera fail! ", "xxx Camera_Close1 "}));
  // The session is still open; only the request side forgets it.
  EXPECT_EQ(PluginGlobals(), With(before, FactoryMode({
                                              {"cameraopen_flag", "0"},
                                              {"msg_camera_calires", Hex(closed)},
                                          })));
  EXPECT_TRUE(sim::GetStatus().open);
}

TEST_F(FactoryRequestTest, FirstRequestOpensTheCameraWithTwoRepliesBeforeTheDistanceSteps) {
  const kiv_camera_calires_msg earlier = msg_camera_calires;
  const Globals before = PluginGlobals();
  SendFactory(10);

  const kiv_camera_calires_msg opening = CameraStateNoDistance(earlier, 0);
  const kiv_camera_calires_msg opened = CameraState(opening, 1);
  EXPECT_EQ(Published(), (Lines{CaliRes(kTagOpening, opening), CaliRes(kTagOpened, opened)}));
  EXPECT_EQ(Out(), (Lines{
                       "xxx open camera success! ",
                       "xxx Camera_Open OK",
                       "xxx cameraopen_flag:1",
                       "xxx distance trans 10",
                       "xxx dis_suit_flag = 1 ",
                       "xxx exposure 1900 gain 4",
                       "xxx distance fail 10",
                   }));
  EXPECT_EQ(PluginGlobals(), With(before, FactoryMode({
                                              {"cameraopen_flag", "1"},
                                              {"camera1_open_flag", "1"},
                                              {"timer_fd", "1"},
                                              {"distance_curr", "10"},
                                              {"APPcalires_dis", "10"},
                                              {"exposure_value", "1900"},
                                              {"gain_value", "4"},
                                              {"msg_camera_calires", Hex(opened)},
                                          })));
  EXPECT_EQ(sim::GetStatus().open_count, 1);
  EXPECT_EQ(harness.host().Loop().TimerName(1), "src/caligetpic_310");
}

TEST_F(FactoryRequestTest, RequestsWithTheCameraOpenDoNotOpenItAgain) {
  SendFactory(10);
  Forget();
  SendFactory(10);

  EXPECT_TRUE(harness.publications.empty());
  EXPECT_EQ(Out(), (Lines{
                       "xxx cameraopen_flag:1",
                       "xxx distance trans 10",
                       "xxx dis_suit_flag = 1 ",
                       "xxx distance fail 10",
                   }));
  EXPECT_EQ(sim::GetStatus().calls[static_cast<int>(sim::Operation::kOpen)], 1);
}

struct OpenFailureCase {
  uint16_t value;
  const char* tag;
  kiv_camera_calires_msg (*form)(kiv_camera_calires_msg);
};

kiv_camera_calires_msg Refused(kiv_camera_calires_msg record) { return DistanceReply(record, 316); }

class FactoryOpenFailureTest : public FactoryRequestTest,
                               public ::testing::WithParamInterface<OpenFailureCase> {};

TEST_P(FactoryOpenFailureTest, RepliesWithTheFailureOfTheRequestKindAndStops) {
  const OpenFailureCase& c = GetParam();
  sim::SetFault(sim::Operation::kOpen, sim::Fault::Always());
  const kiv_camera_calires_msg earlier = msg_camera_calires;
  const Globals before = PluginGlobals();
  SendFactory(c.value);

  const kiv_camera_calires_msg opening = CameraStateNoDistance(earlier, 0);
  const kiv_camera_calires_msg failed = c.form(opening);
  EXPECT_EQ(Published(), (Lines{CaliRes(kTagOpening, opening), CaliRes(c.tag, failed)}));
  EXPECT_EQ(Out(), (Lines{
                       "xxx open camera fail! ",
                       "xxx Camera_Open fail",
                       "xxx cameraopen_flag:0",
                   }));
  EXPECT_EQ(PluginGlobals(), With(before, FactoryMode({{"msg_camera_calires", Hex(failed)}})));
  EXPECT_EQ(harness.host().Loop().TimerCount(), 0u);
}

INSTANTIATE_TEST_SUITE_P(
    ByValue, FactoryOpenFailureTest,
    ::testing::Values(
        OpenFailureCase{255, kTagChessboardFailed, &ChessboardFailed<kiv_camera_calires_msg>},
        OpenFailureCase{0, kTagCalibrationFailed, &CalibrationFailed<kiv_camera_calires_msg>},
        OpenFailureCase{10, kTagDistanceRefused, &Refused},
        // Unsuitable distances and the distance check are refused too.
        OpenFailureCase{7, kTagDistanceRefused, &Refused},
        OpenFailureCase{0x3333, kTagDistanceRefused, &Refused}));

TEST_F(FactoryRequestTest, TheNextRequestAfterAFailedOpenTriesAgain) {
  sim::SetFault(sim::Operation::kOpen, sim::Fault::NextCalls(1));
  SendFactory(20);
  Forget();
  const kiv_camera_calires_msg earlier = msg_camera_calires;
  SendFactory(20);

  const kiv_camera_calires_msg opening = CameraStateNoDistance(earlier, 0);
  EXPECT_EQ(Published(),
            (Lines{CaliRes(kTagOpening, opening), CaliRes(kTagOpened, CameraState(opening, 1))}));
  EXPECT_EQ(cameraopen_flag, 1);
  EXPECT_EQ(sim::GetStatus().open_count, 1);
}

TEST_F(FactoryRequestTest, UnsuitableDistanceIsOnlyPrinted) {
  HoldCameraOpen();
  const Globals before = PluginGlobals();
  SendFactory(7);

  EXPECT_TRUE(harness.publications.empty());
  EXPECT_EQ(Out(), (Lines{
                       "xxx cameraopen_flag:1",
                       "xxx distance trans 7",
                       "xxx distance out of range ",
                   }));
  EXPECT_EQ(PluginGlobals(), With(before, FactoryMode()));
}

TEST_F(FactoryRequestTest, FiftyFiveIsOutOfRange) {
  HoldCameraOpen();
  const Globals before = PluginGlobals();
  SendFactory(55);

  EXPECT_TRUE(harness.publications.empty());
  EXPECT_EQ(Out(), (Lines{
                       "xxx cameraopen_flag:1",
                       "xxx distance trans 55",
                       "xxx distance out of range ",
                   }));
  EXPECT_EQ(PluginGlobals(), With(before, FactoryMode()));
}

TEST_F(FactoryRequestTest, EveryStepOfFiveUpToFiftyIsSuitable) {
  HoldCameraOpen();
  for (uint16_t value = 0; value <= 60; ++value) {
    Forget();
    SendFactory(value);
    const Lines lines = Out();
    const bool suitable = value % 5 == 0 && value <= 50;
    ASSERT_GE(lines.size(), 3u) << value;
    EXPECT_EQ(lines[2], suitable ? "xxx dis_suit_flag = 1 " : "xxx distance out of range ")
        << value;
    EXPECT_EQ(std::count(lines.begin(), lines.end(), "xxx dis_suit_flag = 1 "), suitable ? 1 : 0)
        << value;
  }
}

TEST_F(FactoryRequestTest, FortyFivePassesAndIsAcceptedOnceItsPicturesAreStored) {
  HoldCameraOpen();
  SendFactory(45);
  EXPECT_TRUE(harness.publications.empty());
  EXPECT_EQ(Out(), (Lines{
                       "xxx cameraopen_flag:1",
                       "xxx distance trans 45",
                       "xxx dis_suit_flag = 1 ",
                       "xxx exposure 1900 gain 48",
                       "xxx distance fail 45",
                   }));
  CompletePictures();
  // The pictures are numbered with the factory offset.
  EXPECT_TRUE(std::filesystem::exists("/tmp/left/4560.bmp"));
  EXPECT_TRUE(std::filesystem::exists("/tmp/right/4560.bmp"));

  APP_USE = 1;  // as if an app request had come in between
  const kiv_camera_calires_msg earlier = msg_camera_calires;
  const Globals before = PluginGlobals();
  SendFactory(45);

  const kiv_camera_calires_msg accepted = DistanceReply(earlier, 45);
  EXPECT_EQ(Published(), (Lines{CaliRes(kTagDistanceAccepted, accepted)}));
  EXPECT_EQ(Out(), (Lines{
                       "xxx cameraopen_flag:1",
                       "xxx distance trans 45",
                       "xxx dis_suit_flag = 1 ",
                       "xxx distance OK 45",
                   }));
  EXPECT_EQ(PluginGlobals(), With(before, FactoryMode({{"msg_camera_calires", Hex(accepted)}})));
}

TEST_F(FactoryRequestTest, FiftyIsAcceptedAtOnceWithoutAPicture) {
  HoldCameraOpen();
  const kiv_camera_calires_msg earlier = msg_camera_calires;
  const Globals before = PluginGlobals();
  SendFactory(50);

  const kiv_camera_calires_msg accepted = DistanceReply(earlier, 50);
  EXPECT_EQ(Published(), (Lines{CaliRes(kTagDistanceAccepted, accepted)}));
  EXPECT_EQ(Out(), (Lines{
                       "xxx cameraopen_flag:1",
                       "xxx distance trans 50",
                       "xxx dis_suit_flag = 1 ",
                       "xxx distance OK 50",
                   }));
  EXPECT_EQ(PluginGlobals(), With(before, FactoryMode({
                                              {"distance_curr", "50"},
                                              {"APPcalires_dis", "50"},
                                              {"save_pic_success", "3"},
                                              {"msg_camera_calires", Hex(accepted)},
                                          })));
}

TEST_F(FactoryRequestTest, ZeroIsSuitableAndStartsThePlaneCalibration) {
  HoldCameraOpen();
  APPcalires_dis = 45;
  const Globals before = PluginGlobals();
  SendFactory(0);

  LaserClibrMsg request;
  request.kind = 3;  // setparam(0) asks for a reset of the stored plane
  EXPECT_EQ(Published(), (Lines{Pub(calitopics::kLaserCalibrReq, kTagPlaneRequest, request)}));
  EXPECT_EQ(Out(), (Lines{
                       "xxx cameraopen_flag:1",
                       "xxx distance trans 0",
                       "xxx dis_suit_flag = 1 ",
                       "xxx distance OK 0",
                       "xxx pub_camera_cali_plane ",
                   }));
  EXPECT_EQ(PluginGlobals(), With(before, FactoryMode({
                                              {"distance_curr", "0"},
                                              {"APPcalires_dis", "0"},
                                              {"save_pic_success", "3"},
                                              {"cameraplaneCheck_reset_flag", "1"},
                                          })));
}

TEST_F(FactoryRequestTest, ChessboardValuePassesAndStartsTheCameraParameterCalibration) {
  HoldCameraOpen();
  SendFactory(255);
  EXPECT_TRUE(harness.publications.empty());
  EXPECT_EQ(Out(), (Lines{
                       "xxx cameraopen_flag:1",
                       "xxx distance trans 255",
                       "xxx dis_chessboard || dis_DistanceCheck dis_suit_flag = 1 ",
                       "xxx exposure 8000 gain 32",
                       "xxx distance fail 255",
                   }));
  CompletePictures();
  EXPECT_TRUE(std::filesystem::exists("/tmp/pic/chessboard.bmp"));

  const Globals before = PluginGlobals();
  SendFactory(255);

  CameraClibrIEParamMsg request;
  request.kind = 3;  // a new chessboard picture resets the stored parameters
  EXPECT_EQ(Published(), (Lines{Pub(calitopics::kCameraCaliIEParam, kTagIEparamRequest, request)}));
  EXPECT_EQ(Out(), (Lines{
                       "xxx cameraopen_flag:1",
                       "xxx distance trans 255",
                       "xxx dis_chessboard || dis_DistanceCheck dis_suit_flag = 1 ",
                       "xxx distance OK 255",
                       "xxx pub_camera_cali_ieparam 1",
                   }));
  EXPECT_EQ(PluginGlobals(), With(before, FactoryMode({{"cameraIEparamcali_reset_flag", "0"}})));
}

TEST_F(FactoryRequestTest, DistanceCheckValuePassesAndStartsTheDistanceCheck) {
  HoldCameraOpen();
  SendFactory(0x3333);
  EXPECT_EQ(Out(), (Lines{
                       "xxx cameraopen_flag:1",
                       "xxx distance trans 13107",
                       "xxx dis_chessboard || dis_DistanceCheck dis_suit_flag = 1 ",
                       "xxx exposure 1200 gain 4",
                       "xxx distance fail 13107",
                   }));
  CompletePictures();

  const Globals before = PluginGlobals();
  SendFactory(0x3333);

  kiv_camera_distance_msg request;
  request.kind = 3;
  EXPECT_EQ(Published(),
            (Lines{Pub(calitopics::kDistanceStartCaculate, kTagDistanceCheckRequest, request)}));
  EXPECT_EQ(Out(), (Lines{
                       "xxx cameraopen_flag:1",
                       "xxx distance trans 13107",
                       "xxx dis_chessboard || dis_DistanceCheck dis_suit_flag = 1 ",
                       "xxx distance OK 13107",
                       "xxx DistanceCheck_publish_flag ",
                   }));
  EXPECT_EQ(PluginGlobals(), With(before, FactoryMode({{"DistanceCheck_reset_flag", "0"}})));
}

TEST_F(FactoryRequestTest, TheChessboardValueIsReadAtEachRequest) {
  HoldCameraOpen();
  dis_chessboard = 40;
  SendFactory(40);
  // 40 is a working distance and now also the chessboard value.
  EXPECT_EQ(Out(), (Lines{
                       "xxx cameraopen_flag:1",
                       "xxx distance trans 40",
                       "xxx dis_suit_flag = 1 ",
                       "xxx dis_chessboard || dis_DistanceCheck dis_suit_flag = 1 ",
                       "xxx exposure 8000 gain 32",
                       "xxx distance fail 40",
                   }));
  Forget();
  SendFactory(255);
  EXPECT_EQ(Out(), (Lines{
                       "xxx cameraopen_flag:1",
                       "xxx distance trans 255",
                       "xxx distance out of range ",
                   }));
  EXPECT_TRUE(harness.publications.empty());
}

TEST_F(FactoryRequestTest, DistanceReplyKeepsTheFieldsOfEarlierFailureReplies) {
  msg_camera_calires = kiv_camera_calires_msg();
  sim::SetFault(sim::Operation::kOpen, sim::Fault::NextCalls(2));
  SendFactory(255);  // chessboard-failed: type 3
  SendFactory(0);    // calibration-failed: type 4
  const kiv_camera_calires_msg after_failures = msg_camera_calires;
  ASSERT_EQ(after_failures.kind, 4);
  ASSERT_EQ(after_failures.ieparam3, 0x3CFF);
  Forget();
  SendFactory(50);  // opens, then accepts 50 at once

  kiv_camera_calires_msg expected = after_failures;
  expected.camera_state = 1;
  expected.distance = 50;
  expected.kind = 2;
  ASSERT_EQ(harness.publications.size(), 3u);
  EXPECT_EQ(Describe(harness.publications[2]), CaliRes(kTagDistanceAccepted, expected));
  // Bytes 4 onward as the type-3 and type-4 replies left them.
  const std::vector<uint8_t> bytes = harness.publications[2].bytes;
  EXPECT_EQ(bytes[4], 60);
  EXPECT_EQ(bytes[5], 60);
  EXPECT_EQ(bytes[6], 0xFF);
  EXPECT_EQ(bytes[7], 60);
  EXPECT_EQ(std::vector<uint8_t>(bytes.begin() + 8, bytes.begin() + 16),
            (std::vector<uint8_t>{0x70, 0x17, 0x58, 0x02, 0x70, 0x17, 0x58, 0x02}));
  for (int i = 16; i < 34; i += 2) {
    EXPECT_EQ(bytes[i], 60) << i;
    EXPECT_EQ(bytes[i + 1], 0) << i;
  }
  EXPECT_EQ(bytes[34], 60);
  EXPECT_EQ(bytes[35], 60);
  EXPECT_EQ(std::vector<uint8_t>(bytes.begin() + 36, bytes.end()), std::vector<uint8_t>(28, 0));
}

TEST_F(FactoryRequestTest, RepliesLeaveWhatAnEarlierResultWrote) {
  // A failed plane calibration result in factory mode fills the kind-4
  // fields; the replies that follow keep them.
  APP_USE = 0;
  LaserClibrMsg result;
  result.kind = 2;
  result.result = 7;
  for (int i = 0; i < 9; ++i) result.plane_data[i] = static_cast<uint16_t>(i + 1);
  harness.Send(calitopics::kLaserCalibrReqRes, result);
  const kiv_camera_calires_msg after_result = msg_camera_calires;
  ASSERT_EQ(after_result.kind, 4);
  ASSERT_EQ(after_result.plane_data[8], 9);
  Forget();

  SendFactory(50);
  SendFactory(0x2222);

  const kiv_camera_calires_msg opening = CameraStateNoDistance(after_result, 0);
  const kiv_camera_calires_msg opened = CameraState(opening, 1);
  const kiv_camera_calires_msg accepted = DistanceReply(opened, 50);
  const kiv_camera_calires_msg closed = CameraState(accepted, 0);
  EXPECT_EQ(Published(), (Lines{
                             CaliRes(kTagOpening, opening),
                             CaliRes(kTagOpened, opened),
                             CaliRes(kTagDistanceAccepted, accepted),
                             CaliRes(kTagClosedOpen, closed),
                         }));
  EXPECT_EQ(msg_camera_calires.plane_data[0], 1);
  EXPECT_EQ(msg_camera_calires.plane_result, 7);
  EXPECT_EQ(msg_camera_calires.check_result, 255);
}

// Each reply form writes only its own fields: started from a record whose
// every field holds a value of its own, a reply changes exactly the fields
// it lists.
TEST_F(FactoryRequestTest, EachReplyFormWritesOnlyItsOwnFields) {
  using Record = kiv_camera_calires_msg;
  const Record earlier = EarlierRecord<Record>();
  struct Step {
    const char* what;
    void (*prepare)();
    uint16_t value;
    int publication;  // which of the request's publications is the reply
    const char* tag;
    Record expected;
  };
  const Step steps[] = {
      {"camera-opening", [] {}, 7, 0, kTagOpening, CameraStateNoDistance(earlier, 0)},
      {"camera-opened", [] {}, 7, 1, kTagOpened, CameraState(CameraStateNoDistance(earlier, 0), 1)},
      {"camera-closed, open", [] { cameraopen_flag = 1; }, 0x2222, 0, kTagClosedOpen,
       CameraState(earlier, 0)},
      {"camera-closed, closed", [] {}, 0x2222, 0, kTagClosedIdle, CameraState(earlier, 0)},
      {"distance-accepted", [] { cameraopen_flag = 1; }, 50, 0, kTagDistanceAccepted,
       DistanceReply(earlier, 50)},
      {"distance-refused", [] { sim::SetFault(sim::Operation::kOpen, sim::Fault::Always()); }, 10,
       1, kTagDistanceRefused, DistanceReply(CameraStateNoDistance(earlier, 0), 316)},
      {"chessboard-failed", [] { sim::SetFault(sim::Operation::kOpen, sim::Fault::Always()); }, 255,
       1, kTagChessboardFailed, ChessboardFailed(CameraStateNoDistance(earlier, 0))},
      {"calibration-failed", [] { sim::SetFault(sim::Operation::kOpen, sim::Fault::Always()); }, 0,
       1, kTagCalibrationFailed, CalibrationFailed(CameraStateNoDistance(earlier, 0))},
  };
  for (const Step& step : steps) {
    SCOPED_TRACE(step.what);
    sim::Reset();
    cameraopen_flag = 0;
    camera1_open_flag = 0;
    distance_curr = 60;
    msg_camera_calires = earlier;
    step.prepare();
    Forget();
    SendFactory(step.value);
    ASSERT_GT(harness.publications.size(), static_cast<std::size_t>(step.publication));
    EXPECT_EQ(Describe(harness.publications[step.publication]), CaliRes(step.tag, step.expected));
  }
}

}  // namespace
}  // namespace requesttest
