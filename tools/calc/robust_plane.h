// A laser plane through stripe points that may hold outliers, with the
// 1-sigma of its yaw, roll and offset, from the fit and from the camera.
//
// FitPlaneRobust starts from the weighted least-squares plane (plane_fit.h)
// and reweighs (Tukey's biweight): each point's weight is multiplied by
// (1 - (e / (4.685 s))^2)^2, e its distance times the square root of its
// weight, s the robust scale 1.4826 x the median of e over all points (at
// least `min_scale`), and 0 beyond 4.685 s; it fits again and repeats until
// the plane stays. Points with no weight left are the outliers. A picture
// whose stripe lies off the plane (a reflection, a second stripe) and a
// fifth of the points scattered centimetres off are left out; a third
// scattered so holds the start. A start chosen by the smallest median
// distance does not work here: most of the points, the floor's, lie on the
// floor's plane as well as on the laser's.
//
// The covariance of the plane comes from the final fit: the plane's normal
// turned by small angles a, b about two axes in the plane, and its offset
// d, move a point's distance by (e1 . p) a + (e2 . p) b - d; with J those
// rows, W the final weights and sigma^2 the weighted squared distances over
// the points' effective number (the sum of the biweight factors) less 3,
// cov(a, b, d) = sigma^2 (J' W J)^-1, carried to yaw, roll and offset
// through their derivatives (AnglesOf). It is infinite when the points fix
// no plane (all on one line).
//
// The camera's part: CameraCovariance moves each camera value with a known
// 1-sigma (lens and pose, CameraModel) by plus and minus its sigma in turn,
// fits the plane again each time with the caller's `refit` (which finds
// the stripe points through that camera), and adds the outer products of
// the half differences: the camera's values taken as independent. Both
// covariances add up in Combine.
#ifndef LASERCALI_TOOLS_CALC_ROBUST_PLANE_H_
#define LASERCALI_TOOLS_CALC_ROBUST_PLANE_H_

#include <functional>
#include <vector>

#include "tools/calc/camera_model.h"
#include "tools/calc/plane_fit.h"

namespace calc {

struct RobustOptions {
  double tukey = 4.685;  // the biweight's cut, in robust scales
  // The smallest robust scale, in the unit of distance times the square root
  // of weight: pixels with the laser calibration's weights (1 / (cm a pixel
  // moves a point)^2). It keeps the deviations a camera known to its
  // 1-sigma leaves (tenths of a pixel, a whole picture at a time) from
  // being taken for outliers.
  double min_scale = 0.15;
  int max_rounds = 50;  // of reweighing
};

// yaw and roll in degrees, offset in cm, as PlaneAngles.
struct PlaneSigma {
  double yaw = 0, roll = 0, offset = 0;
};

struct RobustPlane {
  PlaneFit fit;  // the final fit (fit.ok), its rms and worst over the inliers
  int inliers = 0, outliers = 0;
  std::vector<double> factors;  // each point's biweight factor, 0 for an outlier
  double scale = 0;             // the robust scale s, cm at weight 1
  double covariance[9] = {};    // of yaw, roll, offset (deg^2, deg cm, cm^2), row major
  PlaneSigma sigma;             // the square roots of its diagonal
};

// `weights` as FitPlane's: empty (all 1) or one per point, none negative.
RobustPlane FitPlaneRobust(const std::vector<Vec3>& points, const std::vector<double>& weights = {},
                           const RobustOptions& options = {});

// The covariance (as RobustPlane's) of the plane `refit` finds, from the
// camera's known 1-sigmas; false when `refit` fails for a moved camera.
bool CameraCovariance(const CameraModel& camera,
                      const std::function<bool(const CameraModel&, PlaneAngles*)>& refit,
                      double covariance[9]);

// The 1-sigma of the sum of two covariances.
PlaneSigma Combine(const double fit[9], const double camera[9]);

}  // namespace calc

#endif  // LASERCALI_TOOLS_CALC_ROBUST_PLANE_H_
