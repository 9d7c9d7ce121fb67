// The camera's lens and pose in OpenCV's conventions. Internal to the
// simulator.
//
// A point X of the robot's frame is seen at x_camera = R X + t (camera axes:
// x right, y down, z ahead), normalised to (x, y) = (x_camera / z_camera,
// y_camera / z_camera), distorted by OpenCV's model with k1, k2, p1, p2, k3
//
//   r2 = x^2 + y^2,  radial = 1 + k1 r2 + k2 r2^2 + k3 r2^3
//   x' = x radial + 2 p1 x y + p2 (r2 + 2 x^2)
//   y' = y radial + p1 (r2 + 2 y^2) + 2 p2 x y
//
// and turned into pixels u = fx x' + cx, v = fy y' + cy (pixel centres at
// whole numbers). That is all of the model, so the simulator implements it
// itself; cv::projectPoints with the same numbers gives the same pixels
// (tests/platform/lens_test.cpp). Pixels go back to normalised points by
// Newton's method on the model. The model is only used inside the radius
// where the radial distortion still grows (beyond it the polynomial folds
// back), and a camera whose picture reaches past that radius is refused.
#ifndef LASERCALI_PLATFORM_SUNXI_CAM_LENS_H_
#define LASERCALI_PLATFORM_SUNXI_CAM_LENS_H_

#include <cstdint>
#include <string>
#include <vector>

#include "platform/sunxi_cam/camera_sim.h"

namespace sunxi_cam::sim {

struct Vec3 {
  double x, y, z;
};
inline Vec3 operator-(Vec3 a, Vec3 b) { return {a.x - b.x, a.y - b.y, a.z - b.z}; }
inline Vec3 operator+(Vec3 a, Vec3 b) { return {a.x + b.x, a.y + b.y, a.z + b.z}; }
inline Vec3 operator*(double k, Vec3 a) { return {k * a.x, k * a.y, k * a.z}; }
inline double Dot(Vec3 a, Vec3 b) { return a.x * b.x + a.y * b.y + a.z * b.z; }

// d(pixel) / d(normalised point): [du/dx du/dy; dv/dx dv/dy].
struct Jacobian2 {
  double uu, uy, vx, vy;  // du/dx, du/dy, dv/dx, dv/dy
};

class Lens {
 public:
  explicit Lens(const CameraModel& camera);

  // The pixel a normalised point is seen at.
  void Project(double x, double y, double* u, double* v) const;
  Jacobian2 JacobianAt(double x, double y) const;
  // The normalised point seen at pixel (u, v); false when Newton's method
  // does not settle inside the radius where the model holds.
  bool Unproject(double u, double v, double* x, double* y) const;
  // x^2 + y^2 up to which the radial distortion grows (the model holds).
  double valid_r2() const { return valid_r2_; }

  // The camera's pose: x_camera = rotation x_robot + translation.
  const CameraPose& pose() const { return pose_; }
  Vec3 centre() const { return centre_; }
  // Robot-frame direction of camera-frame vector c, and the reverse.
  Vec3 ToRobot(Vec3 c) const;
  Vec3 ToCamera(Vec3 robot_point) const;  // a point, not a direction

 private:
  CameraModel m_;
  double valid_r2_ = 0;
  CameraPose pose_{};
  Vec3 centre_{};
};

// Every pixel's normalised point, as Lens::Unproject gives it, worked out
// once for a camera (its intrinsics and distortion) and kept: drawing a
// whole picture through the lens (the chessboard) needs all of them, and
// Newton's method for each is most of that work. Row by row, kWidth x
// kHeight; `ok` 0 where Unproject fails.
struct PixelDirections {
  std::vector<double> x, y;
  std::vector<uint8_t> ok;
};
const PixelDirections& DirectionsOf(const CameraModel& camera);

// The camera's pose on the robot: at (0, 0, height), looking ahead, tilted
// down by pitch.
CameraPose PoseOf(const CameraModel& camera);

// "" when the distortion keeps the whole picture one to one with the
// directions it sees; else why not (for the refusal of the settings).
std::string FoldProblem(const CameraModel& camera);

}  // namespace sunxi_cam::sim

#endif  // LASERCALI_PLATFORM_SUNXI_CAM_LENS_H_
