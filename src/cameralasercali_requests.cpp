// The calibration node's request handlers: factory request, start
// sequence, app request and JSON commands.
//
// One 16-bit request value selects what a request does: 0x1111 resets the
// calibrations, 0x2222 closes the camera, 0x4444 (app only) asks for a laser
// power check, dis_chessboard and dis_DistanceCheck start those runs, 0
// starts the plane calibration, and any other value is a working distance.
//
// Every reply is written into one of the two long-lived result records and
// never clears it: a reply writes only its own fields, and every other field
// keeps what an earlier reply or result left there. Camera-state replies and
// the laser power check always go out on "CAMERACALIRES" in
// msg_camera_calires; the app's other replies go into msg_camera_APPcalires
// and on as state text (laser_camera_APPcalires_send).
#include <rapidjson/document.h>

#include <algorithm>
#include <cstdint>
#include <iostream>
#include <iterator>
#include <string>

#include "src/calicodes.h"
#include "src/caligetpic.h"
#include "src/cameralasercali.h"

namespace kivplugcali {

namespace {

// Trace tags of the publishing call sites, made once: publishWithLine takes
// a const std::string&, and a literal would make a new string (on the heap,
// for these are longer than the short-string buffer) at every publication.
const std::string kTagPlaneRequest = "src/cameralasercali_377";
const std::string kTagIEparamRequest = "src/cameralasercali_407";
const std::string kTagDistanceCheckRequest = "src/cameralasercali_438";
const std::string kTagAppClosed = "src/cameralasercali_479";
const std::string kTagAppLaserPowerCheck = "src/cameralasercali_500";
const std::string kTagAppOpening = "src/cameralasercali_510";
const std::string kTagAppOpened = "src/cameralasercali_515";
const std::string kTagFactoryClosedOpen = "src/cameralasercali_640";
const std::string kTagFactoryClosedIdle = "src/cameralasercali_648";
const std::string kTagFactoryOpening = "src/cameralasercali_663";
const std::string kTagFactoryOpened = "src/cameralasercali_669";
const std::string kTagFactoryChessboardFailed = "src/cameralasercali_683";
const std::string kTagFactoryCalibrationFailed = "src/cameralasercali_702";
const std::string kTagFactoryDistanceRefused = "src/cameralasercali_708";
const std::string kTagFactoryDistanceAccepted = "src/cameralasercali_745";
const std::string kTagJsonClosedBeforeOpen = "src/cameralasercali_777";
const std::string kTagJsonOpened = "src/cameralasercali_785";
const std::string kTagJsonClosedBeforeClose = "src/cameralasercali_800";

// Request values with a meaning of their own.
constexpr uint16_t kResetValue = 0x1111;
constexpr uint16_t kCloseValue = 0x2222;
constexpr uint16_t kLaserPowerValue = 0x4444;

constexpr uint8_t kCameraClosed = 0;
constexpr uint8_t kCameraOpen = 1;

// Distance value of the distance-refused reply.
constexpr uint16_t kDistanceRefused = 316;

// Result fields of a calibration that could not start.
constexpr int8_t kFailedIEparam = 60;
constexpr uint16_t kFailedIEparam3 = 0x3CFF;
constexpr uint16_t kFailedPlaneValue = 60;
constexpr uint8_t kFailedPlaneResult = 60;
constexpr uint8_t kFailedCheckResult = 60;

// Working distances the factory request accepts: 0, 5, ... 50.
constexpr unsigned kFactoryStep = 5;
constexpr unsigned kFactoryEnd = 55;
// Working distances the app request accepts.
constexpr uint16_t kAppDistances[] = {0, 10, 20, 30};

// JSON commands and replies.
constexpr char kJsonCmd[] = "cmd";
constexpr char kJsonDistance[] = "distance";
constexpr char kJsonApp[] = "APP";

// --- Reply forms ---------------------------------------------------------------
// Record is kiv_camera_calires_msg or kiv_camera_APPcalires_msg, whose first
// 36 bytes share one layout. Each form writes only the fields it names.

// Camera state: type 1 and the state.
template <typename Record>
void WriteCameraState(Record& record, uint8_t state) {
  record.kind = kKindCameraState;
  record.camera_state = state;
}

// Camera state with the distance field cleared (the camera-opening reply
// and the JSON commands' replies).
template <typename Record>
void WriteCameraStateNoDistance(Record& record, uint8_t state) {
  WriteCameraState(record, state);
  record.distance = 0;
}

// Type 2 with a distance or an acknowledged request value.
template <typename Record>
void WriteDistance(Record& record, uint16_t distance) {
  record.kind = kKindDistance;
  record.distance = distance;
}

template <typename Record>
void WriteChessboardFailed(Record& record) {
  record.kind = kKindIEparam;
  record.ieparam1 = kFailedIEparam;
  record.ieparam2 = kFailedIEparam;
  record.ieparam3 = kFailedIEparam3;
}

template <typename Record>
void WriteCalibrationFailed(Record& record) {
  record.kind = kKindPlaneCheck;
  record.distance = 0;
  std::copy(std::begin(kNoCheckData), std::end(kNoCheckData), record.check_data);
  std::fill(std::begin(record.plane_data), std::end(record.plane_data), kFailedPlaneValue);
  record.plane_result = kFailedPlaneResult;
  record.check_result = kFailedCheckResult;
}

// The reply to a request whose camera did not open, by request value.
enum class OpenFailure { kChessboard, kDistance, kCalibration };

OpenFailure OpenFailureFor(uint16_t value) {
  if (value == dis_chessboard) return OpenFailure::kChessboard;
  if (value != 0) return OpenFailure::kDistance;
  return OpenFailure::kCalibration;
}

template <typename Record>
void WriteOpenFailure(Record& record, OpenFailure failure) {
  switch (failure) {
    case OpenFailure::kChessboard:
      WriteChessboardFailed(record);
      break;
    case OpenFailure::kDistance:
      WriteDistance(record, kDistanceRefused);
      break;
    case OpenFailure::kCalibration:
      WriteCalibrationFailed(record);
      break;
  }
}

const std::string& FactoryOpenFailureTag(OpenFailure failure) {
  switch (failure) {
    case OpenFailure::kChessboard:
      return kTagFactoryChessboardFailed;
    case OpenFailure::kDistance:
      return kTagFactoryDistanceRefused;
    case OpenFailure::kCalibration:
      break;
  }
  return kTagFactoryCalibrationFailed;
}

// --- Request values ------------------------------------------------------------

// The chessboard and distance-check values start a run although they are
// no working distance.
bool IsRunValue(uint16_t value) { return value == dis_chessboard || value == dis_DistanceCheck; }

// Walks the factory's working distances; prints the match, if any.
bool FactoryDistanceSuitable(uint16_t value) {
  bool suitable = false;
  for (unsigned candidate = 0; candidate < kFactoryEnd; candidate += kFactoryStep) {
    if (value == candidate) {
      std::cout << "xxx dis_suit_flag = 1 " << std::endl;
      suitable = true;
    }
  }
  return suitable;
}

// Checks the app's working distances; prints the match, if any.
bool AppDistanceSuitable(uint16_t value) {
  const bool suitable = std::find(std::begin(kAppDistances), std::end(kAppDistances), value) !=
                        std::end(kAppDistances);
  if (suitable) std::cout << "xxx dis_suit_flag = 1 " << std::endl;
  return suitable;
}

// Lets a run value pass, or refuses an unsuitable distance. True when the
// request goes on.
bool PassesDistanceCheck(uint16_t value, bool suitable) {
  if (IsRunValue(value)) {
    std::cout << "xxx dis_chessboard || dis_DistanceCheck dis_suit_flag = 1 " << std::endl;
    return true;
  }
  if (!suitable) {
    std::cout << "xxx distance out of range " << std::endl;
    return false;
  }
  return true;
}

// Moves the camera to the value's settings. True when the picture set there
// is complete.
bool ApplyDistance(uint16_t value) {
  if (!C_caligetpic.setparam(value)) {
    std::cout << "xxx distance fail " << value << std::endl;
    return false;
  }
  std::cout << "xxx distance OK " << value << std::endl;
  return true;
}

// The code of a camera-parameter or distance-check request. A raised reset
// flag selects the reset code and is cleared.
uint8_t RequestCode(int32_t& reset_flag) {
  const bool app = APP_USE == 1;
  if (reset_flag == 1) {
    reset_flag = 0;
    return app ? kCodeAppAfterReset : kCodeFactoryAfterReset;
  }
  return app ? kCodeApp : kCodeFactory;
}

// The plane calibration request knows the factory codes only.
uint8_t PlaneRequestCode() {
  if (cameraplanecali_reset_flag == 1) {
    cameraplanecali_reset_flag = 0;
    return kCodeFactoryAfterReset;
  }
  return kCodeFactory;
}

// --- JSON members --------------------------------------------------------------

// The string value of `key`, or null when absent or not a string.
const rapidjson::Value* StringMember(const rapidjson::Value& object, const char* key) {
  if (!object.IsObject()) return nullptr;
  auto it = object.FindMember(key);
  if (it == object.MemberEnd() || !it->value.IsString()) return nullptr;
  return &it->value;
}

// The integer value of `key`, or null when absent or not an integer.
const rapidjson::Value* IntegerMember(const rapidjson::Value& object, const char* key) {
  if (!object.IsObject()) return nullptr;
  auto it = object.FindMember(key);
  if (it == object.MemberEnd() || !(it->value.IsInt64() || it->value.IsUint64())) return nullptr;
  return &it->value;
}

// The low 16 bits of an integer value.
uint16_t Low16(const rapidjson::Value& integer) {
  const uint64_t bits =
      integer.IsUint64() ? integer.GetUint64() : static_cast<uint64_t>(integer.GetInt64());
  return static_cast<uint16_t>(bits & 0xFFFF);
}

}  // namespace

void KivNodeLaserCali::CameraLaserCaliProcess(kiv_camera_cali_msg* msg) {
  const uint16_t value = msg->distance;
  APP_USE = 0;
  distance_delt = distance_factory;

  if (value == kResetValue) {
    cameraplanecali_reset_flag = 1;
    cameraplaneCheck_reset_flag = 1;
    DistanceCheck_reset_flag = 1;
    cameraIEparamcali_reset_flag = 1;
    C_caligetpic.set_curr_dis();
    return;
  }

  if (value == kCloseValue) {
    if (cameraopen_flag == 1) {
      C_caligetpic.Camera_Close();  // counted as closed whatever it returned
      cameraopen_flag = 0;
      WriteCameraState(msg_camera_calires, kCameraClosed);
      calires_pub_.publishWithLine(&msg_camera_calires, kTagFactoryClosedOpen);
      std::cout << "xxx Camera_Close1 " << std::endl;
    } else {
      WriteCameraState(msg_camera_calires, kCameraClosed);
      calires_pub_.publishWithLine(&msg_camera_calires, kTagFactoryClosedIdle);
      std::cout << "xxx Camera_Close2 " << std::endl;
    }
    return;
  }

  if (cameraopen_flag == 0) {
    WriteCameraStateNoDistance(msg_camera_calires, kCameraClosed);
    calires_pub_.publishWithLine(&msg_camera_calires, kTagFactoryOpening);
    if (C_caligetpic.Camera_Open()) {
      WriteCameraState(msg_camera_calires, kCameraOpen);
      calires_pub_.publishWithLine(&msg_camera_calires, kTagFactoryOpened);
      cameraopen_flag = 1;
      std::cout << "xxx Camera_Open OK" << std::endl;
    } else {
      std::cout << "xxx Camera_Open fail" << std::endl;
      const OpenFailure failure = OpenFailureFor(value);
      WriteOpenFailure(msg_camera_calires, failure);
      calires_pub_.publishWithLine(&msg_camera_calires, FactoryOpenFailureTag(failure));
    }
  }
  std::cout << "xxx cameraopen_flag:" << cameraopen_flag << std::endl;
  if (cameraopen_flag != 1) return;

  std::cout << "xxx distance trans " << value << std::endl;
  if (!PassesDistanceCheck(value, FactoryDistanceSuitable(value))) return;
  if (!ApplyDistance(value)) return;

  if (value != 0 && !IsRunValue(value)) {
    WriteDistance(msg_camera_calires, value);
    calires_pub_.publishWithLine(&msg_camera_calires, kTagFactoryDistanceAccepted);
    return;
  }
  CameraCaliPStartProcess();
}

void KivNodeLaserCali::CameraCaliPStartProcess() {
  if (cameraplanecali_publish_flag == 1) {
    std::cout << "xxx pub_camera_cali_plane " << std::endl;
    LaserClibrMsg request{};
    request.kind = PlaneRequestCode();
    plane_pub_.publishWithLine(&request, kTagPlaneRequest);
    cameraplanecali_publish_flag = 0;
  }

  if (cameraIEparamcali_publish_flag == 1) {
    std::cout << "xxx pub_camera_cali_ieparam " << cameraIEparamcali_reset_flag << std::endl;
    CameraClibrIEParamMsg request{};
    request.kind = RequestCode(cameraIEparamcali_reset_flag);
    ieparam_pub_.publishWithLine(&request, kTagIEparamRequest);
    cameraIEparamcali_publish_flag = 0;
  }

  if (DistanceCheck_publish_flag == 1) {
    std::cout << "xxx DistanceCheck_publish_flag " << std::endl;
    kiv_camera_distance_msg request{};
    request.kind = static_cast<int8_t>(RequestCode(DistanceCheck_reset_flag));
    distance_pub_.publishWithLine(&request, kTagDistanceCheckRequest);
    DistanceCheck_publish_flag = 0;
  }
}

void KivNodeLaserCali::APPCameraLaserCaliProcess(kiv_msg_laser_calibration* msg) {
  const uint16_t value = msg->distance;
  std::cout << "xxx dis_tmp " << value << std::endl;
  APP_USE = 1;
  distance_delt = distance_app;
  std::cout << "xxx APP_USE 1 " << distance_delt << std::endl;

  if (value == kResetValue) {
    // The camera parameter calibration keeps its reset state.
    cameraplanecali_reset_flag = 1;
    DistanceCheck_reset_flag = 1;
    cameraplaneCheck_reset_flag = 1;
    WriteDistance(msg_camera_APPcalires, kResetValue);
    laser_camera_APPcalires_send(&msg_camera_APPcalires);
    C_caligetpic.set_curr_dis();
    std::cout << "xxx 0x1111 " << std::endl;
    return;
  }

  if (value == kCloseValue) {
    if (cameraopen_flag == 1) {
      if (!C_caligetpic.Camera_Close()) return;  // still open, and nothing said
      WriteCameraState(msg_camera_calires, kCameraClosed);
      calires_pub_.publishWithLine(&msg_camera_calires, kTagAppClosed);
      cameraopen_flag = 0;
      WriteDistance(msg_camera_APPcalires, kCloseValue);
      laser_camera_APPcalires_send(&msg_camera_APPcalires);
      std::cout << "xxx Camera_Close1 " << std::endl;
    } else {
      WriteDistance(msg_camera_APPcalires, kCloseValue);
      laser_camera_APPcalires_send(&msg_camera_APPcalires);
      std::cout << "xxx Camera_Close2 " << std::endl;
    }
    return;
  }

  if (value == kLaserPowerValue) {
    msg_camera_calires.kind = kKindLaserPowerCheck;
    calires_pub_.publishWithLine(&msg_camera_calires, kTagAppLaserPowerCheck);
    std::cout << "xxx pub_check_laserpower " << std::endl;
    return;
  }

  if (cameraopen_flag == 0) {
    WriteCameraStateNoDistance(msg_camera_calires, kCameraClosed);
    calires_pub_.publishWithLine(&msg_camera_calires, kTagAppOpening);
    if (C_caligetpic.Camera_Open()) {
      WriteCameraState(msg_camera_calires, kCameraOpen);
      calires_pub_.publishWithLine(&msg_camera_calires, kTagAppOpened);
      cameraopen_flag = 1;
      std::cout << "xxx Camera_Open OK" << std::endl;
    } else {
      std::cout << "xxx Camera_Open fail" << std::endl;
      std::cout << "xxx Camera_Open fail" << std::endl;
      WriteOpenFailure(msg_camera_APPcalires, OpenFailureFor(value));
      laser_camera_APPcalires_send(&msg_camera_APPcalires);
    }
  }
  std::cout << "xxx cameraopen_flag:" << cameraopen_flag << std::endl;
  if (cameraopen_flag != 1) return;

  std::cout << "xxx distance trans " << value << std::endl;
  if (!PassesDistanceCheck(value, AppDistanceSuitable(value))) return;
  if (!ApplyDistance(value)) return;

  if (value == 0 || IsRunValue(value)) {
    CameraCaliPStartProcess();
    return;
  }
  // The acknowledge carries what the capture reported, not the request value.
  WriteDistance(msg_camera_APPcalires, APPcalires_dis);
  laser_camera_APPcalires_send(&msg_camera_APPcalires);
  std::cout << "xxx pub_laser_camera_APPcalires 2 " << APPcalires_dis << std::endl;
}

void KivNodeLaserCali::JsonMsgProcess(KivJsonMsg* msg) {
  if (msg == nullptr) {
    std::cout << "json msg is null" << std::endl;
    return;
  }
  const rapidjson::Value& command = msg->command;

  // The camera commands drive the camera directly and leave cameraopen_flag
  // alone. The closed state goes out before the camera is touched.
  if (const rapidjson::Value* cmd = StringMember(command, kJsonCmd)) {
    const std::string name(cmd->GetString(), cmd->GetStringLength());
    if (name == "open_camera") {
      WriteCameraStateNoDistance(msg_camera_calires, kCameraClosed);
      calires_pub_.publishWithLine(&msg_camera_calires, kTagJsonClosedBeforeOpen);
      std::cout << "xxx DBSync_reset" << std::endl;
      if (!C_caligetpic.Camera_Open()) {
        msg->reply.AddString("Camera_Open", "fail");
        return;
      }
      WriteCameraStateNoDistance(msg_camera_calires, kCameraOpen);
      calires_pub_.publishWithLine(&msg_camera_calires, kTagJsonOpened);
      std::cout << "xxx DBSync_reset" << std::endl;
      msg->reply.AddString("Camera_Open", "ok");
    } else if (name == "close_camera") {
      WriteCameraStateNoDistance(msg_camera_calires, kCameraClosed);
      calires_pub_.publishWithLine(&msg_camera_calires, kTagJsonClosedBeforeClose);
      std::cout << "xxx DBSync_reset" << std::endl;
      msg->reply.AddString("close_camera", C_caligetpic.Camera_Close() ? "ok" : "fail");
    }
    return;
  }

  if (const rapidjson::Value* distance = IntegerMember(command, kJsonDistance)) {
    msg->reply.AddString("distance", C_caligetpic.getonepic(Low16(*distance)) ? "ok" : "fail");
    return;
  }

  if (const rapidjson::Value* app = IntegerMember(command, kJsonApp)) {
    kiv_msg_laser_calibration request{};
    request.distance = Low16(*app);
    APPCameraLaserCaliProcess(&request);
    msg->reply.AddString("KivMsgLaserCalibration", "ok");
  }
}

}  // namespace kivplugcali
