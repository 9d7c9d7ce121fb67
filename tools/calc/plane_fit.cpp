#include "tools/calc/plane_fit.h"

#include <cmath>
#include <utility>

namespace calc {
void SymmetricEigen(const double m[9], double values[3], Vec3 vectors[3]) {
  double a[3][3], v[3][3] = {{1, 0, 0}, {0, 1, 0}, {0, 0, 1}};
  for (int i = 0; i < 3; ++i) {
    for (int j = 0; j < 3; ++j) a[i][j] = m[3 * i + j];
  }
  for (int sweep = 0; sweep < 50; ++sweep) {
    const double off = a[0][1] * a[0][1] + a[0][2] * a[0][2] + a[1][2] * a[1][2];
    const double diag = a[0][0] * a[0][0] + a[1][1] * a[1][1] + a[2][2] * a[2][2];
    if (off <= 1e-30 * diag || off == 0) break;
    for (int p = 0; p < 2; ++p) {
      for (int q = p + 1; q < 3; ++q) {
        if (a[p][q] == 0) continue;
        // The rotation that zeroes a[p][q].
        const double theta = (a[q][q] - a[p][p]) / (2 * a[p][q]);
        const double t =
            (theta >= 0 ? 1.0 : -1.0) / (std::fabs(theta) + std::sqrt(theta * theta + 1));
        const double c = 1 / std::sqrt(t * t + 1), s = t * c;
        for (int k = 0; k < 3; ++k) {
          const double akp = a[k][p], akq = a[k][q];
          a[k][p] = c * akp - s * akq;
          a[k][q] = s * akp + c * akq;
        }
        for (int k = 0; k < 3; ++k) {
          const double apk = a[p][k], aqk = a[q][k];
          a[p][k] = c * apk - s * aqk;
          a[q][k] = s * apk + c * aqk;
        }
        for (int k = 0; k < 3; ++k) {
          const double vkp = v[k][p], vkq = v[k][q];
          v[k][p] = c * vkp - s * vkq;
          v[k][q] = s * vkp + c * vkq;
        }
      }
    }
  }
  int order[3] = {0, 1, 2};
  for (int i = 0; i < 3; ++i) {
    for (int j = i + 1; j < 3; ++j) {
      if (a[order[j]][order[j]] < a[order[i]][order[i]]) std::swap(order[i], order[j]);
    }
  }
  for (int i = 0; i < 3; ++i) {
    const int k = order[i];
    values[i] = a[k][k];
    vectors[i] = {v[0][k], v[1][k], v[2][k]};
  }
}

PlaneFit FitPlane(const std::vector<Vec3>& points, const std::vector<double>& weights) {
  PlaneFit fit;
  if (points.size() < 3) return fit;
  auto weight = [&](std::size_t i) { return weights.empty() ? 1.0 : weights[i]; };
  double total = 0;
  Vec3 centroid;
  for (std::size_t i = 0; i < points.size(); ++i) {
    total += weight(i);
    centroid = centroid + weight(i) * points[i];
  }
  if (!(total > 0)) return fit;
  centroid = (1.0 / total) * centroid;
  double m[9] = {};
  for (std::size_t i = 0; i < points.size(); ++i) {
    const Vec3 d = points[i] - centroid;
    const double w = weight(i);
    m[0] += w * d.x * d.x;
    m[1] += w * d.x * d.y;
    m[2] += w * d.x * d.z;
    m[4] += w * d.y * d.y;
    m[5] += w * d.y * d.z;
    m[8] += w * d.z * d.z;
  }
  m[3] = m[1];
  m[6] = m[2];
  m[7] = m[5];
  for (double& e : m) e /= total;
  double values[3];
  Vec3 vectors[3];
  SymmetricEigen(m, values, vectors);
  Vec3 n = vectors[0];
  const double norm = std::sqrt(Dot(n, n));
  n = (1.0 / norm) * n;
  if (n.y < 0) n = -1.0 * n;
  fit.plane.normal = n;
  fit.plane.offset = Dot(n, centroid);
  double squares = 0;
  for (std::size_t i = 0; i < points.size(); ++i) {
    const double distance = Dot(n, points[i]) - fit.plane.offset;
    squares += weight(i) * distance * distance;
    fit.worst = std::fmax(fit.worst, std::fabs(distance));
  }
  fit.rms = std::sqrt(squares / total);
  fit.spread = std::sqrt(std::fmax(values[1], 0.0));
  fit.length = std::sqrt(std::fmax(values[2], 0.0));
  fit.ok = true;
  return fit;
}

PlaneAngles AnglesOf(const Plane& plane) {
  const Vec3 n = plane.normal;
  PlaneAngles angles;
  angles.yaw = Degrees(std::atan2(-n.x, n.y));
  angles.roll = Degrees(std::asin(std::fmax(-1.0, std::fmin(1.0, n.z))));
  angles.offset = plane.offset;
  return angles;
}

Plane PlaneFromAngles(const PlaneAngles& angles) {
  const double yaw = Radians(angles.yaw), roll = Radians(angles.roll);
  Plane plane;
  plane.normal = {-std::sin(yaw) * std::cos(roll), std::cos(yaw) * std::cos(roll), std::sin(roll)};
  plane.offset = angles.offset;
  return plane;
}

double AngleBetween(const Plane& a, const Plane& b) {
  // atan2 of |a x b| and a . b keeps small angles exact.
  const Vec3 p = a.normal, q = b.normal;
  const Vec3 cross{p.y * q.z - p.z * q.y, p.z * q.x - p.x * q.z, p.x * q.y - p.y * q.x};
  return Degrees(std::atan2(std::sqrt(Dot(cross, cross)), std::fabs(Dot(p, q))));
}

}  // namespace calc
