// The camera from chessboard views drawn through a known camera: the
// recovered lens and pose against the known ones, their 1-sigma against the
// spread over many seeds, and every failure code.
#include "tools/calc/camera_calibration.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <opencv2/core.hpp>
#include <string>
#include <vector>

#include "tests/calc/emulated.h"
#include "tests/calc/synthetic_boards.h"

namespace {

using calc::BoardGeometry;
using calc::CameraModel;
using calc::Pixel;

struct Views {
  std::vector<cv::Mat> pictures;
  std::vector<calc::BoardView> views;
  std::vector<calc::BoardPlacement> placements;
};

Views Draw(const CameraModel& camera, const BoardGeometry& board,
           const std::vector<calctest::BoardSpot>& spots, const calctest::Look& look) {
  Views v;
  for (std::size_t i = 0; i < spots.size(); ++i) {
    v.placements.push_back(calctest::PlaceBoard(camera, board, spots[i]));
    calctest::Look l = look;
    l.seed = look.seed * 100 + i;
    v.pictures.push_back(calctest::RenderBoard(camera, board, v.placements.back(), l));
  }
  for (std::size_t i = 0; i < spots.size(); ++i) {
    const cv::Mat& m = v.pictures[i];
    char name[32];
    std::snprintf(name, sizeof name, "%02d.png", int(i + 1));
    v.views.push_back({name, {m.data, m.cols, m.rows, static_cast<int>(m.step)}});
  }
  return v;
}

// How far apart two cameras send the rays of the picture's pixels: the
// largest angle, over the pixels no farther from the picture's centre than
// `reach` of its half diagonal, between the rays the two models send
// through the pixel, in the robot's frame (`robot`, lens and pose) or the
// camera's own (lens alone); in pixels at the first camera's focal length.
double RayDifference(const CameraModel& a, const CameraModel& b, double reach, bool robot) {
  std::vector<Pixel> pixels;
  for (int v = 0; v < 480; v += 10) {
    for (int u = 0; u < 640; u += 10) {
      if (std::hypot(u - 319.5, v - 239.5) <= reach * 400) pixels.push_back({double(u), double(v)});
    }
  }
  CameraModel pa = a, pb = b;
  if (!robot) pa.pose = pb.pose = calc::CameraPose{};
  const calc::CameraRays ra(pa), rb(pb);
  const std::vector<Pixel> ua = calc::Undistort(a, pixels), ub = calc::Undistort(b, pixels);
  double worst = 0;
  for (std::size_t i = 0; i < pixels.size(); ++i) {
    const calc::Vec3 x = ra.Ray(ua[i]), y = rb.Ray(ub[i]);
    const calc::Vec3 cross{x.y * y.z - x.z * y.y, x.z * y.x - x.x * y.z, x.x * y.y - x.y * y.x};
    const double angle = std::atan2(std::sqrt(calc::Dot(cross, cross)), calc::Dot(x, y));
    worst = std::fmax(worst, angle * a.intrinsics.fx);
  }
  return worst;
}

TEST(CameraCalibrationTest, TheCameraComesBackFromItsViews) {
  const CameraModel truth = calctest::RobotCamera();
  const BoardGeometry board;
  const Views v = Draw(truth, board, calctest::CoveringSpots(), {});
  const calc::CameraCalibration c = calc::CalibrateChessboard(v.views, board, v.placements);
  ASSERT_EQ(c.code, calc::kSuccess) << c.reason;
  const CameraModel& m = c.model;
  const calc::Intrinsics &k = m.intrinsics, &ks = m.intrinsics_sigma;
  const calc::CameraPose &p = m.pose, &ps = m.pose_sigma, &t = truth.pose;
  std::printf("views %d, coverage %.3f, RMS %.4f px, pose RMS %.4f px\n", c.views, c.coverage,
              c.rms, c.pose_rms);
  std::printf("fx %.3f (%+.4f %%, sigma %.3f)  fy %.3f (%+.4f %%, sigma %.3f)\n", k.fx,
              100 * (k.fx / truth.intrinsics.fx - 1), ks.fx, k.fy,
              100 * (k.fy / truth.intrinsics.fy - 1), ks.fy);
  std::printf("cx %.3f (%+.3f, sigma %.3f)  cy %.3f (%+.3f, sigma %.3f) px\n", k.cx,
              k.cx - truth.intrinsics.cx, ks.cx, k.cy, k.cy - truth.intrinsics.cy, ks.cy);
  std::printf("k1 %.4f k2 %.4f p1 %.5f p2 %.5f k3 %.4f\n", m.distortion.k1, m.distortion.k2,
              m.distortion.p1, m.distortion.p2, m.distortion.k3);
  std::printf(
      "rays off by, at worst: %.3f px in the camera's frame and %.3f px in the robot's "
      "where the boards reached, %.3f and %.3f px in the whole picture\n",
      RayDifference(truth, m, c.coverage, false), RayDifference(truth, m, c.coverage, true),
      RayDifference(truth, m, 1, false), RayDifference(truth, m, 1, true));
  std::printf(
      "pose: x %+.4f y %+.4f height %+.4f cm, yaw %+.4f pitch %+.4f roll %+.4f deg off; "
      "sigma %.4f %.4f %.4f cm, %.4f %.4f %.4f deg\n",
      p.x - t.x, p.y - t.y, p.height - t.height, p.yaw - t.yaw, p.pitch - t.pitch, p.roll - t.roll,
      ps.x, ps.y, ps.height, ps.yaw, ps.pitch, ps.roll);
  EXPECT_EQ(c.views, 12);
  EXPECT_EQ(c.fits.size(), 12u);
  EXPECT_EQ(c.fits[6].name, "07.png");
  EXPECT_LE(c.rms, 0.15);
  EXPECT_LT(std::fabs(k.fx / truth.intrinsics.fx - 1), 0.003);
  EXPECT_LT(std::fabs(k.fy / truth.intrinsics.fy - 1), 0.003);
  EXPECT_LT(std::fabs(k.cx - truth.intrinsics.cx), 1.0);
  EXPECT_LT(std::fabs(k.cy - truth.intrinsics.cy), 1.0);
  EXPECT_LT(RayDifference(truth, m, c.coverage, true), 0.2);
  ASSERT_TRUE(m.pose_known);
  EXPECT_LT(std::fabs(p.height - t.height), 0.05);
  EXPECT_LT(std::fabs(p.x - t.x), 0.1);
  EXPECT_LT(std::fabs(p.y - t.y), 0.1);
  EXPECT_LT(std::fabs(p.pitch - t.pitch), 0.1);
  EXPECT_LT(std::fabs(p.yaw - t.yaw), 0.1);
  EXPECT_LT(std::fabs(p.roll - t.roll), 0.1);
  for (double sigma :
       {ks.fx, ks.fy, ks.cx, ks.cy, ps.x, ps.y, ps.height, ps.yaw, ps.pitch, ps.roll}) {
    EXPECT_GT(sigma, 0);
  }
  // Without the placements, the lens alone.
  const calc::CameraCalibration lens = calc::CalibrateChessboard(v.views, board);
  ASSERT_EQ(lens.code, calc::kSuccess);
  EXPECT_FALSE(lens.model.pose_known);
  EXPECT_EQ(lens.model.intrinsics.fx, k.fx);
}

TEST(CameraCalibrationTest, ABoardNotFoundNamesTheView) {
  const CameraModel truth = calctest::RobotCamera();
  const BoardGeometry board;
  std::vector<calctest::BoardSpot> spots = calctest::CoveringSpots();
  spots[3] = {560, 240, 30, 0, 0};  // cut off by the picture's right edge
  const Views v = Draw(truth, board, spots, {});
  const calc::CameraCalibration c = calc::CalibrateChessboard(v.views, board, v.placements);
  EXPECT_EQ(c.code, calc::kBoardNotFound);
  EXPECT_EQ(c.reason, "04.png: board not found (it is cut off by the picture's edge)");
}

TEST(CameraCalibrationTest, TooFewViewsAreSaidWithTheNumberNeeded) {
  const CameraModel truth = calctest::RobotCamera();
  const BoardGeometry board;
  std::vector<calctest::BoardSpot> spots = calctest::CoveringSpots();
  spots.resize(5);
  const Views v = Draw(truth, board, spots, {});
  const calc::CameraCalibration c = calc::CalibrateChessboard(v.views, board);
  EXPECT_EQ(c.code, calc::kTooFewViews);
  EXPECT_EQ(c.reason, "too few views: 5 show the board, the calibration needs at least 6");
  EXPECT_EQ(calc::CalibrateChessboard({}, board).code, calc::kTooFewViews);
}

TEST(CameraCalibrationTest, CentralViewsDoNotCoverThePicture) {
  const CameraModel truth = calctest::RobotCamera();
  const BoardGeometry board;
  const Views v = Draw(truth, board, calctest::CentralSpots(), {});
  const calc::CameraCalibration c = calc::CalibrateChessboard(v.views, board);
  EXPECT_EQ(c.code, calc::kViewsDoNotCover);
  EXPECT_EQ(c.reason.rfind("views do not cover the picture: the boards reach 0.", 0), 0u)
      << c.reason;
  EXPECT_NE(c.reason.find("at least 0.60 is needed to measure the distortion"), std::string::npos)
      << c.reason;
  EXPECT_LT(c.coverage, 0.6);
}

// Corners far from any camera's picture of the boards: noise of 3 px.
TEST(CameraCalibrationTest, CornersNoCameraExplainsDoNotConverge) {
  const CameraModel truth = calctest::RobotCamera();
  const BoardGeometry board;
  std::vector<std::string> names;
  std::vector<std::vector<Pixel>> corners;
  cv::RNG rng(7);
  for (const calctest::BoardSpot& spot : calctest::CoveringSpots()) {
    names.push_back("view " + std::to_string(names.size() + 1));
    corners.push_back(
        calctest::TrueCorners(truth, board, calctest::PlaceBoard(truth, board, spot)));
    for (Pixel& p : corners.back()) {
      p.u += rng.gaussian(3.0);
      p.v += rng.gaussian(3.0);
    }
  }
  const calc::CameraCalibration c = calc::CalibrateFromCorners(names, corners, 640, 480, board);
  EXPECT_EQ(c.code, calc::kDidNotConverge);
  EXPECT_EQ(c.reason.rfind("did not converge: the corners lie ", 0), 0u) << c.reason;
  EXPECT_NE(c.reason.find("worst view view "), std::string::npos) << c.reason;
  EXPECT_GT(c.rms, 1.0);
}

TEST(CameraCalibrationTest, PlacementsThatDoNotFitTheViewsDoNotConverge) {
  const CameraModel truth = calctest::RobotCamera();
  const BoardGeometry board;
  std::vector<std::string> names;
  std::vector<std::vector<Pixel>> corners;
  std::vector<calc::BoardPlacement> placements;
  for (const calctest::BoardSpot& spot : calctest::CoveringSpots()) {
    names.push_back("v");
    placements.push_back(calctest::PlaceBoard(truth, board, spot));
    corners.push_back(calctest::TrueCorners(truth, board, placements.back()));
  }
  EXPECT_EQ(calc::CalibrateFromCorners(names, corners, 640, 480, board, placements).code,
            calc::kSuccess);
  placements[2].origin.x += 2;  // the fixture's third board 2 cm off
  const calc::CameraCalibration c =
      calc::CalibrateFromCorners(names, corners, 640, 480, board, placements);
  EXPECT_EQ(c.code, calc::kDidNotConverge);
  EXPECT_EQ(c.reason.rfind("did not converge: the boards' placements do not fit their views", 0),
            0u)
      << c.reason;
  placements.pop_back();
  EXPECT_EQ(calc::CalibrateFromCorners(names, corners, 640, 480, board, placements).code,
            calc::kTooFewViews);
}

// Over many seeds of corner noise, the 1-sigma the calibration reports is
// the spread of its errors: within 1.5 times, for the lens and the pose
// (under an emulator, four seeds and no comparison).
TEST(CameraCalibrationTest, TheReportedSigmaIsTheSpreadOverSeeds) {
  const CameraModel truth = calctest::RobotCamera();
  const BoardGeometry board;
  std::vector<std::vector<Pixel>> clean;
  std::vector<calc::BoardPlacement> placements;
  for (const calctest::BoardSpot& spot : calctest::CoveringSpots()) {
    placements.push_back(calctest::PlaceBoard(truth, board, spot));
    clean.push_back(calctest::TrueCorners(truth, board, placements.back()));
  }
  const std::vector<std::string> names(clean.size(), "v");
  const int kSeeds = calctest::Emulated() ? 4 : 40;
  const char* const figures[] = {"fx", "cx", "cy", "height", "pitch", "yaw", "roll"};
  double squares[7] = {}, sigmas[7] = {};
  int covered[7] = {};
  for (int seed = 1; seed <= kSeeds; ++seed) {
    cv::RNG rng(seed);
    std::vector<std::vector<Pixel>> corners = clean;
    for (auto& view : corners) {
      for (Pixel& p : view) {
        p.u += rng.gaussian(0.1);
        p.v += rng.gaussian(0.1);
      }
    }
    const calc::CameraCalibration c =
        calc::CalibrateFromCorners(names, corners, 640, 480, board, placements);
    ASSERT_EQ(c.code, calc::kSuccess) << c.reason;
    const CameraModel& m = c.model;
    const double errors[7] = {
        m.intrinsics.fx - truth.intrinsics.fx, m.intrinsics.cx - truth.intrinsics.cx,
        m.intrinsics.cy - truth.intrinsics.cy, m.pose.height - truth.pose.height,
        m.pose.pitch - truth.pose.pitch,       m.pose.yaw - truth.pose.yaw,
        m.pose.roll - truth.pose.roll};
    const double sigma[7] = {m.intrinsics_sigma.fx, m.intrinsics_sigma.cx, m.intrinsics_sigma.cy,
                             m.pose_sigma.height,   m.pose_sigma.pitch,    m.pose_sigma.yaw,
                             m.pose_sigma.roll};
    for (int i = 0; i < 7; ++i) {
      squares[i] += errors[i] * errors[i] / kSeeds;
      sigmas[i] += sigma[i] / kSeeds;
      covered[i] += std::fabs(errors[i]) <= sigma[i];
    }
  }
  for (int i = 0; i < 7; ++i) {
    const double spread = std::sqrt(squares[i]);
    std::printf(
        "%-6s predicted %.5f, measured %.5f over %d seeds (ratio %.2f), within 1 sigma "
        "%d of %d\n",
        figures[i], sigmas[i], spread, kSeeds, sigmas[i] / spread, covered[i], kSeeds);
    if (calctest::Emulated()) continue;
    EXPECT_LT(sigmas[i], 1.5 * spread) << figures[i];
    EXPECT_GT(sigmas[i], spread / 1.5) << figures[i];
  }
}

}  // namespace
