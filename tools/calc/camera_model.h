// The camera as a calibration measures it: a lens with distortion and a pose
// on the robot, each value with its uncertainty when it is known.
//
// The lens follows OpenCV's convention: a point at (x, y) on the normalised
// image plane (x = X / Z, y = Y / Z in the camera's frame: x right, y down,
// z along the optical axis) shows at pixel (fx x' + cx, fy y' + cy), where
// x', y' are x, y distorted by radial terms k1 k2 k3 and tangential terms p1
// p2. An "undistorted" pixel is where an ideal pinhole with the same fx, fy,
// cx, cy would show the point; Undistort() maps the picture's pixels there
// with cv::undistortPoints.
//
// The pose is in the robot's frame of geometry.h (x forward, y left, z up,
// cm, degrees). The camera's centre is at (x, y, height). Its axes start as
// CameraGeometry's (looking along +x, tilted down by `pitch`), are turned
// by `roll` about the optical axis (positive turns the picture's right-hand
// side down) and then by `yaw` about the vertical (positive turns the view
// to the left). A model with no distortion, x = y = 0 and yaw = roll = 0 is
// exactly CameraGeometry's pinhole: CameraRays then gives the very same
// bits, and Undistort() hands the pixels back unchanged, so code moved from
// CameraGeometry to this model keeps its results for such a camera.
#ifndef LASERCALI_TOOLS_CALC_CAMERA_MODEL_H_
#define LASERCALI_TOOLS_CALC_CAMERA_MODEL_H_

#include <vector>

#include "tools/calc/geometry.h"

namespace calc {

struct Intrinsics {
  double fx = 450, fy = 450;  // focal lengths, pixels
  double cx = 320, cy = 240;  // principal point, pixels (pixel centres at whole numbers)
};

// OpenCV's order: k1 k2 p1 p2 k3.
struct Distortion {
  double k1 = 0, k2 = 0, p1 = 0, p2 = 0, k3 = 0;
  bool IsZero() const { return k1 == 0 && k2 == 0 && p1 == 0 && p2 == 0 && k3 == 0; }
};

struct CameraPose {
  double x = 0, y = 0;  // the camera's centre, cm
  double height = 5;    // above the floor, cm
  double yaw = 0;       // degrees, about the vertical; positive looks left
  double pitch = 10;    // degrees, tilt down from level
  double roll = 0;      // degrees, about the optical axis; positive: right side down
};

struct CameraModel {
  int image_width = 640, image_height = 480;  // the pictures the lens values are for
  Intrinsics intrinsics;
  Distortion distortion;
  // The pose, when known (a camera_info file carries none).
  bool pose_known = true;
  CameraPose pose;
  // The 1-sigma of each lens value (intrinsics and distortion) and of each
  // pose value, when known.
  bool lens_sigma_known = false;
  Intrinsics intrinsics_sigma{0, 0, 0, 0};
  Distortion distortion_sigma;
  bool pose_sigma_known = false;
  CameraPose pose_sigma{0, 0, 0, 0, 0, 0};
};

// The model of a pinhole camera: no distortion, centred above the robot's
// origin, looking straight ahead.
CameraModel ModelOf(const Camera& camera, int image_width = 640, int image_height = 480);
// The pinhole part: intrinsics, height and pitch (x, y, yaw, roll and the
// distortion are left out).
Camera PinholeOf(const CameraModel& model);
// Whether PinholeOf() leaves nothing out.
bool IsPinhole(const CameraModel& model);

// Where an ideal pinhole with the model's intrinsics shows what the picture
// shows at each pixel. Without distortion the pixels come back unchanged.
std::vector<Pixel> Undistort(const CameraModel& model, const std::vector<Pixel>& pixels);
Pixel Undistort(const CameraModel& model, Pixel pixel);
// The inverse: where the picture shows what the pinhole shows at `pixel`.
Pixel Distort(const CameraModel& model, Pixel pixel);

// The camera's axes in the robot's frame, unit vectors: the picture's
// columns grow along `right`, its rows along `down`; `forward` is the
// optical axis.
struct CameraAxes {
  Vec3 right, down, forward;
};
CameraAxes AxesOf(const CameraPose& pose);
// The yaw, pitch and roll of axes (right, down, forward must be
// orthonormal and right-handed as AxesOf makes them); x, y and height are
// left as they are in `pose`.
void AnglesOfAxes(const CameraAxes& axes, CameraPose* pose);

// Rays and projections of the model's camera in the robot's frame, through
// undistorted pixels (Undistort()). With the pinhole's pose (x = y = 0, yaw =
// roll = 0) every result has the same bits as CameraGeometry's.
class CameraRays {
 public:
  explicit CameraRays(const CameraModel& model);
  Vec3 centre() const { return centre_; }
  const CameraAxes& axes() const { return axes_; }
  // The direction (not of unit length) of the ray through undistorted pixel `p`.
  Vec3 Ray(Pixel p) const;
  // Where point `q` shows as an undistorted pixel; false when it lies behind
  // the camera (or in its plane).
  bool Project(Vec3 q, Pixel* p) const;

 private:
  Intrinsics intrinsics_;
  CameraAxes axes_;
  Vec3 centre_;
};

}  // namespace calc

#endif  // LASERCALI_TOOLS_CALC_CAMERA_MODEL_H_
