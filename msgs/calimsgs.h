// Message records of the calibration node.
//
// These plain records are shared with every node of the robot: a publisher
// hands a pointer to its record to each subscriber, so sender and receiver
// must agree on the exact layout (natural alignment, little-endian). Every
// stated offset and size is pinned below. Fields not listed in a record's
// contract are padding, named reserved*; every field starts at zero, so a
// fresh record is all zero bytes.
#ifndef LASERCALI_MSGS_CALIMSGS_H_
#define LASERCALI_MSGS_CALIMSGS_H_

#include <rapidjson/document.h>

#include <cstddef>
#include <cstdint>
#include <string>

#include "framework/kiv_json.h"

// Calibration command from the factory side ("CAMERACALI").
struct kiv_camera_cali_msg {
  uint16_t distance = 0;  // command code or working distance
};

// Calibration command from the app ("laser_calibration").
struct kiv_msg_laser_calibration {
  uint16_t distance = 0;  // as kiv_camera_cali_msg, plus 0x4444 laser power check
};

// JSON command: the parsed command object, then the reply builder the
// handler adds its answer to.
struct KivJsonMsg {
  rapidjson::Document command;  // a JSON object; begins the record
  KivJson reply;
};

// Calibration result (64 bytes): sent on "CAMERACALIRES", received from the
// check node on "CAMERACALICHECKRES".
struct kiv_camera_calires_msg {
  uint8_t kind = 0;          // 1 camera state, 2 distance, 3 camera parameters, 4 plane+check, 5 laser power check
  uint8_t camera_state = 0;  // kind 1: 0 closed, 1 open
  uint16_t distance = 0;     // kind 2: distance or acknowledged code
  int8_t ieparam1 = 0;       // kind 3
  int8_t ieparam2 = 0;       // kind 3
  uint16_t ieparam3 = 0;     // kind 3
  uint16_t check_data[4] = {};
  uint16_t plane_data[9] = {};
  uint8_t plane_result = 0;  // 1 success, else the failure code's low byte
  uint8_t check_result = 0;  // 255 when no check was made
  uint8_t reserved[28] = {};
};

// The app-side result record: bytes 0 to 35 of kiv_camera_calires_msg.
struct kiv_camera_APPcalires_msg {
  uint8_t kind = 0;
  uint8_t camera_state = 0;
  uint16_t distance = 0;
  int8_t ieparam1 = 0;
  int8_t ieparam2 = 0;
  uint16_t ieparam3 = 0;
  uint16_t check_data[4] = {};
  uint16_t plane_data[9] = {};
  uint8_t plane_result = 0;
  uint8_t check_result = 0;
};

// State text for the app ("laser_state"): kind and values joined by ";".
struct kiv_msg_laser_state {
  std::string text;
};

// Plane calibration request ("LASER_CALIBR_REQ") and result ("LASER_CALIBR_REQRES").
struct LaserClibrMsg {
  uint8_t kind = 0;  // request: 1 or 3; result: 2
  uint8_t reserved0 = 0;
  uint16_t plane_data[9] = {};
  int32_t result = 0;  // 1 success, else a failure code
};

// Camera parameter request ("CAMERACALI_IEPARAM") and result ("CAMERACALI_IEPARAMRES").
struct CameraClibrIEParamMsg {
  uint8_t kind = 0;  // request code 1, 3, 4 or 5
  uint8_t ieparam1 = 0;
  uint8_t ieparam2 = 0;
  uint8_t reserved0 = 0;
  uint16_t ieparam3 = 0;
};

// Distance check request ("DISTANCESTARTCACULATE") and response ("APPDISTANCERES").
struct kiv_camera_distance_msg {
  int8_t kind = 0;  // request code; in a response 1 marks a result
  uint8_t reserved0 = 0;
  uint16_t distance = 0;
  int16_t near_values[4] = {};
  int16_t far_values[8] = {};
  uint8_t status = 0;
  uint8_t reserved1 = 0;
};

// Calibration check request ("CAMERACALICHECK").
struct kiv_camera_calicheck_msg {
  uint16_t mode = 0;  // 1, 3, 4 or 5
};

// Laser power answer ("LASERPOWER").
struct kiv_laserpower_msg {
  uint16_t power_a = 0;
  uint16_t power_b = 0;
};

static_assert(offsetof(kiv_camera_cali_msg, distance) == 0);
static_assert(offsetof(kiv_msg_laser_calibration, distance) == 0);

static_assert(sizeof(kiv_camera_calires_msg) == 64);
static_assert(offsetof(kiv_camera_calires_msg, kind) == 0);
static_assert(offsetof(kiv_camera_calires_msg, camera_state) == 1);
static_assert(offsetof(kiv_camera_calires_msg, distance) == 2);
static_assert(offsetof(kiv_camera_calires_msg, ieparam1) == 4);
static_assert(offsetof(kiv_camera_calires_msg, ieparam2) == 5);
static_assert(offsetof(kiv_camera_calires_msg, ieparam3) == 6);
static_assert(offsetof(kiv_camera_calires_msg, check_data) == 8);
static_assert(offsetof(kiv_camera_calires_msg, plane_data) == 16);
static_assert(offsetof(kiv_camera_calires_msg, plane_result) == 34);
static_assert(offsetof(kiv_camera_calires_msg, check_result) == 35);
static_assert(offsetof(kiv_camera_calires_msg, reserved) == 36);

static_assert(sizeof(kiv_camera_APPcalires_msg) == 36);
static_assert(offsetof(kiv_camera_APPcalires_msg, kind) == 0);
static_assert(offsetof(kiv_camera_APPcalires_msg, camera_state) == 1);
static_assert(offsetof(kiv_camera_APPcalires_msg, distance) == 2);
static_assert(offsetof(kiv_camera_APPcalires_msg, ieparam1) == 4);
static_assert(offsetof(kiv_camera_APPcalires_msg, ieparam2) == 5);
static_assert(offsetof(kiv_camera_APPcalires_msg, ieparam3) == 6);
static_assert(offsetof(kiv_camera_APPcalires_msg, check_data) == 8);
static_assert(offsetof(kiv_camera_APPcalires_msg, plane_data) == 16);
static_assert(offsetof(kiv_camera_APPcalires_msg, plane_result) == 34);
static_assert(offsetof(kiv_camera_APPcalires_msg, check_result) == 35);

static_assert(offsetof(LaserClibrMsg, kind) == 0);
static_assert(offsetof(LaserClibrMsg, plane_data) == 2);
static_assert(offsetof(LaserClibrMsg, result) == 20);

static_assert(offsetof(CameraClibrIEParamMsg, kind) == 0);
static_assert(offsetof(CameraClibrIEParamMsg, ieparam1) == 1);
static_assert(offsetof(CameraClibrIEParamMsg, ieparam2) == 2);
static_assert(offsetof(CameraClibrIEParamMsg, ieparam3) == 4);

static_assert(offsetof(kiv_camera_distance_msg, kind) == 0);
static_assert(offsetof(kiv_camera_distance_msg, distance) == 2);
static_assert(offsetof(kiv_camera_distance_msg, near_values) == 4);
static_assert(offsetof(kiv_camera_distance_msg, far_values) == 12);
static_assert(offsetof(kiv_camera_distance_msg, status) == 28);

static_assert(offsetof(kiv_camera_calicheck_msg, mode) == 0);
static_assert(offsetof(kiv_laserpower_msg, power_a) == 0);
static_assert(offsetof(kiv_laserpower_msg, power_b) == 2);

#endif  // LASERCALI_MSGS_CALIMSGS_H_
