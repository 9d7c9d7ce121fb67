// The JSON command channel: commands arrive on the topic named by the
// node's identity string ("lasercali" in the test configuration) and are
// answered in the reply object of the same record.
#include <gtest/gtest.h>

#include <stdexcept>
#include <string>
#include <vector>

#include "tests/src/request_test_support.h"

namespace requesttest {
namespace {

using namespace kivplugcali;
using Lines = std::vector<std::string>;

constexpr char kJsonTopic[] = "lasercali";
constexpr char kTagClosedBeforeOpen[] = "src/cameralasercali_777";
constexpr char kTagOpened[] = "src/cameralasercali_785";
constexpr char kTagClosedBeforeClose[] = "src/cameralasercali_800";
constexpr char kTagPlaneRequest[] = "src/cameralasercali_377";
constexpr char kTagAppOpening[] = "src/cameralasercali_510";
constexpr char kTagAppOpened[] = "src/cameralasercali_515";

class JsonCommandTest : public RequestTest {
 protected:
  void SetUp() override {
    RequestTest::SetUp();
    msg_camera_calires = EarlierRecord<kiv_camera_calires_msg>();
    msg_camera_APPcalires = EarlierRecord<kiv_camera_APPcalires_msg>();
  }

  // Sends `json` as a command and returns the reply as JSON text.
  std::string Command(const std::string& json) {
    KivJsonMsg msg;
    msg.command.Parse(json.c_str());
    EXPECT_FALSE(msg.command.HasParseError()) << json;
    kiv::Publisher<KivJsonMsg> publisher(harness.host().FindTopic(kJsonTopic), kJsonTopic);
    publisher.publishWithLine(&msg, "test");
    return msg.reply.ToString();
  }
};

TEST_F(JsonCommandTest, OpenCameraThatFailsPublishesTheClosedStateOnce) {
  sim::SetFault(sim::Operation::kOpen, sim::Fault::Always());
  const Globals before = PluginGlobals();
  const std::string reply = Command(R"({"cmd":"open_camera"})");

  const kiv_camera_calires_msg closed =
      CameraStateNoDistance(EarlierRecord<kiv_camera_calires_msg>(), 0);
  EXPECT_EQ(reply, R"({"Camera_Open":"fail"})");
  EXPECT_EQ(Published(), (Lines{CaliRes(kTagClosedBeforeOpen, closed)}));
  EXPECT_EQ(Out(), (Lines{"xxx DBSync_reset", "xxx open camera fail! "}));
  EXPECT_EQ(PluginGlobals(), With(before, {{"msg_camera_calires", Hex(closed)}}));
}

TEST_F(JsonCommandTest, OpenCameraPublishesClosedThenOpenAndLeavesTheOpenFlagAlone) {
  const Globals before = PluginGlobals();
  const std::string reply = Command(R"({"cmd":"open_camera"})");

  const kiv_camera_calires_msg closed =
      CameraStateNoDistance(EarlierRecord<kiv_camera_calires_msg>(), 0);
  const kiv_camera_calires_msg open = CameraStateNoDistance(closed, 1);
  EXPECT_EQ(reply, R"({"Camera_Open":"ok"})");
  EXPECT_EQ(Published(), (Lines{CaliRes(kTagClosedBeforeOpen, closed), CaliRes(kTagOpened, open)}));
  EXPECT_EQ(Out(), (Lines{"xxx DBSync_reset", "xxx open camera success! ", "xxx DBSync_reset"}));
  EXPECT_EQ(PluginGlobals(), With(before, {
                                              {"camera1_open_flag", "1"},
                                              {"timer_fd", "1"},
                                              {"msg_camera_calires", Hex(open)},
                                          }));
  EXPECT_EQ(cameraopen_flag, 0);
  EXPECT_TRUE(sim::GetStatus().open);
}

TEST_F(JsonCommandTest, AfterOpenCameraAFactoryRequestStillOpensThroughItsOwnSteps) {
  Command(R"({"cmd":"open_camera"})");
  Forget();
  SendFactory(50);

  // The request still finds the flag at 0; Camera_Open answers true at once.
  EXPECT_EQ(harness.publications.size(), 3u);
  EXPECT_EQ(Out(), (Lines{"xxx Camera_Open OK", "xxx cameraopen_flag:1", "xxx distance trans 50",
                          "xxx dis_suit_flag = 1 ", "xxx distance OK 50"}));
  EXPECT_EQ(sim::GetStatus().open_count, 1);
}

TEST_F(JsonCommandTest, CloseCameraPublishesClosedFirstAndLeavesTheOpenFlagAlone) {
  HoldCameraOpen();
  const Globals before = PluginGlobals();
  const std::string reply = Command(R"({"cmd":"close_camera"})");

  const kiv_camera_calires_msg closed =
      CameraStateNoDistance(EarlierRecord<kiv_camera_calires_msg>(), 0);
  EXPECT_EQ(reply, R"({"close_camera":"ok"})");
  EXPECT_EQ(Published(), (Lines{CaliRes(kTagClosedBeforeClose, closed)}));
  EXPECT_EQ(Out(), (Lines{"xxx DBSync_reset", "xxx close camera success! "}));
  EXPECT_EQ(PluginGlobals(), With(before, {
                                              {"camera1_open_flag", "0"},
                                              {"msg_camera_calires", Hex(closed)},
                                          }));
  EXPECT_EQ(cameraopen_flag, 1);
  EXPECT_FALSE(sim::GetStatus().open);
}

TEST_F(JsonCommandTest, CloseCameraThatFailsRepliesFail) {
  HoldCameraOpen();
  sim::SetFault(sim::Operation::kClose, sim::Fault::Always());
  const Globals before = PluginGlobals();
  const std::string reply = Command(R"({"cmd":"close_camera"})");

  const kiv_camera_calires_msg closed =
      CameraStateNoDistance(EarlierRecord<kiv_camera_calires_msg>(), 0);
  EXPECT_EQ(reply, R"({"close_camera":"fail"})");
  EXPECT_EQ(Published(), (Lines{CaliRes(kTagClosedBeforeClose, closed)}));
  EXPECT_EQ(Out(), (Lines{"xxx DBSync_reset", "xxx close camera fail! "}));
  EXPECT_EQ(PluginGlobals(), With(before, {{"msg_camera_calires", Hex(closed)}}));
}

TEST_F(JsonCommandTest, CloseCameraWithTheCameraClosedRepliesOk) {
  const std::string reply = Command(R"({"cmd":"close_camera"})");
  EXPECT_EQ(reply, R"({"close_camera":"ok"})");
  EXPECT_EQ(Out(), (Lines{"xxx DBSync_reset"}));
  EXPECT_EQ(harness.publications.size(), 1u);
}

TEST_F(JsonCommandTest, DistanceTakesOnePicture) {
  const Globals before = PluginGlobals();
  const std::string reply = Command(R"({"distance":30})");

  EXPECT_EQ(reply, R"({"distance":"ok"})");
  EXPECT_TRUE(harness.publications.empty());
  EXPECT_EQ(Out(), (Lines{"xxx exposure 1900 gain 32"}));
  EXPECT_EQ(PluginGlobals(), With(before, {{"distance_curr", "30"}}));
}

TEST_F(JsonCommandTest, ACmdThatIsNoStringLetsTheDistanceCommandRun) {
  distance_curr = 30;
  save_pic_success = 3;
  delay_count = 20;
  set_expgain_flag = 7;
  const Globals before = PluginGlobals();
  const std::string reply = Command(R"({"cmd":5,"distance":30})");

  // The same distance again: the picture starts over.
  EXPECT_EQ(reply, R"({"distance":"ok"})");
  EXPECT_TRUE(harness.publications.empty());
  EXPECT_EQ(Out(), (Lines{"xxx exposure 1900 gain 32"}));
  EXPECT_EQ(PluginGlobals(), With(before, {
                                              {"save_pic_success", "0"},
                                              {"delay_count", "0"},
                                              {"set_expgain_flag", "0"},
                                          }));
}

TEST_F(JsonCommandTest, ADistanceThatIsNoIntegerLetsTheAppCommandRun) {
  const Globals before = PluginGlobals();
  const std::string reply = Command(R"({"distance":"30","APP":0})");

  EXPECT_EQ(reply, R"({"KivMsgLaserCalibration":"ok"})");
  const kiv_camera_calires_msg opening =
      CameraStateNoDistance(EarlierRecord<kiv_camera_calires_msg>(), 0);
  const kiv_camera_calires_msg opened = CameraState(opening, 1);
  LaserClibrMsg plane;
  plane.kind = 3;
  EXPECT_EQ(Published(), (Lines{
                             CaliRes(kTagAppOpening, opening),
                             CaliRes(kTagAppOpened, opened),
                             Pub(calitopics::kLaserCalibrReq, kTagPlaneRequest, plane),
                         }));
  EXPECT_EQ(Out(), (Lines{
                       "xxx dis_tmp 0",
                       "xxx APP_USE 1 20",
                       "xxx open camera success! ",
                       "xxx Camera_Open OK",
                       "xxx cameraopen_flag:1",
                       "xxx distance trans 0",
                       "xxx dis_suit_flag = 1 ",
                       "xxx distance OK 0",
                       "xxx pub_camera_cali_plane ",
                   }));
  EXPECT_EQ(PluginGlobals(), With(before, {
                                              {"APP_USE", "1"},
                                              {"distance_delt", "20"},
                                              {"cameraopen_flag", "1"},
                                              {"camera1_open_flag", "1"},
                                              {"timer_fd", "1"},
                                              {"distance_curr", "0"},
                                              {"save_pic_success", "3"},
                                              {"cameraplaneCheck_reset_flag", "1"},
                                              {"msg_camera_calires", Hex(opened)},
                                          }));
}

TEST_F(JsonCommandTest, TheAppCommandIsAnsweredOkWhateverTheRequestDid) {
  sim::SetFault(sim::Operation::kOpen, sim::Fault::Always());
  const std::string reply = Command(R"({"APP":20})");
  EXPECT_EQ(reply, R"({"KivMsgLaserCalibration":"ok"})");
  EXPECT_EQ(cameraopen_flag, 0);
  EXPECT_EQ(APP_USE, 1);
  EXPECT_EQ(harness.publications.back().text, "2;316");
}

TEST_F(JsonCommandTest, CmdComesBeforeDistanceAndDistanceBeforeApp) {
  EXPECT_EQ(Command(R"({"APP":4369,"distance":10,"cmd":"close_camera"})"),
            R"({"close_camera":"ok"})");
  EXPECT_EQ(distance_curr, 60);
  EXPECT_EQ(APP_USE, 0);
  Forget();
  EXPECT_EQ(Command(R"({"APP":4369,"distance":10})"), R"({"distance":"ok"})");
  EXPECT_EQ(distance_curr, 10);
  EXPECT_EQ(APP_USE, 0);
  EXPECT_TRUE(harness.publications.empty());
}

TEST_F(JsonCommandTest, AnUnknownCmdStringDoesNothing) {
  const Globals before = PluginGlobals();
  for (const char* json :
       {R"({"cmd":"open_camer"})", R"({"cmd":"Open_Camera"})", R"({"cmd":"OPEN_CAMERA"})",
        R"({"cmd":"close"})", R"({"cmd":"open_camera "})", R"({"cmd":"open_camera\u0000x"})",
        R"({"cmd":"","distance":30,"APP":0})"}) {
    SCOPED_TRACE(json);
    EXPECT_EQ(Command(json), "{}");
  }
  EXPECT_TRUE(harness.publications.empty());
  EXPECT_EQ(harness.console().Out(), "");
  EXPECT_EQ(PluginGlobals(), before);
}

TEST_F(JsonCommandTest, NoKeyOfTheRightTypeDoesNothing) {
  const Globals before = PluginGlobals();
  for (const char* json :
       {"{}", R"({"Cmd":"open_camera"})", R"({"distance":30.5})", R"({"distance":null,"APP":"0"})",
        R"({"APP":true})", R"({"app":0,"Distance":30})", "[]", R"("open_camera")", "7"}) {
    SCOPED_TRACE(json);
    EXPECT_EQ(Command(json), "{}");
  }
  EXPECT_TRUE(harness.publications.empty());
  EXPECT_EQ(harness.console().Out(), "");
  EXPECT_EQ(PluginGlobals(), before);
}

TEST_F(JsonCommandTest, NumbersKeepTheirLow16Bits) {
  EXPECT_EQ(Command(R"({"distance":65566})"), R"({"distance":"ok"})");
  EXPECT_EQ(distance_curr, 30);
  EXPECT_EQ(Command(R"({"distance":-1})"), R"({"distance":"ok"})");
  EXPECT_EQ(distance_curr, 65535);
  EXPECT_EQ(Command(R"({"distance":4294967306})"), R"({"distance":"ok"})");
  EXPECT_EQ(distance_curr, 10);
  Forget();
  // 0x11111 is the app's reset.
  EXPECT_EQ(Command(R"({"APP":69905})"), R"({"KivMsgLaserCalibration":"ok"})");
  EXPECT_EQ(Out(), (Lines{"xxx dis_tmp 4369", "xxx APP_USE 1 20",
                          "xxx APP laser_camera_calires_send 2;4369", "xxx set distance_curr = 50 ",
                          "xxx 0x1111 "}));
}

TEST_F(JsonCommandTest, ANullRecordIsReported) {
  const Globals before = PluginGlobals();
  harness.node().JsonMsgProcess(nullptr);

  EXPECT_EQ(Out(), (Lines{"json msg is null"}));
  EXPECT_TRUE(harness.publications.empty());
  EXPECT_EQ(PluginGlobals(), before);
}

TEST_F(JsonCommandTest, AFailedPublicationLeavesBeforeTheReply) {
  harness.host().Subscribe<int>("wrong", calitopics::kCameraCaliRes, [](int*) {});
  KivJsonMsg msg;
  msg.command.Parse(R"({"cmd":"close_camera"})");
  EXPECT_THROW(harness.node().JsonMsgProcess(&msg), std::runtime_error);

  EXPECT_EQ(msg.reply.ToString(), "{}");
  EXPECT_EQ(harness.console().Out(), "");
  EXPECT_EQ(sim::GetStatus().calls[static_cast<int>(sim::Operation::kClose)], 0);
}

}  // namespace
}  // namespace requesttest
