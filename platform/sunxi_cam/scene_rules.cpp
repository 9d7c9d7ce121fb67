// What a scene may hold (ValidateScene) and when two scenes are the same
// (SameScene).
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <stdexcept>
#include <string>
#include <type_traits>

#include "platform/sunxi_cam/board_light.h"
#include "platform/sunxi_cam/lens.h"
#include "platform/sunxi_cam/scene.h"

namespace sunxi_cam::sim {
namespace {

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

void CheckDistortion(const Scene& scene) {
  const CameraModel& c = scene.camera;
  const double k[5] = {c.k1, c.k2, c.p1, c.p2, c.k3};
  const char* const names[5] = {"k1", "k2", "p1", "p2", "k3"};
  for (int i = 0; i < 5; ++i) {
    const std::string member = std::string("scene.camera.") + names[i];
    Check(Within(k[i], -10, 10), member, "between -10 and 10");
    if (scene.renderer == Renderer::kIdeal) {
      Check(k[i] == 0, member,
            "0 with the ideal renderer, a pinhole camera (scene.renderer \"physical\", or a "
            "preset such as \"robot\", draws a lens)");
    }
  }
  if (scene.renderer == Renderer::kIdeal) return;
  // The lens is drawn within 84 degrees of its axis (lens.h).
  double widest = 0;
  for (double u : {-0.5, kWidth - 0.5}) {
    for (double v : {-0.5, kHeight - 0.5}) {
      const double x = (u - c.cx) / c.fx, y = (v - c.cy) / c.fy;
      widest = std::max(widest, x * x + y * y);
    }
  }
  Check(widest < 90, "scene.camera.fx, fy, cx and cy",
        "such that the picture's corners, without distortion, lie within 84 degrees of the "
        "axis (the physical renderer's lens)");
  const std::string fold = FoldProblem(c);
  if (!fold.empty()) {
    throw std::invalid_argument("camera sim: scene.camera.k1, k2, p1, p2, k3 must not " + fold);
  }
}

void CheckPhysical(const Scene& scene) {
  const Optics& o = scene.optics;
  Check(Within(o.f_number, 0.5, 100), "scene.optics.f_number", "between 0.5 and 100");
  Check(o.pixel_size > 0 && o.pixel_size <= 100, "scene.optics.pixel_size",
        "greater than 0 and at most 100 (micrometres)");
  Check(o.focus > 0 && o.focus <= 100000, "scene.optics.focus",
        "greater than 0 and at most 100000 (cm)");
  const double focal_mm = scene.camera.fx * o.pixel_size / 1000.0;
  if (scene.renderer == Renderer::kPhysical && !(o.focus * 10.0 > 1.01 * focal_mm)) {
    char rule[160];
    std::snprintf(rule, sizeof rule,
                  "farther than the focal length, fx x pixel_size = %.4g mm, and 1 %% more",
                  focal_mm);
    Check(false, "scene.optics.focus", rule);
  }
  Check(o.vignetting > 0 && o.vignetting <= 1, "scene.optics.vignetting",
        "greater than 0 and at most 1");
  const LaserLight& l = scene.light;
  Check(Within(l.power, 0, 100000), "scene.laser_light.power", "between 0 and 100000");
  Check(l.width > 0 && l.width <= 100, "scene.laser_light.width",
        "greater than 0 and at most 100 (mm)");
  Check(Within(l.divergence, 0, 1000), "scene.laser_light.divergence", "between 0 and 1000 (mrad)");
  Check(Within(l.speckle, 0, 2), "scene.laser_light.speckle", "between 0 and 2");
  Check(Within(l.speckle_grain, 0, 10), "scene.laser_light.speckle_grain",
        "between 0 and 10 (pixels)");
  const Sensor& s = scene.sensor;
  Check(s.conversion > 0 && s.conversion <= 100000, "scene.sensor.conversion",
        "greater than 0 and at most 100000");
  Check(s.full_well > 0 && s.full_well <= 1e7, "scene.sensor.full_well",
        "greater than 0 and at most 10000000");
  Check(Within(s.read_noise, 0, 10000), "scene.sensor.read_noise", "between 0 and 10000");
  Check(Within(s.prnu, 0, 0.5), "scene.sensor.prnu", "between 0 and 0.5");
  Check(s.gain_unit >= 1 && s.gain_unit <= 1024, "scene.sensor.gain_unit", "between 1 and 1024");
}

void CheckBoard(const Scene& scene) {
  const Board& b = scene.board;
  Check(b.cols >= 2 && b.cols <= 50, "scene.board.cols", "between 2 and 50");
  Check(b.rows >= 2 && b.rows <= 50, "scene.board.rows", "between 2 and 50");
  Check(b.square > 0 && b.square <= 100, "scene.board.square",
        "greater than 0 and at most 100 (cm)");
  Check(Within(b.margin, 0, 100), "scene.board.margin", "between 0 and 100 (cm)");
  Check(Within(b.x, -10000, 10000), "scene.board.x", "between -10000 and 10000");
  Check(Within(b.y, -10000, 10000), "scene.board.y", "between -10000 and 10000");
  Check(b.z > 0 && b.z <= 10000, "scene.board.z", "greater than 0 and at most 10000");
  Check(b.yaw > -80 && b.yaw < 80, "scene.board.yaw", "between -80 and 80");
  Check(b.pitch > -80 && b.pitch < 80, "scene.board.pitch", "between -80 and 80");
  Check(Within(b.roll, -180, 180), "scene.board.roll", "between -180 and 180");
  Check(Within(b.white, 0, 100000), "scene.board.white", "between 0 and 100000");
  Check(Within(b.black, 0, 1), "scene.board.black", "between 0 and 1");
  if (!b.on) return;
  const std::string outside = BoardViewProblem(scene);
  if (!outside.empty()) throw std::invalid_argument("camera sim: scene.board must be " + outside);
}

}  // namespace

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
  CheckPhysical(scene);
  CheckDistortion(scene);
  CheckBoard(scene);
}

namespace {

// Bit-for-bit equality, which NaN and -0 cannot fool.
template <typename T>
bool Same(const T& a, const T& b) {
  static_assert(std::is_arithmetic_v<T> || std::is_enum_v<T>, "members are numbers and flags");
  return std::memcmp(&a, &b, sizeof(T)) == 0;
}

bool SameCamera(const CameraModel& a, const CameraModel& b) {
  return Same(a.fx, b.fx) && Same(a.fy, b.fy) && Same(a.cx, b.cx) && Same(a.cy, b.cy) &&
         Same(a.height, b.height) && Same(a.pitch, b.pitch) && Same(a.k1, b.k1) &&
         Same(a.k2, b.k2) && Same(a.p1, b.p1) && Same(a.p2, b.p2) && Same(a.k3, b.k3);
}

bool SameLaser(const LaserModel& a, const LaserModel& b) {
  return Same(a.x, b.x) && Same(a.y, b.y) && Same(a.z, b.z) && Same(a.yaw, b.yaw) &&
         Same(a.roll, b.roll) && Same(a.on, b.on);
}

bool SamePhysical(const Scene& a, const Scene& b) {
  const Optics &oa = a.optics, &ob = b.optics;
  const LaserLight &la = a.light, &lb = b.light;
  const Sensor &sa = a.sensor, &sb = b.sensor;
  const Board &ba = a.board, &bb = b.board;
  return Same(a.renderer, b.renderer) && Same(oa.focus, ob.focus) &&
         Same(oa.f_number, ob.f_number) && Same(oa.pixel_size, ob.pixel_size) &&
         Same(oa.vignetting, ob.vignetting) && Same(la.power, lb.power) &&
         Same(la.width, lb.width) && Same(la.divergence, lb.divergence) &&
         Same(la.speckle, lb.speckle) && Same(la.speckle_grain, lb.speckle_grain) &&
         Same(sa.conversion, sb.conversion) && Same(sa.full_well, sb.full_well) &&
         Same(sa.read_noise, sb.read_noise) && Same(sa.prnu, sb.prnu) &&
         Same(sa.gain_unit, sb.gain_unit) && Same(ba.on, bb.on) && Same(ba.cols, bb.cols) &&
         Same(ba.rows, bb.rows) && Same(ba.square, bb.square) && Same(ba.margin, bb.margin) &&
         Same(ba.x, bb.x) && Same(ba.y, bb.y) && Same(ba.z, bb.z) && Same(ba.yaw, bb.yaw) &&
         Same(ba.pitch, bb.pitch) && Same(ba.roll, bb.roll) && Same(ba.white, bb.white) &&
         Same(ba.black, bb.black);
}

}  // namespace

bool SameScene(const Scene& a, const Scene& b) {
  // A member added to the scene must be compared here too; the sizes below
  // are the members counted when this was written.
  static_assert(sizeof(CameraModel) == 11 * sizeof(double), "compare every camera member");
  static_assert(sizeof(LaserModel) == 6 * sizeof(double), "compare every laser member");
  static_assert(sizeof(StripeLook) == 3 * sizeof(double), "compare every stripe member");
  static_assert(sizeof(Background) == 3 * sizeof(double) + sizeof(uint64_t),
                "compare every background member");
  static_assert(sizeof(Optics) == 4 * sizeof(double), "compare every optics member");
  static_assert(sizeof(LaserLight) == 5 * sizeof(double), "compare every laser light member");
  static_assert(sizeof(Sensor) == 5 * sizeof(double), "compare every sensor member");
  static_assert(sizeof(Board) == 12 * sizeof(double), "compare every board member");
  static_assert(sizeof(Scene) == 504, "compare every scene member");
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
         Same(a.reference_gain, b.reference_gain) && SamePhysical(a, b);
}

}  // namespace sunxi_cam::sim
