// A laser's plane from pictures of its stripe on the calibration target, and
// how well a plane explains such pictures.
//
// Each picture shows one laser's stripe on the floor and on a wall at a
// known distance (the factory's 5 to 45 cm, or the app's cut pictures at
// 10, 20 and 30 cm, which keep only the wall part). LocateStripe finds the
// stripe's centre in every row (stripe_centres.h), sends the ray through it
// to the target (geometry.h) and keeps the point where it meets the floor
// or the wall. Rows close to the foot of the wall are left out: there the
// floor part and the wall part of the stripe overlap in a row and neither
// centre is clean. CalibrateLaser fits one plane through the points of all
// pictures of a laser, each point weighted by the inverse square of the
// distance one pixel moves it on its surface, so that every point counts by
// how precisely the picture places it; the fit is robust (robust_plane.h:
// points far off the plane, a reflection or a second stripe, are left out)
// and gives the 1-sigma of the plane's yaw, roll and offset from its points.
// CalibrateLaserThrough adds the camera's share of that uncertainty, from
// the 1-sigma the camera model carries. CheckPlane measures,
// in pixels along the rows, how far each stripe centre lies from where a
// given plane puts the stripe.
//
// Whatever cannot be calibrated is said with a failure code and a reason
// naming the picture (FailureCode below); nothing here reads files.
#ifndef LASERCALI_TOOLS_CALC_LASER_CALIBRATION_H_
#define LASERCALI_TOOLS_CALC_LASER_CALIBRATION_H_

#include <cstdint>
#include <string>
#include <vector>

#include "tools/calc/geometry.h"
#include "tools/calc/plane_fit.h"
#include "tools/calc/robust_plane.h"
#include "tools/calc/stripe_centres.h"

namespace calc {

// The failure codes of the reference calculation nodes (docs/calibration.md).
enum FailureCode : int {
  kSuccess = 1,
  kPictureRefused = 2,   // a picture is missing or not a 640 x 480 8-bit BMP file
  kNoStripe = 3,         // a picture shows no stripe of its laser
  kTooFewPoints = 4,     // too few stripe points on the target to fit a plane
  kOffTarget = 5,        // a picture's stripe points lie on neither the floor nor the wall
  kNoPlaneSpanned = 6,   // the points lie along one line: they fix no plane
  kNotOnePlane = 7,      // the points do not lie on one plane
  kSidesSwapped = 8,     // the left laser's plane lies right of the right laser's
  kNotEncodable = 9,     // a plane outside the range its nine values can carry
  kCheckFailed = 10,     // the check: residuals above the thresholds
  kNothingToCheck = 11,  // the check: no planes were sent to check
  kNoWall = 12,          // the distance: no stripe points on a wall
  kLasersDisagree = 13,  // the distance: the two lasers' walls lie too far apart
};

// One 8-bit picture, not owned.
struct GrayPicture {
  const uint8_t* pixels = nullptr;
  int width = 0, height = 0, stride = 0;
};

// A picture of one laser's stripe with the wall at `target.distance`.
// `scan`, when set, is the stripe's centres in it as FindStripeCentres
// finds them with the options' `stripe`, found once for fits through
// several cameras (the centres do not depend on the camera); not owned.
struct StripePicture {
  std::string name;  // for messages: the file
  GrayPicture picture;
  Target target;
  const StripeScan* scan = nullptr;
};

struct CalibrationOptions {
  StripeOptions stripe;
  int min_stripe_rows = 20;      // fewer rows with a centre: no stripe
  double max_off_target = 0.10;  // largest share of a picture's centres on neither surface
  double foot_margin = 2.0;      // rows left out each side of the foot: this x the centroid window
  int min_points = 100;          // fewest points for a plane
  double min_spread = 1.0;       // cm: the points' spread across their longest axis
  double max_rms = 0.05;         // cm: the largest RMS distance of the points from the plane
};

struct TargetPoint {
  Pixel pixel;
  Surface surface = Surface::kNeither;
  Vec3 point;
  double weight = 1;  // 1 / (cm a pixel along the row moves the point)^2
};

struct LocatedStripe {
  std::vector<TargetPoint> points;  // on the floor or the wall, clear of the foot
  int stripe_rows = 0;              // rows with a stripe centre
  int off_target = 0;               // centres whose ray meets neither surface
  int near_foot = 0;                // centres left out near the foot of the wall
  int two_stripes = 0;              // rows left out for showing two stripes
};

LocatedStripe LocateStripe(const CameraGeometry& geometry, const StripePicture& picture,
                           const CalibrationOptions& options = {});

struct LaserFit {
  int code = kSuccess;
  std::string reason;  // why not, naming the picture; empty on success
  PlaneFit fit;        // the plane (fit.ok) when code is kSuccess
  int points = 0;      // on the target, outliers included
  int floor_points = 0, wall_points = 0;
  int outliers = 0;                  // points the robust fit left out
  double covariance[9] = {};         // of yaw, roll, offset from the points (robust_plane.h)
  double camera_covariance[9] = {};  // the camera's share (CalibrateLaserThrough)
  PlaneSigma sigma;                  // the 1-sigma of both together
};

// Fits the plane of one laser through the stripes of its pictures.
LaserFit CalibrateLaser(const CameraGeometry& geometry, const std::vector<StripePicture>& pictures,
                        const CalibrationOptions& options = {});

// CalibrateLaser through `camera`, with the camera's share of the plane's
// uncertainty: the plane fitted again through the camera moved by each of
// its known 1-sigmas (CameraCovariance). A camera without 1-sigmas adds
// nothing.
LaserFit CalibrateLaserThrough(const CameraModel& camera,
                               const std::vector<StripePicture>& pictures,
                               const CalibrationOptions& options = {});

// Whether the left laser's plane lies right of the right one's, where they
// meet the floor across the robot's origin (x = 0, below the camera and the
// emitters): the pictures of the two lasers are swapped.
bool SidesSwapped(const Plane& left, const Plane& right);

struct Residuals {
  int code = kSuccess;  // kNoStripe or kTooFewPoints when the pictures cannot be measured
  std::string reason;
  int points = 0;
  double rms = 0;    // pixels along the row
  double worst = 0;  // the largest, pixels
  // The largest mean residual (signed, taken as its size) of a picture's
  // floor part or wall part with at least kBiasMinPoints points, pixels, and
  // the picture it is in: a plane that is off moves a whole part of a
  // picture aside, while the speckle of real pictures scatters each row's
  // centre and averages out over the part.
  double bias = 0;
  std::string bias_picture;
};

inline constexpr int kBiasMinPoints = 20;

// The check passes when, for each laser, no picture's floor or wall part
// lies more than kCheckMaxBias pixels aside on average (Residuals::bias).
// The RMS and the largest residual are told, and judged only when a limit
// is given (the check node's "max_rms_px" and "max_worst_px"): on real
// pictures the speckle alone leaves 0.3 px RMS and several pixels at worst
// with the true planes, while a plane off by 0.05 degrees of yaw, 0.1
// degrees of roll or 0.05 mm of offset moves the nearest or farthest
// pictures aside by more than 0.1 px (laser_calibration_test,
// docs/calibration.md). The recovered planes leave a bias of 0.02 to 0.05
// px on clean factory pictures and on the robot's pictures seen through the
// camera their chessboard views measured.
inline constexpr double kCheckMaxBias = 0.1;
inline constexpr double kCheckMaxRms = 0.2;  // the ideal camera's RMS, for reference
inline constexpr double kCheckMaxWorst = 1.0;

// Whether measured residuals pass the check (above).
inline bool PassesCheck(const Residuals& r, double max_bias = kCheckMaxBias) {
  return r.code == kSuccess && r.bias <= max_bias;
}

// How far the stripe centres of the pictures lie from where `plane` puts
// them, along the rows.
Residuals CheckPlane(const CameraGeometry& geometry, const Plane& plane,
                     const std::vector<StripePicture>& pictures,
                     const CalibrationOptions& options = {});

}  // namespace calc

#endif  // LASERCALI_TOOLS_CALC_LASER_CALIBRATION_H_
