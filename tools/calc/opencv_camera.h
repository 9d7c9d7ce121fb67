#ifndef LASERCALI_TOOLS_CALC_OPENCV_CAMERA_H_
#define LASERCALI_TOOLS_CALC_OPENCV_CAMERA_H_

// A measured camera's intrinsics and lens as OpenCV's calibration functions
// take them: the 3 x 3 camera matrix and the five distortion coefficients
// (k1 k2 p1 p2 k3, in OpenCV's order).

#include <opencv2/core.hpp>

#include "tools/calc/camera_model.h"

namespace calc {

inline cv::Matx33d CameraMatrix(const Intrinsics& k) {
  return cv::Matx33d(k.fx, 0, k.cx, 0, k.fy, k.cy, 0, 0, 1);
}

inline cv::Matx<double, 1, 5> Coefficients(const Distortion& d) {
  return cv::Matx<double, 1, 5>(d.k1, d.k2, d.p1, d.p2, d.k3);
}

}  // namespace calc

#endif  // LASERCALI_TOOLS_CALC_OPENCV_CAMERA_H_
