#include "platform/sunxi_cam/scene.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <stdexcept>
#include <type_traits>

namespace sunxi_cam::sim {
namespace {

constexpr double kPi = 3.14159265358979323846;
constexpr double kNear = 0.5;   // nothing closer to the camera than this is drawn
constexpr double kFar = 1.0e5;  // where an open floor ends
constexpr double kTiny = 1e-9;

double Radians(double degrees) { return degrees * kPi / 180.0; }

struct Vec3 {
  double x, y, z;
};
Vec3 operator-(Vec3 a, Vec3 b) { return {a.x - b.x, a.y - b.y, a.z - b.z}; }
Vec3 operator+(Vec3 a, Vec3 b) { return {a.x + b.x, a.y + b.y, a.z + b.z}; }
Vec3 operator*(double k, Vec3 a) { return {k * a.x, k * a.y, k * a.z}; }
double Dot(Vec3 a, Vec3 b) { return a.x * b.x + a.y * b.y + a.z * b.z; }

// The camera sits at (0, 0, height) and looks ahead, tilted down by pitch.
// Its axes: right (picture columns), down (picture rows), forward (depth).
class Projector {
 public:
  explicit Projector(const CameraModel& camera) : camera_(camera) {
    const double s = std::sin(Radians(camera.pitch));
    const double c = std::cos(Radians(camera.pitch));
    right_ = {0, -1, 0};
    down_ = {-s, 0, -c};
    forward_ = {c, 0, -s};
    centre_ = {0, 0, camera.height};
  }
  Vec3 ToCamera(Vec3 p) const {
    const Vec3 d = p - centre_;
    return {Dot(right_, d), Dot(down_, d), Dot(forward_, d)};
  }
  Point2 Project(Vec3 c) const {
    return {camera_.cx + camera_.fx * c.x / c.z, camera_.cy + camera_.fy * c.y / c.z};
  }
  // The part of the segment in front of the camera, projected; false if none.
  bool ProjectSegment(Vec3 a, Vec3 b, Segment2* out) const {
    Vec3 ca = ToCamera(a), cb = ToCamera(b);
    if (ca.z < kNear && cb.z < kNear) return false;
    if (ca.z < kNear) ca = ca + ((kNear - ca.z) / (cb.z - ca.z)) * (cb - ca);
    if (cb.z < kNear) cb = cb + ((kNear - cb.z) / (ca.z - cb.z)) * (ca - cb);
    *out = {Project(ca), Project(cb)};
    return true;
  }

 private:
  CameraModel camera_;
  Vec3 right_{}, down_{}, forward_{}, centre_{};
};

// Unit normal of the laser's plane.
Vec3 PlaneNormal(const LaserModel& laser) {
  const double yaw = Radians(laser.yaw), roll = Radians(laser.roll);
  return {-std::sin(yaw) * std::cos(roll), std::cos(yaw) * std::cos(roll), std::sin(roll)};
}

// Distance from p to the segment.
double Distance(Point2 p, const Segment2& s) {
  const double dx = s.b.u - s.a.u, dy = s.b.v - s.a.v;
  const double length2 = dx * dx + dy * dy;
  double t = length2 > kTiny ? ((p.u - s.a.u) * dx + (p.v - s.a.v) * dy) / length2 : 0.0;
  t = std::clamp(t, 0.0, 1.0);
  const double ex = p.u - (s.a.u + t * dx), ey = p.v - (s.a.v + t * dy);
  return std::sqrt(ex * ex + ey * ey);
}

// Brightness of a stripe at `d` pixels from its centre line.
double Profile(const StripeLook& look, double d) {
  const double beyond = d - look.core / 2;
  if (beyond <= 0) return look.peak;
  if (look.edge <= 0) return 0;
  return look.peak * std::exp(-beyond * beyond / (2 * look.edge * look.edge));
}

// Draws the segment into `light`, keeping the brighter value where stripes meet.
// The pixel index nearest `x` within [low, high]; projected points far
// outside the picture (a segment nearly along the view) must not reach an
// int conversion unclamped.
int PixelWithin(double x, int low, int high) {
  if (!(x > low)) return low;  // NaN too
  if (x > high) return high;
  return static_cast<int>(x);
}

void DrawSegment(const Segment2& s, const StripeLook& look, int gap_from, int gap_to,
                 std::vector<float>* light) {
  const double reach = look.core / 2 + 5 * look.edge + 1;
  const int u0 = PixelWithin(std::floor(std::min(s.a.u, s.b.u) - reach), 0, kWidth);
  const int u1 = PixelWithin(std::ceil(std::max(s.a.u, s.b.u) + reach), -1, kWidth - 1);
  const int v0 = PixelWithin(std::floor(std::min(s.a.v, s.b.v) - reach), 0, kHeight);
  const int v1 = PixelWithin(std::ceil(std::max(s.a.v, s.b.v) + reach), -1, kHeight - 1);
  for (int v = v0; v <= v1; ++v) {
    if (v >= gap_from && v <= gap_to) continue;
    float* row = light->data() + static_cast<std::size_t>(v) * kWidth;
    for (int u = u0; u <= u1; ++u) {
      const double d = Distance({static_cast<double>(u), static_cast<double>(v)}, s);
      if (d > reach) continue;
      row[u] = std::max(row[u], static_cast<float>(Profile(look, d)));
    }
  }
}

uint64_t SplitMix(uint64_t x) {
  x += 0x9E3779B97F4A7C15ull;
  x = (x ^ (x >> 30)) * 0xBF58476D1CE4E5B9ull;
  x = (x ^ (x >> 27)) * 0x94D049BB133111EBull;
  return x ^ (x >> 31);
}

// A fixed noise value of mean 0 and standard deviation 1 for each pixel: the
// sum of four uniform values, rescaled.
double Noise(uint64_t seed, unsigned lasers, std::size_t pixel) {
  uint64_t bits = SplitMix(seed ^ (static_cast<uint64_t>(lasers) << 56) ^ pixel);
  double sum = 0;
  for (int i = 0; i < 4; ++i) {
    sum += static_cast<double>(bits & 0xFFFF) / 65535.0;
    bits >>= 16;
  }
  return (sum - 2.0) / std::sqrt(4.0 / 12.0);
}

void Check(bool ok, const std::string& member, const char* rule) {
  if (!ok) throw std::invalid_argument("camera sim: " + member + " must be " + rule);
}

// low <= x <= high (false for NaN).
bool Within(double x, double low, double high) { return x >= low && x <= high; }

void CheckLaser(const LaserModel& laser, const std::string& name) {
  Check(Within(laser.x, -1000, 1000), name + ".x", "between -1000 and 1000");
  Check(Within(laser.y, -1000, 1000), name + ".y", "between -1000 and 1000");
  Check(Within(laser.z, 0, 1000), name + ".z", "between 0 and 1000");
  Check(laser.yaw > -80 && laser.yaw < 80, name + ".yaw", "between -80 and 80");
  Check(laser.roll > -80 && laser.roll < 80, name + ".roll", "between -80 and 80");
}

}  // namespace

std::vector<Segment2> StripeSegments(const Scene& scene, const LaserModel& laser) {
  std::vector<Segment2> segments;
  const Projector projector(scene.camera);
  const Vec3 n = PlaneNormal(laser);
  const Vec3 emitter{laser.x, laser.y, laser.z};
  const double offset = Dot(n, emitter);  // the plane: n . p = offset
  // The laser lights what lies ahead of its emitter.
  const double near_x = laser.x;
  const double far_x = scene.wall ? scene.distance : kFar;
  if (far_x > near_x) {
    // On the floor (z = 0): n.x x + n.y y = offset.
    auto floor_at = [&](double x) { return Vec3{x, (offset - n.x * x) / n.y, 0}; };
    Segment2 s;
    if (projector.ProjectSegment(floor_at(near_x), floor_at(far_x), &s)) segments.push_back(s);
  }
  if (scene.wall && scene.distance > near_x) {
    // On the wall (x = distance): n.y y + n.z z = offset - n.x distance.
    const double d = scene.distance;
    auto wall_at = [&](double z) { return Vec3{d, (offset - n.x * d - n.z * z) / n.y, z}; };
    Segment2 s;
    if (projector.ProjectSegment(wall_at(0), wall_at(scene.wall_height), &s)) {
      segments.push_back(s);
    }
  }
  return segments;
}

LaserPlane PlaneOf(const LaserModel& laser) {
  const Vec3 n = PlaneNormal(laser);
  return {n.x, n.y, n.z, Dot(n, Vec3{laser.x, laser.y, laser.z})};
}

void ValidateScene(const Scene& scene) {
  const CameraModel& c = scene.camera;
  Check(c.fx > 0 && c.fx <= 100000, "scene.camera.fx", "greater than 0 and at most 100000");
  Check(c.fy > 0 && c.fy <= 100000, "scene.camera.fy", "greater than 0 and at most 100000");
  Check(Within(c.cx, -10000, 10000), "scene.camera.cx", "between -10000 and 10000");
  Check(Within(c.cy, -10000, 10000), "scene.camera.cy", "between -10000 and 10000");
  Check(c.height > 0 && c.height <= 1000, "scene.camera.height", "greater than 0 and at most 1000");
  Check(c.pitch > -80 && c.pitch < 80, "scene.camera.pitch", "between -80 and 80");
  CheckLaser(scene.left, "scene.left_laser");
  CheckLaser(scene.right, "scene.right_laser");
  const StripeLook& s = scene.stripe;
  Check(s.peak >= 0 && s.peak <= 255, "scene.stripe.peak", "between 0 and 255");
  Check(s.core >= 0 && s.core <= 50, "scene.stripe.core", "between 0 and 50");
  Check(s.edge >= 0 && s.edge <= 20, "scene.stripe.edge", "between 0 and 20");
  const Background& b = scene.background;
  Check(b.level >= 0 && b.level <= 255, "scene.background.level", "between 0 and 255");
  Check(b.noise >= 0 && b.noise <= 100, "scene.background.noise", "between 0 and 100");
  Check(b.ambient >= 0 && b.ambient <= 255, "scene.background.ambient", "between 0 and 255");
  Check(scene.distance > 0 && scene.distance <= 10000, "distance",
        "greater than 0 and at most 10000");
  Check(scene.wall_height > 0 && scene.wall_height <= 10000, "scene.wall_height",
        "greater than 0 and at most 10000");
  Check(scene.second_stripe >= 0 && scene.second_stripe < kWidth, "scene.second_stripe",
        "between 0 and 639");
  Check(scene.gap_from <= scene.gap_to, "scene.gap_rows", "[from, to] with from <= to");
  Check(scene.reference_exposure > 0, "scene.reference_exposure", "greater than 0");
  Check(scene.reference_gain > 0, "scene.reference_gain", "greater than 0");
}

namespace {

// Bit-for-bit equality, which NaN and -0 cannot fool.
template <typename T>
bool Same(const T& a, const T& b) {
  static_assert(std::is_arithmetic_v<T>, "members are numbers and flags");
  return std::memcmp(&a, &b, sizeof(T)) == 0;
}

bool SameCamera(const CameraModel& a, const CameraModel& b) {
  return Same(a.fx, b.fx) && Same(a.fy, b.fy) && Same(a.cx, b.cx) && Same(a.cy, b.cy) &&
         Same(a.height, b.height) && Same(a.pitch, b.pitch);
}

bool SameLaser(const LaserModel& a, const LaserModel& b) {
  return Same(a.x, b.x) && Same(a.y, b.y) && Same(a.z, b.z) && Same(a.yaw, b.yaw) &&
         Same(a.roll, b.roll) && Same(a.on, b.on);
}

}  // namespace

bool SameScene(const Scene& a, const Scene& b) {
  // A member added to the scene must be compared here too; the sizes below
  // are the members counted when this was written.
  static_assert(sizeof(Scene) == 248, "compare every scene member");
  static_assert(sizeof(CameraModel) == 6 * sizeof(double), "compare every camera member");
  static_assert(sizeof(LaserModel) == 6 * sizeof(double), "compare every laser member");
  static_assert(sizeof(StripeLook) == 3 * sizeof(double), "compare every stripe member");
  static_assert(sizeof(Background) == 3 * sizeof(double) + sizeof(uint64_t),
                "compare every background member");
  const StripeLook& sa = a.stripe;
  const StripeLook& sb = b.stripe;
  const Background& ba = a.background;
  const Background& bb = b.background;
  return SameCamera(a.camera, b.camera) && SameLaser(a.left, b.left) &&
         SameLaser(a.right, b.right) && Same(sa.peak, sb.peak) && Same(sa.core, sb.core) &&
         Same(sa.edge, sb.edge) && Same(ba.level, bb.level) && Same(ba.noise, bb.noise) &&
         Same(ba.ambient, bb.ambient) && Same(ba.seed, bb.seed) && Same(a.distance, b.distance) &&
         Same(a.wall, b.wall) && Same(a.wall_height, b.wall_height) &&
         Same(a.second_stripe, b.second_stripe) && Same(a.gap_from, b.gap_from) &&
         Same(a.gap_to, b.gap_to) && Same(a.exposure_scaling, b.exposure_scaling) &&
         Same(a.reference_exposure, b.reference_exposure) &&
         Same(a.reference_gain, b.reference_gain);
}

void RenderLuminance(const Scene& scene, unsigned lasers, double scale, uint8_t* out) {
  std::vector<float> light(static_cast<std::size_t>(kWidth) * kHeight, 0.0f);
  auto draw = [&](const LaserModel& laser) {
    if (!laser.on) return;
    for (const Segment2& s : StripeSegments(scene, laser)) {
      DrawSegment(s, scene.stripe, scene.gap_from, scene.gap_to, &light);
      if (scene.second_stripe > 0) {
        const double shift = scene.second_stripe;
        const Segment2 copy{{s.a.u + shift, s.a.v}, {s.b.u + shift, s.b.v}};
        DrawSegment(copy, scene.stripe, scene.gap_from, scene.gap_to, &light);
      }
    }
  };
  if (lasers & 1u) draw(scene.left);
  if (lasers & 8u) draw(scene.right);

  const Background& b = scene.background;
  for (std::size_t i = 0; i < light.size(); ++i) {
    double value = b.level + b.ambient + light[i];
    if (b.noise > 0) value += b.noise * Noise(b.seed, lasers, i);
    value = std::round(value * scale);
    out[i] = value > 0 ? static_cast<uint8_t>(std::min(value, 255.0)) : 0;  // NaN gives 0
  }
}

}  // namespace sunxi_cam::sim
