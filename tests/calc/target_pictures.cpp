#include "tests/calc/target_pictures.h"

#include <cstdio>
#include <cstring>

namespace calctest {
namespace sim = sunxi_cam::sim;

calc::Camera CameraOf(const sim::CameraModel& m) {
  return {m.fx, m.fy, m.cx, m.cy, m.height, m.pitch};
}

calc::Plane PlaneOf(const sim::LaserPlane& p) { return {{p.nx, p.ny, p.nz}, p.offset}; }

std::vector<double> FactoryDistances() {
  std::vector<double> d;
  for (int cm = 5; cm <= 45; cm += 5) d.push_back(cm);
  return d;
}

TargetPictures::TargetPictures(const std::vector<double>& distances) : distances_(distances) {
  const std::size_t bytes = static_cast<std::size_t>(sim::kWidth) * sim::kHeight;
  for (double d : distances) {
    sim::SetDistance(d);
    const uint8_t* left = sim::Luminance(1);
    left_.emplace_back(left, left + bytes);
    const uint8_t* right = sim::Luminance(8);
    right_.emplace_back(right, right + bytes);
  }
}

std::vector<calc::StripePicture> TargetPictures::Of(int laser) const {
  const auto& pictures = laser == 1 ? left_ : right_;
  const double wall_height = sim::GetScene().wall_height;
  std::vector<calc::StripePicture> out;
  for (std::size_t i = 0; i < pictures.size(); ++i) {
    calc::StripePicture p;
    char name[64];
    std::snprintf(name, sizeof name, "%s/%g", laser == 1 ? "left" : "right", distances_[i]);
    p.name = name;
    p.picture = {pictures[i].data(), sim::kWidth, sim::kHeight, sim::kWidth};
    p.target = {distances_[i], wall_height};
    out.push_back(p);
  }
  return out;
}

std::vector<uint8_t>& TargetPictures::Pixels(int laser, std::size_t i) {
  return laser == 1 ? left_.at(i) : right_.at(i);
}

void TargetPictures::FillRows(int laser, std::size_t i, int from, int to, uint8_t value) {
  std::vector<uint8_t>& p = Pixels(laser, i);
  for (int row = from < 0 ? 0 : from; row <= to && row < sim::kHeight; ++row) {
    std::memset(p.data() + static_cast<std::size_t>(row) * sim::kWidth, value, sim::kWidth);
  }
}

namespace {

// SplitMix64: a fixed sequence of 64-bit values from a seed.
class Draw {
 public:
  explicit Draw(uint64_t seed) : state_(seed) {}
  // Uniform in [-1, 1).
  double Signed() { return Unit() * 2 - 1; }
  // Uniform in [0, 1).
  double Unit() { return static_cast<double>(Next() >> 11) * (1.0 / 9007199254740992.0); }
  uint64_t Next() {
    uint64_t x = (state_ += 0x9E3779B97F4A7C15ull);
    x = (x ^ (x >> 30)) * 0xBF58476D1CE4E5B9ull;
    x = (x ^ (x >> 27)) * 0x94D049BB133111EBull;
    return x ^ (x >> 31);
  }

 private:
  uint64_t state_;
};

void Jitter(Draw& draw, sim::LaserModel* laser) {
  laser->yaw += 5 * draw.Signed();
  laser->roll += 3 * draw.Signed();
  laser->x += draw.Signed();
  laser->y += draw.Signed();
  laser->z += draw.Signed();
}

// A laser's pose as the simulator's JSON settings.
std::string LaserJson(const sim::LaserModel& l) {
  char text[200];
  std::snprintf(text, sizeof text,
                R"({"x": %.17g, "y": %.17g, "z": %.17g, "yaw": %.17g, "roll": %.17g})", l.x, l.y,
                l.z, l.yaw, l.roll);
  return text;
}

}  // namespace

Pose RandomPose(uint64_t seed) {
  Draw draw(seed * 0x2545F4914F6CDD1Dull + 1);
  const sim::Scene defaults;
  Pose pose;
  pose.left = defaults.left;
  pose.right = defaults.right;
  Jitter(draw, &pose.left);
  Jitter(draw, &pose.right);
  pose.noise = 0.5 + 2.5 * draw.Unit();
  pose.ambient = 20 * draw.Unit();
  pose.seed = draw.Next() >> 1;
  pose.wall = 10 + 30 * draw.Unit();
  return pose;
}

Robot RandomRobot(uint64_t seed, const sim::CameraModel& preset) {
  Draw draw(seed * 0x9E3779B97F4A7C15ull + 7);
  const sim::Scene defaults;
  Robot robot;
  robot.camera = preset;
  robot.camera.fx *= 1 + 0.01 * draw.Signed();
  robot.camera.fy = robot.camera.fx * (1 + 0.005 * draw.Signed());
  robot.camera.cx += 4 * draw.Signed();
  robot.camera.cy += 3 * draw.Signed();
  robot.camera.k1 += 0.03 * draw.Signed();
  robot.camera.k2 += 0.01 * draw.Signed();
  robot.left = defaults.left;
  robot.right = defaults.right;
  Jitter(draw, &robot.left);
  Jitter(draw, &robot.right);
  robot.seed = draw.Next() >> 1;
  return robot;
}

std::string RobotJson(const Robot& robot) {
  const sim::CameraModel& c = robot.camera;
  char camera[300];
  std::snprintf(camera, sizeof camera,
                R"({"fx": %.17g, "fy": %.17g, "cx": %.17g, "cy": %.17g, "k1": %.17g, "k2": %.17g})",
                c.fx, c.fy, c.cx, c.cy, c.k1, c.k2);
  return R"({"camera": )" + std::string(camera) + R"(, "left_laser": )" + LaserJson(robot.left) +
         R"(, "right_laser": )" + LaserJson(robot.right) + R"(, "background": {"seed": )" +
         std::to_string(robot.seed) + "}}";
}

void ApplyPose(const Pose& pose) {
  sim::Scene scene = sim::GetScene();
  scene.left = pose.left;
  scene.right = pose.right;
  scene.background.noise = pose.noise;
  scene.background.ambient = pose.ambient;
  scene.background.seed = pose.seed;
  sim::SetScene(scene);
}

std::string PoseJson(const Pose& pose) {
  char background[160];
  std::snprintf(background, sizeof background,
                R"({"noise": %.17g, "ambient": %.17g, "seed": %llu})", pose.noise, pose.ambient,
                static_cast<unsigned long long>(pose.seed));
  return R"({"left_laser": )" + LaserJson(pose.left) + R"(, "right_laser": )" +
         LaserJson(pose.right) + R"(, "background": )" + background + "}";
}

}  // namespace calctest
