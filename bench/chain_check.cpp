#include "bench/chain_check.h"

#include <rapidjson/document.h>

#include <algorithm>
#include <filesystem>
#include <stdexcept>
#include <utility>
#include <vector>

#include "platform/sunxi_cam/camera_sim.h"
#include "tools/calc/camera_model.h"
#include "tools/calc/camera_model_file.h"
#include "tools/calc/laser_calibration.h"
#include "tools/calc/picture_files.h"
#include "tools/calc/plane_fit.h"

namespace chainbench {

namespace {

namespace fs = std::filesystem;
namespace sim = sunxi_cam::sim;

// The stripe pictures of a round, left laser's then right laser's, each
// nearest first; `mats` holds their pixels.
struct RoundPictures {
  std::vector<cv::Mat> mats;
  std::vector<calc::StripePicture> of[2];
};

RoundPictures ReadRoundPictures(const fs::path& dir, double wall_height) {
  RoundPictures r;
  std::vector<std::pair<std::string, int>> files[2];
  for (int side = 0; side < 2; ++side) {
    const fs::path folder = dir / (side == 0 ? "left" : "right");
    if (!fs::is_directory(folder)) continue;
    for (const auto& entry : fs::directory_iterator(folder)) {
      bool left = false;
      int distance = 0;
      if (calc::StripePictureOf(entry.path().string(), &left, &distance)) {
        files[side].emplace_back(entry.path().string(), distance);
      }
    }
    std::sort(files[side].begin(), files[side].end(),
              [](const auto& a, const auto& b) { return a.second < b.second; });
  }
  r.mats.reserve(files[0].size() + files[1].size());
  for (int side = 0; side < 2; ++side) {
    for (const auto& [path, distance] : files[side]) {
      cv::Mat picture;
      const std::string problem = calc::PictureProblem(path);
      if (!problem.empty() || !calc::ReadPicture(path, &picture).empty()) {
        throw std::invalid_argument(path + ": " + (problem.empty() ? "cannot be read" : problem));
      }
      r.mats.push_back(picture);
      calc::StripePicture p;
      p.name = path;
      p.picture = {r.mats.back().data, picture.cols, picture.rows, static_cast<int>(picture.step)};
      p.target = {static_cast<double>(distance), wall_height};
      r.of[side].push_back(p);
    }
  }
  for (int side = 0; side < 2; ++side) {
    if (r.of[side].empty()) throw std::invalid_argument("the round stored no pictures");
  }
  return r;
}

CheckVerdicts Check(const calc::CameraGeometry& g, const sim::SceneTruth& truth,
                    const RoundPictures& pictures) {
  CheckVerdicts v;
  for (int side = 0; side < 2; ++side) {
    const calc::Plane plane = calctest::PlaneOf(side == 0 ? truth.left : truth.right);
    const calc::Residuals r = calc::CheckPlane(g, plane, pictures.of[side]);
    v.true_failed += !calc::PassesCheck(r);
    v.true_bias = std::max(v.true_bias, r.bias);
    const double offs[3][3] = {{0.1, 0, 0}, {0, 0.1, 0}, {0, 0, 0.02}};  // degrees, degrees, cm
    for (const auto& off : offs) {
      for (int sign : {1, -1}) {
        calc::PlaneAngles angles = calc::AnglesOf(plane);
        angles.yaw += sign * off[0];
        angles.roll += sign * off[1];
        angles.offset += sign * off[2];
        const calc::Residuals o =
            calc::CheckPlane(g, calc::PlaneFromAngles(angles), pictures.of[side]);
        v.off_passed += calc::PassesCheck(o);
        if (o.code == calc::kSuccess) v.off_bias = std::min(v.off_bias, o.bias);
      }
    }
  }
  return v;
}

}  // namespace

RobotChecks CheckRobot(const std::string& preset, const calctest::Robot& robot,
                       const std::string& pictures_dir, const std::string& camera_file) {
  calc::CameraModel measured;
  std::string error;
  if (!calc::ReadCameraModelFile(camera_file, &measured, &error)) {
    throw std::invalid_argument("the measured camera: " + error);
  }
  rapidjson::Document settings;
  settings.Parse(
      ("{\"preset\": \"" + preset + "\", \"scene\": " + calctest::RobotJson(robot) + "}").c_str());
  sim::Reset();
  sim::Configure(settings);
  const sim::SceneTruth truth = sim::Truth();
  sim::Reset();
  // The simulator's camera sits above the robot's origin looking ahead,
  // pitched down: its pose has no x, y, yaw or roll.
  const sim::CameraModel& c = truth.camera;
  calc::CameraModel true_model;
  true_model.intrinsics = {c.fx, c.fy, c.cx, c.cy};
  true_model.distortion = {c.k1, c.k2, c.p1, c.p2, c.k3};
  true_model.pose.height = c.height;
  true_model.pose.pitch = c.pitch;
  const RoundPictures pictures = ReadRoundPictures(pictures_dir, truth.wall_height);
  return {Check(calc::CameraGeometry(measured), truth, pictures),
          Check(calc::CameraGeometry(true_model), truth, pictures)};
}

}  // namespace chainbench
