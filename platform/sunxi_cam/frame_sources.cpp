// Where a frame's picture comes from: the scene, rendered and kept; an image
// file; and the scene's truth (sim_state.h, camera_sim.h).
#include <array>
#include <cstring>
#include <filesystem>
#include <opencv2/core.hpp>
#include <opencv2/imgcodecs.hpp>
#include <stdexcept>
#include <string>
#include <vector>

#include "platform/sunxi_cam/board_light.h"
#include "platform/sunxi_cam/lens.h"
#include "platform/sunxi_cam/physical.h"
#include "platform/sunxi_cam/picture_file.h"
#include "platform/sunxi_cam/scene.h"
#include "platform/sunxi_cam/sim_state.h"

namespace sunxi_cam::sim {
namespace {

// The luminance planes rendered last, by the laser field's low four bits,
// with the scene and brightness factor they were rendered for. Unlike the
// camera's cache they outlive Reset(), so a program that resets the
// simulator between runs of the same scene renders each picture once.
struct Rendered {
  bool valid = false;
  Scene scene;
  double scale = 0;
  int exposure = 0, gain = 0;
  std::vector<uint8_t> luma;
};

}  // namespace

void RenderOrRecall(const Scene& scene, unsigned lasers, double scale, int exposure, int gain,
                    uint8_t* out) {
  static std::array<Rendered, 16> rendered;
  Rendered& last = rendered[lasers & 15u];
  if (!last.valid || !SameScene(last.scene, scene) ||
      std::memcmp(&last.scale, &scale, sizeof scale) != 0 || last.exposure != exposure ||
      last.gain != gain) {
    last.valid = false;
    last.luma.resize(kLumaBytes);
    if (scene.renderer == Renderer::kPhysical) {
      RenderPhysical(scene, lasers, exposure, gain, last.luma.data());
    } else {
      RenderLuminance(scene, lasers, scale, last.luma.data());
    }
    last.scene = scene;
    last.scale = scale;
    last.exposure = exposure;
    last.gain = gain;
    last.valid = true;
  }
  std::memcpy(out, last.luma.data(), kLumaBytes);
}

cv::Mat LoadImageFile(const std::string& path, const std::string& member) {
  if (path.empty()) return cv::Mat();
  const std::string where = "camera sim: " + member + ": image file '" + path + "' ";
  std::error_code error;
  const std::filesystem::file_status status = std::filesystem::status(path, error);
  if (std::filesystem::is_directory(status)) throw std::invalid_argument(where + "is a folder");
  if (!std::filesystem::is_regular_file(status)) {
    throw std::invalid_argument(where + "does not exist or is not a file");
  }
  const std::uintmax_t size = std::filesystem::file_size(path, error);
  if (error || size > static_cast<std::uintmax_t>(kMaxImageFileBytes)) {
    throw std::invalid_argument(where + "is larger than " + std::to_string(kMaxImageFileBytes) +
                                " bytes (16 MiB)");
  }
  const std::string claim = PictureHeaderProblem(path, kWidth, kHeight);
  if (!claim.empty()) {
    throw std::invalid_argument(where + "is " + claim +
                                "; the camera needs 640 x 480 with one 8-bit channel (grayscale)");
  }
  cv::Mat image;
  try {
    image = cv::imread(path, cv::IMREAD_UNCHANGED);
  } catch (const cv::Exception&) {
    // The decoder's own text names neither the file nor the setting.
    throw std::invalid_argument(where + "cannot be decoded: it is damaged, or not a picture");
  }
  if (image.empty()) throw std::invalid_argument(where + "cannot be read as an image");
  if (image.cols != kWidth || image.rows != kHeight || image.type() != CV_8UC1) {
    throw std::invalid_argument(
        where + "is " + std::to_string(image.cols) + " x " + std::to_string(image.rows) + " with " +
        std::to_string(image.channels()) + " channel(s) of " +
        std::to_string(8 * image.elemSize1()) + " bits; the camera needs 640 x 480 with one " +
        "8-bit channel (grayscale)");
  }
  if (!image.isContinuous()) image = image.clone();
  return image;
}

std::string ImageFileProblem(const std::string& path) {
  const std::string prefix = "camera sim: file: ";
  try {
    if (path.empty()) return "image file '' does not exist or is not a file";
    LoadImageFile(path, "file");
  } catch (const std::invalid_argument& refused) {
    const std::string text = refused.what();
    return text.rfind(prefix, 0) == 0 ? text.substr(prefix.size()) : text;
  }
  return "";
}

SceneTruth Truth() {
  const Scene& scene = GetScene();
  SceneTruth truth;
  truth.camera = scene.camera;
  truth.left = PlaneOf(scene.left);
  truth.right = PlaneOf(scene.right);
  truth.left_on = scene.left.on;
  truth.right_on = scene.right.on;
  truth.wall = scene.wall;
  truth.distance = scene.distance;
  truth.wall_height = scene.wall_height;
  truth.camera_pose = PoseOf(scene.camera);
  truth.board.on = scene.board.on;
  truth.board.cols = scene.board.cols;
  truth.board.rows = scene.board.rows;
  truth.board.square = scene.board.square;
  truth.board.margin = scene.board.margin;
  truth.board.pose = BoardPose(scene.board);
  truth.renderer = scene.renderer;
  return truth;
}

}  // namespace sunxi_cam::sim
