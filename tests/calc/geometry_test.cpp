// The camera and the target: rays, projections, where a pixel's ray meets
// the floor or the wall, the foot of the wall, and a laser plane's stripe.
#include "tools/calc/geometry.h"

#include <gtest/gtest.h>

#include <cmath>

#include "tests/calc/target_pictures.h"

namespace {

using calc::CameraGeometry;
using calc::Pixel;
using calc::Plane;
using calc::Surface;
using calc::Target;
using calc::Vec3;

constexpr double kPi = 3.14159265358979323846;

TEST(GeometryTest, APointOnAPixelsRayProjectsBackOntoThePixel) {
  const CameraGeometry g(calc::Camera{});
  for (Pixel p : {Pixel{0, 0}, Pixel{320, 240}, Pixel{639.25, 479.5}, Pixel{12.5, 300}}) {
    for (double t : {0.5, 3.0, 40.0}) {
      const Vec3 q = g.centre() + t * g.Ray(p);
      Pixel back;
      ASSERT_TRUE(g.Project(q, &back));
      EXPECT_NEAR(back.u, p.u, 1e-9);
      EXPECT_NEAR(back.v, p.v, 1e-9);
    }
  }
}

TEST(GeometryTest, TheCameraLooksAheadAndDownByItsPitch) {
  calc::Camera camera;
  camera.pitch = 10;
  const CameraGeometry g(camera);
  const Vec3 axis = g.Ray({camera.cx, camera.cy});
  EXPECT_NEAR(std::atan2(-axis.z, axis.x) * 180 / kPi, 10, 1e-12);
  EXPECT_NEAR(axis.y, 0, 1e-15);
  // Columns to the right look to the right (-y), rows down look down.
  EXPECT_LT(g.Ray({600, 240}).y, 0);
  EXPECT_LT(g.Ray({320, 470}).z, axis.z);
  // A point behind the camera does not project.
  Pixel p;
  EXPECT_FALSE(g.Project({-10, 0, 5}, &p));
}

TEST(GeometryTest, LowRowsSeeTheFloorAndHighRowsTheWall) {
  const CameraGeometry g(calc::Camera{});
  const Target target{30, 200};
  const calc::Located floor = calc::Locate(g, target, {320, 450});
  EXPECT_EQ(floor.surface, Surface::kFloor);
  EXPECT_EQ(floor.point.z, 0);
  EXPECT_GT(floor.point.x, 0);
  EXPECT_LT(floor.point.x, 30);
  const calc::Located wall = calc::Locate(g, target, {320, 100});
  EXPECT_EQ(wall.surface, Surface::kWall);
  EXPECT_EQ(wall.point.x, 30);
  EXPECT_GT(wall.point.z, 0);
  // The point is on the pixel's ray.
  Pixel back;
  ASSERT_TRUE(g.Project(wall.point, &back));
  EXPECT_NEAR(back.u, 320, 1e-9);
  EXPECT_NEAR(back.v, 100, 1e-9);
}

TEST(GeometryTest, AtFiveCentimetresEveryRowSeesTheWall) {
  const CameraGeometry g(calc::Camera{});
  for (double v : {0.0, 240.0, 479.0}) {
    EXPECT_EQ(calc::Locate(g, {5, 200}, {320, v}).surface, Surface::kWall) << v;
  }
}

TEST(GeometryTest, RaysOverTheWallsTopMeetNeitherSurface) {
  const CameraGeometry g(calc::Camera{});
  // A wall 1 cm high at 30 cm: the camera (5 cm up) sees over it.
  EXPECT_EQ(calc::Locate(g, {30, 1}, {320, 100}).surface, Surface::kNeither);
  EXPECT_EQ(calc::Locate(g, {30, 1}, {320, 470}).surface, Surface::kFloor);
}

TEST(GeometryTest, TheFootOfTheWallIsWhereFloorTurnsToWall) {
  const CameraGeometry g(calc::Camera{});
  for (double d : {10.0, 20.0, 30.0, 45.0}) {
    const double s = std::sin(10 * kPi / 180), c = std::cos(10 * kPi / 180);
    const double expected = 240 + 450 * (5 * c - d * s) / (d * c + 5 * s);
    const double foot = calc::FootRow(g, d, 320);
    EXPECT_NEAR(foot, expected, 1e-9) << d;
    EXPECT_EQ(calc::Locate(g, {d, 200}, {320, foot + 0.01}).surface, Surface::kFloor) << d;
    EXPECT_EQ(calc::Locate(g, {d, 200}, {320, foot - 0.01}).surface, Surface::kWall) << d;
  }
}

TEST(GeometryTest, TriangulatingAPixelGivesThePointOfThePlaneItShows) {
  const CameraGeometry g(calc::Camera{});
  const Plane plane = calctest::PlaneOf(sunxi_cam::sim::PlaneOf({0.3, 2.2, 2, -3, 1.5, true}));
  const Vec3 on_plane{
      25, (plane.offset - plane.normal.x * 25 - plane.normal.z * 7) / plane.normal.y, 7};
  Pixel p;
  ASSERT_TRUE(g.Project(on_plane, &p));
  Vec3 back;
  ASSERT_TRUE(calc::Triangulate(g, plane, p, &back));
  EXPECT_NEAR(back.x, on_plane.x, 1e-9);
  EXPECT_NEAR(back.y, on_plane.y, 1e-9);
  EXPECT_NEAR(back.z, on_plane.z, 1e-9);
}

TEST(GeometryTest, ARayAlongThePlaneDoesNotTriangulate) {
  const CameraGeometry g(calc::Camera{});
  // The vertical plane through the camera's axis holds the centre column's rays.
  const Plane plane{{0, 1, 0}, 0};
  Vec3 p;
  EXPECT_FALSE(calc::Triangulate(g, plane, {320, 100}, &p));
}

TEST(GeometryTest, TheStripeColumnOfARowIsWhereThePlaneMeetsTheSurface) {
  const CameraGeometry g(calc::Camera{});
  const Plane plane = calctest::PlaneOf(sunxi_cam::sim::PlaneOf({0, -2.2, 2, 4, -2, true}));
  const Target target{20, 200};
  // On the floor.
  const Vec3 floor{14, (plane.offset - plane.normal.x * 14) / plane.normal.y, 0};
  Pixel p;
  ASSERT_TRUE(g.Project(floor, &p));
  double u = 0;
  ASSERT_TRUE(calc::ColumnAt(g, plane, Surface::kFloor, target, p.v, &u));
  EXPECT_NEAR(u, p.u, 1e-9);
  // On the wall, above the camera's height too.
  const Vec3 wall{20, (plane.offset - plane.normal.x * 20 - plane.normal.z * 9) / plane.normal.y,
                  9};
  ASSERT_TRUE(g.Project(wall, &p));
  ASSERT_TRUE(calc::ColumnAt(g, plane, Surface::kWall, target, p.v, &u));
  EXPECT_NEAR(u, p.u, 1e-9);
  EXPECT_FALSE(calc::ColumnAt(g, plane, Surface::kNeither, target, p.v, &u));
}

TEST(GeometryTest, TheSimulatorsStripeFollowsThePlaneAsThisCameraSeesIt) {
  namespace sim = sunxi_cam::sim;
  sim::Reset();
  sim::Scene scene = sim::GetScene();
  scene.background.noise = 0;
  scene.left.roll = 2;
  scene.distance = 25;
  sim::SetScene(scene);
  const sim::SceneTruth truth = sim::Truth();
  const CameraGeometry g(calctest::CameraOf(truth.camera));
  const Plane plane = calctest::PlaneOf(truth.left);
  const uint8_t* picture = sim::Luminance(1);
  // The brightest pixel of a row lies within a pixel of the predicted column.
  for (int v : {60, 150, 400, 460}) {
    const Surface surface = v < calc::FootRow(g, 25, 320) ? Surface::kWall : Surface::kFloor;
    double u = 0;
    ASSERT_TRUE(calc::ColumnAt(g, plane, surface, {25, 200}, v, &u)) << v;
    int brightest = 0;
    for (int x = 1; x < 640; ++x) {
      if (picture[v * 640 + x] > picture[v * 640 + brightest]) brightest = x;
    }
    EXPECT_NEAR(brightest, u, 1.0) << v;
  }
  sim::Reset();
}

}  // namespace
