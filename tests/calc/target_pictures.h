// Calibration pictures from the camera simulator, for the tests and the
// accuracy benchmark of the reference calculations (tools/calc/).
//
// TargetPictures renders, with the simulator's current scene, the left and
// right laser pictures at each wall distance: the same bytes the node
// stores in a round (it writes the camera's luminance plane unchanged). It
// keeps the pictures and hands them out as calc::StripePicture lists. The
// simulator's distance is left at the last one rendered.
//
// RandomPose draws a laser pose and picture conditions from a seed with its
// own arithmetic (not the standard library's distributions, which differ
// between libraries), so every target draws the same poses.
#ifndef LASERCALI_TESTS_CALC_TARGET_PICTURES_H_
#define LASERCALI_TESTS_CALC_TARGET_PICTURES_H_

#include <cstdint>
#include <string>
#include <vector>

#include "platform/sunxi_cam/camera_sim.h"
#include "tools/calc/geometry.h"
#include "tools/calc/laser_calibration.h"

namespace calctest {

calc::Camera CameraOf(const sunxi_cam::sim::CameraModel& model);
calc::Plane PlaneOf(const sunxi_cam::sim::LaserPlane& plane);

// The factory distances 5, 10, ..., 45.
std::vector<double> FactoryDistances();

class TargetPictures {
 public:
  explicit TargetPictures(const std::vector<double>& distances);
  // The pictures of the left (1) or right (8) laser, nearest first, named
  // "left/<distance>" or "right/<distance>".
  std::vector<calc::StripePicture> Of(int laser) const;
  // The picture of `laser` at distance index `i`, to change by hand.
  std::vector<uint8_t>& Pixels(int laser, std::size_t i);
  // Sets rows [from, to] of a picture to `value`.
  void FillRows(int laser, std::size_t i, int from, int to, uint8_t value);

 private:
  std::vector<double> distances_;
  std::vector<std::vector<uint8_t>> left_, right_;
};

// A laser pose of the accuracy run: each laser's yaw within +-5 degrees and
// roll within +-3 degrees of the default, its emitter within +-1 cm of the
// default in x, y and z; camera noise from 0.5 to 3 and ambient light from
// 0 to 20 (the clean range: one stripe a row, never saturated); and a wall
// for the distance check between 10 and 40 cm.
struct Pose {
  sunxi_cam::sim::LaserModel left, right;
  double noise = 2, ambient = 0;
  uint64_t seed = 1;   // the picture noise's seed
  double wall = 27.5;  // cm
};
Pose RandomPose(uint64_t seed);
// Puts the pose into the simulator's scene (the rest of the scene stays).
void ApplyPose(const Pose& pose);
// The pose as the "scene" member of the simulator's JSON settings.
std::string PoseJson(const Pose& pose);

// A robot of the whole chain's accuracy run: the camera of a preset with
// its intrinsics and distortion varied (fx within +-1 %, fy within
// +-0.5 % of fx, cx within +-4 and cy within +-3 pixels, k1 within +-0.03
// and k2 within +-0.01 of the preset's: every chessboard view of the chain
// round stays in the picture, and the lens never folds it over), the
// lasers posed as RandomPose poses them, and the pictures' seed. Drawn from the seed with the same
// arithmetic as RandomPose, so every target draws the same robots.
struct Robot {
  sunxi_cam::sim::CameraModel camera;
  sunxi_cam::sim::LaserModel left, right;
  uint64_t seed = 1;
};
Robot RandomRobot(uint64_t seed, const sunxi_cam::sim::CameraModel& preset);
// The robot as the "scene" member of a camera step given beside its
// preset: the camera's varied values, the lasers and the seed.
std::string RobotJson(const Robot& robot);

}  // namespace calctest

#endif  // LASERCALI_TESTS_CALC_TARGET_PICTURES_H_
