// Camera simulator settings for tests: applies a JSON text of settings
// (docs/camera-sim.md), failing the test when it is refused.
#ifndef LASERCALI_TESTS_SUPPORT_SIM_SETTINGS_H_
#define LASERCALI_TESTS_SUPPORT_SIM_SETTINGS_H_

#include <gtest/gtest.h>
#include <rapidjson/document.h>

#include <stdexcept>
#include <string>

#include "platform/sunxi_cam/camera_sim.h"

namespace testsupport {

// Applies the settings; the refusal's message, or "" when they were taken.
inline std::string ConfigureSim(const std::string& json) {
  rapidjson::Document settings;
  settings.Parse(json.c_str());
  if (settings.HasParseError()) return "not JSON: " + json;
  try {
    sunxi_cam::sim::Configure(settings);
  } catch (const std::invalid_argument& refused) {
    return refused.what();
  }
  return "";
}

}  // namespace testsupport

#define APPLY_SIM(json) ASSERT_EQ(testsupport::ConfigureSim(json), "") << (json)

#endif  // LASERCALI_TESTS_SUPPORT_SIM_SETTINGS_H_
