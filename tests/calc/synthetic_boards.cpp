#include "tests/calc/synthetic_boards.h"

#include <algorithm>
#include <cmath>
#include <opencv2/calib3d.hpp>
#include <opencv2/imgproc.hpp>

namespace calctest {
namespace {

constexpr int kScale = 8;   // the fill's resolution, times the picture's
constexpr int kShift = 8;   // fractional bits of the fill's coordinates
constexpr int kPieces = 8;  // pieces of each square edge

calc::Vec3 Turn(calc::Vec3 a, calc::Vec3 b, double degrees, calc::Vec3* b_out) {
  const double c = std::cos(degrees * calc::kPi / 180), s = std::sin(degrees * calc::kPi / 180);
  *b_out = (-s) * a + c * b;
  return c * a + s * b;
}

// The robot's frame into the camera's (OpenCV's x right, y down, z ahead).
void CameraFrame(const calc::CameraModel& camera, cv::Vec3d* rotation, cv::Vec3d* translation) {
  const calc::CameraAxes a = calc::AxesOf(camera.pose);
  const cv::Matx33d r(a.right.x, a.right.y, a.right.z, a.down.x, a.down.y, a.down.z, a.forward.x,
                      a.forward.y, a.forward.z);
  cv::Rodrigues(r, *rotation);
  const cv::Vec3d centre(camera.pose.x, camera.pose.y, camera.pose.height);
  *translation = -(r * centre);
}

std::vector<cv::Point2d> Show(const calc::CameraModel& camera, const std::vector<calc::Vec3>& at) {
  std::vector<cv::Point3d> points;
  for (const calc::Vec3& p : at) points.emplace_back(p.x, p.y, p.z);
  cv::Vec3d rotation, translation;
  CameraFrame(camera, &rotation, &translation);
  const calc::Intrinsics& k = camera.intrinsics;
  const calc::Distortion& d = camera.distortion;
  std::vector<cv::Point2d> shown;
  cv::projectPoints(points, rotation, translation,
                    cv::Matx33d(k.fx, 0, k.cx, 0, k.fy, k.cy, 0, 0, 1),
                    cv::Matx<double, 1, 5>(d.k1, d.k2, d.p1, d.p2, d.k3), shown);
  return shown;
}

// The outline of the board's rectangle [x0, x1] x [y0, y1] (board cm), in
// the fill's fixed-point coordinates.
std::vector<cv::Point> Outline(const calc::CameraModel& camera,
                               const calc::BoardPlacement& placement, double x0, double y0,
                               double x1, double y1) {
  std::vector<calc::Vec3> at;
  const double xs[4] = {x0, x1, x1, x0}, ys[4] = {y0, y0, y1, y1};
  for (int side = 0; side < 4; ++side) {
    for (int k = 0; k < kPieces; ++k) {
      const double t = double(k) / kPieces;
      const double x = xs[side] + t * (xs[(side + 1) % 4] - xs[side]);
      const double y = ys[side] + t * (ys[(side + 1) % 4] - ys[side]);
      at.push_back(placement.origin + x * placement.x_axis + y * placement.y_axis);
    }
  }
  std::vector<cv::Point> outline;
  for (const cv::Point2d& p : Show(camera, at)) {
    const double one = double(1 << kShift);
    const double u = std::clamp(((p.x + 0.5) * kScale - 0.5) * one, -1e8, 1e8);
    const double v = std::clamp(((p.y + 0.5) * kScale - 0.5) * one, -1e8, 1e8);
    outline.emplace_back(int(std::lround(u)), int(std::lround(v)));
  }
  return outline;
}

}  // namespace

calc::CameraModel RobotCamera() {
  calc::CameraModel camera;
  camera.intrinsics = {448.5, 451.2, 322.3, 237.6};
  camera.distortion = {-0.28, 0.09, 0.0008, -0.0006, -0.012};
  camera.pose = {0.4, -0.3, 5.2, 1.5, 11.0, -0.8};
  return camera;
}

calc::BoardPlacement PlaceBoard(const calc::CameraModel& camera, const calc::BoardGeometry& board,
                                const BoardSpot& spot) {
  const calc::CameraRays rays(camera);
  const calc::Vec3 centre = rays.centre() + spot.depth * rays.Ray({spot.u, spot.v});
  const calc::CameraAxes a = rays.axes();
  calc::Vec3 forward, forward2;
  const calc::Vec3 down = Turn(a.down, a.forward, spot.tilt_rows, &forward);
  const calc::Vec3 right = Turn(a.right, forward, spot.tilt_columns, &forward2);
  calc::BoardPlacement placement;
  placement.x_axis = right;
  placement.y_axis = down;
  placement.origin = centre - (0.5 * (board.columns - 1) * board.square) * right -
                     (0.5 * (board.rows - 1) * board.square) * down;
  return placement;
}

std::vector<calc::Pixel> TrueCorners(const calc::CameraModel& camera,
                                     const calc::BoardGeometry& board,
                                     const calc::BoardPlacement& placement) {
  std::vector<calc::Pixel> corners;
  for (const cv::Point2d& p : Show(camera, calc::PlacedCorners(board, placement))) {
    corners.push_back({p.x, p.y});
  }
  return corners;
}

cv::Mat RenderBoard(const calc::CameraModel& camera, const calc::BoardGeometry& board,
                    const calc::BoardPlacement& placement, const Look& look) {
  const int w = camera.image_width, h = camera.image_height;
  cv::Mat fine(h * kScale, w * kScale, CV_8UC1, cv::Scalar(look.background));
  const double s = board.square, m = board.margin;
  const std::vector<std::vector<cv::Point>> paper{
      Outline(camera, placement, -s - m, -s - m, board.columns * s + m, board.rows * s + m)};
  cv::fillPoly(fine, paper, cv::Scalar(look.white), cv::LINE_AA, kShift);
  std::vector<std::vector<cv::Point>> squares;
  for (int b = -1; b < board.rows; ++b) {
    for (int a = -1; a < board.columns; ++a) {
      if ((a + b) % 2 != 0) continue;
      squares.push_back(Outline(camera, placement, a * s, b * s, (a + 1) * s, (b + 1) * s));
    }
  }
  cv::fillPoly(fine, squares, cv::Scalar(look.black), cv::LINE_AA, kShift);
  cv::Mat picture;
  cv::resize(fine, picture, cv::Size(w, h), 0, 0, cv::INTER_AREA);
  picture.convertTo(picture, CV_32F);
  if (look.blur > 0) cv::GaussianBlur(picture, picture, cv::Size(0, 0), look.blur);
  cv::Mat noise(h, w, CV_32F);
  cv::RNG rng(look.seed);
  rng.fill(noise, cv::RNG::NORMAL, 0, look.noise);
  picture += noise;
  cv::Mat out;
  picture.convertTo(out, CV_8U);
  return out;
}

std::vector<BoardSpot> CoveringSpots() {
  return {{320, 240, 30, 0, 0},     {110, 82, 40, 15, -15},   {530, 82, 40, 15, 15},
          {110, 398, 40, -15, -15}, {530, 398, 40, -15, 15},  {320, 120, 34, 25, 0},
          {320, 360, 34, -25, 0},   {150, 240, 34, 0, -25},   {490, 240, 34, 0, 25},
          {320, 240, 26, 30, 10},   {320, 240, 28, -15, -30}, {320, 240, 40, 0, 35}};
}

std::vector<BoardSpot> CentralSpots() {
  return {{320, 240, 45, 0, 0},    {300, 225, 45, 15, 0},  {340, 225, 45, -15, 0},
          {300, 255, 45, 0, 15},   {340, 255, 45, 0, -15}, {320, 240, 50, 20, 20},
          {320, 240, 50, -20, 20}, {320, 240, 42, 10, -20}};
}

}  // namespace calctest
