// libFuzzer target: the camera model reader.
//
// Input: the text of a camera model file (OpenCV FileStorage YAML or ROS
// camera_info YAML, docs/calibration.md). calc::ParseCameraModel either
// refuses it, with a message that starts "camera model fuzz: " and says
// what, leaving the model as it was, or reads a model whose every value is
// finite and in range; such a model is written again and must read back
// with the same bits. OpenCV's YAML parser runs inside the reader and is
// fuzzed with it (built with AddressSanitizer and UndefinedBehaviorSanitizer
// under scripts/fuzz.sh).
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>

#include "tests/fuzz/fuzz_support.h"
#include "tools/calc/camera_model_file.h"

namespace {

// A model no file holds: its bits must survive a refusal.
calc::CameraModel Untouched() {
  calc::CameraModel model;
  model.image_width = 7;
  model.image_height = 3;
  model.intrinsics = {-1, -2, -3, -4};
  model.pose_known = false;
  return model;
}

bool SameBits(const calc::CameraModel& a, const calc::CameraModel& b) {
  return a.image_width == b.image_width && a.image_height == b.image_height &&
         std::memcmp(&a.intrinsics, &b.intrinsics, sizeof a.intrinsics) == 0 &&
         std::memcmp(&a.distortion, &b.distortion, sizeof a.distortion) == 0 &&
         a.pose_known == b.pose_known && std::memcmp(&a.pose, &b.pose, sizeof a.pose) == 0 &&
         a.lens_sigma_known == b.lens_sigma_known &&
         std::memcmp(&a.intrinsics_sigma, &b.intrinsics_sigma, sizeof a.intrinsics_sigma) == 0 &&
         std::memcmp(&a.distortion_sigma, &b.distortion_sigma, sizeof a.distortion_sigma) == 0 &&
         a.pose_sigma_known == b.pose_sigma_known &&
         std::memcmp(&a.pose_sigma, &b.pose_sigma, sizeof a.pose_sigma) == 0;
}

void CheckRead(const calc::CameraModel& m) {
  const double values[] = {m.intrinsics.fx,
                           m.intrinsics.fy,
                           m.intrinsics.cx,
                           m.intrinsics.cy,
                           m.distortion.k1,
                           m.distortion.k2,
                           m.distortion.p1,
                           m.distortion.p2,
                           m.distortion.k3,
                           m.pose.x,
                           m.pose.y,
                           m.pose.height,
                           m.pose.yaw,
                           m.pose.pitch,
                           m.pose.roll,
                           m.intrinsics_sigma.fx,
                           m.intrinsics_sigma.cy,
                           m.distortion_sigma.k3,
                           m.pose_sigma.height,
                           m.pose_sigma.roll};
  for (double v : values) {
    if (!std::isfinite(v)) fuzzsupport::Fail("a model read with a value that is not finite");
  }
  if (m.image_width < 1 || m.image_height < 1) fuzzsupport::Fail("a model read with no picture");
  if (!(m.intrinsics.fx > 0) || !(m.intrinsics.fy > 0)) {
    fuzzsupport::Fail("a model read with a focal length not above 0");
  }
  if (m.intrinsics.cx < 0 || m.intrinsics.cx > m.image_width || m.intrinsics.cy < 0 ||
      m.intrinsics.cy > m.image_height) {
    fuzzsupport::Fail("a model read with the principal point outside the picture");
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
  const std::string text(reinterpret_cast<const char*>(data), size);
  calc::CameraModel model = Untouched();
  std::string error;
  if (!calc::ParseCameraModel(text, "fuzz", &model, &error)) {
    if (error.rfind("camera model fuzz: ", 0) != 0 || error.size() <= 19) {
      fuzzsupport::Fail("a refusal that does not say what: " + error);
    }
    if (!SameBits(model, Untouched())) fuzzsupport::Fail("a refused file changed the model");
    return 0;
  }
  CheckRead(model);
  calc::CameraModel again = Untouched();
  if (!calc::ParseCameraModel(calc::FormatCameraModel(model), "fuzz", &again, &error)) {
    fuzzsupport::Fail("a model read does not read back once written: " + error);
  }
  if (!SameBits(model, again)) fuzzsupport::Fail("a model read changed when written again");
  return 0;
}
