// The camera model: undistortion, rays in the robot's frame with a whole
// pose, and the pinhole it must equal bit for bit when it has no distortion
// and only a height and a pitch.
#include "tools/calc/camera_model.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <opencv2/calib3d.hpp>
#include <vector>

#include "tests/calc/target_pictures.h"
#include "tools/calc/laser_calibration.h"

namespace {

using calc::CameraModel;
using calc::CameraRays;
using calc::Pixel;
using calc::Vec3;

bool SameBits(double a, double b) { return std::memcmp(&a, &b, sizeof a) == 0; }
bool SameBits(Vec3 a, Vec3 b) {
  return SameBits(a.x, b.x) && SameBits(a.y, b.y) && SameBits(a.z, b.z);
}

std::vector<Pixel> PictureGrid(int step) {
  std::vector<Pixel> grid;
  for (int v = 0; v < 480; v += step) {
    for (int u = 0; u < 640; u += step) grid.push_back({u + 0.25, v + 0.75});
  }
  return grid;
}

CameraModel StrongLens() {
  CameraModel model;
  model.intrinsics = {452.5, 449.0, 323.4, 236.1};
  model.distortion = {-0.31, 0.12, 0.0012, -0.0008, -0.025};
  return model;
}

TEST(CameraModelTest, APinholeModelGivesCameraGeometrysBits) {
  for (double pitch : {0.0, 10.0, 23.7}) {
    calc::Camera camera;
    camera.fx = 451.5;
    camera.fy = 448.25;
    camera.cx = 318.7;
    camera.cy = 243.1;
    camera.height = 5.3;
    camera.pitch = pitch;
    const CameraModel model = calc::ModelOf(camera);
    ASSERT_TRUE(calc::IsPinhole(model));
    const calc::CameraGeometry pinhole(camera);
    const CameraRays rays(model);
    EXPECT_TRUE(SameBits(rays.centre(), pinhole.centre()));
    for (const Pixel& p : PictureGrid(37)) {
      ASSERT_TRUE(SameBits(rays.Ray(p), pinhole.Ray(p)));
      const Vec3 q = pinhole.centre() + 25.0 * pinhole.Ray(p);
      Pixel a, b;
      ASSERT_TRUE(rays.Project(q, &a));
      ASSERT_TRUE(pinhole.Project(q, &b));
      ASSERT_TRUE(SameBits(a.u, b.u) && SameBits(a.v, b.v));
    }
    const calc::Camera back = calc::PinholeOf(model);
    EXPECT_EQ(std::memcmp(&back, &camera, sizeof camera), 0);
  }
}

TEST(CameraModelTest, WithoutDistortionUndistortingChangesNoBit) {
  const CameraModel model = calc::ModelOf(calc::Camera{});
  const std::vector<Pixel> grid = PictureGrid(13);
  const std::vector<Pixel> out = calc::Undistort(model, grid);
  ASSERT_EQ(out.size(), grid.size());
  for (std::size_t i = 0; i < grid.size(); ++i) {
    ASSERT_TRUE(SameBits(out[i].u, grid[i].u) && SameBits(out[i].v, grid[i].v));
  }
  const Pixel p{12.125, 470.5};
  const Pixel d = calc::Distort(model, p);
  EXPECT_TRUE(SameBits(d.u, p.u) && SameBits(d.v, p.v));
}

// What the plane, check and distance code does with a camera, done through
// the model: the simulator's stripe centres undistorted and sent along the
// model's rays to the laser's true plane land on the very points the pinhole
// gives, and the plane fitted through the pinhole of the model is the plane
// fitted through the camera.
TEST(CameraModelTest, TheCalibrationThroughAPinholeModelKeepsItsResults) {
  sunxi_cam::sim::Reset();
  calctest::TargetPictures pictures(calctest::FactoryDistances());
  const calc::Camera camera = calctest::CameraOf(sunxi_cam::sim::Truth().camera);
  const calc::CameraGeometry pinhole(camera);
  const CameraModel model = calc::ModelOf(camera);
  const CameraRays rays(model);
  const calc::Plane plane = calctest::PlaneOf(sunxi_cam::sim::Truth().left);
  int points = 0;
  for (const calc::StripePicture& picture : pictures.Of(1)) {
    const calc::GrayPicture& g = picture.picture;
    const calc::StripeScan scan = calc::FindStripeCentres(g.pixels, g.width, g.height, g.stride);
    std::vector<Pixel> centres;
    for (const calc::StripeCentre& c : scan.centres) centres.push_back({c.u, double(c.v)});
    const std::vector<Pixel> undistorted = calc::Undistort(model, centres);
    for (std::size_t i = 0; i < centres.size(); ++i) {
      Vec3 expected;
      ASSERT_TRUE(calc::Triangulate(pinhole, plane, centres[i], &expected));
      const Vec3 r = rays.Ray(undistorted[i]);
      const double t =
          (plane.offset - calc::Dot(plane.normal, rays.centre())) / calc::Dot(plane.normal, r);
      ASSERT_TRUE(SameBits(rays.centre() + t * r, expected));
      ++points;
    }
  }
  EXPECT_GT(points, 1000);
  const calc::LaserFit a = calc::CalibrateLaser(pinhole, pictures.Of(1));
  const calc::LaserFit b =
      calc::CalibrateLaser(calc::CameraGeometry(calc::PinholeOf(model)), pictures.Of(1));
  ASSERT_EQ(a.code, calc::kSuccess);
  EXPECT_TRUE(SameBits(a.fit.plane.normal, b.fit.plane.normal));
  EXPECT_TRUE(SameBits(a.fit.plane.offset, b.fit.plane.offset));
}

TEST(CameraModelTest, DistortingFollowsOpenCvsLens) {
  const CameraModel model = StrongLens();
  const calc::Intrinsics& k = model.intrinsics;
  const cv::Matx33d matrix(k.fx, 0, k.cx, 0, k.fy, k.cy, 0, 0, 1);
  const calc::Distortion& d = model.distortion;
  const cv::Matx<double, 1, 5> coefficients(d.k1, d.k2, d.p1, d.p2, d.k3);
  for (const Pixel& p : PictureGrid(41)) {
    const std::vector<cv::Point3d> ray{{(p.u - k.cx) / k.fx, (p.v - k.cy) / k.fy, 1.0}};
    std::vector<cv::Point2d> shown;
    cv::projectPoints(ray, cv::Vec3d(0, 0, 0), cv::Vec3d(0, 0, 0), matrix, coefficients, shown);
    const Pixel q = calc::Distort(model, p);
    ASSERT_NEAR(q.u, shown[0].x, 1e-9);
    ASSERT_NEAR(q.v, shown[0].y, 1e-9);
  }
}

TEST(CameraModelTest, UndistortingUndoesTheLensToAMillionthOfAPixel) {
  const CameraModel model = StrongLens();
  std::vector<Pixel> shown;
  const std::vector<Pixel> ideal = PictureGrid(23);
  for (const Pixel& p : ideal) shown.push_back(calc::Distort(model, p));
  const std::vector<Pixel> back = calc::Undistort(model, shown);
  double worst = 0;
  for (std::size_t i = 0; i < ideal.size(); ++i) {
    worst = std::fmax(worst, std::hypot(back[i].u - ideal[i].u, back[i].v - ideal[i].v));
  }
  EXPECT_LT(worst, 1e-6);
  // The lens moves the picture's corners by many pixels.
  const Pixel corner = calc::Distort(model, {0, 0});
  EXPECT_GT(std::hypot(corner.u, corner.v), 20);
}

TEST(CameraModelTest, TheAxesOfAPoseAreARightHandedFrame) {
  calc::CameraPose pose;
  pose.yaw = 7.5;
  pose.pitch = 12;
  pose.roll = -3.25;
  const calc::CameraAxes a = calc::AxesOf(pose);
  EXPECT_NEAR(calc::Dot(a.right, a.right), 1, 1e-15);
  EXPECT_NEAR(calc::Dot(a.down, a.down), 1, 1e-15);
  EXPECT_NEAR(calc::Dot(a.forward, a.forward), 1, 1e-15);
  EXPECT_NEAR(calc::Dot(a.right, a.down), 0, 1e-15);
  EXPECT_NEAR(calc::Dot(a.right, a.forward), 0, 1e-15);
  const Vec3 cross{a.right.y * a.down.z - a.right.z * a.down.y,
                   a.right.z * a.down.x - a.right.x * a.down.z,
                   a.right.x * a.down.y - a.right.y * a.down.x};
  EXPECT_NEAR(calc::Dot(cross, a.forward), 1, 1e-15);
}

TEST(CameraModelTest, YawLooksLeftAndRollTurnsTheRightSideDown) {
  calc::CameraPose pose;
  pose.pitch = 0;
  pose.yaw = 10;
  EXPECT_GT(calc::AxesOf(pose).forward.y, 0);
  pose.yaw = 0;
  pose.roll = 10;
  EXPECT_LT(calc::AxesOf(pose).right.z, 0);
}

TEST(CameraModelTest, AnglesComeBackFromTheAxes) {
  for (double yaw : {-20.0, 0.0, 3.5}) {
    for (double pitch : {-5.0, 0.0, 10.0, 40.0}) {
      for (double roll : {-12.0, 0.0, 0.75}) {
        calc::CameraPose pose;
        pose.yaw = yaw;
        pose.pitch = pitch;
        pose.roll = roll;
        calc::CameraPose back;
        calc::AnglesOfAxes(calc::AxesOf(pose), &back);
        EXPECT_NEAR(back.yaw, yaw, 1e-12);
        EXPECT_NEAR(back.pitch, pitch, 1e-12);
        EXPECT_NEAR(back.roll, roll, 1e-12);
      }
    }
  }
}

TEST(CameraModelTest, AWholePoseProjectsWhatItsRaysSee) {
  CameraModel model = StrongLens();
  model.pose = {1.5, -0.75, 6.2, 4.0, 11.0, -2.0};
  const CameraRays rays(model);
  EXPECT_FALSE(calc::IsPinhole(model));
  for (const Pixel& p : PictureGrid(53)) {
    const Vec3 q = rays.centre() + 17.0 * rays.Ray(p);
    Pixel back;
    ASSERT_TRUE(rays.Project(q, &back));
    EXPECT_NEAR(back.u, p.u, 1e-9);
    EXPECT_NEAR(back.v, p.v, 1e-9);
  }
  Pixel p;
  EXPECT_FALSE(rays.Project(rays.centre() - 3.0 * rays.axes().forward, &p));
}

}  // namespace
