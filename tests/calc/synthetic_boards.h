// Chessboard views made for the tests of the camera calibration, with
// OpenCV: the board's squares are projected through a known camera (lens
// distortion included) with cv::projectPoints, their edges cut into short
// pieces so that the lens bends them, filled with smoothed edges at eight
// times the resolution and shrunk by averaging; then blurred, and noise of
// a fixed seed is added (cv::RNG). cornerSubPix finds the corners of a
// frontal board drawn so (blur 0.7, no noise) 0.054 px RMS from the true
// ones, about as far as on one drawn with each pixel's exact share of black
// and white (0.048 px).
//
// A board is placed by the picture point its centre shows at, its depth
// along the optical axis and two tilts: about the picture's rows and about
// its columns. With no tilt the board faces the camera square on.
#ifndef LASERCALI_TESTS_CALC_SYNTHETIC_BOARDS_H_
#define LASERCALI_TESTS_CALC_SYNTHETIC_BOARDS_H_

#include <cstdint>
#include <opencv2/core.hpp>
#include <vector>

#include "tools/calc/camera_model.h"
#include "tools/calc/chessboard.h"

namespace calctest {

// A lens like a small robot camera's, with a whole pose.
calc::CameraModel RobotCamera();

struct BoardSpot {
  double u = 320, v = 240;  // where the board's centre shows (undistorted pixel)
  double depth = 30;        // cm along the optical axis
  double tilt_rows = 0;     // degrees about the camera's right axis
  double tilt_columns = 0;  // degrees about its down axis
};
calc::BoardPlacement PlaceBoard(const calc::CameraModel& camera, const calc::BoardGeometry& board,
                                const BoardSpot& spot);

// Where the board's corners show in the picture (distorted), FindBoard's order.
std::vector<calc::Pixel> TrueCorners(const calc::CameraModel& camera,
                                     const calc::BoardGeometry& board,
                                     const calc::BoardPlacement& placement);

struct Look {
  double blur = 0.7;   // Gaussian sigma, pixels
  double noise = 2.0;  // standard deviation, grey levels
  uint64_t seed = 1;
  int background = 60, white = 210, black = 25;
};
cv::Mat RenderBoard(const calc::CameraModel& camera, const calc::BoardGeometry& board,
                    const calc::BoardPlacement& placement, const Look& look);

// Twelve spots whose boards reach every part of the picture.
std::vector<BoardSpot> CoveringSpots();
// Eight spots, all in the picture's middle.
std::vector<BoardSpot> CentralSpots();

}  // namespace calctest

#endif  // LASERCALI_TESTS_CALC_SYNTHETIC_BOARDS_H_
