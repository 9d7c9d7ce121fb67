#include "tools/sim_pictures/node_setting.h"

#include <cmath>
#include <cstdint>
#include <iostream>
#include <sstream>

#include "src/caligetpic.h"

namespace simpictures {
namespace {

// The node's choice for its distance code `code`; its console line is
// swallowed and its globals are put back.
Setting Choose(uint16_t code, bool app) {
  using namespace kivplugcali;
  const uint16_t distance = distance_curr;
  const uint8_t app_use = APP_USE;
  const int32_t exposure = exposure_value, gain = gain_value;
  std::ostringstream swallowed;
  std::streambuf* out = std::cout.rdbuf(swallowed.rdbuf());
  distance_curr = code;
  APP_USE = app ? 1 : 0;
  KivNode_caligetpic capture;
  capture.param_choose();
  std::cout.rdbuf(out);
  const Setting chosen{exposure_value, gain_value};
  distance_curr = distance;
  APP_USE = app_use;
  exposure_value = exposure;
  gain_value = gain;
  return chosen;
}

}  // namespace

Setting NodeSetting(double distance, bool app) {
  if (std::floor(distance) != distance || distance > 65535) {
    return Choose(kivplugcali::dis_DistanceCheck, app);
  }
  return Choose(static_cast<uint16_t>(distance), app);
}

Setting NodeChessboardSetting(bool app) { return Choose(kivplugcali::dis_chessboard, app); }

}  // namespace simpictures
