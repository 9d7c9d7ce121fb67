// Plug-in state as text, for tests that compare it before and after.
//
// Bytes() and Hex() show a record's bytes; PluginGlobals() names every
// global of the plug-in with its value (the two result records as hex), so
// a failing comparison shows exactly which global changed.
#ifndef LASERCALI_TESTS_SUPPORT_PLUGIN_GLOBALS_H_
#define LASERCALI_TESTS_SUPPORT_PLUGIN_GLOBALS_H_

#include <cstdint>
#include <cstdio>
#include <map>
#include <string>
#include <vector>

#include "src/caligetpic.h"

namespace testsupport {

template <typename T>
std::vector<uint8_t> Bytes(const T& record) {
  const auto* first = reinterpret_cast<const uint8_t*>(&record);
  return std::vector<uint8_t>(first, first + sizeof(T));
}

inline std::string Hex(const std::vector<uint8_t>& bytes) {
  std::string text;
  char byte[4];
  for (uint8_t b : bytes) {
    std::snprintf(byte, sizeof(byte), "%02x", b);
    if (!text.empty()) text += ' ';
    text += byte;
  }
  return text;
}

template <typename T>
std::string Hex(const T& record) {
  return Hex(Bytes(record));
}

// The plug-in's globals by name, as text (the two result records as hex).
inline std::map<std::string, std::string> PluginGlobals() {
  using namespace kivplugcali;
  return {
      {"dis_chessboard", std::to_string(dis_chessboard)},
      {"dis_DistanceCheck", std::to_string(dis_DistanceCheck)},
      {"time_interval", std::to_string(time_interval)},
      {"REAR_VIDEO_FPS", std::to_string(REAR_VIDEO_FPS)},
      {"distance_curr", std::to_string(distance_curr)},
      {"exposure_value", std::to_string(exposure_value)},
      {"gain_value", std::to_string(gain_value)},
      {"distance_factory", std::to_string(distance_factory)},
      {"distance_app", std::to_string(distance_app)},
      {"distance_delt", std::to_string(distance_delt)},
      {"APP_USE", std::to_string(APP_USE)},
      {"APPcalires_dis", std::to_string(APPcalires_dis)},
      {"cameraopen_flag", std::to_string(cameraopen_flag)},
      {"camera1_open_flag", std::to_string(camera1_open_flag)},
      {"timer_fd", std::to_string(timer_fd)},
      {"set_expgain_flag", std::to_string(set_expgain_flag)},
      {"delay_count", std::to_string(delay_count)},
      {"save_pic_success", std::to_string(save_pic_success)},
      {"LASER_ID", std::to_string(LASER_ID)},
      {"cameraplanecali_reset_flag", std::to_string(cameraplanecali_reset_flag)},
      {"cameraplaneCheck_reset_flag", std::to_string(cameraplaneCheck_reset_flag)},
      {"DistanceCheck_reset_flag", std::to_string(DistanceCheck_reset_flag)},
      {"cameraIEparamcali_reset_flag", std::to_string(cameraIEparamcali_reset_flag)},
      {"cameraplanecali_publish_flag", std::to_string(cameraplanecali_publish_flag)},
      {"cameraIEparamcali_publish_flag", std::to_string(cameraIEparamcali_publish_flag)},
      {"DistanceCheck_publish_flag", std::to_string(DistanceCheck_publish_flag)},
      {"filename", std::string(filename)},
      {"left_path", left_path},
      {"right_path", right_path},
      {"pic_path", pic_path},
      {"createfile_res", std::to_string(createfile_res)},
      {"camera_fd", std::to_string(camera_fd)},
      {"msg_camera_calires", Hex(msg_camera_calires)},
      {"msg_camera_APPcalires", Hex(msg_camera_APPcalires)},
  };
}

}  // namespace testsupport

#endif  // LASERCALI_TESTS_SUPPORT_PLUGIN_GLOBALS_H_
