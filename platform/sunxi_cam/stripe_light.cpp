#include "platform/sunxi_cam/stripe_light.h"

#include <algorithm>
#include <climits>
#include <cmath>
#include <vector>

#include "platform/sunxi_cam/fixed_math.h"

namespace sunxi_cam::sim {
namespace {

constexpr double kFloorEnd = 1.0e5;    // where an open floor ends
constexpr double kProfileReach = 5.0;  // standard deviations of a profile worked out

Vec3 Normal(const LaserModel& laser) {
  const double yaw = fixed::Radians(laser.yaw), roll = fixed::Radians(laser.roll);
  return {-fixed::Sin(yaw) * fixed::Cos(roll), fixed::Cos(yaw) * fixed::Cos(roll),
          fixed::Sin(roll)};
}

// The sheet's standard deviation (cm) at range r cm from the emitter.
double SheetSigma(const LaserLight& light, double r) {
  const double w = light.width / 10.0 / 4.0;
  const double spread = light.divergence / 1000.0 / 4.0 * r;
  return std::sqrt(w * w + spread * spread);
}

// The picture's edges seen through the lens, as a box of normalised
// points, widened by a tenth of its size on each side: stripes are followed
// that far outside the picture, for the light they throw into it.
struct Box {
  double x0, x1, y0, y1;
};
Box ViewBox(const Lens& lens) {
  Box box{1e300, -1e300, 1e300, -1e300};
  auto take = [&](double u, double v) {
    double x = 0, y = 0;
    if (!lens.Unproject(u, v, &x, &y)) return;
    box = {std::min(box.x0, x), std::max(box.x1, x), std::min(box.y0, y), std::max(box.y1, y)};
  };
  for (int u = 0; u <= kWidth; u += 8) {
    take(u - 0.5, -0.5);
    take(u - 0.5, kHeight - 0.5);
  }
  for (int v = 0; v <= kHeight; v += 8) {
    take(-0.5, v - 0.5);
    take(kWidth - 0.5, v - 0.5);
  }
  const double wx = 0.1 * (box.x1 - box.x0), wy = 0.1 * (box.y1 - box.y0);
  const double r = std::sqrt(lens.valid_r2());
  return {std::max(box.x0 - wx, -r), std::min(box.x1 + wx, r), std::max(box.y0 - wy, -r),
          std::min(box.y1 + wy, r)};
}

// Clips the segment a..b to the box (Liang-Barsky); false when none is left.
bool Clip(const Box& box, double* ax, double* ay, double* bx, double* by) {
  double t0 = 0, t1 = 1;
  const double dx = *bx - *ax, dy = *by - *ay;
  const double p[4] = {-dx, dx, -dy, dy};
  const double q[4] = {*ax - box.x0, box.x1 - *ax, *ay - box.y0, box.y1 - *ay};
  for (int i = 0; i < 4; ++i) {
    if (p[i] == 0) {
      if (q[i] < 0) return false;
      continue;
    }
    const double t = q[i] / p[i];
    if (p[i] < 0) {
      t0 = std::max(t0, t);
    } else {
      t1 = std::min(t1, t);
    }
  }
  if (!(t0 <= t1)) return false;
  const double x0 = *ax, y0 = *ay;
  *ax = x0 + t0 * dx;
  *ay = y0 + t0 * dy;
  *bx = x0 + t1 * dx;
  *by = y0 + t1 * dy;
  return true;
}

// The columns of each row to work out.
struct Bands {
  int lo[kHeight];
  int hi[kHeight];
  Bands() {
    std::fill(lo, lo + kHeight, INT_MAX);
    std::fill(hi, hi + kHeight, INT_MIN);
  }
  void Mark(double u0, double u1, double v0, double v1, double reach) {
    const double top = std::floor(std::min(v0, v1) - reach);
    const double bottom = std::ceil(std::max(v0, v1) + reach);
    const double left = std::floor(std::min(u0, u1) - reach);
    const double right = std::ceil(std::max(u0, u1) + reach);
    if (!(bottom >= 0 && top <= kHeight - 1 && right >= 0 && left <= kWidth - 1)) return;
    const int r0 = static_cast<int>(std::max(top, 0.0));
    const int r1 = static_cast<int>(std::min(bottom, kHeight - 1.0));
    const int c0 = static_cast<int>(std::max(left, 0.0));
    const int c1 = static_cast<int>(std::min(right, kWidth - 1.0));
    for (int r = r0; r <= r1; ++r) {
      lo[r] = std::min(lo[r], c0);
      hi[r] = std::max(hi[r], c1);
    }
  }
};

// Marks the picture rows and columns within reach of the 3D segment a..b.
void MarkSegment(const Scene& scene, const Lens& lens, const LaserSheet& sheet, const Box& box,
                 Vec3 a, Vec3 b, Bands* bands) {
  Vec3 ca = lens.ToCamera(a), cb = lens.ToCamera(b);
  if (ca.z < kNearestDrawn && cb.z < kNearestDrawn) return;
  if (ca.z < kNearestDrawn) ca = ca + ((kNearestDrawn - ca.z) / (cb.z - ca.z)) * (cb - ca);
  if (cb.z < kNearestDrawn) cb = cb + ((kNearestDrawn - cb.z) / (ca.z - cb.z)) * (ca - cb);
  double ax = ca.x / ca.z, ay = ca.y / ca.z, bx = cb.x / cb.z, by = cb.y / cb.z;
  if (!Clip(box, &ax, &ay, &bx, &by)) return;
  const CameraModel& m = scene.camera;
  const double lx = (bx - ax) * m.fx, ly = (by - ay) * m.fy;
  const double length = std::sqrt(lx * lx + ly * ly);
  if (!(length >= 0)) return;  // NaN: nothing to follow
  const int n = static_cast<int>(std::min(std::ceil(length / 0.5), 20000.0)) + 1;
  bool have_last = false;
  double last_u = 0, last_v = 0, last_reach = 0;
  for (int i = 0; i <= n; ++i) {
    const double t = static_cast<double>(i) / n;
    const double x = ax + t * (bx - ax), y = ay + t * (by - ay);
    if (!(x * x + y * y < lens.valid_r2())) {
      have_last = false;
      continue;
    }
    double u = 0, v = 0;
    lens.Project(x, y, &u, &v);
    double reach = 2;
    const Jacobian2 j = lens.JacobianAt(x, y);
    if (j.uu * j.vy - j.uy * j.vx > 0) {
      const StripeSample s = StripeAt(scene, sheet, SeenAt(scene, lens, x, y, Inverse(j)));
      if (s.lit || s.sigma > 0) reach = kProfileReach * s.sigma + 2;
    }
    if (have_last) bands->Mark(last_u, u, last_v, v, std::max(reach, last_reach));
    have_last = true;
    last_u = u;
    last_v = v;
    last_reach = reach;
  }
}

}  // namespace

Jacobian2 Inverse(const Jacobian2& j) {
  const double det = j.uu * j.vy - j.uy * j.vx;
  // dx/du, dx/dv, dy/du, dy/dv
  return {j.vy / det, -j.uy / det, -j.vx / det, j.uu / det};
}

SurfacePoint SeenAt(const Scene& scene, const Lens& lens, double x, double y,
                    const Jacobian2& inverse) {
  SurfacePoint seen;
  const Vec3 c = lens.centre();
  const Vec3 d = lens.ToRobot({x, y, 1.0});
  const Vec3 dd_du = lens.ToRobot({inverse.uu, inverse.vx, 0.0});
  const Vec3 dd_dv = lens.ToRobot({inverse.uy, inverse.vy, 0.0});
  double t = 0, dt_du = 0, dt_dv = 0;
  if (scene.wall && d.x > 0) {
    const double tw = scene.distance / d.x;
    const double z = c.z + tw * d.z;
    if (z >= 0 && z <= scene.wall_height) {
      seen.wall = true;
      t = tw;
      dt_du = -scene.distance * dd_du.x / (d.x * d.x);
      dt_dv = -scene.distance * dd_dv.x / (d.x * d.x);
    }
  }
  if (!seen.wall) {
    if (!(d.z < 0)) return seen;
    t = -c.z / d.z;
    // The floor beyond the wall (seen over its top) is in the wall's shadow.
    if (scene.wall && c.x + t * d.x > scene.distance) return seen;
    dt_du = c.z * dd_du.z / (d.z * d.z);
    dt_dv = c.z * dd_dv.z / (d.z * d.z);
  }
  if (!(t >= kNearestDrawn)) return seen;
  seen.hit = true;
  seen.p = c + t * d;
  seen.depth = t;  // the ray's direction has depth 1
  seen.dp_du = dt_du * d + t * dd_du;
  seen.dp_dv = dt_dv * d + t * dd_dv;
  return seen;
}

double BlurSigma(const Scene& scene, double depth) {
  const Optics& o = scene.optics;
  const double f = scene.camera.fx * o.pixel_size / 1000.0;  // mm
  const double z = depth * 10.0, zf = o.focus * 10.0;
  const double c = (f / o.f_number) * f * std::fabs(z - zf) / (z * (zf - f));
  return c / 4.0 / (o.pixel_size / 1000.0);
}

LaserSheet SheetOf(const LaserModel& laser, const LaserLight& light) {
  LaserSheet sheet;
  sheet.on = laser.on;
  sheet.x = laser.x;
  sheet.normal = Normal(laser);
  sheet.emitter = {laser.x, laser.y, laser.z};
  sheet.offset = Dot(sheet.normal, sheet.emitter);
  sheet.sheet10 = SheetSigma(light, 10.0);
  return sheet;
}

StripeSample StripeAt(const Scene& scene, const LaserSheet& sheet, const SurfacePoint& seen) {
  StripeSample out;
  if (!seen.hit || !sheet.on || seen.p.x < sheet.x) return out;
  const Vec3& n = sheet.normal;
  const Vec3& emitter = sheet.emitter;
  const double s = Dot(n, seen.p) - sheet.offset;
  const double gu = Dot(n, seen.dp_du), gv = Dot(n, seen.dp_dv);
  const double g = std::sqrt(gu * gu + gv * gv);  // cm of s per pixel
  if (!(g > 0)) return out;
  const Vec3 ray = seen.p - emitter;
  const double r = std::sqrt(Dot(ray, ray));
  if (!(r > 0)) return out;
  const LaserLight& light = scene.light;
  const double sheet_cm = SheetSigma(light, r);
  const double blur = BlurSigma(scene, seen.depth);
  out.distance = s / g;
  out.sheet = sheet_cm / g;
  out.sigma = std::sqrt(out.sheet * out.sheet + blur * blur + 1.0 / 12.0);
  const double incidence = std::fabs(seen.wall ? ray.x : ray.z) / r;
  const double peak = light.power * (10.0 / r) * (sheet.sheet10 / sheet_cm) * incidence;
  const double q = out.distance / out.sigma;
  out.light = peak * (out.sheet / out.sigma) * fixed::Exp(-0.5 * q * q);
  out.lit = true;
  return out;
}

void AddStripeLight(const Scene& scene, const Lens& lens, const LaserModel& laser,
                    const double* speckle, double* light, bool whole_picture) {
  if (!laser.on) return;
  const LaserSheet sheet = SheetOf(laser, scene.light);
  const Vec3 n = sheet.normal;
  const double offset = sheet.offset;
  const Box box = ViewBox(lens);
  Bands bands;
  const double far_x = scene.wall ? scene.distance : kFloorEnd;
  if (far_x > laser.x) {
    auto floor_at = [&](double x) { return Vec3{x, (offset - n.x * x) / n.y, 0}; };
    MarkSegment(scene, lens, sheet, box, floor_at(laser.x), floor_at(far_x), &bands);
  }
  if (scene.wall && scene.distance > laser.x) {
    const double d = scene.distance;
    auto wall_at = [&](double z) { return Vec3{d, (offset - n.x * d - n.z * z) / n.y, z}; };
    MarkSegment(scene, lens, sheet, box, wall_at(0), wall_at(scene.wall_height), &bands);
  }
  if (whole_picture) {
    std::fill(bands.lo, bands.lo + kHeight, 0);
    std::fill(bands.hi, bands.hi + kHeight, kWidth - 1);
  }
  const int shift = scene.second_stripe;
  for (int v = 0; v < kHeight; ++v) {
    if (bands.lo[v] > bands.hi[v]) continue;
    if (v >= scene.gap_from && v <= scene.gap_to) continue;
    for (int u = bands.lo[v]; u <= bands.hi[v]; ++u) {
      double x = 0, y = 0;
      if (!lens.Unproject(u, v, &x, &y)) continue;
      const Jacobian2 j = lens.JacobianAt(x, y);
      const StripeSample s = StripeAt(scene, sheet, SeenAt(scene, lens, x, y, Inverse(j)));
      if (!s.lit) continue;
      for (int copy = 0; copy < (shift > 0 ? 2 : 1); ++copy) {
        const int target = u + copy * shift;
        if (target >= kWidth) continue;
        const std::size_t i = static_cast<std::size_t>(v) * kWidth + target;
        light[i] += speckle ? s.light * speckle[i] : s.light;
      }
    }
  }
}

}  // namespace sunxi_cam::sim
