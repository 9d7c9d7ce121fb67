// Camera model files: OpenCV's FileStorage YAML, written and read, and the
// ROS camera_info YAML, read.
//
// The file we write (FormatCameraModel) is what OpenCV's calibration writes,
// `image_width`, `image_height`, `camera_matrix` (3 x 3) and
// `distortion_coefficients` (1 x 5: k1 k2 p1 p2 k3) as `!!opencv-matrix`,
// with the camera's pose on the robot (`camera_pose`: `x_cm`, `y_cm`,
// `height_cm`, `yaw_deg`, `pitch_deg`, `roll_deg`) and, when known, the
// 1-sigma of the lens (`intrinsics_std_dev`, 1 x 9: fx fy cx cy k1 k2 p1 p2
// k3) and of the pose (`camera_pose_std_dev`, the pose's six members). The
// required matrices come last, so a file cut short anywhere loses one of
// them and is refused.
//
// The reader takes that format and the ROS camera_info YAML (the same
// `image_width`, `image_height`, `camera_matrix` and
// `distortion_coefficients`, as maps of `rows`, `cols` and `data` without a
// type tag; `distortion_model` "plumb_bob"; `rectification_matrix` and
// `projection_matrix` are checked and not used; no pose). OpenCV's parser
// wants a "%YAML" directive, which camera_info files lack: the reader adds
// one. The parser is not safe on every text (yaml_subset.h), so a text
// must first keep to the YAML camera files are written in. The reader
// refuses, naming the file and what is wrong: a file that is missing,
// empty, larger than kMaxCameraModelFile bytes or holds a NUL byte; text
// outside that YAML (a truncated file), with the line; a missing member; a
// matrix of the wrong size or a picture size out of range (or other than
// the one expected); a number that is not finite; a camera matrix with
// skew or without 0 0 1 as its last row, a focal length not above zero or
// a principal point outside the picture; a negative 1-sigma. A refused file
// leaves the caller's model as it was: nothing is half-read.
#ifndef LASERCALI_TOOLS_CALC_CAMERA_MODEL_FILE_H_
#define LASERCALI_TOOLS_CALC_CAMERA_MODEL_FILE_H_

#include <cstddef>
#include <string>

#include "tools/calc/camera_model.h"

namespace calc {

inline constexpr std::size_t kMaxCameraModelFile = 64 * 1024;

struct CameraFileOptions {
  // The picture size the model must be for; 0 x 0 takes any.
  int width = 0, height = 0;
};

// The model as OpenCV FileStorage YAML text.
std::string FormatCameraModel(const CameraModel& model);

// Reads a model from `text`; `name` names it in the error ("camera model
// NAME: what is wrong"). On failure `*model` is untouched.
bool ParseCameraModel(const std::string& text, const std::string& name, CameraModel* model,
                      std::string* error, const CameraFileOptions& options = {});

bool ReadCameraModelFile(const std::string& path, CameraModel* model, std::string* error,
                         const CameraFileOptions& options = {});

// Writes the model to `path` through a file beside it, renamed into place:
// an existing file stays as it was when the write fails.
bool WriteCameraModelFile(const std::string& path, const CameraModel& model, std::string* error);

}  // namespace calc

#endif  // LASERCALI_TOOLS_CALC_CAMERA_MODEL_FILE_H_
