// A chessboard calibration target in a picture: its inner corners to a
// fraction of a pixel, where it stands, and how much of the picture a set
// of views covers.
//
// The board has `columns` x `rows` inner corners (where four squares meet),
// `square` cm apart, and a white `margin` around its squares. Its corners
// are numbered row by row from the inner corner at the board's top left as
// the picture shows it: along a row to the right, then down. The board's
// own frame has its origin at that corner, x along the rows, y down the
// columns (z = x cross y, away from the camera when the board faces it), so
// the corner of row i and column j is at (j square, i square, 0). A board
// with as many corners along its rows as down its columns could be read
// turned by a quarter, so columns and rows must differ. A board turned by
// more than 45 degrees in the picture is not read.
//
// FindBoard finds the corners with OpenCV (calib3d): cv::findChessboardCorners
// and cv::cornerSubPix (kClassic), or cv::findChessboardCornersSB (kSectorBased).
// kClassic searches the picture as it is first, the would-be squares
// filtered by their shape, and only where that finds no board searches again
// on the picture with its histogram equalised; kThorough makes only that
// second, slower search, and is the reference the first must agree with.
// It also requires the board's squares to lie inside the picture, one
// square beyond the outermost corners: a board cut off by the picture's
// edge is not found, even when its inner corners are.
//
// Coverage measures how far towards the picture's corners the boards of a
// set of views reach, which is what pins down the lens distortion: for each
// quarter of the picture (split at its centre), the largest distance of a
// corner in it from the centre, as a share of the half diagonal; the
// coverage is the smallest of the four (0 when a quarter holds no corner).
#ifndef LASERCALI_TOOLS_CALC_CHESSBOARD_H_
#define LASERCALI_TOOLS_CALC_CHESSBOARD_H_

#include <string>
#include <vector>

#include "tools/calc/geometry.h"
#include "tools/calc/laser_calibration.h"

namespace calc {

// The failure codes of the camera calibration, after those of the plane,
// check and distance nodes (laser_calibration.h; docs/calibration.md).
enum ChessboardCode : int {
  kBoardNotFound = 14,    // a view shows no whole board
  kTooFewViews = 15,      // fewer views with a board than the calibration needs
  kViewsDoNotCover = 16,  // the boards stay away from the picture's corners
  kDidNotConverge = 17,   // the calibration found no camera that explains the corners
};

struct BoardGeometry {
  int columns = 9, rows = 6;  // inner corners along a row, down a column
  double square = 2.0;        // cm between neighbouring corners
  double margin = 1.0;        // cm of white around the squares
};

// Why a board geometry cannot be used; empty when it can.
std::string BoardProblem(const BoardGeometry& board);

// The board's corners in its own frame, in FindBoard's order (cm).
std::vector<Vec3> BoardCorners(const BoardGeometry& board);

// Where a board stands in the robot's frame: its frame's origin and axes.
struct BoardPlacement {
  Vec3 origin;
  Vec3 x_axis{0, -1, 0}, y_axis{0, 0, -1};  // unit vectors
};
// The board's corners in the robot's frame, in FindBoard's order.
std::vector<Vec3> PlacedCorners(const BoardGeometry& board, const BoardPlacement& placement);

enum class CornerMethod { kClassic, kThorough, kSectorBased };

struct FoundBoard {
  int code = kSuccess;         // or kBoardNotFound, kPictureRefused
  std::string reason;          // naming the view; empty on success
  std::vector<Pixel> corners;  // columns x rows, in the board's order
};

// Finds the board in a view named `name` (for the reason).
FoundBoard FindBoard(const std::string& name, const GrayPicture& view, const BoardGeometry& board,
                     CornerMethod method = CornerMethod::kClassic);

struct Coverage {
  double reach = 0;  // the smallest of the four quarters' reaches
  int quarter = 0;   // which one: 0 top left, 1 top right, 2 bottom left, 3 bottom right
};
Coverage CoverageOf(const std::vector<std::vector<Pixel>>& views, int width, int height);
const char* QuarterName(int quarter);

}  // namespace calc

#endif  // LASERCALI_TOOLS_CALC_CHESSBOARD_H_
