#include "platform/sunxi_cam/scene.h"

#include <algorithm>
#include <cmath>
#include <cstring>

#include "platform/sunxi_cam/board_light.h"
#include "platform/sunxi_cam/lens.h"

namespace sunxi_cam::sim {
namespace {

constexpr double kPi = 3.14159265358979323846;
constexpr double kNear = 0.5;   // nothing closer to the camera than this is drawn
constexpr double kFar = 1.0e5;  // where an open floor ends
constexpr double kTiny = 1e-9;

double Radians(double degrees) { return degrees * kPi / 180.0; }

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
  if (scene.board.on) {
    // The board instead of the lasers, through the pinhole camera.
    std::vector<double> board(light.size(), 0.0);
    AddBoardLight(scene, Lens(scene.camera), false, board.data());
    for (std::size_t i = 0; i < light.size(); ++i) light[i] = static_cast<float>(board[i]);
  } else {
    if (lasers & 1u) draw(scene.left);
    if (lasers & 8u) draw(scene.right);
  }

  const Background& b = scene.background;
  for (std::size_t i = 0; i < light.size(); ++i) {
    double value = b.level + b.ambient + light[i];
    if (b.noise > 0) value += b.noise * Noise(b.seed, lasers, i);
    value = std::round(value * scale);
    out[i] = value > 0 ? static_cast<uint8_t>(std::min(value, 255.0)) : 0;  // NaN gives 0
  }
}

}  // namespace sunxi_cam::sim
