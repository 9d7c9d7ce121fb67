// Shared support of the request handler tests.
//
// RequestTest resets the camera simulator and then builds a node in its own
// host (NodeHarness, default configuration: delt_factory 60, delt_app 20).
// The helpers describe publications, console lines and the plug-in's
// globals as text, so a failing comparison shows what differs.
#ifndef LASERCALI_TESTS_SRC_REQUEST_TEST_SUPPORT_H_
#define LASERCALI_TESTS_SRC_REQUEST_TEST_SUPPORT_H_

#include <gtest/gtest.h>

#include <cstdint>
#include <cstdio>
#include <map>
#include <string>
#include <vector>

#include "msgs/topics.h"
#include "platform/sunxi_cam/camera_sim.h"
#include "src/caligetpic.h"
#include "tests/support/node_harness.h"
#include "tests/support/plugin_globals.h"

namespace requesttest {

namespace sim = sunxi_cam::sim;

using testsupport::Bytes;
using testsupport::Hex;
using testsupport::PluginGlobals;

// A publication as "topic | tag | record bytes" (or the state text).
inline std::string Describe(const testsupport::Publication& p) {
  return p.topic + " | " + p.tag + " | " +
         (p.topic == calitopics::kLaserState ? p.text : Hex(p.bytes));
}

inline std::vector<std::string> Describe(const std::vector<testsupport::Publication>& list) {
  std::vector<std::string> out;
  for (const auto& p : list) out.push_back(Describe(p));
  return out;
}

// Expected publications, described the same way.
template <typename T>
std::string Pub(const char* topic, const char* tag, const T& record) {
  return std::string(topic) + " | " + tag + " | " + Hex(record);
}

inline std::string CaliRes(const char* tag, const kiv_camera_calires_msg& record) {
  return Pub(calitopics::kCameraCaliRes, tag, record);
}

inline std::string State(const char* tag, const std::string& text) {
  return std::string(calitopics::kLaserState) + " | " + tag + " | " + text;
}


using Globals = std::map<std::string, std::string>;

// `before` with `changes` applied; every name in `changes` must exist.
inline Globals With(Globals before, const Globals& changes) {
  for (const auto& [name, value] : changes) {
    EXPECT_EQ(before.count(name), 1u) << "no global named " << name;
    before[name] = value;
  }
  return before;
}

// A result record as an earlier writer might have left it: every field set,
// each to a value of its own (the factory record's last 28 bytes stay zero).
template <typename Record>
Record EarlierRecord() {
  Record record;
  record.kind = 9;
  record.camera_state = 7;
  record.distance = 0x1234;
  record.ieparam1 = -5;
  record.ieparam2 = 11;
  record.ieparam3 = 0xABCD;
  for (int i = 0; i < 4; ++i) record.check_data[i] = static_cast<uint16_t>(0x4100 + i);
  for (int i = 0; i < 9; ++i) record.plane_data[i] = static_cast<uint16_t>(0x5100 + i);
  record.plane_result = 0x77;
  record.check_result = 0x88;
  return record;
}

// Reply forms as the requester expects them, written into a copy of the
// record the reply starts from.

template <typename Record>
Record CameraState(Record record, uint8_t state) {
  record.kind = 1;
  record.camera_state = state;
  return record;
}

template <typename Record>
Record CameraStateNoDistance(Record record, uint8_t state) {
  record = CameraState(record, state);
  record.distance = 0;
  return record;
}

template <typename Record>
Record DistanceReply(Record record, uint16_t distance) {
  record.kind = 2;
  record.distance = distance;
  return record;
}

template <typename Record>
Record ChessboardFailed(Record record) {
  record.kind = 3;
  record.ieparam1 = 60;
  record.ieparam2 = 60;
  record.ieparam3 = 0x3CFF;
  return record;
}

template <typename Record>
Record CalibrationFailed(Record record) {
  record.kind = 4;
  record.distance = 0;
  const uint16_t check[4] = {6000, 600, 6000, 600};
  for (int i = 0; i < 4; ++i) record.check_data[i] = check[i];
  for (int i = 0; i < 9; ++i) record.plane_data[i] = 60;
  record.plane_result = 60;
  record.check_result = 60;
  return record;
}

// The state text of an app record of kind 2, 3 or 4, as the relay sends it.
inline const char kStateDistanceTag[] = "src/cameralasercali_126";
inline const char kStateIEparamTag[] = "src/cameralasercali_138";
inline const char kStatePlaneCheckTag[] = "src/cameralasercali_159";

// Resets the camera simulator when made and when destroyed.
struct SimReset {
  SimReset() { sim::Reset(); }
  ~SimReset() { sim::Reset(); }
};

class RequestTest : public ::testing::Test {
 protected:
  // Starts every test with the node built and nothing recorded yet.
  void SetUp() override { Forget(); }

  // Opens the camera as a successful request leaves it, then forgets what
  // that printed and published.
  void HoldCameraOpen() {
    ASSERT_TRUE(kivplugcali::C_caligetpic.Camera_Open());
    kivplugcali::cameraopen_flag = 1;
    Forget();
  }

  // Runs the frame timer until the picture set in progress is complete.
  void CompletePictures() {
    harness.host().Loop().RunTicks(120);
    ASSERT_EQ(kivplugcali::save_pic_success, 3) << "the capture did not complete";
    Forget();
  }

  void Forget() {
    harness.console().Clear();
    harness.publications.clear();
  }

  void SendFactory(uint16_t value) {
    harness.Send<kiv_camera_cali_msg>(calitopics::kCameraCali, kiv_camera_cali_msg{value});
  }

  void SendApp(uint16_t value) {
    harness.Send<kiv_msg_laser_calibration>(calitopics::kLaserCalibration,
                                            kiv_msg_laser_calibration{value});
  }

  std::vector<std::string> Published() const { return Describe(harness.publications); }
  std::vector<std::string> Out() { return harness.console().OutLines(); }

  SimReset sim_reset_;
  testsupport::NodeHarness harness;
};

}  // namespace requesttest

#endif  // LASERCALI_TESTS_SRC_REQUEST_TEST_SUPPORT_H_
