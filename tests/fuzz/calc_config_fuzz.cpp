// libFuzzer target: the configuration of a calculation node of
// liblasercalc.so.
//
// Input: one byte that picks the node (its value modulo 4: plane, check,
// distance, camera parameters; the seeds use '0' to '3'), then the JSON
// text of its configuration (docs/calibration.md), read with kivrun's
// checks (nesting depth, UTF-8). calc::ReadCalcConfig must either refuse it
// with a CalcConfigError whose message begins with the node's ID, or give a
// configuration that keeps every rule the nodes rely on: a delay from 1 ms
// to an hour, a refusal code that fits the answer's result field, pictures
// the node can read (stripe pictures of both lasers whose names give
// their distance; two for the distance node, one for the camera parameter
// node), a camera model and thresholds within their ranges.
#include <sys/stat.h>

#include <cmath>
#include <cstddef>
#include <cstdint>
#include <string>

#include "msgs/calcmsgs.h"
#include "tests/fuzz/fuzz_support.h"
#include "tools/calc/calc_config.h"
#include "tools/calc/picture_files.h"
#include "tools/kivrun/scenario.h"

namespace {

using calc::NodeKind;

void Check(bool ok, const std::string& rule) {
  if (!ok) fuzzsupport::Fail("an accepted configuration breaks a rule: " + rule);
}

void CheckAccepted(NodeKind kind, const calc::CalcConfig& config) {
  Check(config.kind == kind, "the node's kind");
  Check(config.delay_us >= 1000 && config.delay_us <= 3600LL * 1000 * 1000 &&
            config.delay_us % 1000 == 0,
        "a delay of whole milliseconds from 1 to 3600000");
  if (kind == NodeKind::kPlane) {
    Check(config.refuse >= INT32_MIN && config.refuse <= INT32_MAX, "the refusal fits 32 bits");
  } else {
    Check(config.refuse >= 0 && config.refuse <= 255, "the refusal fits 8 bits");
  }
  Check(!config.pictures.empty() && config.pictures.size() <= 1000, "1 to 1000 pictures");
  if (kind == NodeKind::kPlane || kind == NodeKind::kCheck) {
    bool sides[2] = {false, false};
    for (const std::string& path : config.pictures) {
      bool left = false;
      int distance = 0;
      Check(calc::StripePictureOf(path, &left, &distance), "a stripe picture's name: " + path);
      sides[left ? 0 : 1] = true;
    }
    Check(sides[0] && sides[1], "pictures of both lasers");
    Check(config.wall_height > 0 && config.wall_height <= 10000, "the wall's height");
  }
  if (kind == NodeKind::kDistance) Check(config.pictures.size() == 2, "two pictures");
  if (kind == NodeKind::kCameraParam) {
    Check(config.pictures.size() == 1, "one picture");
    Check(config.board.columns >= 2 && config.board.columns <= 100 && config.board.rows >= 2 &&
              config.board.rows <= 100,
          "the board's size");
  } else {
    const calc::Camera c = calc::PinholeOf(config.camera);
    Check(!config.has_camera || (c.fx > 0 && c.fy > 0 && c.height > 0 && std::fabs(c.pitch) < 90 &&
                                 std::isfinite(c.cx) && std::isfinite(c.cy)),
          "the camera model");
    Check(!config.has_camera || config.camera_file.empty(), "one camera, not two");
  }
  Check(config.max_rms_px > 0 && config.max_worst_px > 0 && config.max_apart > 0 &&
            config.calibration.max_rms > 0 && config.calibration.min_points >= 3,
        "the thresholds");
  for (int side = 0; config.has_fallback && side < 2; ++side) {
    const calc::Vec3& n = config.fallback[side].normal;
    Check(std::fabs(std::sqrt(calc::Dot(n, n)) - 1) <= 1e-6, "a fallback plane's unit normal");
  }
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  // The configurations name folders and a camera model file: the default
  // picture folders exist in the /tmp of its own, as the calibration node
  // makes them.
  fuzzsupport::EnterPrivateTmp();
  for (const char* folder : {"/tmp/left", "/tmp/right", "/tmp/pic"}) mkdir(folder, 0755);
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
  if (size == 0) return 0;
  const NodeKind kind = static_cast<NodeKind>(data[0] % 4);
  std::shared_ptr<rapidjson::Document> json;
  try {
    json = kivrun::ParseJsonText(std::string(reinterpret_cast<const char*>(data + 1), size - 1),
                                 "configuration");
  } catch (const kivrun::ScenarioError&) {
    return 0;  // not JSON a host would hand a node
  }
  try {
    CheckAccepted(kind, calc::ReadCalcConfig(kind, *json));
  } catch (const calc::CalcConfigError& e) {
    const std::string what = e.what();
    const std::string id = calctopics::kCalcNodes[static_cast<int>(kind)].id;
    if (what.rfind(id + ": ", 0) != 0)
      fuzzsupport::Fail("a refusal without the node's ID: " + what);
  }
  return 0;
}
