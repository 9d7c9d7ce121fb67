// The calibration node's result handlers and the relay to the app.
//
// Every test drives a node in its own host and checks three things: what
// was published (topic, trace tag and every byte of the record, or the
// exact state text), what was printed, and the plug-in's globals afterwards,
// including that the result record of the other mode was left alone.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <initializer_list>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "src/caligetpic.h"
#include "tests/support/node_harness.h"
#include "tests/support/plugin_globals.h"

namespace {

using testsupport::NodeHarness;
using testsupport::Publication;

using testsupport::Bytes;
using testsupport::Hex;
using testsupport::PluginGlobals;

// A result record as an earlier writer might have left it: every field set,
// each to a value of its own.
template <typename Record>
Record EarlierResult() {
  Record record;
  record.kind = 2;
  record.camera_state = 1;
  record.distance = 35;
  record.ieparam1 = -7;
  record.ieparam2 = 8;
  record.ieparam3 = 900;
  for (int i = 0; i < 4; ++i) record.check_data[i] = static_cast<uint16_t>(41 + i);
  for (int i = 0; i < 9; ++i) record.plane_data[i] = static_cast<uint16_t>(51 + i);
  record.plane_result = 3;
  record.check_result = 6;
  return record;
}

// Expected result records: `record` after one result, every other field as
// it was. Values that come as a run start at `first_value` and count up.

template <typename Record>
Record AfterPlaneSuccess(Record record, uint16_t first_value) {
  for (int i = 0; i < 9; ++i) record.plane_data[i] = static_cast<uint16_t>(first_value + i);
  record.plane_result = 1;
  return record;
}

template <typename Record>
Record AfterPlaneFailure(Record record, uint8_t code_low_byte, uint16_t first_value) {
  record.kind = 4;
  record.distance = 0;
  const uint16_t sentinel[4] = {6000, 600, 6000, 600};
  for (int i = 0; i < 4; ++i) record.check_data[i] = sentinel[i];
  for (int i = 0; i < 9; ++i) record.plane_data[i] = static_cast<uint16_t>(first_value + i);
  record.plane_result = code_low_byte;
  record.check_result = 255;
  return record;
}

template <typename Record>
Record AfterIEparams(Record record, uint8_t ieparam1, uint8_t ieparam2, uint16_t ieparam3) {
  record.kind = 3;
  record.ieparam1 = static_cast<int8_t>(ieparam1);
  record.ieparam2 = static_cast<int8_t>(ieparam2);
  record.ieparam3 = ieparam3;
  return record;
}

template <typename Record>
Record AfterCheck(Record record, uint16_t first_value, uint8_t check_result) {
  record.kind = 4;
  record.distance = 0;
  for (int i = 0; i < 4; ++i) record.check_data[i] = static_cast<uint16_t>(first_value + i);
  record.check_result = check_result;
  return record;
}

// Records the node receives.

LaserClibrMsg PlaneResult(uint8_t kind, int32_t result, uint16_t first_value) {
  LaserClibrMsg msg;
  msg.kind = kind;
  for (int i = 0; i < 9; ++i) msg.plane_data[i] = static_cast<uint16_t>(first_value + i);
  msg.result = result;
  return msg;
}

kiv_camera_calires_msg CheckResult(uint16_t first_value, uint8_t check_result) {
  kiv_camera_calires_msg msg;
  for (int i = 0; i < 4; ++i) msg.check_data[i] = static_cast<uint16_t>(first_value + i);
  msg.check_result = check_result;
  return msg;
}

CameraClibrIEParamMsg IEparamResult(uint8_t ieparam1, uint8_t ieparam2, uint16_t ieparam3) {
  CameraClibrIEParamMsg msg;
  msg.kind = 1;
  msg.ieparam1 = ieparam1;
  msg.ieparam2 = ieparam2;
  msg.ieparam3 = ieparam3;
  return msg;
}

kiv_camera_calicheck_msg CheckRequest(uint16_t mode) {
  kiv_camera_calicheck_msg msg;
  msg.mode = mode;
  return msg;
}

// Expected publications, in the form Published() reports them.
std::string SentText(const std::string& tag, const std::string& text) {
  return "laser_state " + tag + " \"" + text + "\"";
}

template <typename T>
std::string Sent(const std::string& topic, const std::string& tag, const T& record) {
  return topic + " " + tag + " " + Hex(record);
}

using Sends = std::vector<std::string>;

// Console output made of these lines, each with its line end.
std::string Lines(std::initializer_list<std::string> lines) {
  std::string out;
  for (const std::string& line : lines) out += line + "\n";
  return out;
}

// A node whose two result records hold what earlier writers left.
class ResultsTest : public ::testing::Test {
 protected:
  ResultsTest() {
    harness.console().Clear();  // drops the construction lines
    kivplugcali::msg_camera_APPcalires = EarlierResult<kiv_camera_APPcalires_msg>();
    kivplugcali::msg_camera_calires = EarlierResult<kiv_camera_calires_msg>();
  }

  Sends Published() const {
    Sends out;
    for (const Publication& p : harness.publications) {
      out.push_back(p.topic == "laser_state" ? SentText(p.tag, p.text)
                                             : p.topic + " " + p.tag + " " + Hex(p.bytes));
    }
    return out;
  }

  std::string Out() { return harness.console().Out(); }
  std::string Err() { return harness.console().Err(); }

  void Relay() { harness.node().laser_camera_APPcalires_send(&kivplugcali::msg_camera_APPcalires); }

  NodeHarness harness;
};

// A node fresh from load: both result records zero.
class FreshResultsTest : public ResultsTest {
 protected:
  FreshResultsTest() {
    kivplugcali::msg_camera_APPcalires = kiv_camera_APPcalires_msg();
    kivplugcali::msg_camera_calires = kiv_camera_calires_msg();
  }
};

// --- Relay of the app record as state text -----------------------------------

class RelayToAppTest : public ResultsTest {
 protected:
  RelayToAppTest() { kivplugcali::APP_USE = 1; }
};

TEST_F(RelayToAppTest, DistanceKindSendsTheDistance) {
  kivplugcali::msg_camera_APPcalires.kind = 2;
  kivplugcali::msg_camera_APPcalires.distance = 4369;
  const auto before = PluginGlobals();

  Relay();

  EXPECT_EQ(Published(), Sends{SentText("src/cameralasercali_126", "2;4369")});
  EXPECT_EQ(Out(), Lines({"xxx APP laser_camera_calires_send 2;4369"}));
  EXPECT_EQ(Err(), "");
  EXPECT_EQ(PluginGlobals(), before);
}

TEST_F(RelayToAppTest, CameraParameterKindSendsTheThreeValues) {
  kivplugcali::msg_camera_APPcalires.kind = 3;
  kivplugcali::msg_camera_APPcalires.ieparam1 = 60;
  kivplugcali::msg_camera_APPcalires.ieparam2 = 60;
  kivplugcali::msg_camera_APPcalires.ieparam3 = 15615;
  const auto before = PluginGlobals();

  Relay();

  EXPECT_EQ(Published(), Sends{SentText("src/cameralasercali_138", "3;60;60;15615")});
  EXPECT_EQ(Out(), Lines({"xxx APP laser_camera_calires_send 3;60;60;15615"}));
  EXPECT_EQ(Err(), "");
  EXPECT_EQ(PluginGlobals(), before);
}

TEST_F(RelayToAppTest, PlaneAndCheckKindOfAFailedPlaneCalibration) {
  kivplugcali::msg_camera_APPcalires = AfterPlaneFailure(kiv_camera_APPcalires_msg(), 7, 1);
  const auto before = PluginGlobals();

  Relay();

  const std::string text = "4;6000;600;6000;600;1;2;3;4;5;6;7;8;9;7;255";
  EXPECT_EQ(Published(), Sends{SentText("src/cameralasercali_159", text)});
  EXPECT_EQ(Out(), Lines({"xxx APP laser_camera_calires_send " + text}));
  EXPECT_EQ(Err(), "");
  EXPECT_EQ(PluginGlobals(), before);
}

TEST_F(RelayToAppTest, SignedBytesPrintNegativeAndUnsignedFieldsNever) {
  auto& record = kivplugcali::msg_camera_APPcalires;
  record.kind = 3;
  record.ieparam1 = static_cast<int8_t>(0xFF);
  record.ieparam2 = -128;
  record.ieparam3 = 0xFFFF;
  const auto before = PluginGlobals();

  Relay();

  EXPECT_EQ(Published(), Sends{SentText("src/cameralasercali_138", "3;-1;-128;65535")});
  EXPECT_EQ(Out(), Lines({"xxx APP laser_camera_calires_send 3;-1;-128;65535"}));
  EXPECT_EQ(PluginGlobals(), before);
}

TEST_F(RelayToAppTest, PlaneAndCheckKindPrintsEveryFieldUnsigned) {
  auto& record = kivplugcali::msg_camera_APPcalires;
  record.kind = 4;
  for (auto& value : record.check_data) value = 0xFFFF;
  for (auto& value : record.plane_data) value = 0x8000;
  record.plane_result = 0x80;
  record.check_result = 0xFF;
  const auto before = PluginGlobals();

  Relay();

  const std::string text =
      "4;65535;65535;65535;65535;32768;32768;32768;32768;32768;32768;32768;32768;32768;128;255";
  EXPECT_EQ(Published(), Sends{SentText("src/cameralasercali_159", text)});
  EXPECT_EQ(Out(), Lines({"xxx APP laser_camera_calires_send " + text}));
  EXPECT_EQ(PluginGlobals(), before);
}

TEST_F(RelayToAppTest, PlaneAndCheckKindHasSixteenNumbersInFieldOrder) {
  auto& record = kivplugcali::msg_camera_APPcalires;
  record.kind = 4;
  for (int i = 0; i < 4; ++i) record.check_data[i] = static_cast<uint16_t>(100 + i);
  for (int i = 0; i < 9; ++i) record.plane_data[i] = static_cast<uint16_t>(200 + i);
  record.plane_result = 30;
  record.check_result = 40;
  const auto before = PluginGlobals();

  Relay();

  const std::string text = "4;100;101;102;103;200;201;202;203;204;205;206;207;208;30;40";
  EXPECT_EQ(Published(), Sends{SentText("src/cameralasercali_159", text)});
  ASSERT_EQ(harness.publications.size(), 1u);
  const std::string& sent = harness.publications[0].text;
  EXPECT_EQ(std::count(sent.begin(), sent.end(), ';'), 15);
  EXPECT_EQ(Out(), Lines({"xxx APP laser_camera_calires_send " + text}));
  EXPECT_EQ(PluginGlobals(), before);
}

TEST_F(RelayToAppTest, OtherKindsPublishNothingButStillLog) {
  for (uint8_t kind : {0, 1, 5, 6, 255}) {
    SCOPED_TRACE("kind " + std::to_string(kind));
    kivplugcali::msg_camera_APPcalires.kind = kind;
    harness.console().Clear();
    const auto before = PluginGlobals();

    Relay();

    EXPECT_TRUE(harness.publications.empty());
    EXPECT_EQ(Out(), Lines({"xxx APP laser_camera_calires_send "}));
    EXPECT_EQ(Err(), "");
    EXPECT_EQ(PluginGlobals(), before);
  }
}

TEST_F(RelayToAppTest, AnUnchangedRecordSentTwiceGivesTheSameTextTwice) {
  kivplugcali::msg_camera_APPcalires.kind = 2;
  kivplugcali::msg_camera_APPcalires.distance = 45;
  const auto before = PluginGlobals();

  Relay();
  Relay();

  EXPECT_EQ(Published(), (Sends{SentText("src/cameralasercali_126", "2;45"),
                                SentText("src/cameralasercali_126", "2;45")}));
  EXPECT_EQ(Out(), Lines({"xxx APP laser_camera_calires_send 2;45",
                          "xxx APP laser_camera_calires_send 2;45"}));
  EXPECT_EQ(PluginGlobals(), before);
}

TEST_F(RelayToAppTest, TheModeFlagDoesNotMatter) {
  kivplugcali::APP_USE = 0;
  kivplugcali::msg_camera_APPcalires.kind = 2;
  kivplugcali::msg_camera_APPcalires.distance = 0xFFFF;
  const auto before = PluginGlobals();

  Relay();

  EXPECT_EQ(Published(), Sends{SentText("src/cameralasercali_126", "2;65535")});
  EXPECT_EQ(Out(), Lines({"xxx APP laser_camera_calires_send 2;65535"}));
  EXPECT_EQ(PluginGlobals(), before);
}

// --- Plane calibration result ------------------------------------------------

class PlaneResultTest : public ResultsTest {
 protected:
  void Send(const LaserClibrMsg& msg) { harness.Send("LASER_CALIBR_REQRES", msg); }

  const std::string kOpening = "xxx  CameraCaliPlaneProcess";
  const std::string kEnd = "xxx  CameraCaliPlaneProcess end";
};

TEST_F(PlaneResultTest, FactorySuccessStoresThePlaneAndAsksForACheck) {
  auto expected = PluginGlobals();

  Send(PlaneResult(2, 1, 11));

  EXPECT_EQ(Published(),
            Sends{Sent("CAMERACALICHECK", "src/cameralasercali_282", CheckRequest(1))});
  EXPECT_EQ(Out(), Lines({kOpening, kEnd}));
  EXPECT_EQ(Err(), "");
  expected["msg_camera_calires"] =
      Hex(AfterPlaneSuccess(EarlierResult<kiv_camera_calires_msg>(), 11));
  EXPECT_EQ(PluginGlobals(), expected);
}

TEST_F(PlaneResultTest, AppSuccessStoresThePlaneAndAsksForACheckWithoutTellingTheApp) {
  kivplugcali::APP_USE = 1;
  auto expected = PluginGlobals();

  Send(PlaneResult(2, 1, 700));

  EXPECT_EQ(Published(),
            Sends{Sent("CAMERACALICHECK", "src/cameralasercali_282", CheckRequest(4))});
  EXPECT_EQ(Out(), Lines({kOpening, kEnd}));
  EXPECT_EQ(Err(), "");
  expected["msg_camera_APPcalires"] =
      Hex(AfterPlaneSuccess(EarlierResult<kiv_camera_APPcalires_msg>(), 700));
  EXPECT_EQ(PluginGlobals(), expected);
}

TEST_F(PlaneResultTest, AnyNonzeroModeFlagIsAppMode) {
  kivplugcali::APP_USE = 2;
  auto expected = PluginGlobals();

  Send(PlaneResult(2, 1, 1));

  EXPECT_EQ(Published(),
            Sends{Sent("CAMERACALICHECK", "src/cameralasercali_282", CheckRequest(4))});
  EXPECT_EQ(Out(), Lines({kOpening, kEnd}));
  expected["msg_camera_APPcalires"] =
      Hex(AfterPlaneSuccess(EarlierResult<kiv_camera_APPcalires_msg>(), 1));
  EXPECT_EQ(PluginGlobals(), expected);
}

TEST_F(PlaneResultTest, FactoryCheckAfterResetIsAskedOnceWithTheResetMode) {
  kivplugcali::cameraplaneCheck_reset_flag = 1;
  auto expected = PluginGlobals();

  Send(PlaneResult(2, 1, 11));

  EXPECT_EQ(Published(),
            Sends{Sent("CAMERACALICHECK", "src/cameralasercali_282", CheckRequest(3))});
  expected["cameraplaneCheck_reset_flag"] = "0";
  expected["msg_camera_calires"] =
      Hex(AfterPlaneSuccess(EarlierResult<kiv_camera_calires_msg>(), 11));
  EXPECT_EQ(PluginGlobals(), expected);

  Send(PlaneResult(2, 1, 21));

  EXPECT_EQ(Published(), (Sends{
                             Sent("CAMERACALICHECK", "src/cameralasercali_282", CheckRequest(3)),
                             Sent("CAMERACALICHECK", "src/cameralasercali_282", CheckRequest(1)),
                         }));
  EXPECT_EQ(Out(), Lines({kOpening, kEnd, kOpening, kEnd}));
  EXPECT_EQ(Err(), "");
  expected["msg_camera_calires"] =
      Hex(AfterPlaneSuccess(EarlierResult<kiv_camera_calires_msg>(), 21));
  EXPECT_EQ(PluginGlobals(), expected);
}

TEST_F(PlaneResultTest, AppCheckAfterResetIsAskedOnceWithTheResetMode) {
  kivplugcali::APP_USE = 1;
  kivplugcali::cameraplaneCheck_reset_flag = 1;
  auto expected = PluginGlobals();

  Send(PlaneResult(2, 1, 11));
  Send(PlaneResult(2, 1, 21));

  EXPECT_EQ(Published(), (Sends{
                             Sent("CAMERACALICHECK", "src/cameralasercali_282", CheckRequest(5)),
                             Sent("CAMERACALICHECK", "src/cameralasercali_282", CheckRequest(4)),
                         }));
  EXPECT_EQ(Out(), Lines({kOpening, kEnd, kOpening, kEnd}));
  expected["cameraplaneCheck_reset_flag"] = "0";
  expected["msg_camera_APPcalires"] =
      Hex(AfterPlaneSuccess(EarlierResult<kiv_camera_APPcalires_msg>(), 21));
  EXPECT_EQ(PluginGlobals(), expected);
}

TEST_F(PlaneResultTest, OnlyAResetFlagOfOneCountsAndItStaysOtherwise) {
  kivplugcali::cameraplaneCheck_reset_flag = 2;
  auto expected = PluginGlobals();

  Send(PlaneResult(2, 1, 11));

  EXPECT_EQ(Published(),
            Sends{Sent("CAMERACALICHECK", "src/cameralasercali_282", CheckRequest(1))});
  EXPECT_EQ(Out(), Lines({kOpening, kEnd}));
  expected["msg_camera_calires"] =
      Hex(AfterPlaneSuccess(EarlierResult<kiv_camera_calires_msg>(), 11));
  EXPECT_EQ(PluginGlobals(), expected);  // the flag is still 2
}

TEST_F(PlaneResultTest, FactoryFailureReportsTheSentinelAtOnce) {
  kivplugcali::cameraplaneCheck_reset_flag = 1;
  auto expected = PluginGlobals();

  Send(PlaneResult(2, 7, 1));

  const auto record = AfterPlaneFailure(EarlierResult<kiv_camera_calires_msg>(), 7, 1);
  EXPECT_EQ(Published(), Sends{Sent("CAMERACALIRES", "src/cameralasercali_303", record)});
  EXPECT_EQ(Out(), Lines({kOpening, kEnd}));
  EXPECT_EQ(Err(), "");
  // No check is asked for, so the reset flag waits for a success.
  expected["msg_camera_calires"] = Hex(record);
  EXPECT_EQ(PluginGlobals(), expected);
}

TEST_F(PlaneResultTest, FactoryFailureKeepsTheLowByteOfTheCode) {
  const std::pair<int32_t, uint8_t> codes[] = {{0x102, 2}, {-1, 255}, {0, 0}, {0x7FFFFF05, 5}};
  for (const auto& [code, low_byte] : codes) {
    SCOPED_TRACE("result " + std::to_string(code));
    harness.publications.clear();
    harness.console().Clear();
    auto expected = PluginGlobals();

    Send(PlaneResult(2, code, 30));

    const auto record = AfterPlaneFailure(EarlierResult<kiv_camera_calires_msg>(), low_byte, 30);
    EXPECT_EQ(Published(), Sends{Sent("CAMERACALIRES", "src/cameralasercali_303", record)});
    EXPECT_EQ(Out(), Lines({kOpening, kEnd}));
    expected["msg_camera_calires"] = Hex(record);
    EXPECT_EQ(PluginGlobals(), expected);
  }
}

TEST_F(PlaneResultTest, AppFailureSendsPlaneAndCheckText) {
  kivplugcali::APP_USE = 1;
  auto expected = PluginGlobals();

  Send(PlaneResult(2, 0x102, 1));

  const std::string text = "4;6000;600;6000;600;1;2;3;4;5;6;7;8;9;2;255";
  EXPECT_EQ(Published(), Sends{SentText("src/cameralasercali_159", text)});
  EXPECT_EQ(text.substr(text.size() - 6), ";2;255");
  EXPECT_EQ(Out(), Lines({kOpening, "xxx APP laser_camera_calires_send " + text, kEnd}));
  EXPECT_EQ(Err(), "");
  expected["msg_camera_APPcalires"] =
      Hex(AfterPlaneFailure(EarlierResult<kiv_camera_APPcalires_msg>(), 2, 1));
  EXPECT_EQ(PluginGlobals(), expected);
}

TEST_F(PlaneResultTest, ARecordOfAnotherKindOnlyLogs) {
  kivplugcali::cameraplaneCheck_reset_flag = 1;
  for (uint8_t app_use : {0, 1}) {
    for (uint8_t kind : {0, 1, 3, 255}) {
      for (int32_t result : {1, 7}) {
        SCOPED_TRACE("APP_USE " + std::to_string(app_use) + " kind " + std::to_string(kind) +
                     " result " + std::to_string(result));
        kivplugcali::APP_USE = app_use;
        harness.console().Clear();
        const auto before = PluginGlobals();

        Send(PlaneResult(kind, result, 1));

        EXPECT_TRUE(harness.publications.empty());
        EXPECT_EQ(Out(), Lines({kOpening, kEnd}));
        EXPECT_EQ(Err(), "");
        EXPECT_EQ(PluginGlobals(), before);
      }
    }
  }
}

// --- Camera parameter calibration result ----------------------------------------

class IEparamResultTest : public ResultsTest {
 protected:
  void Send(const CameraClibrIEParamMsg& msg) { harness.Send("CAMERACALI_IEPARAMRES", msg); }

  const std::string kOpening = "xxx  CameraCaliIEparamProcess";
  const std::string kEnd = "xxx  CameraCaliIEparamProcess end";
};

TEST_F(IEparamResultTest, FactoryModePublishesTheRecord) {
  auto expected = PluginGlobals();
  CameraClibrIEParamMsg msg = IEparamResult(200, 5, 40000);
  msg.kind = 9;  // not read
  msg.reserved0 = 0xAA;

  Send(msg);

  const auto record = AfterIEparams(EarlierResult<kiv_camera_calires_msg>(), 200, 5, 40000);
  EXPECT_EQ(Published(), Sends{Sent("CAMERACALIRES", "src/cameralasercali_218", record)});
  EXPECT_EQ(Out(), Lines({kOpening, kEnd}));
  EXPECT_EQ(Err(), "");
  expected["msg_camera_calires"] = Hex(record);
  EXPECT_EQ(PluginGlobals(), expected);
}

TEST_F(IEparamResultTest, AppModeSendsSignedBytesAndLogsTheThirdValueUnsigned) {
  kivplugcali::APP_USE = 1;
  auto expected = PluginGlobals();

  Send(IEparamResult(200, 0x7F, 40000));

  EXPECT_EQ(Published(), Sends{SentText("src/cameralasercali_138", "3;-56;127;40000")});
  EXPECT_EQ(Out(), Lines({kOpening, "xxx APP laser_camera_calires_send 3;-56;127;40000",
                          "xxx  pub_laser_camera_APPcalires IEparam_result 40000", kEnd}));
  EXPECT_EQ(Err(), "");
  expected["msg_camera_APPcalires"] =
      Hex(AfterIEparams(EarlierResult<kiv_camera_APPcalires_msg>(), 200, 0x7F, 40000));
  EXPECT_EQ(PluginGlobals(), expected);
}

TEST_F(IEparamResultTest, AppModeExample) {
  kivplugcali::APP_USE = 1;
  auto expected = PluginGlobals();

  Send(IEparamResult(60, 60, 15615));

  EXPECT_EQ(Published(), Sends{SentText("src/cameralasercali_138", "3;60;60;15615")});
  EXPECT_EQ(Out(), Lines({kOpening, "xxx APP laser_camera_calires_send 3;60;60;15615",
                          "xxx  pub_laser_camera_APPcalires IEparam_result 15615", kEnd}));
  expected["msg_camera_APPcalires"] =
      Hex(AfterIEparams(EarlierResult<kiv_camera_APPcalires_msg>(), 60, 60, 15615));
  EXPECT_EQ(PluginGlobals(), expected);
}

// --- Calibration check result ---------------------------------------------------

class CheckResultTest : public ResultsTest {
 protected:
  void Send(const kiv_camera_calires_msg& msg) { harness.Send("CAMERACALICHECKRES", msg); }

  const std::string kSignal = "xxx  CameraCaliCheckProcess -> signal";
};

TEST_F(CheckResultTest, FactoryModeCompletesThePlaneResultAndPublishesIt) {
  auto expected = PluginGlobals();
  // Only the check values and the check result of the answer are read.
  kiv_camera_calires_msg answer = EarlierResult<kiv_camera_calires_msg>();
  answer.kind = 9;
  for (int i = 0; i < 4; ++i) answer.check_data[i] = static_cast<uint16_t>(1000 + i);
  for (auto& value : answer.plane_data) value = 0xBEEF;
  answer.plane_result = 0xEE;
  answer.check_result = 49;
  for (auto& b : answer.reserved) b = 0xAA;

  Send(answer);

  const auto record = AfterCheck(EarlierResult<kiv_camera_calires_msg>(), 1000, 49);
  EXPECT_EQ(Published(), Sends{Sent("CAMERACALIRES", "src/cameralasercali_343", record)});
  EXPECT_EQ(Out(), Lines({kSignal}));
  EXPECT_EQ(Err(), "");
  expected["msg_camera_calires"] = Hex(record);
  EXPECT_EQ(PluginGlobals(), expected);
}

TEST_F(CheckResultTest, AppModeSendsTextAndLogsTheCheckResultAsACharacter) {
  kivplugcali::APP_USE = 1;
  auto expected = PluginGlobals();

  Send(CheckResult(1000, 49));

  const std::string text = "4;1000;1001;1002;1003;51;52;53;54;55;56;57;58;59;3;49";
  EXPECT_EQ(Published(), Sends{SentText("src/cameralasercali_159", text)});
  EXPECT_EQ(Out(), Lines({"xxx APP laser_camera_calires_send " + text,
                          "xxx  pub_laser_camera_APPcalires check_result 1", kSignal}));
  EXPECT_EQ(Err(), "");
  expected["msg_camera_APPcalires"] =
      Hex(AfterCheck(EarlierResult<kiv_camera_APPcalires_msg>(), 1000, 49));
  EXPECT_EQ(PluginGlobals(), expected);
}

TEST_F(CheckResultTest, ACheckResultOfOneIsLoggedAsTheControlByte) {
  kivplugcali::APP_USE = 1;
  auto expected = PluginGlobals();

  Send(CheckResult(1, 1));

  const std::string text = "4;1;2;3;4;51;52;53;54;55;56;57;58;59;3;1";
  EXPECT_EQ(Published(), Sends{SentText("src/cameralasercali_159", text)});
  EXPECT_EQ(Out(), Lines({"xxx APP laser_camera_calires_send " + text,
                          "xxx  pub_laser_camera_APPcalires check_result \x01", kSignal}));
  expected["msg_camera_APPcalires"] =
      Hex(AfterCheck(EarlierResult<kiv_camera_APPcalires_msg>(), 1, 1));
  EXPECT_EQ(PluginGlobals(), expected);
}

TEST_F(CheckResultTest, AppTextEndsWithPlaneResultAndCheckResultUnsigned) {
  kivplugcali::APP_USE = 1;
  kivplugcali::msg_camera_APPcalires.plane_result = 200;
  auto expected = PluginGlobals();

  Send(CheckResult(7, 250));

  const std::string text = "4;7;8;9;10;51;52;53;54;55;56;57;58;59;200;250";
  EXPECT_EQ(Published(), Sends{SentText("src/cameralasercali_159", text)});
  EXPECT_EQ(Out(), Lines({"xxx APP laser_camera_calires_send " + text,
                          "xxx  pub_laser_camera_APPcalires check_result \xFA", kSignal}));
  auto record = EarlierResult<kiv_camera_APPcalires_msg>();
  record.plane_result = 200;
  expected["msg_camera_APPcalires"] = Hex(AfterCheck(record, 7, 250));
  EXPECT_EQ(PluginGlobals(), expected);
}

class CheckWithoutPlaneResultTest : public FreshResultsTest {
 protected:
  void Send(const kiv_camera_calires_msg& msg) { harness.Send("CAMERACALICHECKRES", msg); }
};

TEST_F(CheckWithoutPlaneResultTest, FactorySendsZeroPlaneValues) {
  auto expected = PluginGlobals();

  Send(CheckResult(5, 2));

  ASSERT_EQ(harness.publications.size(), 1u);
  EXPECT_EQ(harness.publications[0].topic, "CAMERACALIRES");
  EXPECT_EQ(harness.publications[0].tag, "src/cameralasercali_343");
  // clang-format off
  const std::vector<uint8_t> whole = {
      4, 0, 0, 0, 0, 0, 0, 0,                                     // kind .. ieparam3
      5, 0, 6, 0, 7, 0, 8, 0,                                     // check_data
      0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0,       // plane_data
      0, 2,                                                       // plane_result, check_result
      0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0,                   // bytes 36 to 49
      0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0,                   // bytes 50 to 63
  };
  // clang-format on
  EXPECT_EQ(harness.publications[0].bytes, whole);
  EXPECT_EQ(Out(), Lines({"xxx  CameraCaliCheckProcess -> signal"}));
  expected["msg_camera_calires"] = Hex(whole);
  EXPECT_EQ(PluginGlobals(), expected);
}

TEST_F(CheckWithoutPlaneResultTest, AppSendsZeroPlaneValues) {
  kivplugcali::APP_USE = 1;
  auto expected = PluginGlobals();

  Send(CheckResult(5, 50));

  const std::string text = "4;5;6;7;8;0;0;0;0;0;0;0;0;0;0;50";
  EXPECT_EQ(Published(), Sends{SentText("src/cameralasercali_159", text)});
  EXPECT_EQ(Out(), Lines({"xxx APP laser_camera_calires_send " + text,
                          "xxx  pub_laser_camera_APPcalires check_result 2",
                          "xxx  CameraCaliCheckProcess -> signal"}));
  expected["msg_camera_APPcalires"] = Hex(AfterCheck(kiv_camera_APPcalires_msg(), 5, 50));
  EXPECT_EQ(PluginGlobals(), expected);
}

// --- Plane result and check result together -------------------------------------

class PlaneAndCheckTest : public FreshResultsTest {};

TEST_F(PlaneAndCheckTest, AppTextCombinesPlaneValuesAndLaterCheckValues) {
  kivplugcali::APP_USE = 1;
  auto expected = PluginGlobals();

  harness.Send("LASER_CALIBR_REQRES", PlaneResult(2, 1, 301));
  harness.Send("CAMERACALICHECKRES", CheckResult(11, 49));

  const std::string text = "4;11;12;13;14;301;302;303;304;305;306;307;308;309;1;49";
  EXPECT_EQ(Published(), (Sends{
                             Sent("CAMERACALICHECK", "src/cameralasercali_282", CheckRequest(4)),
                             SentText("src/cameralasercali_159", text),
                         }));
  EXPECT_EQ(Out(), Lines({"xxx  CameraCaliPlaneProcess", "xxx  CameraCaliPlaneProcess end",
                          "xxx APP laser_camera_calires_send " + text,
                          "xxx  pub_laser_camera_APPcalires check_result 1",
                          "xxx  CameraCaliCheckProcess -> signal"}));
  EXPECT_EQ(Err(), "");
  expected["msg_camera_APPcalires"] =
      Hex(AfterCheck(AfterPlaneSuccess(kiv_camera_APPcalires_msg(), 301), 11, 49));
  EXPECT_EQ(PluginGlobals(), expected);  // the factory record is still zero
}

TEST_F(PlaneAndCheckTest, FactoryRecordCombinesPlaneValuesAndLaterCheckValues) {
  auto expected = PluginGlobals();

  harness.Send("LASER_CALIBR_REQRES", PlaneResult(2, 1, 301));
  harness.Send("CAMERACALICHECKRES", CheckResult(11, 49));

  // clang-format off
  const std::vector<uint8_t> whole = {
      4, 0,                                                       // kind, camera_state
      0, 0,                                                       // distance
      0, 0, 0, 0,                                                 // ieparam1, ieparam2, ieparam3
      11, 0, 12, 0, 13, 0, 14, 0,                                 // check_data
      0x2D, 0x01, 0x2E, 0x01, 0x2F, 0x01, 0x30, 0x01, 0x31, 0x01,  // plane_data 301..305
      0x32, 0x01, 0x33, 0x01, 0x34, 0x01, 0x35, 0x01,             // plane_data 306..309
      1, 49,                                                      // plane_result, check_result
      0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0,                   // bytes 36 to 49
      0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0,                   // bytes 50 to 63
  };
  // clang-format on
  ASSERT_EQ(whole.size(), 64u);
  ASSERT_EQ(harness.publications.size(), 2u);
  EXPECT_EQ(Published()[0], Sent("CAMERACALICHECK", "src/cameralasercali_282", CheckRequest(1)));
  EXPECT_EQ(harness.publications[1].topic, "CAMERACALIRES");
  EXPECT_EQ(harness.publications[1].tag, "src/cameralasercali_343");
  EXPECT_EQ(harness.publications[1].bytes, whole);
  EXPECT_EQ(Out(), Lines({"xxx  CameraCaliPlaneProcess", "xxx  CameraCaliPlaneProcess end",
                          "xxx  CameraCaliCheckProcess -> signal"}));
  EXPECT_EQ(Err(), "");
  expected["msg_camera_calires"] = Hex(whole);
  EXPECT_EQ(PluginGlobals(), expected);  // the app record is still zero
}

TEST_F(PlaneAndCheckTest, ACheckNodeAnsweringDuringTheRequestCompletesTheResult) {
  // The check node answers inside the delivery of the check request.
  harness.host().Subscribe<kiv_camera_calicheck_msg>(
      "checknode", "CAMERACALICHECK", [this](kiv_camera_calicheck_msg*) {
        harness.Send("CAMERACALICHECKRES", CheckResult(11, 3));
      });
  auto expected = PluginGlobals();

  harness.Send("LASER_CALIBR_REQRES", PlaneResult(2, 1, 301));

  const auto record = AfterCheck(AfterPlaneSuccess(kiv_camera_calires_msg(), 301), 11, 3);
  EXPECT_EQ(Published(), (Sends{
                             Sent("CAMERACALICHECK", "src/cameralasercali_282", CheckRequest(1)),
                             Sent("CAMERACALIRES", "src/cameralasercali_343", record),
                         }));
  EXPECT_EQ(Out(), Lines({"xxx  CameraCaliPlaneProcess", "xxx  CameraCaliCheckProcess -> signal",
                          "xxx  CameraCaliPlaneProcess end"}));
  EXPECT_EQ(Err(), "");
  expected["msg_camera_calires"] = Hex(record);
  EXPECT_EQ(PluginGlobals(), expected);
}

// --- Distance response -------------------------------------------------------------

class DistanceResponseTest : public ResultsTest {
 protected:
  void Send(const kiv_camera_distance_msg& msg) { harness.Send("APPDISTANCERES", msg); }
};

TEST_F(DistanceResponseTest, AllZeroValues) {
  const auto before = PluginGlobals();
  kiv_camera_distance_msg msg;
  msg.kind = 1;

  Send(msg);

  EXPECT_EQ(Published(),
            Sends{SentText("src/cameralasercali_189", "5;0;0;0;0;0;0;0;0;0;0;0;0;0;0")});
  EXPECT_EQ(Out(), Lines({"xxx APP CameraDistanceResponse 5;0;0;0;0;0;0;0;0;0;0;0;0;0;0"}));
  EXPECT_EQ(Err(), "");
  EXPECT_EQ(PluginGlobals(), before);
}

TEST_F(DistanceResponseTest, SignedValuesPrintNegativeAndTheRestUnsignedInEitherMode) {
  for (uint8_t app_use : {0, 1}) {
    SCOPED_TRACE("APP_USE " + std::to_string(app_use));
    kivplugcali::APP_USE = app_use;
    harness.publications.clear();
    harness.console().Clear();
    const auto before = PluginGlobals();
    kiv_camera_distance_msg msg;
    msg.kind = 1;
    msg.reserved0 = 0xAA;
    msg.distance = 0xFFFF;
    const int16_t near_values[4] = {-1, 2, -32768, 32767};
    const int16_t far_values[8] = {10, -11, 12, -13, 14, -15, 16, -17};
    for (int i = 0; i < 4; ++i) msg.near_values[i] = near_values[i];
    for (int i = 0; i < 8; ++i) msg.far_values[i] = far_values[i];
    msg.status = 200;
    msg.reserved1 = 0xBB;

    Send(msg);

    const std::string text = "5;65535;-1;2;-32768;32767;10;-11;12;-13;14;-15;16;-17;200";
    EXPECT_EQ(Published(), Sends{SentText("src/cameralasercali_189", text)});
    EXPECT_EQ(std::count(text.begin(), text.end(), ';'), 14);
    EXPECT_EQ(Out(), Lines({"xxx APP CameraDistanceResponse " + text}));
    EXPECT_EQ(Err(), "");
    EXPECT_EQ(PluginGlobals(), before);
  }
}

TEST_F(DistanceResponseTest, ANearValueOfAllOnesIsMinusOne) {
  const auto before = PluginGlobals();
  kiv_camera_distance_msg msg;
  msg.kind = 1;
  msg.near_values[0] = static_cast<int16_t>(0xFFFF);

  Send(msg);

  EXPECT_EQ(Published(),
            Sends{SentText("src/cameralasercali_189", "5;0;-1;0;0;0;0;0;0;0;0;0;0;0;0")});
  EXPECT_EQ(Out(), Lines({"xxx APP CameraDistanceResponse 5;0;-1;0;0;0;0;0;0;0;0;0;0;0;0"}));
  EXPECT_EQ(PluginGlobals(), before);
}

TEST_F(DistanceResponseTest, ResponsesOfAnotherKindProduceNothing) {
  for (uint8_t app_use : {0, 1}) {
    for (int8_t kind : {0, 2, 3, 4, 5, -1, -127}) {
      SCOPED_TRACE("APP_USE " + std::to_string(app_use) + " kind " + std::to_string(kind));
      kivplugcali::APP_USE = app_use;
      const auto before = PluginGlobals();
      kiv_camera_distance_msg msg;
      msg.kind = kind;
      msg.distance = 30;
      msg.status = 1;

      Send(msg);

      EXPECT_TRUE(harness.publications.empty());
      EXPECT_EQ(Out(), "");
      EXPECT_EQ(Err(), "");
      EXPECT_EQ(PluginGlobals(), before);
    }
  }
}

// --- Laser power response -----------------------------------------------------------

class LaserPowerResponseTest : public ResultsTest {
 protected:
  void Send(uint16_t power_a, uint16_t power_b) {
    kiv_laserpower_msg msg;
    msg.power_a = power_a;
    msg.power_b = power_b;
    harness.Send("LASERPOWER", msg);
  }
};

TEST_F(LaserPowerResponseTest, SendsBothValuesUnsignedInEitherMode) {
  for (uint8_t app_use : {0, 1}) {
    SCOPED_TRACE("APP_USE " + std::to_string(app_use));
    kivplugcali::APP_USE = app_use;
    harness.publications.clear();
    harness.console().Clear();
    const auto before = PluginGlobals();

    Send(65535, 0);

    EXPECT_EQ(Published(), Sends{SentText("src/cameralasercali_204", "6;65535;0")});
    EXPECT_EQ(Out(), Lines({"xxx APP LaserPowerResponse 6;65535;0"}));
    EXPECT_EQ(Err(), "");
    EXPECT_EQ(PluginGlobals(), before);
  }
}

TEST_F(LaserPowerResponseTest, KeepsTheOrderOfTheValues) {
  const auto before = PluginGlobals();

  Send(12, 34000);

  EXPECT_EQ(Published(), Sends{SentText("src/cameralasercali_204", "6;12;34000")});
  EXPECT_EQ(Out(), Lines({"xxx APP LaserPowerResponse 6;12;34000"}));
  EXPECT_EQ(PluginGlobals(), before);
}

// --- The factory result record --------------------------------------------------------

class FactoryRecordTest : public FreshResultsTest {};

TEST_F(FactoryRecordTest, PublishedRecordsKeepTheirLastTwentyEightBytesZero) {
  // Bytes the senders leave in their records must not reach the published one.
  kiv_camera_calires_msg answer = CheckResult(1, 1);
  for (auto& b : answer.reserved) b = 0xAA;
  answer.kind = 0xFF;
  answer.camera_state = 0xFF;
  CameraClibrIEParamMsg ieparams = IEparamResult(0xFF, 0xFF, 0xFFFF);
  ieparams.reserved0 = 0xFF;
  auto expected = PluginGlobals();

  harness.Send("LASER_CALIBR_REQRES", PlaneResult(2, -1, 0xFFF0));
  harness.Send("CAMERACALI_IEPARAMRES", ieparams);
  harness.Send("LASER_CALIBR_REQRES", PlaneResult(2, 1, 0xFFF0));
  harness.Send("CAMERACALICHECKRES", answer);

  Sends calires;
  for (const Publication& p : harness.publications) {
    if (p.topic != "CAMERACALIRES") continue;
    calires.push_back(p.tag);
    ASSERT_EQ(p.bytes.size(), 64u);
    EXPECT_EQ(std::vector<uint8_t>(p.bytes.begin() + 36, p.bytes.end()),
              std::vector<uint8_t>(28, 0))
        << p.tag;
  }
  EXPECT_EQ(calires, (Sends{"src/cameralasercali_303", "src/cameralasercali_218",
                            "src/cameralasercali_343"}));
  EXPECT_EQ(Out(), Lines({"xxx  CameraCaliPlaneProcess", "xxx  CameraCaliPlaneProcess end",
                          "xxx  CameraCaliIEparamProcess", "xxx  CameraCaliIEparamProcess end",
                          "xxx  CameraCaliPlaneProcess", "xxx  CameraCaliPlaneProcess end",
                          "xxx  CameraCaliCheckProcess -> signal"}));
  auto record = AfterPlaneFailure(kiv_camera_calires_msg(), 255, 0xFFF0);
  record = AfterIEparams(record, 0xFF, 0xFF, 0xFFFF);
  record = AfterPlaneSuccess(record, 0xFFF0);
  record = AfterCheck(record, 1, 1);
  expected["msg_camera_calires"] = Hex(record);
  EXPECT_EQ(PluginGlobals(), expected);  // the app record is still zero
}

}  // namespace
