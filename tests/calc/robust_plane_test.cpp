// The robust plane: outliers that do not move it, its predicted 1-sigma
// against the spread over many seeded fits, and the camera's share.
#include "tools/calc/robust_plane.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <vector>

#include "tests/calc/emulated.h"
namespace {

using calc::PlaneAngles;
using calc::Vec3;

constexpr double kPi = 3.14159265358979323846;

// Numbers of mean 0 and standard deviation 1 from a seed, by our own
// arithmetic (the same on every target).
class Noise {
 public:
  explicit Noise(uint64_t seed) : state_(seed) {}
  double Next() {
    const double a = (static_cast<double>(Bits() >> 11) + 0.5) / 9007199254740992.0;
    const double b = static_cast<double>(Bits() >> 11) / 9007199254740992.0;
    return std::sqrt(-2 * std::log(a)) * std::cos(2 * kPi * b);
  }
  double Uniform() { return static_cast<double>(Bits() >> 11) / 9007199254740992.0; }

 private:
  uint64_t Bits() {
    uint64_t x = (state_ += 0x9E3779B97F4A7C15ull);
    x = (x ^ (x >> 30)) * 0xBF58476D1CE4E5B9ull;
    x = (x ^ (x >> 27)) * 0x94D049BB133111EBull;
    return x ^ (x >> 31);
  }
  uint64_t state_;
};

const PlaneAngles kTruth{3.0, -2.0, 2.2};

// A laser's stripe points on the floor and the walls at 5 to 45 cm, on
// the true plane, each with the weight 1 / (cm a pixel moves it)^2 and
// the cm a pixel moves it.
struct Stripe {
  std::vector<Vec3> points;
  std::vector<double> weights, cm_per_pixel;
};

Stripe TrueStripe() {
  const calc::Plane plane = calc::PlaneFromAngles(kTruth);
  const Vec3 n = plane.normal;
  Stripe s;
  auto add = [&](Vec3 p, double cm) {
    s.points.push_back(p);
    s.cm_per_pixel.push_back(cm);
    s.weights.push_back(1 / (cm * cm));
  };
  for (int d = 5; d <= 45; d += 5) {
    for (double x = d / 2.0; x < d - 1; x += 0.25) {
      add({x, (plane.offset - n.x * x) / n.y, 0}, 0.004 * x);
    }
    for (double z = 0.5; z <= 8; z += 0.25) {
      add({double(d), (plane.offset - n.x * d - n.z * z) / n.y, z}, d / 450.0);
    }
  }
  return s;
}

// The stripe with noise of `pixels` along the plane's normal.
Stripe Noisy(const Stripe& truth, double pixels, uint64_t seed) {
  Stripe s = truth;
  const Vec3 n = calc::PlaneFromAngles(kTruth).normal;
  Noise noise(seed);
  for (std::size_t i = 0; i < s.points.size(); ++i) {
    s.points[i] = s.points[i] + (pixels * s.cm_per_pixel[i] * noise.Next()) * n;
  }
  return s;
}

TEST(RobustPlaneTest, CleanPointsGiveTheLeastSquaresPlane) {
  const Stripe s = Noisy(TrueStripe(), 0.1, 1);
  const calc::PlaneFit plain = calc::FitPlane(s.points, s.weights);
  const calc::RobustPlane robust = calc::FitPlaneRobust(s.points, s.weights);
  ASSERT_TRUE(robust.fit.ok);
  // The biweight leaves the plane well within its 1-sigma of least squares.
  EXPECT_LT(calc::AngleBetween(plain.plane, robust.fit.plane),
            0.5 * std::hypot(robust.sigma.yaw, robust.sigma.roll));
  EXPECT_LT(std::fabs(plain.plane.offset - robust.fit.plane.offset), 0.5 * robust.sigma.offset);
  EXPECT_LE(robust.outliers, 2);
  EXPECT_EQ(robust.inliers + robust.outliers, static_cast<int>(s.points.size()));
  EXPECT_EQ(robust.factors.size(), s.points.size());
}

// A picture's stripe far off the plane (a reflection) and a tenth of the
// points scattered: the least-squares plane follows them, the robust one
// stays where the clean points put it.
TEST(RobustPlaneTest, OutliersDoNotMoveThePlane) {
  const Stripe clean = Noisy(TrueStripe(), 0.1, 2);
  Stripe dirty = clean;
  Noise noise(3);
  int planted = 0;
  for (std::size_t i = 0; i < dirty.points.size(); ++i) {
    const Vec3 p = dirty.points[i];
    if (p.x == 25 && p.z > 0) {
      dirty.points[i].y += 1.5;  // the wall at 25 cm: a second stripe
      ++planted;
    } else if (noise.Uniform() < 0.1) {
      dirty.points[i].y += (noise.Uniform() < 0.5 ? -1 : 1) * (0.3 + 5 * noise.Uniform());
      ++planted;
    }
  }
  const calc::RobustPlane reference = calc::FitPlaneRobust(clean.points, clean.weights);
  const calc::PlaneFit plain = calc::FitPlane(dirty.points, dirty.weights);
  const calc::RobustPlane robust = calc::FitPlaneRobust(dirty.points, dirty.weights);
  const double plain_error = calc::AngleBetween(plain.plane, reference.fit.plane);
  const double robust_error = calc::AngleBetween(robust.fit.plane, reference.fit.plane);
  std::printf(
      "%d outliers of %zu points: least squares off by %.4f deg and %.4f mm, robust "
      "by %.5f deg and %.5f mm (1-sigma %.5f deg, %.5f mm), %d points left out\n",
      planted, dirty.points.size(), plain_error,
      10 * (plain.plane.offset - reference.fit.plane.offset), robust_error,
      10 * (robust.fit.plane.offset - reference.fit.plane.offset), reference.sigma.yaw,
      10 * reference.sigma.offset, robust.outliers);
  EXPECT_GT(plain_error, 0.05);
  EXPECT_LT(robust_error, 2 * std::hypot(reference.sigma.yaw, reference.sigma.roll));
  EXPECT_LT(std::fabs(robust.fit.plane.offset - reference.fit.plane.offset),
            2 * reference.sigma.offset);
  EXPECT_GE(robust.outliers, planted * 9 / 10);
}

// Pictures whose stripe shows something else (a picture's wall stripe or
// the nearest floor stripes 1.5 cm aside), or a fifth of the points
// scattered up to 10 cm off: the plane stays within 2 sigma of the clean
// fit, and every point moved is left out.
TEST(RobustPlaneTest, PicturesThatShowSomethingElseAreLeftOut) {
  const Stripe truth = TrueStripe();
  const Stripe clean = Noisy(truth, 0.1, 4);
  const calc::RobustPlane reference = calc::FitPlaneRobust(clean.points, clean.weights);
  const char* const names[] = {"the wall at 5 cm", "the floor nearer than 8 cm",
                               "the walls at 5 and 10 cm", "the floor nearer than 15 cm",
                               "a fifth scattered"};
  for (int scenario = 0; scenario < 5; ++scenario) {
    Stripe dirty = clean;
    Noise noise(9);
    int planted = 0;
    for (std::size_t i = 0; i < dirty.points.size(); ++i) {
      const Vec3 t = truth.points[i];
      const bool hit[] = {t.x == 5 && t.z > 0, t.z == 0 && t.x < 8,
                          (t.x == 5 || t.x == 10) && t.z > 0, t.z == 0 && t.x < 15,
                          noise.Uniform() < 0.2};
      if (!hit[scenario]) continue;
      dirty.points[i].y += scenario == 4 ? 20 * (noise.Uniform() - 0.5) : 1.5;
      ++planted;
    }
    const calc::RobustPlane r = calc::FitPlaneRobust(dirty.points, dirty.weights);
    const double off = calc::AngleBetween(r.fit.plane, reference.fit.plane);
    std::printf("%s (%d points): off by %.5f deg and %.5f mm, %d left out\n", names[scenario],
                planted, off, 10 * (r.fit.plane.offset - reference.fit.plane.offset), r.outliers);
    EXPECT_LT(off, 2 * std::hypot(reference.sigma.yaw, reference.sigma.roll)) << names[scenario];
    EXPECT_LT(std::fabs(r.fit.plane.offset - reference.fit.plane.offset),
              2 * reference.sigma.offset)
        << names[scenario];
    EXPECT_GE(r.outliers, planted * 95 / 100) << names[scenario];
  }
}

// Over 300 seeds of noise the 1-sigma the fit predicts is the spread of
// its yaw, roll and offset: within 1.5 times either way (under an
// emulator, 30 seeds and no comparison).
TEST(RobustPlaneTest, ThePredictedSigmaIsTheSpreadOverSeeds) {
  const Stripe truth = TrueStripe();
  const int kSeeds = calctest::Emulated() ? 30 : 300;
  double squares[3] = {}, predicted[3] = {};
  int covered[3] = {};
  for (int seed = 1; seed <= kSeeds; ++seed) {
    const Stripe s = Noisy(truth, 0.1, 1000 + seed);
    const calc::RobustPlane r = calc::FitPlaneRobust(s.points, s.weights);
    ASSERT_TRUE(r.fit.ok);
    const PlaneAngles a = calc::AnglesOf(r.fit.plane);
    const double errors[3] = {a.yaw - kTruth.yaw, a.roll - kTruth.roll, a.offset - kTruth.offset};
    const double sigma[3] = {r.sigma.yaw, r.sigma.roll, r.sigma.offset};
    for (int i = 0; i < 3; ++i) {
      squares[i] += errors[i] * errors[i] / kSeeds;
      predicted[i] += sigma[i] / kSeeds;
      covered[i] += std::fabs(errors[i]) <= sigma[i];
    }
  }
  const char* const names[3] = {"yaw (deg)", "roll (deg)", "offset (cm)"};
  for (int i = 0; i < 3; ++i) {
    const double spread = std::sqrt(squares[i]);
    std::printf("%-11s predicted %.6f, measured %.6f (ratio %.2f), within 1 sigma %d of %d\n",
                names[i], predicted[i], spread, predicted[i] / spread, covered[i], kSeeds);
    if (calctest::Emulated()) continue;
    EXPECT_LT(predicted[i], 1.5 * spread) << names[i];
    EXPECT_GT(predicted[i], spread / 1.5) << names[i];
  }
}

TEST(RobustPlaneTest, PointsThatFixNoPlaneAreSaidSo) {
  EXPECT_FALSE(calc::FitPlaneRobust({{0, 0, 0}, {1, 0, 0}}).fit.ok);
  EXPECT_FALSE(calc::FitPlaneRobust({{0, 0, 0}, {1, 0, 0}, {0, 1, 0}}, {0, 0, 0}).fit.ok);
  // On one line: a fit, but an infinite 1-sigma.
  std::vector<Vec3> line;
  for (int i = 0; i < 20; ++i) line.push_back({double(i), 1, 0});
  const calc::RobustPlane r = calc::FitPlaneRobust(line);
  EXPECT_TRUE(std::isinf(r.sigma.yaw) || std::isinf(r.sigma.roll));
}

// What a camera sees of the stripe: its pixels (undistorted by the camera
// itself) and the surface each lies on (the floor, or the wall at x).
struct Seen {
  std::vector<calc::Pixel> pixels;
  std::vector<double> walls;  // 0 on the floor
  std::vector<double> weights;
};

// Where the ray through undistorted pixel `p` meets the floor or the wall at `wall`.
Vec3 OnSurface(const calc::CameraRays& rays, calc::Pixel p, double wall) {
  const Vec3 c = rays.centre(), r = rays.Ray(p);
  return c + (wall > 0 ? (wall - c.x) / r.x : -c.z / r.z) * r;
}

// Each pixel seen with noise of 0.1 px along its row, and weighted by the
// inverse square of how far a step of one pixel along the row moves its
// point across the laser's plane.
Seen SeeStripe(const calc::CameraModel& camera, const Stripe& s, uint64_t seed) {
  const calc::CameraRays rays(camera);
  const Vec3 n = calc::PlaneFromAngles(kTruth).normal;
  Seen seen;
  Noise noise(seed);
  for (std::size_t i = 0; i < s.points.size(); ++i) {
    calc::Pixel p;
    if (!rays.Project(s.points[i], &p)) continue;
    const double wall = s.points[i].z > 0 ? s.points[i].x : 0;
    const double across = calc::Dot(n, OnSurface(rays, {p.u + 1, p.v}, wall) - s.points[i]);
    p = calc::Distort(camera, p);
    if (p.u < 0 || p.u > 639 || p.v < 0 || p.v > 479) continue;
    seen.pixels.push_back({p.u + 0.1 * noise.Next(), p.v});
    seen.walls.push_back(wall);
    seen.weights.push_back(1 / (across * across));
  }
  return seen;
}

// The plane through the stripe as `camera` places its pixels.
bool Refit(const Seen& seen, const calc::CameraModel& camera, PlaneAngles* angles) {
  const calc::CameraRays rays(camera);
  const std::vector<calc::Pixel> ideal = calc::Undistort(camera, seen.pixels);
  std::vector<Vec3> points;
  for (std::size_t i = 0; i < ideal.size(); ++i) {
    points.push_back(OnSurface(rays, ideal[i], seen.walls[i]));
  }
  const calc::RobustPlane fit = calc::FitPlaneRobust(points, seen.weights);
  if (!fit.fit.ok) return false;
  *angles = calc::AnglesOf(fit.fit.plane);
  return true;
}

// The camera's 1-sigma carried to the plane: the spread of the planes
// found through 300 cameras drawn within it, within 1.5 times either way
// (under an emulator, 30 cameras and no comparison).
TEST(RobustPlaneTest, TheCamerasShareIsTheSpreadOverCamerasDrawnWithinItsSigma) {
  calc::CameraModel camera;
  camera.distortion.k1 = -0.2;
  camera.pose = {0.3, -0.2, 5.1, 0.8, 10.5, -0.4};
  camera.lens_sigma_known = camera.pose_sigma_known = true;
  camera.intrinsics_sigma = {0.4, 0.4, 0.3, 0.3};
  camera.distortion_sigma = {0.002, 0.004, 0.0001, 0.0001, 0.003};
  camera.pose_sigma = {0.02, 0.01, 0.005, 0.03, 0.03, 0.01};
  const Seen seen = SeeStripe(camera, TrueStripe(), 5);
  auto refit = [&](const calc::CameraModel& c, PlaneAngles* a) { return Refit(seen, c, a); };
  double predicted[9];
  ASSERT_TRUE(calc::CameraCovariance(camera, refit, predicted));
  PlaneAngles centre;
  ASSERT_TRUE(Refit(seen, camera, &centre));
  const int kDraws = calctest::Emulated() ? 30 : 300;
  double squares[3] = {};
  Noise noise(77);
  for (int draw = 0; draw < kDraws; ++draw) {
    calc::CameraModel c = camera;
    calc::Intrinsics& k = c.intrinsics;
    const calc::Intrinsics& sk = camera.intrinsics_sigma;
    k = {k.fx + sk.fx * noise.Next(), k.fy + sk.fy * noise.Next(), k.cx + sk.cx * noise.Next(),
         k.cy + sk.cy * noise.Next()};
    calc::Distortion& d = c.distortion;
    const calc::Distortion& sd = camera.distortion_sigma;
    d = {d.k1 + sd.k1 * noise.Next(), d.k2 + sd.k2 * noise.Next(), d.p1 + sd.p1 * noise.Next(),
         d.p2 + sd.p2 * noise.Next(), d.k3 + sd.k3 * noise.Next()};
    calc::CameraPose& p = c.pose;
    const calc::CameraPose& sp = camera.pose_sigma;
    p = {p.x + sp.x * noise.Next(),           p.y + sp.y * noise.Next(),
         p.height + sp.height * noise.Next(), p.yaw + sp.yaw * noise.Next(),
         p.pitch + sp.pitch * noise.Next(),   p.roll + sp.roll * noise.Next()};
    PlaneAngles a;
    ASSERT_TRUE(Refit(seen, c, &a));
    squares[0] += (a.yaw - centre.yaw) * (a.yaw - centre.yaw) / kDraws;
    squares[1] += (a.roll - centre.roll) * (a.roll - centre.roll) / kDraws;
    squares[2] += (a.offset - centre.offset) * (a.offset - centre.offset) / kDraws;
  }
  const char* const names[3] = {"yaw (deg)", "roll (deg)", "offset (cm)"};
  for (int i = 0; i < 3; ++i) {
    const double sigma = std::sqrt(predicted[4 * i]), spread = std::sqrt(squares[i]);
    std::printf(
        "camera's share, %-11s predicted %.5f, measured %.5f over %d cameras (ratio %.2f)\n",
        names[i], sigma, spread, kDraws, sigma / spread);
    if (calctest::Emulated()) continue;
    EXPECT_LT(sigma, 1.5 * spread) << names[i];
    EXPECT_GT(sigma, spread / 1.5) << names[i];
  }
  // Both parts together.
  const calc::PlaneSigma both = calc::Combine(predicted, predicted);
  EXPECT_NEAR(both.yaw, std::sqrt(2 * predicted[0]), 1e-12);
  EXPECT_NEAR(both.offset, std::sqrt(2 * predicted[8]), 1e-12);
}

}  // namespace
