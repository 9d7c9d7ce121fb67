#include "platform/sunxi_cam/lens.h"

#include <cmath>
#include <cstdio>
#include <cstring>

#include "platform/sunxi_cam/fixed_math.h"

namespace sunxi_cam::sim {
namespace {

// The widest view the simulator draws: 84 degrees off the axis (r = 10).
constexpr double kMaxR2 = 100.0;

// d(r radial(r2)) / dr as a function of q = r2.
double RadialSlope(const CameraModel& m, double q) {
  return 1.0 + 3.0 * m.k1 * q + 5.0 * m.k2 * q * q + 7.0 * m.k3 * q * q * q;
}

// The first r2 where the radial distortion stops growing, or kMaxR2.
double ValidR2(const CameraModel& m) {
  constexpr int kSteps = 20000;
  double low = 0;
  for (int i = 1; i <= kSteps; ++i) {
    const double q = kMaxR2 * i / kSteps;
    if (RadialSlope(m, q) > 0) {
      low = q;
      continue;
    }
    double high = q;
    for (int n = 0; n < 60; ++n) {
      const double mid = 0.5 * (low + high);
      (RadialSlope(m, mid) > 0 ? low : high) = mid;
    }
    return low;
  }
  return kMaxR2;
}

}  // namespace

CameraPose PoseOf(const CameraModel& camera) {
  const double s = fixed::Sin(fixed::Radians(camera.pitch));
  const double c = fixed::Cos(fixed::Radians(camera.pitch));
  // Rows: the camera's right, down and ahead in the robot's frame.
  const double r[3][3] = {{0, -1, 0}, {-s, 0, -c}, {c, 0, -s}};
  CameraPose pose{};
  for (int i = 0; i < 3; ++i) {
    for (int j = 0; j < 3; ++j) pose.rotation[i][j] = r[i][j];
    // t = -R C with C = (0, 0, height).
    pose.translation[i] = -r[i][2] * camera.height;
  }
  return pose;
}

Lens::Lens(const CameraModel& camera) : m_(camera), pose_(PoseOf(camera)) {
  valid_r2_ = ValidR2(camera);
  centre_ = {0, 0, camera.height};
}

void Lens::Project(double x, double y, double* u, double* v) const {
  const double r2 = x * x + y * y;
  const double radial = 1.0 + r2 * (m_.k1 + r2 * (m_.k2 + r2 * m_.k3));
  const double xd = x * radial + 2.0 * m_.p1 * x * y + m_.p2 * (r2 + 2.0 * x * x);
  const double yd = y * radial + m_.p1 * (r2 + 2.0 * y * y) + 2.0 * m_.p2 * x * y;
  *u = m_.fx * xd + m_.cx;
  *v = m_.fy * yd + m_.cy;
}

Jacobian2 Lens::JacobianAt(double x, double y) const {
  const double r2 = x * x + y * y;
  const double radial = 1.0 + r2 * (m_.k1 + r2 * (m_.k2 + r2 * m_.k3));
  // d radial / d r2
  const double dradial = m_.k1 + r2 * (2.0 * m_.k2 + r2 * 3.0 * m_.k3);
  const double dxd_dx = radial + 2.0 * x * x * dradial + 2.0 * m_.p1 * y + 6.0 * m_.p2 * x;
  const double dxd_dy = 2.0 * x * y * dradial + 2.0 * m_.p1 * x + 2.0 * m_.p2 * y;
  const double dyd_dx = 2.0 * x * y * dradial + 2.0 * m_.p1 * x + 2.0 * m_.p2 * y;
  const double dyd_dy = radial + 2.0 * y * y * dradial + 6.0 * m_.p1 * y + 2.0 * m_.p2 * x;
  return {m_.fx * dxd_dx, m_.fx * dxd_dy, m_.fy * dyd_dx, m_.fy * dyd_dy};
}

bool Lens::Unproject(double u, double v, double* x_out, double* y_out) const {
  double x = (u - m_.cx) / m_.fx;
  double y = (v - m_.cy) / m_.fy;
  const double limit = 0.999 * valid_r2_;
  for (int i = 0; i < 60; ++i) {
    const double r2 = x * x + y * y;
    if (r2 > limit) {  // back inside the radius where the model holds
      const double k = std::sqrt(limit / r2);
      x *= k;
      y *= k;
    }
    double pu = 0, pv = 0;
    Project(x, y, &pu, &pv);
    const double eu = pu - u, ev = pv - v;
    const Jacobian2 j = JacobianAt(x, y);
    const double det = j.uu * j.vy - j.uy * j.vx;
    if (!(det > 0)) return false;
    const double dx = (j.vy * eu - j.uy * ev) / det;
    const double dy = (j.uu * ev - j.vx * eu) / det;
    x -= dx;
    y -= dy;
    if (std::fabs(dx) + std::fabs(dy) < 1e-15 * (1.0 + std::fabs(x) + std::fabs(y))) break;
  }
  double pu = 0, pv = 0;
  Project(x, y, &pu, &pv);
  if (!(std::fabs(pu - u) < 1e-6 && std::fabs(pv - v) < 1e-6)) return false;
  if (!(x * x + y * y < valid_r2_)) return false;
  *x_out = x;
  *y_out = y;
  return true;
}

Vec3 Lens::ToRobot(Vec3 c) const {
  const auto& r = pose_.rotation;
  return {r[0][0] * c.x + r[1][0] * c.y + r[2][0] * c.z,
          r[0][1] * c.x + r[1][1] * c.y + r[2][1] * c.z,
          r[0][2] * c.x + r[1][2] * c.y + r[2][2] * c.z};
}

Vec3 Lens::ToCamera(Vec3 p) const {
  const auto& r = pose_.rotation;
  const auto& t = pose_.translation;
  return {r[0][0] * p.x + r[0][1] * p.y + r[0][2] * p.z + t[0],
          r[1][0] * p.x + r[1][1] * p.y + r[1][2] * p.z + t[1],
          r[2][0] * p.x + r[2][1] * p.y + r[2][2] * p.z + t[2]};
}

const PixelDirections& DirectionsOf(const CameraModel& camera) {
  static PixelDirections cache;
  static bool valid = false;
  static CameraModel cached;
  const double now[9] = {camera.fx, camera.fy, camera.cx, camera.cy, camera.k1,
                         camera.k2, camera.p1, camera.p2, camera.k3};
  const double then[9] = {cached.fx, cached.fy, cached.cx, cached.cy, cached.k1,
                          cached.k2, cached.p1, cached.p2, cached.k3};
  if (valid && std::memcmp(now, then, sizeof now) == 0) return cache;
  valid = false;
  const Lens lens(camera);
  const std::size_t n = static_cast<std::size_t>(kWidth) * kHeight;
  cache.x.assign(n, 0.0);
  cache.y.assign(n, 0.0);
  cache.ok.assign(n, 0);
  for (int v = 0; v < kHeight; ++v) {
    for (int u = 0; u < kWidth; ++u) {
      const std::size_t i = static_cast<std::size_t>(v) * kWidth + u;
      cache.ok[i] = lens.Unproject(u, v, &cache.x[i], &cache.y[i]) ? 1 : 0;
    }
  }
  cached = camera;
  valid = true;
  return cache;
}

std::string FoldProblem(const CameraModel& camera) {
  const Lens lens(camera);
  // Every pixel on a grid over the picture, its edges and corners
  // included, must go back to one direction, and the lens must not fold
  // there (a positive Jacobian).
  constexpr int kStep = 8;
  for (int v = 0; v <= kHeight; v += kStep) {
    for (int u = 0; u <= kWidth; u += kStep) {
      const double pu = u - 0.5, pv = v - 0.5;  // the picture's edges are at -0.5 and 639.5
      double x = 0, y = 0;
      const bool ok = lens.Unproject(pu, pv, &x, &y);
      const Jacobian2 j = ok ? lens.JacobianAt(x, y) : Jacobian2{0, 0, 0, 0};
      if (!ok || !(j.uu * j.vy - j.uy * j.vx > 0)) {
        char text[200];
        std::snprintf(text, sizeof text,
                      "fold the picture over: no single direction within 84 degrees of the axis "
                      "is seen at pixel (%.1f, %.1f)",
                      pu, pv);
        return text;
      }
    }
  }
  return "";
}

}  // namespace sunxi_cam::sim
