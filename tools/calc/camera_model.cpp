#include "tools/calc/camera_model.h"

#include <cmath>
#include <memory>
#include <opencv2/calib3d.hpp>
#include <opencv2/core.hpp>

#include "tools/calc/opencv_camera.h"

namespace calc {
namespace {

constexpr double kNearestDepth = 1e-12;  // a point nearer the camera's plane is behind it

// The vertical axis turned by `yaw` (cosine c, sine s).
Vec3 TurnAboutVertical(Vec3 a, double c, double s) {
  return {c * a.x - s * a.y, s * a.x + c * a.y, a.z};
}

}  // namespace

CameraModel ModelOf(const Camera& camera, int image_width, int image_height) {
  CameraModel model;
  model.image_width = image_width;
  model.image_height = image_height;
  model.intrinsics = {camera.fx, camera.fy, camera.cx, camera.cy};
  model.pose.height = camera.height;
  model.pose.pitch = camera.pitch;
  return model;
}

Camera PinholeOf(const CameraModel& model) {
  Camera camera;
  camera.fx = model.intrinsics.fx;
  camera.fy = model.intrinsics.fy;
  camera.cx = model.intrinsics.cx;
  camera.cy = model.intrinsics.cy;
  camera.height = model.pose.height;
  camera.pitch = model.pose.pitch;
  return camera;
}

bool IsPinhole(const CameraModel& model) {
  const CameraPose& p = model.pose;
  return model.distortion.IsZero() && p.x == 0 && p.y == 0 && p.yaw == 0 && p.roll == 0;
}

std::vector<Pixel> Undistort(const CameraModel& model, const std::vector<Pixel>& pixels) {
  if (model.distortion.IsZero() || pixels.empty()) return pixels;
  std::vector<cv::Point2d> in, out;
  in.reserve(pixels.size());
  for (const Pixel& p : pixels) in.emplace_back(p.u, p.v);
  // The iteration stops when a step moves the point by less than a
  // millionth of a pixel; OpenCV's default (five steps) leaves hundredths of
  // a pixel in the picture's corners with a strong lens.
  const cv::Matx33d k = CameraMatrix(model.intrinsics);
  cv::undistortPoints(in, out, k, Coefficients(model.distortion), cv::noArray(), k,
                      cv::TermCriteria(cv::TermCriteria::COUNT | cv::TermCriteria::EPS, 200, 1e-9));
  std::vector<Pixel> result(pixels.size());
  for (std::size_t i = 0; i < out.size(); ++i) result[i] = {out[i].x, out[i].y};
  return result;
}

Pixel Undistort(const CameraModel& model, Pixel pixel) {
  return Undistort(model, std::vector<Pixel>{pixel})[0];
}

Pixel Distort(const CameraModel& model, Pixel pixel) {
  const Distortion& d = model.distortion;
  if (d.IsZero()) return pixel;
  const Intrinsics& k = model.intrinsics;
  const double x = (pixel.u - k.cx) / k.fx, y = (pixel.v - k.cy) / k.fy;
  const double r2 = x * x + y * y;
  const double radial = 1 + r2 * (d.k1 + r2 * (d.k2 + r2 * d.k3));
  const double xd = x * radial + 2 * d.p1 * x * y + d.p2 * (r2 + 2 * x * x);
  const double yd = y * radial + d.p1 * (r2 + 2 * y * y) + 2 * d.p2 * x * y;
  return {k.fx * xd + k.cx, k.fy * yd + k.cy};
}

CameraAxes AxesOf(const CameraPose& pose) {
  // CameraGeometry's axes, in its arithmetic.
  const double s = std::sin(pose.pitch * kPi / 180.0);
  const double c = std::cos(pose.pitch * kPi / 180.0);
  CameraAxes axes{{0, -1, 0}, {-s, 0, -c}, {c, 0, -s}};
  // Turns by zero are left out, so the pinhole's axes keep their bits.
  if (pose.roll != 0) {
    const double cr = std::cos(Radians(pose.roll)), sr = std::sin(Radians(pose.roll));
    const Vec3 right = cr * axes.right + sr * axes.down;
    const Vec3 down = (-sr) * axes.right + cr * axes.down;
    axes.right = right;
    axes.down = down;
  }
  if (pose.yaw != 0) {
    const double cy = std::cos(Radians(pose.yaw)), sy = std::sin(Radians(pose.yaw));
    axes.right = TurnAboutVertical(axes.right, cy, sy);
    axes.down = TurnAboutVertical(axes.down, cy, sy);
    axes.forward = TurnAboutVertical(axes.forward, cy, sy);
  }
  return axes;
}

void AnglesOfAxes(const CameraAxes& axes, CameraPose* pose) {
  const Vec3 f = axes.forward;
  pose->pitch = Degrees(std::asin(std::fmax(-1.0, std::fmin(1.0, -f.z))));
  pose->yaw = Degrees(std::atan2(f.y, f.x));
  // Turn the right axis back by the yaw and compare it with the pitched
  // camera's right (0, -1, 0) and down (-sin pitch, 0, -cos pitch) axes.
  const double yaw = Radians(pose->yaw);
  const Vec3 r = TurnAboutVertical(axes.right, std::cos(yaw), -std::sin(yaw));
  const double pitch = Radians(pose->pitch);
  const double along_right = -r.y;
  const double along_down = -std::sin(pitch) * r.x - std::cos(pitch) * r.z;
  pose->roll = Degrees(std::atan2(along_down, along_right));
}

CameraRays::CameraRays(const CameraModel& model)
    : intrinsics_(model.intrinsics),
      axes_(AxesOf(model.pose)),
      centre_{model.pose.x, model.pose.y, model.pose.height} {}

Vec3 CameraRays::Ray(Pixel p) const {
  const double a = (p.u - intrinsics_.cx) / intrinsics_.fx;
  const double b = (p.v - intrinsics_.cy) / intrinsics_.fy;
  return a * axes_.right + b * axes_.down + axes_.forward;
}

bool CameraRays::Project(Vec3 q, Pixel* p) const {
  const Vec3 d = q - centre_;
  const double depth = Dot(axes_.forward, d);
  if (!(depth > kNearestDepth)) return false;
  p->u = intrinsics_.cx + intrinsics_.fx * Dot(axes_.right, d) / depth;
  p->v = intrinsics_.cy + intrinsics_.fy * Dot(axes_.down, d) / depth;
  return true;
}

}  // namespace calc

namespace calc {

CameraGeometry::CameraGeometry(const CameraModel& model) : camera_(PinholeOf(model)) {
  const CameraAxes axes = AxesOf(model.pose);
  right_ = axes.right;
  down_ = axes.down;
  forward_ = axes.forward;
  centre_ = {model.pose.x, model.pose.y, model.pose.height};
  if (!model.distortion.IsZero()) lens_ = std::make_shared<const CameraModel>(model);
}

std::vector<Pixel> CameraGeometry::Undistorted(const std::vector<Pixel>& pixels) const {
  return lens_ ? Undistort(*lens_, pixels) : pixels;
}

}  // namespace calc
