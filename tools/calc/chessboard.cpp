#include "tools/calc/chessboard.h"

#include <algorithm>
#include <cmath>
#include <opencv2/calib3d.hpp>
#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>

namespace calc {
namespace {

std::string Size(const BoardGeometry& board) {
  return std::to_string(board.columns) + " x " + std::to_string(board.rows);
}

// The mean step from a corner to the next along the rows and down the
// columns.
void Steps(const std::vector<cv::Point2f>& c, const BoardGeometry& board, cv::Point2d* along,
           cv::Point2d* down) {
  *along = *down = cv::Point2d(0, 0);
  for (int i = 0; i < board.rows; ++i) {
    for (int j = 0; j + 1 < board.columns; ++j) {
      *along += cv::Point2d(c[i * board.columns + j + 1] - c[i * board.columns + j]);
    }
  }
  for (int i = 0; i + 1 < board.rows; ++i) {
    for (int j = 0; j < board.columns; ++j) {
      *down += cv::Point2d(c[(i + 1) * board.columns + j] - c[i * board.columns + j]);
    }
  }
}

double SmallestSpacing(const std::vector<cv::Point2f>& c, const BoardGeometry& board) {
  double smallest = 1e30;
  for (int i = 0; i < board.rows; ++i) {
    for (int j = 0; j < board.columns; ++j) {
      const cv::Point2f p = c[i * board.columns + j];
      if (j + 1 < board.columns) {
        smallest = std::min(smallest, cv::norm(c[i * board.columns + j + 1] - p));
      }
      if (i + 1 < board.rows) {
        smallest = std::min(smallest, cv::norm(c[(i + 1) * board.columns + j] - p));
      }
    }
  }
  return smallest;
}

// The homography from the board's plane, in squares (corner j, i at (j, i)),
// to the picture: near enough to place points a square or two beyond the
// corners, whatever the lens.
cv::Mat BoardPlane(const std::vector<cv::Point2f>& c, const BoardGeometry& board) {
  std::vector<cv::Point2f> grid;
  for (int i = 0; i < board.rows; ++i) {
    for (int j = 0; j < board.columns; ++j) grid.emplace_back(float(j), float(i));
  }
  return cv::findHomography(grid, c, 0);
}

// Whether the board's squares, one square beyond its outermost corners, lie
// inside the picture.
bool SquaresInside(const cv::Mat& plane, const BoardGeometry& board, int width, int height) {
  const float right = float(board.columns), bottom = float(board.rows);
  const std::vector<cv::Point2f> outline{{-1, -1}, {right, -1}, {-1, bottom}, {right, bottom}};
  std::vector<cv::Point2f> shown;
  cv::perspectiveTransform(outline, shown, plane);
  for (const cv::Point2f& p : shown) {
    if (!(p.x >= 0 && p.x <= width - 1 && p.y >= 0 && p.y <= height - 1)) return false;
  }
  return true;
}

// The mean grey level of the 3 x 3 pixels about each point; -1 for a point
// whose pixels are not all in the picture.
std::vector<double> GreyAt(const cv::Mat& picture, const std::vector<cv::Point2f>& points) {
  std::vector<double> grey;
  for (const cv::Point2f& p : points) {
    if (!(p.x >= 1 && p.y >= 1 && p.x < picture.cols - 2 && p.y < picture.rows - 2)) {
      grey.push_back(-1);
      continue;
    }
    const int u = cvRound(p.x), v = cvRound(p.y);
    grey.push_back(cv::mean(picture(cv::Rect(u - 1, v - 1, 3, 3)))[0]);
  }
  return grey;
}

// Whether the board's black and white squares go on beyond its outermost
// ones on some side, as they do where the search took a part of a larger
// board. The squares are looked at in their middles (the board's plane
// from its corners): the board's own inner squares give the grey levels of
// the two colours. On each side, the row of squares just beyond the
// board's outermost squares (its margin, or what lies beyond it) goes on
// with the pattern when its squares of the two colours differ by more than
// half as much, the same way round. Without inner squares to go by, the
// pattern may go on.
bool PatternGoesOn(const cv::Mat& picture, const cv::Mat& plane, const BoardGeometry& board) {
  // Squares in the board's plane, in squares (corner j, i at (j, i)): the
  // square whose top left corner is (j, i) is of colour (i + j) mod 2.
  std::vector<cv::Point2f> middles;
  std::vector<int> colour, side;  // side -1: the board's own; 0 to 3: beyond
  auto add = [&](int j, int i, int s) {
    middles.emplace_back(float(j + 0.5), float(i + 0.5));
    colour.push_back(((i + j) % 2 + 2) % 2);
    side.push_back(s);
  };
  for (int i = 0; i + 1 < board.rows; ++i) {
    for (int j = 0; j + 1 < board.columns; ++j) add(j, i, -1);
  }
  for (int j = -1; j < board.columns; ++j) {
    add(j, -2, 0);
    add(j, board.rows, 1);
  }
  for (int i = -1; i < board.rows; ++i) {
    add(-2, i, 2);
    add(board.columns, i, 3);
  }
  std::vector<cv::Point2f> shown;
  cv::perspectiveTransform(middles, shown, plane);
  const std::vector<double> grey = GreyAt(picture, shown);
  double sum[5][2] = {}, count[5][2] = {};
  for (std::size_t k = 0; k < grey.size(); ++k) {
    if (grey[k] < 0) continue;
    sum[side[k] + 1][colour[k]] += grey[k];
    count[side[k] + 1][colour[k]] += 1;
  }
  auto contrast = [&](int s) { return sum[s][1] / count[s][1] - sum[s][0] / count[s][0]; };
  if (count[0][0] < 1 || count[0][1] < 1) return true;  // no squares to go by
  const double own = contrast(0);
  for (int s = 1; s < 5; ++s) {
    if (count[s][0] < 2 || count[s][1] < 2) continue;
    const double beyond = contrast(s);
    if (beyond * own > 0 && std::fabs(beyond) > 0.5 * std::fabs(own)) return true;
  }
  return false;
}

// The inner corners as cv::findChessboardCorners finds them, before
// refinement; false when it finds no board of the board's size.
bool Search(const cv::Mat& picture, const BoardGeometry& board, CornerMethod method,
            std::vector<cv::Point2f>* corners) {
  const cv::Size pattern(board.columns, board.rows);
  const std::size_t count = static_cast<std::size_t>(board.columns * board.rows);
  if (method == CornerMethod::kSectorBased) {
    return cv::findChessboardCornersSB(
               picture, pattern, *corners,
               cv::CALIB_CB_NORMALIZE_IMAGE | cv::CALIB_CB_EXHAUSTIVE | cv::CALIB_CB_ACCURACY) &&
           corners->size() == count;
  }
  // The fast check turns a picture without a board away in a tenth of a
  // second; without it, noise keeps the search busy for seconds.
  //
  // With the picture's histogram equalised, the search takes ten times as
  // long on a small board in a corner of the robot's views (about 0.5 s
  // against 0.05 s on a 640 x 480 view) and finds the same board. So the
  // picture as it is goes first, and the thorough search, with the histogram
  // equalised, only where that finds no board, or takes a part of a larger
  // one, which it does more often (docs/benchmarks.md, "The whole
  // calibration chain").
  if (method == CornerMethod::kClassic &&
      cv::findChessboardCorners(picture, pattern, *corners,
                                cv::CALIB_CB_ADAPTIVE_THRESH | cv::CALIB_CB_FAST_CHECK) &&
      corners->size() == count) {
    const cv::Mat plane = BoardPlane(*corners, board);
    if (!plane.empty() && !PatternGoesOn(picture, plane, board)) return true;
  }
  corners->clear();
  return cv::findChessboardCorners(picture, pattern, *corners,
                                   cv::CALIB_CB_ADAPTIVE_THRESH | cv::CALIB_CB_NORMALIZE_IMAGE |
                                       cv::CALIB_CB_FAST_CHECK) &&
         corners->size() == count;
}

// The corners to a fraction of a pixel with cv::cornerSubPix, in a window
// that reaches no neighbouring corner: 0.4 of the smallest spacing of the
// refined corners, so that the window, and so the corners, do not depend
// on how near the search came.
void Refine(const cv::Mat& picture, const BoardGeometry& board, std::vector<cv::Point2f>* corners) {
  auto window = [&] {
    return std::max(2, std::min(11, int(0.4 * SmallestSpacing(*corners, board))));
  };
  int half = window();
  for (int pass = 0; pass < 3; ++pass) {
    cv::cornerSubPix(picture, *corners, cv::Size(half, half), cv::Size(-1, -1),
                     cv::TermCriteria(cv::TermCriteria::EPS | cv::TermCriteria::COUNT, 100, 1e-4));
    const int refined = window();
    if (refined == half) return;
    half = refined;
  }
}

}  // namespace

std::string BoardProblem(const BoardGeometry& board) {
  if (board.columns < 3 || board.rows < 3 || board.columns > 64 || board.rows > 64) {
    return "a board needs 3 to 64 inner corners along its rows and down its columns, not " +
           Size(board);
  }
  if (board.columns == board.rows) {
    return "a board with as many inner corners along its rows as down its columns (" + Size(board) +
           ") cannot be told round";
  }
  if (!(board.square > 0) || !std::isfinite(board.square)) return "the square size is not above 0";
  if (!(board.margin >= 0) || !std::isfinite(board.margin)) return "the margin is negative";
  return "";
}

std::vector<Vec3> BoardCorners(const BoardGeometry& board) {
  std::vector<Vec3> corners;
  for (int i = 0; i < board.rows; ++i) {
    for (int j = 0; j < board.columns; ++j)
      corners.push_back({j * board.square, i * board.square, 0});
  }
  return corners;
}

std::vector<Vec3> PlacedCorners(const BoardGeometry& board, const BoardPlacement& placement) {
  std::vector<Vec3> corners;
  for (const Vec3& c : BoardCorners(board)) {
    corners.push_back(placement.origin + c.x * placement.x_axis + c.y * placement.y_axis);
  }
  return corners;
}

FoundBoard FindBoard(const std::string& name, const GrayPicture& view, const BoardGeometry& board,
                     CornerMethod method) {
  FoundBoard found;
  if (view.pixels == nullptr || view.width < 1 || view.height < 1 || view.stride < view.width) {
    found.code = kPictureRefused;
    found.reason = name + ": not an 8-bit picture";
    return found;
  }
  found.code = kBoardNotFound;
  const std::string problem = BoardProblem(board);
  if (!problem.empty()) {
    found.reason = name + ": " + problem;
    return found;
  }
  const cv::Mat picture(view.height, view.width, CV_8UC1, const_cast<uint8_t*>(view.pixels),
                        static_cast<std::size_t>(view.stride));
  std::vector<cv::Point2f> corners;
  const bool seen = Search(picture, board, method, &corners);
  if (!seen) {
    found.reason = name + ": board not found (no chessboard of " + Size(board) + " inner corners)";
    return found;
  }
  // Number the corners from the top left as the picture shows the board.
  cv::Point2d along, down;
  Steps(corners, board, &along, &down);
  if (along.x < 0) {
    std::reverse(corners.begin(), corners.end());
    along = -along;
    down = -down;
  }
  if (std::fabs(along.x) <= std::fabs(along.y) || down.y <= 0) {
    found.reason = name + ": board not found (it is turned by more than 45 degrees)";
    return found;
  }
  const cv::Mat plane = BoardPlane(corners, board);
  if (plane.empty() || !SquaresInside(plane, board, view.width, view.height)) {
    found.reason = name + ": board not found (it is cut off by the picture's edge)";
    return found;
  }
  if (method != CornerMethod::kSectorBased) Refine(picture, board, &corners);
  found.code = kSuccess;
  for (const cv::Point2f& p : corners) found.corners.push_back({p.x, p.y});
  return found;
}

Coverage CoverageOf(const std::vector<std::vector<Pixel>>& views, int width, int height) {
  const double mid_u = (width - 1) / 2.0, mid_v = (height - 1) / 2.0;
  const double half_diagonal = std::hypot(width / 2.0, height / 2.0);
  double reach[4] = {0, 0, 0, 0};
  for (const std::vector<Pixel>& corners : views) {
    for (const Pixel& p : corners) {
      const int quarter = (p.u >= mid_u ? 1 : 0) + (p.v >= mid_v ? 2 : 0);
      reach[quarter] =
          std::max(reach[quarter], std::hypot(p.u - mid_u, p.v - mid_v) / half_diagonal);
    }
  }
  Coverage coverage;
  coverage.reach = reach[0];
  for (int q = 1; q < 4; ++q) {
    if (reach[q] < coverage.reach) {
      coverage.reach = reach[q];
      coverage.quarter = q;
    }
  }
  return coverage;
}

const char* QuarterName(int quarter) {
  static const char* const kNames[4] = {"top left", "top right", "bottom left", "bottom right"};
  return kNames[quarter & 3];
}

}  // namespace calc
