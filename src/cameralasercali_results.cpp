// The calibration node's result handlers and the relay to the app.
//
// Each result goes to exactly one of the two long-lived result records,
// chosen by APP_USE: in app mode msg_camera_APPcalires, which is relayed as
// state text on "laser_state"; in factory mode msg_camera_calires, which is
// published as it is on "CAMERACALIRES". A handler writes only its own
// fields; every other byte keeps what an earlier writer left, so a plane
// result and a later check result meet in one kind-4 record.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <iostream>
#include <iterator>
#include <string>
#include <type_traits>

#include "src/calicodes.h"
#include "src/caligetpic.h"
#include "src/cameralasercali.h"

namespace kivplugcali {

namespace {

// Trace tags of the publishing call sites, made once: publishWithLine takes
// a const std::string&, and a literal would make a new string (on the heap,
// for these are longer than the short-string buffer) at every publication.
const std::string kTagAppDistance = "src/cameralasercali_126";
const std::string kTagAppIEparam = "src/cameralasercali_138";
const std::string kTagAppPlaneCheck = "src/cameralasercali_159";
const std::string kTagDistanceResponse = "src/cameralasercali_189";
const std::string kTagLaserPower = "src/cameralasercali_204";
const std::string kTagIEparamResult = "src/cameralasercali_218";
const std::string kTagCheckRequest = "src/cameralasercali_282";
const std::string kTagPlaneFailure = "src/cameralasercali_303";
const std::string kTagCheckResult = "src/cameralasercali_343";

// The plane calibration node's answer.
constexpr uint8_t kPlaneResultKind = 2;
constexpr int32_t kPlaneSuccess = 1;

// Check result written when the plane calibration failed and no check was made.
constexpr uint8_t kNoCheckResult = 255;

// The distance check node marks a result with kind 1.
constexpr int8_t kDistanceResultKind = 1;

// State text: the kind, then the values, as decimal numbers joined by ";".
// Each value is widened to int by its own signedness, so a signed byte
// 0xFF reads -1 and an unsigned one 255.
class StateText {
 public:
  explicit StateText(int kind) : text_(std::to_string(kind)) {}

  template <typename Field>
  StateText& Add(Field value) {
    static_assert(std::is_integral_v<Field> && sizeof(Field) < sizeof(int),
                  "state text values are 8- or 16-bit fields");
    text_ += ';';
    text_ += std::to_string(static_cast<int>(value));
    return *this;
  }

  template <typename Field, std::size_t N>
  StateText& Add(const Field (&values)[N]) {
    for (const Field& value : values) Add(value);
    return *this;
  }

  const std::string& str() const { return text_; }

 private:
  std::string text_;
};

void PublishState(kiv::Publisher<kiv_msg_laser_state>& publisher, const std::string& text,
                  const std::string& tag) {
  kiv_msg_laser_state state;
  state.text = text;
  publisher.publishWithLine(&state, tag);
}

// Writers of the result fields. Record is kiv_camera_calires_msg or
// kiv_camera_APPcalires_msg, whose first 36 bytes share one layout.

template <typename Record>
void StorePlaneSuccess(Record& record, const LaserClibrMsg& result) {
  std::copy(std::begin(result.plane_data), std::end(result.plane_data), record.plane_data);
  record.plane_result = 1;
}

template <typename Record>
void StorePlaneFailure(Record& record, const LaserClibrMsg& result) {
  record.kind = kKindPlaneCheck;
  record.distance = 0;
  std::copy(std::begin(result.plane_data), std::end(result.plane_data), record.plane_data);
  record.plane_result = static_cast<uint8_t>(result.result & 0xFF);  // the code's low byte
  record.check_result = kNoCheckResult;
  std::copy(std::begin(kNoCheckData), std::end(kNoCheckData), record.check_data);
}

template <typename Record>
void StoreIEparams(Record& record, const CameraClibrIEParamMsg& result) {
  record.kind = kKindIEparam;
  record.ieparam1 = static_cast<int8_t>(result.ieparam1);
  record.ieparam2 = static_cast<int8_t>(result.ieparam2);
  record.ieparam3 = result.ieparam3;
}

template <typename Record>
void StoreCheck(Record& record, const kiv_camera_calires_msg& result) {
  record.kind = kKindPlaneCheck;
  record.distance = 0;
  std::copy(std::begin(result.check_data), std::end(result.check_data), record.check_data);
  record.check_result = result.check_result;
}

// The mode of the check request after a successful plane calibration. The
// first request after a reset carries the reset mode and consumes the flag.
uint16_t TakeCheckMode() {
  if (cameraplaneCheck_reset_flag == 1) {
    cameraplaneCheck_reset_flag = 0;
    return APP_USE != 0 ? kCodeAppAfterReset : kCodeFactoryAfterReset;
  }
  return APP_USE != 0 ? kCodeApp : kCodeFactory;
}

}  // namespace

void KivNodeLaserCali::laser_camera_APPcalires_send(kiv_camera_APPcalires_msg* msg) {
  std::string text;
  switch (msg->kind) {
    case kKindDistance:
      text = StateText(kKindDistance).Add(msg->distance).str();
      PublishState(laser_state_pub_, text, kTagAppDistance);
      break;
    case kKindIEparam:
      text = StateText(kKindIEparam).Add(msg->ieparam1).Add(msg->ieparam2).Add(msg->ieparam3).str();
      PublishState(laser_state_pub_, text, kTagAppIEparam);
      break;
    case kKindPlaneCheck:
      text = StateText(kKindPlaneCheck)
                 .Add(msg->check_data)
                 .Add(msg->plane_data)
                 .Add(msg->plane_result)
                 .Add(msg->check_result)
                 .str();
      PublishState(laser_state_pub_, text, kTagAppPlaneCheck);
      break;
    default:
      break;
  }
  std::cout << "xxx APP laser_camera_calires_send " << text << std::endl;
}

void KivNodeLaserCali::CameraCaliPlaneProcess(LaserClibrMsg* msg) {
  std::cout << "xxx  CameraCaliPlaneProcess" << std::endl;
  if (msg->kind == kPlaneResultKind) {
    if (msg->result == kPlaneSuccess) {
      // Keep the plane values and ask for a check; the result is reported
      // when the check answers.
      if (APP_USE != 0) {
        StorePlaneSuccess(msg_camera_APPcalires, *msg);
      } else {
        StorePlaneSuccess(msg_camera_calires, *msg);
      }
      kiv_camera_calicheck_msg check;
      check.mode = TakeCheckMode();
      calicheck_pub_.publishWithLine(&check, kTagCheckRequest);
    } else if (APP_USE != 0) {
      StorePlaneFailure(msg_camera_APPcalires, *msg);
      laser_camera_APPcalires_send(&msg_camera_APPcalires);
    } else {
      StorePlaneFailure(msg_camera_calires, *msg);
      calires_pub_.publishWithLine(&msg_camera_calires, kTagPlaneFailure);
    }
  }
  std::cout << "xxx  CameraCaliPlaneProcess end" << std::endl;
}

void KivNodeLaserCali::CameraCaliIEparamProcess(CameraClibrIEParamMsg* msg) {
  std::cout << "xxx  CameraCaliIEparamProcess" << std::endl;
  if (APP_USE != 0) {
    StoreIEparams(msg_camera_APPcalires, *msg);
    laser_camera_APPcalires_send(&msg_camera_APPcalires);
    std::cout << "xxx  pub_laser_camera_APPcalires IEparam_result "
              << msg_camera_APPcalires.ieparam3 << std::endl;
  } else {
    StoreIEparams(msg_camera_calires, *msg);
    calires_pub_.publishWithLine(&msg_camera_calires, kTagIEparamResult);
  }
  std::cout << "xxx  CameraCaliIEparamProcess end" << std::endl;
}

void KivNodeLaserCali::CameraCaliCheckProcess(kiv_camera_calires_msg* msg) {
  if (APP_USE != 0) {
    StoreCheck(msg_camera_APPcalires, *msg);
    laser_camera_APPcalires_send(&msg_camera_APPcalires);
    // The check result is logged as the raw byte it is.
    std::cout << "xxx  pub_laser_camera_APPcalires check_result "
              << static_cast<char>(msg->check_result) << std::endl;
  } else {
    StoreCheck(msg_camera_calires, *msg);
    calires_pub_.publishWithLine(&msg_camera_calires, kTagCheckResult);
  }
  std::cout << "xxx  CameraCaliCheckProcess -> signal" << std::endl;
}

void KivNodeLaserCali::CameraDistanceResponse(kiv_camera_distance_msg* msg) {
  if (msg->kind != kDistanceResultKind) return;
  const std::string text = StateText(kKindDistanceResponse)
                               .Add(msg->distance)
                               .Add(msg->near_values)
                               .Add(msg->far_values)
                               .Add(msg->status)
                               .str();
  PublishState(laser_state_pub_, text, kTagDistanceResponse);
  std::cout << "xxx APP CameraDistanceResponse " << text << std::endl;
}

void KivNodeLaserCali::LaserPowerResponse(kiv_laserpower_msg* msg) {
  const std::string text = StateText(kKindLaserPower).Add(msg->power_a).Add(msg->power_b).str();
  PublishState(laser_state_pub_, text, kTagLaserPower);
  std::cout << "xxx APP LaserPowerResponse " << text << std::endl;
}

}  // namespace kivplugcali
