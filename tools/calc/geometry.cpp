#include "tools/calc/geometry.h"

#include <cmath>

namespace calc {
namespace {

constexpr double kTiny = 1e-12;

}  // namespace

CameraGeometry::CameraGeometry(const Camera& camera) : camera_(camera) {
  const double s = std::sin(camera.pitch * kPi / 180.0);
  const double c = std::cos(camera.pitch * kPi / 180.0);
  right_ = {0, -1, 0};
  down_ = {-s, 0, -c};
  forward_ = {c, 0, -s};
  centre_ = {0, 0, camera.height};
}

Vec3 CameraGeometry::Ray(Pixel p) const {
  const double a = (p.u - camera_.cx) / camera_.fx;
  const double b = (p.v - camera_.cy) / camera_.fy;
  return a * right_ + b * down_ + forward_;
}

bool CameraGeometry::Project(Vec3 q, Pixel* p) const {
  const Vec3 d = q - centre_;
  const double depth = Dot(forward_, d);
  if (!(depth > kTiny)) return false;
  p->u = camera_.cx + camera_.fx * Dot(right_, d) / depth;
  p->v = camera_.cy + camera_.fy * Dot(down_, d) / depth;
  return true;
}

Located Locate(const CameraGeometry& geometry, const Target& target, Pixel p) {
  const Vec3 c = geometry.centre();
  const Vec3 r = geometry.Ray(p);
  Located out;
  if (r.z < -kTiny) {
    const double t = -c.z / r.z;
    const Vec3 floor = c + t * r;
    if (floor.x > 0 && floor.x <= target.distance) {
      out.surface = Surface::kFloor;
      out.point = floor;
      out.point.z = 0;
      return out;
    }
  }
  if (r.x > kTiny) {
    const double t = target.distance / r.x;
    const Vec3 wall = c + t * r;
    if (wall.z >= 0 && wall.z <= target.wall_height) {
      out.surface = Surface::kWall;
      out.point = wall;
      out.point.x = target.distance;
    }
  }
  return out;
}

double FootRow(const CameraGeometry& geometry, double distance, double u) {
  Pixel a, b;
  if (!geometry.Project({distance, 1, 0}, &a) || !geometry.Project({distance, -1, 0}, &b)) {
    return -1e9;  // the foot lies behind the camera: everything in view is wall
  }
  if (std::fabs(b.u - a.u) < kTiny) return a.v;
  return a.v + (u - a.u) * (b.v - a.v) / (b.u - a.u);
}

bool Triangulate(const CameraGeometry& geometry, const Plane& plane, Pixel p, Vec3* point) {
  const Vec3 c = geometry.centre();
  const Vec3 r = geometry.Ray(p);
  const double across = Dot(plane.normal, r);
  if (std::fabs(across) < kTiny) return false;
  const double t = (plane.offset - Dot(plane.normal, c)) / across;
  if (!(t > 0)) return false;
  *point = c + t * r;
  return true;
}

bool ColumnAt(const CameraGeometry& geometry, const Plane& plane, Surface surface,
              const Target& target, double v, double* u) {
  const Vec3 n = plane.normal;
  if (std::fabs(n.y) < kTiny) return false;
  Vec3 a, b;
  if (surface == Surface::kFloor) {
    // n.x x + n.y y = offset, z = 0
    const double x1 = target.distance / 2, x2 = target.distance;
    a = {x1, (plane.offset - n.x * x1) / n.y, 0};
    b = {x2, (plane.offset - n.x * x2) / n.y, 0};
  } else if (surface == Surface::kWall) {
    // n.y y + n.z z = offset - n.x distance, x = distance; both points are
    // in front of the camera (no higher than the camera itself).
    const double d = target.distance, z2 = geometry.centre().z;
    a = {d, (plane.offset - n.x * d) / n.y, 0};
    b = {d, (plane.offset - n.x * d - n.z * z2) / n.y, z2};
  } else {
    return false;
  }
  Pixel pa, pb;
  if (!geometry.Project(a, &pa) || !geometry.Project(b, &pb)) return false;
  if (std::fabs(pb.v - pa.v) < 1e-9) return false;
  *u = pa.u + (v - pa.v) * (pb.u - pa.u) / (pb.v - pa.v);
  return true;
}

}  // namespace calc
