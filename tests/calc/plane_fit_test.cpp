// Least-squares planes, the 3 x 3 eigenproblem under them, and a laser
// plane's angles.
#include "tools/calc/plane_fit.h"

#include <gtest/gtest.h>

#include <cmath>
#include <vector>

#include "tests/calc/target_pictures.h"

namespace {

using calc::Plane;
using calc::Vec3;

// Points on `plane` on a grid of its two in-plane axes.
std::vector<Vec3> PointsOn(const Plane& plane, int count = 10) {
  const Vec3 a = std::fabs(plane.normal.z) < 0.9 ? Vec3{0, 0, 1} : Vec3{1, 0, 0};
  // e1 = a - (a . n) n, e2 = n x e1
  Vec3 e1 = a - Dot(a, plane.normal) * plane.normal;
  e1 = (1 / std::sqrt(Dot(e1, e1))) * e1;
  const Vec3 n = plane.normal;
  const Vec3 e2{n.y * e1.z - n.z * e1.y, n.z * e1.x - n.x * e1.z, n.x * e1.y - n.y * e1.x};
  std::vector<Vec3> points;
  for (int i = 0; i < count; ++i) {
    for (int j = 0; j < count; ++j) {
      points.push_back(plane.offset * n + (3.0 * i) * e1 + (2.0 * j - 5) * e2);
    }
  }
  return points;
}

TEST(PlaneFitTest, PointsOnAPlaneGiveThatPlane) {
  const Plane truth = calc::PlaneFromAngles({-3.5, 2.25, 1.75});
  const calc::PlaneFit fit = calc::FitPlane(PointsOn(truth));
  ASSERT_TRUE(fit.ok);
  EXPECT_NEAR(fit.plane.normal.x, truth.normal.x, 1e-12);
  EXPECT_NEAR(fit.plane.normal.y, truth.normal.y, 1e-12);
  EXPECT_NEAR(fit.plane.normal.z, truth.normal.z, 1e-12);
  EXPECT_NEAR(fit.plane.offset, truth.offset, 1e-12);
  EXPECT_LT(fit.rms, 1e-12);
  EXPECT_GT(fit.spread, 5);
  EXPECT_GT(fit.length, fit.spread);
}

TEST(PlaneFitTest, TheNormalPointsLeftWhateverTheSideOfThePoints) {
  const Plane truth = calc::PlaneFromAngles({2, 0, -2.2});
  const calc::PlaneFit fit = calc::FitPlane(PointsOn(truth));
  EXPECT_GT(fit.plane.normal.y, 0);
  EXPECT_NEAR(fit.plane.offset, -2.2, 1e-12);
}

TEST(PlaneFitTest, TheRmsIsTheScatterOfThePointsAcrossThePlane) {
  const Plane truth{{0, 1, 0}, 1};
  std::vector<Vec3> points = PointsOn(truth);
  // A checkerboard of +-0.01 across the plane: no tilt for the fit to take up.
  for (std::size_t i = 0; i < points.size(); ++i)
    points[i].y += ((i / 10 + i % 10) % 2 ? 0.01 : -0.01);
  const calc::PlaneFit fit = calc::FitPlane(points);
  EXPECT_NEAR(fit.rms, 0.01, 1e-12);
  EXPECT_NEAR(fit.worst, 0.01, 1e-12);
}

TEST(PlaneFitTest, APointOfWeightZeroCountsForNothing) {
  const Plane truth = calc::PlaneFromAngles({1, 1, 2});
  std::vector<Vec3> points = PointsOn(truth);
  std::vector<double> weights(points.size(), 2.0);
  points.push_back({100, -50, 30});
  weights.push_back(0);
  const calc::PlaneFit fit = calc::FitPlane(points, weights);
  EXPECT_LT(calc::AngleBetween(fit.plane, truth), 1e-9);
  EXPECT_NEAR(fit.plane.offset, 2, 1e-9);
}

TEST(PlaneFitTest, PointsAlongOneLineSpanNoPlane) {
  std::vector<Vec3> line;
  for (int i = 0; i < 50; ++i) line.push_back({1.0 * i, 2 + 0.1 * i, 0});
  const calc::PlaneFit fit = calc::FitPlane(line);
  ASSERT_TRUE(fit.ok);
  EXPECT_LT(fit.spread, 1e-6);
  EXPECT_GT(fit.length, 10);
}

TEST(PlaneFitTest, FewerThanThreePointsOrNoWeightFitNothing) {
  EXPECT_FALSE(calc::FitPlane({{0, 0, 0}, {1, 0, 0}}).ok);
  EXPECT_FALSE(calc::FitPlane({{0, 0, 0}, {1, 0, 0}, {0, 1, 0}}, {0, 0, 0}).ok);
}

TEST(PlaneFitTest, TheEigenvectorsOfASymmetricMatrix) {
  // R diag(1, 4, 9) R^T for a rotation R about (1, 1, 1).
  const double c = std::cos(0.7), s = std::sin(0.7), k = 1 / std::sqrt(3.0);
  const double ux = k, uy = k, uz = k;
  const double r[3][3] = {
      {c + ux * ux * (1 - c), ux * uy * (1 - c) - uz * s, ux * uz * (1 - c) + uy * s},
      {uy * ux * (1 - c) + uz * s, c + uy * uy * (1 - c), uy * uz * (1 - c) - ux * s},
      {uz * ux * (1 - c) - uy * s, uz * uy * (1 - c) + ux * s, c + uz * uz * (1 - c)}};
  const double d[3] = {9, 1, 4};
  double m[9] = {};
  for (int i = 0; i < 3; ++i) {
    for (int j = 0; j < 3; ++j) {
      for (int l = 0; l < 3; ++l) m[3 * i + j] += r[i][l] * d[l] * r[j][l];
    }
  }
  double values[3];
  Vec3 vectors[3];
  calc::SymmetricEigen(m, values, vectors);
  EXPECT_NEAR(values[0], 1, 1e-12);
  EXPECT_NEAR(values[1], 4, 1e-12);
  EXPECT_NEAR(values[2], 9, 1e-12);
  // The eigenvector of 1 is R's second column (up to its sign).
  const Vec3 column{r[0][1], r[1][1], r[2][1]};
  EXPECT_NEAR(std::fabs(Dot(vectors[0], column)), 1, 1e-12);
}

TEST(PlaneFitTest, AnglesAreTheSimulatorsYawRollAndOffset) {
  for (const sunxi_cam::sim::LaserModel laser :
       {sunxi_cam::sim::LaserModel{0, 2.2, 2, -2, 0, true},
        sunxi_cam::sim::LaserModel{0.7, -3.1, 2.5, 6.5, -2.75, true},
        sunxi_cam::sim::LaserModel{-1, 1, 1, -7, 3, true}}) {
    const Plane plane = calctest::PlaneOf(sunxi_cam::sim::PlaneOf(laser));
    const calc::PlaneAngles angles = calc::AnglesOf(plane);
    EXPECT_NEAR(angles.yaw, laser.yaw, 1e-12);
    EXPECT_NEAR(angles.roll, laser.roll, 1e-12);
    const Plane back = calc::PlaneFromAngles(angles);
    EXPECT_NEAR(back.normal.x, plane.normal.x, 1e-15);
    EXPECT_NEAR(back.normal.y, plane.normal.y, 1e-15);
    EXPECT_NEAR(back.normal.z, plane.normal.z, 1e-15);
    EXPECT_EQ(back.offset, plane.offset);
  }
}

TEST(PlaneFitTest, TheAngleBetweenPlanesIsExactWhenSmall) {
  const Plane a = calc::PlaneFromAngles({0, 0, 0});
  const Plane b = calc::PlaneFromAngles({1e-6, 0, 0});
  EXPECT_NEAR(calc::AngleBetween(a, b), 1e-6, 1e-15);
  EXPECT_NEAR(calc::AngleBetween(a, calc::PlaneFromAngles({0, 0.05, 0})), 0.05, 1e-12);
  EXPECT_EQ(calc::AngleBetween(a, a), 0);
}

}  // namespace
