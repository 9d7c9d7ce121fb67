// The camera from chessboard views: intrinsics, distortion and, given where
// each board stood on the robot, the camera's pose, each with its 1-sigma.
//
// CalibrateChessboard finds the board in every view (chessboard.h), then
// CalibrateFromCorners calibrates with OpenCV (cv::calibrateCamera: fx, fy,
// cx, cy and k1 k2 p1 p2 k3, the standard deviations of each, the board's
// pose in each view, the RMS reprojection error over all corners and per
// view). The steps, and what stops them (a code and a reason naming the
// view, the figures said as measured):
//
// 1. every view shows the whole board, else kBoardNotFound (or
//    kPictureRefused for a view that is not an 8-bit picture of the size of
//    the others);
// 2. at least `min_views` views (kMinViews), else kTooFewViews;
// 3. the boards cover the picture (CoverageOf at least `min_coverage`),
//    else kViewsDoNotCover: boards only in the middle leave the distortion,
//    which grows towards the corners, unmeasured;
// 4. the calibration explains the corners: finite figures, focal lengths
//    above 0, the principal point inside the picture, an RMS reprojection
//    error of at most `max_rms` pixels, else kDidNotConverge, naming the
//    view the camera explains worst;
// 5. with the boards' placements on the robot (one per view, the fixture's),
//    the camera's pose: every corner of every view is a known point of the
//    robot's frame, and cv::solvePnP finds the camera's position and turn
//    that show them where they were seen, with the calibrated lens. Its
//    1-sigma comes from the pose's Jacobian (cv::projectPoints), with the
//    spread of the corners about the fitted pose and the lens's 1-sigma
//    carried through it. Corners the pose cannot explain to `max_rms`
//    (placements that do not match the views) stop with kDidNotConverge.
//
// The board's frame and units follow chessboard.h: translations in cm.
#ifndef LASERCALI_TOOLS_CALC_CAMERA_CALIBRATION_H_
#define LASERCALI_TOOLS_CALC_CAMERA_CALIBRATION_H_

#include <string>
#include <vector>

#include "tools/calc/camera_model.h"
#include "tools/calc/chessboard.h"

namespace calc {

inline constexpr int kMinViews = 6;

struct ChessboardOptions {
  CornerMethod corners = CornerMethod::kClassic;
  int min_views = kMinViews;
  double min_coverage = 0.6;  // of the half diagonal, in every quarter
  double max_rms = 1.0;       // pixels
  bool fix_k3 = false;        // hold k3 at 0 (a lens with little distortion)
};

struct BoardView {
  std::string name;  // for reasons: the file
  GrayPicture picture;
};

// The board in one view, as the calibration found it.
struct ViewFit {
  std::string name;
  double rotation[3] = {0, 0,
                        0};  // the board's turn in the camera's frame (a rotation vector, rad)
  double translation[3] = {0, 0,
                           0};  // its origin in the camera's frame (x right, y down, z ahead), cm
  double rotation_sigma[3] = {0, 0, 0}, translation_sigma[3] = {0, 0, 0};
  double rms = 0;  // reprojection error of its corners, pixels
};

struct CameraCalibration {
  int code = kSuccess;
  std::string reason;  // naming the view; empty on success
  CameraModel model;   // lens with its 1-sigma; the pose (pose_known) when placements were given
  int views = 0;       // views with a board
  double coverage = 0;
  double rms = 0;       // reprojection error over every corner, pixels
  double pose_rms = 0;  // the same for the pose fit, pixels (0 without placements)
  std::vector<ViewFit> fits;
};

// `placements` is empty, or holds one placement per view.
CameraCalibration CalibrateChessboard(const std::vector<BoardView>& views,
                                      const BoardGeometry& board,
                                      const std::vector<BoardPlacement>& placements = {},
                                      const ChessboardOptions& options = {});

// The same from corners already found (FindBoard's order), in pictures of
// `width` x `height` pixels.
CameraCalibration CalibrateFromCorners(const std::vector<std::string>& names,
                                       const std::vector<std::vector<Pixel>>& corners, int width,
                                       int height, const BoardGeometry& board,
                                       const std::vector<BoardPlacement>& placements = {},
                                       const ChessboardOptions& options = {});

}  // namespace calc

#endif  // LASERCALI_TOOLS_CALC_CAMERA_CALIBRATION_H_
