// The camera model against OpenCV's: projection, its inverse, the camera's
// pose, refusing a lens that folds the picture over, and the rendered
// stripe's centre against cv::projectPoints of the laser's points.
//
// The stripe's centre in a row is the centre of its noise-free light
// (RenderLight without speckle or ambient light, before the sensor): the
// peak of the Gaussian through the row's three brightest samples. Across a
// row the blurred stripe is a Gaussian, so that peak is where the stripe's
// centre line crosses the row.
#include "platform/sunxi_cam/lens.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <opencv2/calib3d.hpp>
#include <opencv2/core.hpp>
#include <string>
#include <vector>

#include "platform/sunxi_cam/camera_sim.h"
#include "platform/sunxi_cam/physical.h"
#include "tests/support/sim_settings.h"

namespace {

namespace sim = sunxi_cam::sim;

class LensTest : public ::testing::Test {
 protected:
  void TearDown() override { sim::Reset(); }
};

// OpenCV's view of a camera: intrinsics, distortion and pose.
struct CvCamera {
  cv::Mat k, dist, rvec, tvec;
  explicit CvCamera(const sim::SceneTruth& truth) {
    const sim::CameraModel& c = truth.camera;
    k = (cv::Mat_<double>(3, 3) << c.fx, 0, c.cx, 0, c.fy, c.cy, 0, 0, 1);
    dist = (cv::Mat_<double>(1, 5) << c.k1, c.k2, c.p1, c.p2, c.k3);
    cv::Mat r(3, 3, CV_64F);
    for (int i = 0; i < 3; ++i) {
      for (int j = 0; j < 3; ++j) r.at<double>(i, j) = truth.camera_pose.rotation[i][j];
    }
    cv::Rodrigues(r, rvec);
    tvec = (cv::Mat_<double>(3, 1) << truth.camera_pose.translation[0],
            truth.camera_pose.translation[1], truth.camera_pose.translation[2]);
  }
  cv::Point2d Project(const cv::Point3d& p) const {
    std::vector<cv::Point2d> out;
    cv::projectPoints(std::vector<cv::Point3d>{p}, rvec, tvec, k, dist, out);
    return out[0];
  }
};

TEST_F(LensTest, ProjectsAsOpenCvDoes) {
  for (const char* preset : {"robot", "harsh"}) {
    APPLY_SIM(std::string(R"({"preset": ")") + preset + "\"}");
    const sim::CameraModel camera = sim::GetScene().camera;
    const sim::Lens lens(camera);
    const cv::Mat k =
        (cv::Mat_<double>(3, 3) << camera.fx, 0, camera.cx, 0, camera.fy, camera.cy, 0, 0, 1);
    const cv::Mat dist =
        (cv::Mat_<double>(1, 5) << camera.k1, camera.k2, camera.p1, camera.p2, camera.k3);
    for (double x = -1.2; x <= 1.2; x += 0.05) {
      for (double y = -0.9; y <= 0.9; y += 0.05) {
        if (x * x + y * y >= lens.valid_r2()) continue;
        std::vector<cv::Point2d> expected;
        cv::projectPoints(std::vector<cv::Point3d>{{x, y, 1}}, cv::Mat::zeros(3, 1, CV_64F),
                          cv::Mat::zeros(3, 1, CV_64F), k, dist, expected);
        double u = 0, v = 0;
        lens.Project(x, y, &u, &v);
        EXPECT_NEAR(u, expected[0].x, 1e-9) << preset << " " << x << " " << y;
        EXPECT_NEAR(v, expected[0].y, 1e-9) << preset << " " << x << " " << y;
      }
    }
  }
}

TEST_F(LensTest, EveryPixelGoesBackToTheDirectionItSees) {
  APPLY_SIM(R"({"preset": "harsh"})");
  const sim::Lens lens(sim::GetScene().camera);
  for (int v = -1; v <= sim::kHeight; v += 7) {
    for (int u = -1; u <= sim::kWidth; u += 7) {
      double x = 0, y = 0;
      ASSERT_TRUE(lens.Unproject(u, v, &x, &y)) << u << " " << v;
      double pu = 0, pv = 0;
      lens.Project(x, y, &pu, &pv);
      EXPECT_NEAR(pu, u, 1e-9);
      EXPECT_NEAR(pv, v, 1e-9);
    }
  }
}

TEST_F(LensTest, TheTruthsPoseTakesRobotPointsWhereTheLensSeesThem) {
  APPLY_SIM(R"({"preset": "robot", "scene": {"camera": {"height": 6.5, "pitch": 13}}})");
  const sim::SceneTruth truth = sim::Truth();
  const CvCamera cv_camera(truth);
  const sim::Lens lens(truth.camera);
  for (const cv::Point3d p :
       {cv::Point3d(30, 0, 0), cv::Point3d(25, 8, 10), cv::Point3d(12, -5, 1)}) {
    const sim::Vec3 c = lens.ToCamera({p.x, p.y, p.z});
    double u = 0, v = 0;
    lens.Project(c.x / c.z, c.y / c.z, &u, &v);
    const cv::Point2d expected = cv_camera.Project(p);
    EXPECT_NEAR(u, expected.x, 1e-9);
    EXPECT_NEAR(v, expected.y, 1e-9);
  }
  // The camera sits at (0, 0, height) and looks ahead, down by pitch.
  const sim::Vec3 centre = lens.ToCamera({0, 0, 6.5});
  EXPECT_NEAR(std::hypot(centre.x, centre.y, centre.z), 0, 1e-12);
}

TEST_F(LensTest, ALensThatFoldsThePictureOverIsRefused) {
  const std::string refused =
      testsupport::ConfigureSim(R"({"preset": "robot", "scene": {"camera": {"k1": -0.9}}})");
  EXPECT_EQ(refused.rfind(
                "camera sim: scene.camera.k1, k2, p1, p2, k3 must not fold the picture over", 0),
            0u)
      << refused;
  EXPECT_EQ(sim::GetScene().renderer, sim::Renderer::kIdeal);  // nothing changed
  // The ideal renderer draws a pinhole camera.
  EXPECT_EQ(testsupport::ConfigureSim(R"({"scene": {"camera": {"p2": 0.01}}})"),
            "camera sim: scene.camera.p2 must be 0 with the ideal renderer, a pinhole camera "
            "(scene.renderer \"physical\", or a preset such as \"robot\", draws a lens)");
}

// The stripe's centre in row v of `light`, near column `near`: the peak of
// the Gaussian through the three brightest samples; NaN when there is none.
double RowCentre(const std::vector<double>& light, int v, double near) {
  const int c = static_cast<int>(std::lround(near));
  int best = -1;
  for (int u = std::max(c - 4, 1); u <= std::min(c + 4, sim::kWidth - 2); ++u) {
    if (best < 0 || light[v * sim::kWidth + u] > light[v * sim::kWidth + best]) best = u;
  }
  if (best < 0) return NAN;
  const double l0 = light[v * sim::kWidth + best - 1], l1 = light[v * sim::kWidth + best],
               l2 = light[v * sim::kWidth + best + 1];
  if (!(l0 > 0 && l1 > 0 && l2 > 0)) return NAN;
  const double a = std::log(l0), b = std::log(l1), d = std::log(l2);
  return best + 0.5 * (a - d) / (a - 2 * b + d);
}

struct Coverage {
  int rows = 0;
  bool corner[4] = {};  // within 40 pixels of each corner
  double worst = 0;
  void Add(double u, double v, double error) {
    ++rows;
    worst = std::max(worst, error);
    const bool left = u<40, right = u> sim::kWidth - 41, top = v<40, bottom = v> sim::kHeight - 41;
    corner[0] |= left && top;
    corner[1] |= right && top;
    corner[2] |= left && bottom;
    corner[3] |= right && bottom;
  }
};

// Compares the rows of the left laser's wall stripe with cv::projectPoints
// of the laser's points on the wall. Each row's point is found by bisection
// with the simulator's own projection (equal to OpenCV's to 1e-9 px, above),
// and then projected with cv::projectPoints.
void CheckWallStripe(Coverage* coverage) {
  const sim::SceneTruth truth = sim::Truth();
  const CvCamera cv_camera(truth);
  sim::LightOptions options;
  options.speckle = false;
  options.ambient = false;
  const std::vector<double> light = sim::RenderLight(sim::GetScene(), 1u, options);
  const sim::LaserPlane& n = truth.left;
  const double d = truth.distance;
  auto point = [&](double z) { return cv::Point3d(d, (n.offset - n.nx * d - n.nz * z) / n.ny, z); };
  const sim::Lens lens(truth.camera);
  // Where the lens shows the wall's point at height z; false where the lens
  // model does not hold (OpenCV's polynomial folds back beyond).
  auto at = [&](double z, cv::Point2d* pixel) {
    const cv::Point3d p = point(z);
    const sim::Vec3 c = lens.ToCamera({p.x, p.y, p.z});
    if (!(c.z > 0 && (c.x * c.x + c.y * c.y) / (c.z * c.z) < 0.9 * lens.valid_r2())) return false;
    lens.Project(c.x / c.z, c.y / c.z, &pixel->x, &pixel->y);
    return true;
  };
  // The wall's heights the picture can show: within 1.5 distances of the
  // camera's height (its view is 70 degrees across).
  const double c = truth.camera.height;
  const double z_low = std::max(0.0, c - 1.5 * d),
               z_high = std::min(truth.wall_height, c + 1.5 * d);
  constexpr double kStep = 0.05;
  for (double z0 = z_low; z0 + kStep <= z_high; z0 += kStep) {
    cv::Point2d p0, p1;
    if (!at(z0, &p0) || !at(z0 + kStep, &p1)) continue;
    const int v = static_cast<int>(std::floor(p0.y));  // v falls as z rises
    if (!(p1.y < v && v >= 2 && v < sim::kHeight - 2)) continue;
    double lo = z0, hi = z0 + kStep;
    for (int i = 0; i < 60; ++i) {
      const double mid = 0.5 * (lo + hi);
      cv::Point2d m;
      at(mid, &m);
      (m.y > v ? lo : hi) = mid;
    }
    const cv::Point2d expected = cv_camera.Project(point(0.5 * (lo + hi)));
    ASSERT_NEAR(expected.y, v, 1e-6);
    if (!(expected.x > 3 && expected.x < sim::kWidth - 4)) continue;
    // A row far from steep sees the stripe stretched: only steep rows.
    cv::Point2d above, below;
    if (!at(hi + 0.05, &above) || !at(lo - 0.05, &below)) continue;
    if (std::fabs((above.x - below.x) / (above.y - below.y)) > 1.0) continue;
    const double centre = RowCentre(light, v, expected.x);
    ASSERT_FALSE(std::isnan(centre)) << "no stripe in row " << v << " near " << expected.x;
    const double error = std::fabs(centre - expected.x);
    EXPECT_LT(error, 0.02) << "row " << v << ": rendered " << centre << ", projected "
                           << expected.x;
    coverage->Add(expected.x, v, error);
  }
}

TEST_F(LensTest, RenderedStripeCentresAreWhereOpenCvProjectsTheLasersPoints) {
  Coverage coverage;
  for (const char* preset : {"robot", "harsh"}) {
    for (double yaw : {-36.0, -24.0, -10.0, 0.0, 10.0, 24.0, 36.0}) {
      for (double roll : {-30.0, 0.0, 30.0}) {
        // A camera high above the floor, looking straight at a wall that
        // fills the picture; the laser beside it.
        char json[400];
        std::snprintf(json, sizeof json,
                      R"({"preset": "%s", "distance": 24, "scene": {"camera": {"height": 100,
                      "pitch": 0}, "left_laser": {"x": 0, "y": 1, "z": 100, "yaw": %g,
                      "roll": %g}}})",
                      preset, yaw, roll);
        APPLY_SIM(json);
        CheckWallStripe(&coverage);
      }
    }
  }
  std::printf("rows compared: %d, worst error %.4f px\n", coverage.rows, coverage.worst);
  EXPECT_GT(coverage.rows, 3000);
  for (int corner = 0; corner < 4; ++corner) EXPECT_TRUE(coverage.corner[corner]) << corner;
}

}  // namespace
