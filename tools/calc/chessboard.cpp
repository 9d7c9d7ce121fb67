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
  const cv::Size pattern(board.columns, board.rows);
  std::vector<cv::Point2f> corners;
  bool seen = false;
  if (method == CornerMethod::kSectorBased) {
    seen = cv::findChessboardCornersSB(
        picture, pattern, corners,
        cv::CALIB_CB_NORMALIZE_IMAGE | cv::CALIB_CB_EXHAUSTIVE | cv::CALIB_CB_ACCURACY);
  } else {
    // The fast check turns a picture without a board away in a tenth of a
    // second; without it, noise keeps the search busy for seconds.
    seen = cv::findChessboardCorners(
        picture, pattern, corners,
        cv::CALIB_CB_ADAPTIVE_THRESH | cv::CALIB_CB_NORMALIZE_IMAGE | cv::CALIB_CB_FAST_CHECK);
  }
  if (!seen || corners.size() != static_cast<std::size_t>(board.columns * board.rows)) {
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
  if (method == CornerMethod::kClassic) {
    // A window that reaches no neighbouring corner.
    const int half = std::max(2, std::min(11, int(0.4 * SmallestSpacing(corners, board))));
    cv::cornerSubPix(picture, corners, cv::Size(half, half), cv::Size(-1, -1),
                     cv::TermCriteria(cv::TermCriteria::EPS | cv::TermCriteria::COUNT, 100, 1e-4));
  }
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
