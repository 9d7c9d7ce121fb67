// The configuration of a calculation node of liblasercalc.so.
//
// Each node is built from a JSON object (docs/calibration.md, "The
// configuration"): the pictures it reads (a list, or the folders they are
// in), the camera model (the values, or a file holding them), the target's
// wall height, thresholds, the failure code of a refusal and how long
// after a request the answer comes. ReadCalcConfig checks every member, one
// by one, and refuses what it cannot use with CalcConfigError and one line
// that begins with the node's ID and names the member: an unknown member, a
// value of the wrong type or out of its range, a folder that is not there,
// a picture list the node cannot read its laser and distance from. Nothing
// is read but the camera model's file, and no picture.
#ifndef LASERCALI_TOOLS_CALC_CALC_CONFIG_H_
#define LASERCALI_TOOLS_CALC_CALC_CONFIG_H_

#include <rapidjson/document.h>

#include <cstdint>
#include <limits>
#include <stdexcept>
#include <string>
#include <vector>

#include "tools/calc/camera_model.h"
#include "tools/calc/chessboard.h"
#include "tools/calc/distance.h"
#include "tools/calc/geometry.h"
#include "tools/calc/laser_calibration.h"

namespace calc {

// The four nodes of the plug-in, in the order of calctopics::kCalcNodes.
enum class NodeKind { kPlane, kCheck, kDistance, kCameraParam };

// A node's ID in the framework's registry ("KivNodeLaserCalcPlane", ...).
const char* NodeId(NodeKind kind);
// Its short name, which its reports carry ("plane", "check", "distance",
// "ieparam").
const char* NodeShortName(NodeKind kind);

class CalcConfigError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

struct CalcConfig {
  NodeKind kind = NodeKind::kPlane;
  // The pictures, in the order they are read: plane and check nodes the
  // left laser's and the right laser's stripe pictures (any order), the
  // distance node the left laser's then the right laser's, the camera
  // parameter node the chessboard.
  std::vector<std::string> pictures;
  int64_t refuse = kPictureRefused;  // the failure code of a refusal
  int64_t delay_us = 10000;          // from a request to its answer
  // plane, check, distance: the camera, given (`camera`: the values or a
  // file read when the node is built), or the file read at each request
  // (`camera_file`); neither: every request fails with kNoCamera.
  bool has_camera = false;
  CameraModel camera;
  std::string camera_file;
  double wall_height = 0;          // cm; plane, check
  CalibrationOptions calibration;  // plane: min_points, max_rms
  // check: the largest bias that passes, and limits of the RMS and the
  // largest residual (infinite: not judged)
  double max_bias_px = kCheckMaxBias;
  double max_rms_px = std::numeric_limits<double>::infinity();
  double max_worst_px = std::numeric_limits<double>::infinity();
  double max_apart = kMaxDisagreement;  // distance: cm between the two lasers' walls
  // distance: the planes to measure with until a plane node has sent some
  // (a stop-gap; docs/calibration.md).
  bool has_fallback = false;
  Plane fallback[2];
  // camera parameters: the board (inner corners, square and margin in cm),
  // how many views a calibration takes, where the camera model is written,
  // and the file that says where the board stands on the robot for the view
  // being taken (empty: the pose is not measured).
  BoardGeometry board{9, 6, 2.5, 2.5};
  int views = 16;
  std::string camera_out;  // default: camera.yaml beside the chessboard picture
  std::string placement_file;
};

// The failure code of a plane, check or distance request when the node has
// no camera model it can use.
inline constexpr int kNoCamera = 18;

// The largest camera model file read (bytes).
inline constexpr int64_t kMaxCameraFileBytes = 65536;

// Reads and checks the configuration of a node of `kind` (see above).
CalcConfig ReadCalcConfig(NodeKind kind, const rapidjson::Value& config);

}  // namespace calc

#endif  // LASERCALI_TOOLS_CALC_CALC_CONFIG_H_
