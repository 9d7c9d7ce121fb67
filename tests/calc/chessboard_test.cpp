// The chessboard in a picture: its corners against the ones the board was
// drawn with, their numbering, boards that cannot be used, and coverage.
#include "tools/calc/chessboard.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <opencv2/core.hpp>
#include <string>
#include <vector>

#include "platform/sunxi_cam/camera_sim.h"
#include "platform/sunxi_cam/sunxi_cam.h"
#include "tests/calc/emulated.h"
#include "tests/calc/synthetic_boards.h"
#include "tests/support/sim_settings.h"

namespace {

using calc::BoardGeometry;
using calc::CornerMethod;
using calc::Pixel;

calc::GrayPicture Gray(const cv::Mat& m) {
  return {m.data, m.cols, m.rows, static_cast<int>(m.step)};
}

struct Errors {
  double mean_u = 0, mean_v = 0, rms = 0, worst = 0;
};

// The robot's camera with pictures half as wide and high: a search that
// finds no board takes seconds on a whole picture.
calc::CameraModel SmallCamera() {
  calc::CameraModel camera = calctest::RobotCamera();
  camera.image_width = 320;
  camera.image_height = 240;
  camera.intrinsics = {224.25, 225.6, 161.15, 118.8};
  return camera;
}

Errors Compare(const std::vector<Pixel>& found, const std::vector<Pixel>& truth) {
  Errors e;
  for (std::size_t i = 0; i < truth.size(); ++i) {
    const double du = found[i].u - truth[i].u, dv = found[i].v - truth[i].v;
    e.mean_u += du / truth.size();
    e.mean_v += dv / truth.size();
    e.rms += (du * du + dv * dv) / truth.size();
    e.worst = std::fmax(e.worst, std::hypot(du, dv));
  }
  e.rms = std::sqrt(e.rms);
  return e;
}

// The covering views drawn with `look`: the corners' errors against the
// drawn ones, over all views, found by the classic search and, in the first
// `sector_views` views, by the sector-based one.
void Measure(const calctest::Look& look, std::size_t sector_views, Errors* classic,
             Errors* sector) {
  const calc::CameraModel camera = calctest::RobotCamera();
  const BoardGeometry board;
  std::vector<Pixel> found, truth, found_sb, truth_sb;
  std::vector<calctest::BoardSpot> spots = calctest::CoveringSpots();
  if (calctest::Emulated()) spots.resize(4);
  for (std::size_t i = 0; i < spots.size(); ++i) {
    const calc::BoardPlacement placement = calctest::PlaceBoard(camera, board, spots[i]);
    const cv::Mat view = calctest::RenderBoard(camera, board, placement, look);
    const std::vector<Pixel> t = calctest::TrueCorners(camera, board, placement);
    const calc::FoundBoard f = calc::FindBoard("view", Gray(view), board);
    ASSERT_EQ(f.code, calc::kSuccess) << f.reason;
    found.insert(found.end(), f.corners.begin(), f.corners.end());
    truth.insert(truth.end(), t.begin(), t.end());
    if (i >= sector_views) continue;
    const calc::FoundBoard g =
        calc::FindBoard("view", Gray(view), board, CornerMethod::kSectorBased);
    ASSERT_EQ(g.code, calc::kSuccess) << g.reason;
    found_sb.insert(found_sb.end(), g.corners.begin(), g.corners.end());
    truth_sb.insert(truth_sb.end(), t.begin(), t.end());
  }
  *classic = Compare(found, truth);
  if (sector != nullptr) *sector = Compare(found_sb, truth_sb);
}

// The classic search with cornerSubPix, the default, measures better than
// the sector-based one on these boards (the figures are printed). Under an
// emulator, four views and no sector-based search.
TEST(ChessboardTest, CornersLieWhereTheBoardWasDrawn) {
  Errors noisy, soft, sector;
  Measure({0.7, 2.0, 1}, calctest::Emulated() ? 0 : 4, &noisy, &sector);
  Measure({1.5, 3.0, 2}, 0, &soft, nullptr);
  std::printf(
      "classic: blur 0.7 noise 2: RMS %.4f worst %.4f bias (%.4f, %.4f) px; blur 1.5 "
      "noise 3: RMS %.4f worst %.4f bias (%.4f, %.4f) px\n",
      noisy.rms, noisy.worst, noisy.mean_u, noisy.mean_v, soft.rms, soft.worst, soft.mean_u,
      soft.mean_v);
  std::printf(
      "sector based (4 views): blur 0.7 noise 2: RMS %.4f worst %.4f bias (%.4f, %.4f) "
      "px\n",
      sector.rms, sector.worst, sector.mean_u, sector.mean_v);
  for (const Errors& e : {noisy, soft}) {
    EXPECT_LT(e.rms, 0.1);
    EXPECT_LT(std::fabs(e.mean_u), 0.02);
    EXPECT_LT(std::fabs(e.mean_v), 0.02);
  }
  if (!calctest::Emulated()) {
    EXPECT_LT(noisy.rms, sector.rms);
  }
}

// The classic search looks at the picture as it is before it equalises the
// histogram (kThorough alone): on every covering view both find the board,
// and the same corners.
TEST(ChessboardTest, TheQuickSearchFindsTheCornersOfTheThoroughOne) {
  const calc::CameraModel camera = calctest::RobotCamera();
  const BoardGeometry board;
  std::vector<calctest::BoardSpot> spots = calctest::CoveringSpots();
  if (calctest::Emulated()) spots.resize(4);
  for (const calctest::Look& look : {calctest::Look{0.7, 2.0, 1}, calctest::Look{1.5, 3.0, 2}}) {
    for (std::size_t i = 0; i < spots.size(); ++i) {
      const cv::Mat view =
          calctest::RenderBoard(camera, board, calctest::PlaceBoard(camera, board, spots[i]), look);
      const calc::FoundBoard quick = calc::FindBoard("view", Gray(view), board);
      const calc::FoundBoard thorough =
          calc::FindBoard("view", Gray(view), board, CornerMethod::kThorough);
      ASSERT_EQ(quick.code, calc::kSuccess) << quick.reason;
      ASSERT_EQ(thorough.code, calc::kSuccess) << thorough.reason;
      EXPECT_LT(Compare(quick.corners, thorough.corners).worst, 1e-3) << "view " << i;
    }
  }
}

// The same on the robot's camera, with a small board in the picture's top
// left corner (view 9 of scenarios/robot_chain_round.json): there the
// thorough search takes ten times as long, and the quick one's first guess
// of the corners lies far enough from the thorough one's to size the
// refinement's window otherwise, were it not sized from the refined corners.
TEST(ChessboardTest, TheQuickSearchFindsTheCornersOfTheThoroughOneOnTheRobotsCamera) {
  APPLY_SIM(R"({"preset": "robot", "scene": {"board": {"on": true, "cols": 9, "rows": 6,
      "square": 2.5, "margin": 2.5, "x": -16, "y": -10, "z": 50, "yaw": -15, "pitch": 10}}})");
  sunxi_cam::SunxiCam camera;
  ASSERT_TRUE(camera.OpenCamera(1, sunxi_cam::kPixelFormatNV21, 100, 640, 480));
  ASSERT_TRUE(camera.setExposureGain(8000, 32));  // the node's chessboard setting
  const cv::Mat view =
      cv::Mat(480, 640, CV_8UC1, const_cast<uint8_t*>(sunxi_cam::sim::Luminance(1))).clone();
  camera.CloseCamera();
  sunxi_cam::sim::Reset();
  const calc::BoardGeometry board;
  const calc::FoundBoard quick = calc::FindBoard("view 09", Gray(view), board);
  const calc::FoundBoard thorough =
      calc::FindBoard("view 09", Gray(view), board, CornerMethod::kThorough);
  ASSERT_EQ(quick.code, calc::kSuccess) << quick.reason;
  ASSERT_EQ(thorough.code, calc::kSuccess) << thorough.reason;
  EXPECT_LT(Compare(quick.corners, thorough.corners).worst, 1e-3);
}

TEST(ChessboardTest, CornersAreNumberedFromThePicturesTopLeft) {
  const calc::CameraModel camera = calctest::RobotCamera();
  const BoardGeometry board;
  calc::BoardPlacement placement = calctest::PlaceBoard(camera, board, {320, 240, 30, 5, 5});
  const std::vector<Pixel> truth = calctest::TrueCorners(camera, board, placement);
  // The same board turned upside down: its own first corner at the
  // picture's bottom right.
  calc::BoardPlacement turned = placement;
  turned.origin = placement.origin + ((board.columns - 1) * board.square) * placement.x_axis +
                  ((board.rows - 1) * board.square) * placement.y_axis;
  turned.x_axis = -1.0 * placement.x_axis;
  turned.y_axis = -1.0 * placement.y_axis;
  for (const calc::BoardPlacement& p : {placement, turned}) {
    const cv::Mat view = calctest::RenderBoard(camera, board, p, {});
    const calc::FoundBoard f = calc::FindBoard("view", Gray(view), board);
    ASSERT_EQ(f.code, calc::kSuccess) << f.reason;
    EXPECT_LT(Compare(f.corners, truth).worst, 0.4);
    EXPECT_LT(f.corners.front().u, f.corners[1].u);
    EXPECT_LT(f.corners.front().v, f.corners[board.columns].v);
  }
}

// Boards whose outer squares the picture's edge cuts: OpenCV finds the
// inner corners of the first two (boards between about 550 and 565 and
// between 75 and 90 are so), FindBoard does not take them; the third it
// does not find at all (on a small picture: a search that finds nothing
// takes seconds on a whole one). Under an emulator the sector-based search,
// the slowest, looks at the first board only: the check after the search is
// the same for both methods, and the classic one meets both edges.
TEST(ChessboardTest, ABoardCutOffByThePicturesEdgeIsNotFound) {
  const calc::CameraModel camera = calctest::RobotCamera();
  const BoardGeometry board;
  for (double u : {555.0, 82.0}) {
    const cv::Mat view = calctest::RenderBoard(
        camera, board, calctest::PlaceBoard(camera, board, {u, 240, 30, 0, 0}), {});
    for (CornerMethod method : {CornerMethod::kClassic, CornerMethod::kSectorBased}) {
      if (method == CornerMethod::kSectorBased && u != 555.0 && calctest::Emulated()) continue;
      const calc::FoundBoard f = calc::FindBoard("07.png", Gray(view), board, method);
      EXPECT_EQ(f.code, calc::kBoardNotFound);
      EXPECT_EQ(f.reason, "07.png: board not found (it is cut off by the picture's edge)") << u;
    }
  }
  const calc::CameraModel small = SmallCamera();
  const cv::Mat view = calctest::RenderBoard(
      small, board, calctest::PlaceBoard(small, board, {290, 120, 30, 0, 0}), {});
  const calc::FoundBoard f = calc::FindBoard("07.png", Gray(view), board);
  EXPECT_EQ(f.code, calc::kBoardNotFound);
  EXPECT_EQ(f.reason, "07.png: board not found (no chessboard of 9 x 6 inner corners)");
  // Just inside, it is found.
  for (double u : {540.0, 100.0}) {
    const cv::Mat inside = calctest::RenderBoard(
        camera, board, calctest::PlaceBoard(camera, board, {u, 240, 30, 0, 0}), {});
    EXPECT_EQ(calc::FindBoard("08.png", Gray(inside), board).code, calc::kSuccess) << u;
  }
}

TEST(ChessboardTest, PicturesWithoutABoardAreNamed) {
  const BoardGeometry board;
  cv::Mat blank(480, 640, CV_8UC1, cv::Scalar(90));
  calc::FoundBoard f = calc::FindBoard("blank.png", Gray(blank), board);
  EXPECT_EQ(f.code, calc::kBoardNotFound);
  EXPECT_EQ(f.reason, "blank.png: board not found (no chessboard of 9 x 6 inner corners)");
  cv::Mat noise(480, 640, CV_8UC1);
  cv::RNG(3).fill(noise, cv::RNG::UNIFORM, 0, 256);
  EXPECT_EQ(calc::FindBoard("noise.png", Gray(noise), board).code, calc::kBoardNotFound);
  EXPECT_EQ(calc::FindBoard("none", calc::GrayPicture{}, board).code, calc::kPictureRefused);
}

// Asked for fewer corners than the board has, the search does not take a
// part of it.
TEST(ChessboardTest, APartOfALargerBoardIsNotTaken) {
  const calc::CameraModel camera = SmallCamera();
  const BoardGeometry board;
  const cv::Mat view = calctest::RenderBoard(
      camera, board, calctest::PlaceBoard(camera, board, {160, 120, 28, 0, 0}), {});
  ASSERT_EQ(calc::FindBoard("view", Gray(view), board).code, calc::kSuccess);
  BoardGeometry part = board;
  part.columns = 7;
  const calc::FoundBoard f = calc::FindBoard("view", Gray(view), part);
  EXPECT_EQ(f.code, calc::kBoardNotFound);
  EXPECT_EQ(f.reason, "view: board not found (no chessboard of 7 x 6 inner corners)");
}

TEST(ChessboardTest, ABoardTurnedOnItsSideIsNotRead) {
  const calc::CameraModel camera = calctest::RobotCamera();
  const BoardGeometry board;
  calc::BoardPlacement p = calctest::PlaceBoard(camera, board, {320, 240, 32, 0, 0});
  // A quarter turn in the board's plane, about its centre.
  const calc::Vec3 centre = p.origin + (0.5 * (board.columns - 1) * board.square) * p.x_axis +
                            (0.5 * (board.rows - 1) * board.square) * p.y_axis;
  const calc::Vec3 x = p.y_axis, y = -1.0 * p.x_axis;
  p.x_axis = x;
  p.y_axis = y;
  p.origin = centre - (0.5 * (board.columns - 1) * board.square) * x -
             (0.5 * (board.rows - 1) * board.square) * y;
  const cv::Mat view = calctest::RenderBoard(camera, board, p, {});
  const calc::FoundBoard f = calc::FindBoard("side.png", Gray(view), board);
  EXPECT_EQ(f.code, calc::kBoardNotFound);
  EXPECT_EQ(f.reason, "side.png: board not found (it is turned by more than 45 degrees)");
}

TEST(ChessboardTest, BoardsThatCannotBeUsedAreSaidWhy) {
  EXPECT_EQ(calc::BoardProblem(BoardGeometry{}), "");
  EXPECT_EQ(calc::BoardProblem({7, 7, 2, 1}),
            "a board with as many inner corners along its rows as down its columns (7 x 7) "
            "cannot be told round");
  EXPECT_NE(calc::BoardProblem({2, 5, 2, 1}), "");
  EXPECT_NE(calc::BoardProblem({9, 6, 0, 1}), "");
  EXPECT_NE(calc::BoardProblem({9, 6, 2, -1}), "");
  const calc::FoundBoard f = calc::FindBoard("v", calc::GrayPicture{nullptr, 0, 0, 0}, {7, 7});
  EXPECT_EQ(f.code, calc::kPictureRefused);
}

TEST(ChessboardTest, CoverageIsTheLeastReachIntoAQuarter) {
  const calc::CameraModel camera = calctest::RobotCamera();
  const BoardGeometry board;
  auto reach = [&](const std::vector<calctest::BoardSpot>& spots) {
    std::vector<std::vector<Pixel>> views;
    for (const calctest::BoardSpot& s : spots) {
      views.push_back(calctest::TrueCorners(camera, board, calctest::PlaceBoard(camera, board, s)));
    }
    return calc::CoverageOf(views, 640, 480);
  };
  const calc::Coverage covering = reach(calctest::CoveringSpots());
  const calc::Coverage central = reach(calctest::CentralSpots());
  std::printf("coverage: covering views %.3f, central views %.3f (%s)\n", covering.reach,
              central.reach, calc::QuarterName(central.quarter));
  EXPECT_GT(covering.reach, 0.65);
  EXPECT_LT(central.reach, 0.5);
  // A corner of the picture is 1; a quarter with no corner is 0.
  EXPECT_NEAR(calc::CoverageOf({{{0, 0}, {639, 0}, {0, 479}, {639, 479}}}, 640, 480).reach, 0.9986,
              1e-3);
  const calc::Coverage three = calc::CoverageOf({{{0, 0}, {639, 0}, {0, 479}}}, 640, 480);
  EXPECT_EQ(three.reach, 0);
  EXPECT_EQ(three.quarter, 3);
  EXPECT_STREQ(calc::QuarterName(3), "bottom right");
}

}  // namespace
