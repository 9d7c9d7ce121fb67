#include "tools/calc/robust_plane.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace calc {
namespace {

Vec3 Cross(Vec3 a, Vec3 b) {
  return {a.y * b.z - a.z * b.y, a.z * b.x - a.x * b.z, a.x * b.y - a.y * b.x};
}

// Each point's distance from the plane times the square root of its weight.
std::vector<double> Distances(const std::vector<Vec3>& points, const std::vector<double>& weights,
                              const Plane& plane) {
  std::vector<double> e(points.size());
  for (std::size_t i = 0; i < points.size(); ++i) {
    e[i] = std::fabs(Dot(plane.normal, points[i]) - plane.offset) * std::sqrt(weights[i]);
  }
  return e;
}

// The k-th smallest of the values of the points with weight (k from 0).
double Smallest(const std::vector<double>& e, const std::vector<double>& weights, std::size_t k) {
  std::vector<double> kept;
  for (std::size_t i = 0; i < e.size(); ++i) {
    if (weights[i] > 0) kept.push_back(e[i]);
  }
  if (kept.empty()) return 0;
  k = std::min(k, kept.size() - 1);
  std::nth_element(kept.begin(), kept.begin() + static_cast<std::ptrdiff_t>(k), kept.end());
  return kept[k];
}

// The median of the values of the points with weight.
double Median(const std::vector<double>& e, const std::vector<double>& weights) {
  const std::size_t n = static_cast<std::size_t>(
      std::count_if(weights.begin(), weights.end(), [](double w) { return w > 0; }));
  if (n == 0) return 0;
  return 0.5 * (Smallest(e, weights, (n - 1) / 2) + Smallest(e, weights, n / 2));
}

// The inverse of a symmetric 3 x 3 matrix; false when it is singular.
bool Invert(const double m[9], double out[9]) {
  const double c00 = m[4] * m[8] - m[5] * m[7], c01 = m[5] * m[6] - m[3] * m[8],
               c02 = m[3] * m[7] - m[4] * m[6];
  const double det = m[0] * c00 + m[1] * c01 + m[2] * c02;
  double scale = 0;
  for (int i = 0; i < 9; ++i) scale = std::fmax(scale, std::fabs(m[i]));
  if (!(std::fabs(det) > 1e-14 * scale * scale * scale)) return false;
  out[0] = c00 / det;
  out[1] = (m[2] * m[7] - m[1] * m[8]) / det;
  out[2] = (m[1] * m[5] - m[2] * m[4]) / det;
  out[3] = c01 / det;
  out[4] = (m[0] * m[8] - m[2] * m[6]) / det;
  out[5] = (m[2] * m[3] - m[0] * m[5]) / det;
  out[6] = c02 / det;
  out[7] = (m[1] * m[6] - m[0] * m[7]) / det;
  out[8] = (m[0] * m[4] - m[1] * m[3]) / det;
  return true;
}

// F C F' for 3 x 3 matrices.
void Carry(const double f[9], const double c[9], double out[9]) {
  double fc[9] = {};
  for (int i = 0; i < 3; ++i) {
    for (int j = 0; j < 3; ++j) {
      for (int k = 0; k < 3; ++k) fc[3 * i + j] += f[3 * i + k] * c[3 * k + j];
    }
  }
  for (int i = 0; i < 3; ++i) {
    for (int j = 0; j < 3; ++j) {
      out[3 * i + j] = 0;
      for (int k = 0; k < 3; ++k) out[3 * i + j] += fc[3 * i + k] * f[3 * j + k];
    }
  }
}

// The covariance of yaw, roll and offset of the fit through the points
// with weights w (final), from their spread about it.
void FitCovariance(const std::vector<Vec3>& points, const std::vector<double>& w,
                   const std::vector<double>& factors, const Plane& plane, double out[9]) {
  const Vec3 n = plane.normal;
  const Vec3 other = std::fabs(n.x) < 0.9 ? Vec3{1, 0, 0} : Vec3{0, 0, 1};
  Vec3 e1 = Cross(n, other);
  e1 = (1.0 / std::sqrt(Dot(e1, e1))) * e1;
  const Vec3 e2 = Cross(n, e1);
  double m[9] = {}, squares = 0, count = 0;
  for (std::size_t i = 0; i < points.size(); ++i) {
    if (!(w[i] > 0)) continue;
    const double j[3] = {Dot(e1, points[i]), Dot(e2, points[i]), -1};
    for (int a = 0; a < 3; ++a) {
      for (int b = 0; b < 3; ++b) m[3 * a + b] += w[i] * j[a] * j[b];
    }
    const double r = Dot(n, points[i]) - plane.offset;
    squares += w[i] * r * r;
    count += factors[i];
  }
  double inverse[9];
  if (count <= 3 || !Invert(m, inverse)) {
    for (int i = 0; i < 9; ++i) out[i] = std::numeric_limits<double>::infinity();
    return;
  }
  const double variance = squares / (count - 3);
  double c[9];
  for (int i = 0; i < 9; ++i) c[i] = variance * inverse[i];
  // d yaw, d roll (degrees) per turn a, b of the normal; the offset is d.
  const double across = n.x * n.x + n.y * n.y, degrees = 180.0 / kPi;
  const double upright = std::sqrt(std::fmax(1e-300, 1 - n.z * n.z));
  const double f[9] = {degrees * (-n.y * e1.x + n.x * e1.y) / across,
                       degrees * (-n.y * e2.x + n.x * e2.y) / across,
                       0,
                       degrees * e1.z / upright,
                       degrees * e2.z / upright,
                       0,
                       0,
                       0,
                       1};
  Carry(f, c, out);
}

}  // namespace

RobustPlane FitPlaneRobust(const std::vector<Vec3>& points, const std::vector<double>& weights,
                           const RobustOptions& options) {
  RobustPlane out;
  const std::vector<double> w = weights.empty() ? std::vector<double>(points.size(), 1.0) : weights;
  PlaneFit fit = FitPlane(points, w);
  if (!fit.ok) return out;

  // The biweight, from the least-squares plane, until the plane stays.
  std::vector<double> factors(points.size(), 1.0), robust(points.size());
  for (int round = 0; round < options.max_rounds; ++round) {
    const std::vector<double> e = Distances(points, w, fit.plane);
    out.scale = std::fmax(options.min_scale, 1.4826 * Median(e, w));
    for (std::size_t i = 0; i < points.size(); ++i) {
      const double x = e[i] / (options.tukey * out.scale);
      factors[i] = w[i] > 0 && x < 1 ? (1 - x * x) * (1 - x * x) : 0.0;
      robust[i] = w[i] * factors[i];
    }
    const PlaneFit next = FitPlane(points, robust);
    if (!next.ok) break;
    const bool still = std::fabs(Dot(next.plane.normal, fit.plane.normal) - 1) < 1e-15 &&
                       std::fabs(next.plane.offset - fit.plane.offset) < 1e-12;
    fit = next;
    if (still) break;
  }

  // The inliers' fit, for its figures, and the covariance.
  std::vector<Vec3> kept;
  std::vector<double> kept_weights;
  for (std::size_t i = 0; i < points.size(); ++i) {
    if (robust[i] > 0) {
      kept.push_back(points[i]);
      kept_weights.push_back(robust[i]);
    } else if (w[i] > 0) {
      ++out.outliers;
    }
  }
  out.inliers = static_cast<int>(kept.size());
  out.fit = FitPlane(kept, kept_weights);
  out.factors = factors;
  if (!out.fit.ok) return out;
  FitCovariance(points, robust, factors, out.fit.plane, out.covariance);
  out.sigma = {std::sqrt(out.covariance[0]), std::sqrt(out.covariance[4]),
               std::sqrt(out.covariance[8])};
  return out;
}

bool CameraCovariance(const CameraModel& camera,
                      const std::function<bool(const CameraModel&, PlaneAngles*)>& refit,
                      double covariance[9]) {
  for (int i = 0; i < 9; ++i) covariance[i] = 0;
  CameraModel moved = camera;
  struct Value {
    double* value;
    double sigma;
  };
  std::vector<Value> values;
  if (camera.lens_sigma_known) {
    Intrinsics& k = moved.intrinsics;
    Distortion& d = moved.distortion;
    const Intrinsics& sk = camera.intrinsics_sigma;
    const Distortion& sd = camera.distortion_sigma;
    values.insert(values.end(), {{&k.fx, sk.fx},
                                 {&k.fy, sk.fy},
                                 {&k.cx, sk.cx},
                                 {&k.cy, sk.cy},
                                 {&d.k1, sd.k1},
                                 {&d.k2, sd.k2},
                                 {&d.p1, sd.p1},
                                 {&d.p2, sd.p2},
                                 {&d.k3, sd.k3}});
  }
  if (camera.pose_sigma_known) {
    CameraPose& p = moved.pose;
    const CameraPose& s = camera.pose_sigma;
    values.insert(values.end(), {{&p.x, s.x},
                                 {&p.y, s.y},
                                 {&p.height, s.height},
                                 {&p.yaw, s.yaw},
                                 {&p.pitch, s.pitch},
                                 {&p.roll, s.roll}});
  }
  for (const Value& v : values) {
    if (!(v.sigma > 0)) continue;
    const double kept = *v.value;
    PlaneAngles up, down;
    *v.value = kept + v.sigma;
    const bool a = refit(moved, &up);
    *v.value = kept - v.sigma;
    const bool b = refit(moved, &down);
    *v.value = kept;
    if (!a || !b) return false;
    const double change[3] = {(up.yaw - down.yaw) / 2, (up.roll - down.roll) / 2,
                              (up.offset - down.offset) / 2};
    for (int i = 0; i < 3; ++i) {
      for (int j = 0; j < 3; ++j) covariance[3 * i + j] += change[i] * change[j];
    }
  }
  return true;
}

PlaneSigma Combine(const double fit[9], const double camera[9]) {
  return {std::sqrt(fit[0] + camera[0]), std::sqrt(fit[4] + camera[4]),
          std::sqrt(fit[8] + camera[8])};
}

}  // namespace calc
