// The camera simulator's settings, shared by its control functions and its
// JSON configuration. Internal to the simulator.
#ifndef LASERCALI_PLATFORM_SUNXI_CAM_SIM_STATE_H_
#define LASERCALI_PLATFORM_SUNXI_CAM_SIM_STATE_H_

#include <array>
#include <cstdint>
#include <memory>
#include <opencv2/core.hpp>
#include <optional>
#include <string>
#include <vector>

#include "platform/sunxi_cam/camera_sim.h"
#include "platform/sunxi_cam/picture_folder.h"

namespace sunxi_cam::sim {

// Everything Reset() puts back and Configure() may change, faults aside.
struct Settings {
  Scene scene;
  std::vector<uint64_t> laser_pattern{1, 8};
  std::array<cv::Mat, 3> images;  // by ImageSlot; empty: the picture folder, or the scene
  std::shared_ptr<const PictureFolder> pictures;  // null: none
  int picture_offset = -1;                        // of the node's layout; -1: find it
  int buffers = 4;
};

const Settings& CurrentSettings();
// Replaces the settings and sets the faults given (others stay as they are).
void ApplySettings(Settings settings, const std::array<std::optional<Fault>, 5>& faults);
// Writes the scene's luminance plane for `lasers` to `out`: the ideal
// renderer's at brightness `scale`, the physical renderer's at the sensor's
// `exposure` and `gain` (0 and 0: none set). It renders only when the last
// rendering for `lasers` was of another scene or setting; the last
// renderings outlive Reset(), so a program that resets the simulator and
// shows the same scene again gets them without drawing them again.
void RenderOrRecall(const Scene& scene, unsigned lasers, double scale, int exposure, int gain,
                    uint8_t* out);
// Reads a 640 x 480 8-bit grayscale image; an empty path gives an empty image.
// Throws std::invalid_argument naming `member` and the file.
cv::Mat LoadImageFile(const std::string& path, const std::string& member);

}  // namespace sunxi_cam::sim

#endif  // LASERCALI_PLATFORM_SUNXI_CAM_SIM_STATE_H_
