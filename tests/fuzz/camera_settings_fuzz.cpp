// libFuzzer target: the camera simulator's JSON settings.
//
// Input: the text of a "camera" step's settings (docs/camera-sim.md). It is
// read with kivrun's checks (nesting depth, UTF-8), then applied with
// sim::Configure. A refusal must be a std::invalid_argument whose message
// starts with "camera sim: " and names the member. Whatever was applied,
// the camera is then opened and four frames are taken and handed back, and
// the luminance of every laser field in the pattern's first eight entries is
// rendered: every number the settings accept must keep the scene's
// projection and every conversion to a pixel defined (the target is built
// with UndefinedBehaviorSanitizer, float-cast-overflow included). That
// covers both renderers: the ideal one and the physical one with its lens,
// optics, laser light, sensor and chessboard, and the presets.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <stdexcept>
#include <string>
#include <vector>

#include "platform/sunxi_cam/camera_sim.h"
#include "platform/sunxi_cam/sunxi_cam.h"
#include "tests/fuzz/fuzz_support.h"
#include "tools/kivrun/scenario.h"

namespace sim = sunxi_cam::sim;

namespace {

// Takes and hands back a few frames, as the node does in a session.
void TakeFrames() {
  sunxi_cam::SunxiCam camera;
  if (!camera.OpenCamera(1, sunxi_cam::kPixelFormatNV21, 100, 640, 480)) return;
  camera.setExposureGain(1900, 32);
  for (int i = 0; i < 4; ++i) {
    sunxi_cam::ImageFrame frame;
    if (!camera.GetImageFrame(&frame)) continue;
    if (frame.data == nullptr) fuzzsupport::Fail("a frame without pixels");
    camera.ReturnImageFrame(&frame);
  }
  camera.CloseCamera();
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  // Image files named by the settings are read relative to the working
  // folder; none are written, but the /tmp of its own keeps it that way.
  fuzzsupport::EnterPrivateTmp();
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
  std::shared_ptr<rapidjson::Document> settings;
  try {
    settings =
        kivrun::ParseJsonText(std::string(reinterpret_cast<const char*>(data), size), "settings");
  } catch (const kivrun::ScenarioError&) {
    return 0;  // not JSON kivrun would take: never reaches the camera
  }
  sim::Reset();
  try {
    sim::Configure(*settings);
  } catch (const std::invalid_argument& refused) {
    const std::string message = refused.what();
    if (message.rfind("camera sim: ", 0) != 0 || message.size() <= 12) {
      fuzzsupport::Fail("a refusal that does not say what: " + message);
    }
  }
  TakeFrames();
  const std::vector<uint64_t>& pattern = sim::LaserPattern();
  std::vector<uint64_t> lasers(pattern.begin(),
                               pattern.begin() + std::min<std::ptrdiff_t>(8, pattern.size()));
  for (uint64_t laser : lasers) {
    if (sim::Luminance(laser) == nullptr) fuzzsupport::Fail("no luminance plane");
  }
  return 0;
}
