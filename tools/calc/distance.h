// The distance to a wall, measured with one laser's stripe and its plane.
//
// The distance check's pictures show a laser's stripe on the floor and on a
// wall at a distance the node does not know. MeasureWall finds the stripe's
// centre in every row (stripe_centres.h) and triangulates it: the ray
// through the centre meets the laser's plane at the point the stripe lights.
// Points at least `wall_from` above the floor are wall points, and the
// wall's distance is the mean forward distance (x) of the wall points within
// `wall_band` of their median. Points within `floor_band` of the floor's
// height and at least `wall_from` short of the wall are floor points. Points
// in between lie at the foot of the wall, where the stripe bends, and are
// left out. The result also says how
// flat and upright the measured wall is and where the floor is first seen,
// so that a plane that is off shows as a tilted wall or a floor that is not
// at height 0.
//
// Everything is in the robot's frame, in centimetres (geometry.h).
#ifndef LASERCALI_TOOLS_CALC_DISTANCE_H_
#define LASERCALI_TOOLS_CALC_DISTANCE_H_

#include <string>

#include "tools/calc/geometry.h"
#include "tools/calc/laser_calibration.h"

namespace calc {

struct DistanceOptions {
  StripeOptions stripe;
  int min_stripe_rows = 20;  // fewer rows with a centre: no stripe
  int min_wall_points = 20;  // fewer wall points: no wall
  double floor_band = 0.5;   // cm: floor points lie within this of height 0
  double wall_from = 1.0;    // cm: wall points lie at least this high
  double wall_band = 1.0;    // cm: wall points kept around the median distance
};

struct WallMeasure {
  int code = kSuccess;  // kNoStripe or kNoWall
  std::string reason;   // why not, naming the picture; empty on success
  double distance = 0;  // cm: the wall's distance
  double spread = 0;    // cm: RMS of the wall points' distances about it
  double tilt = 0;      // cm of distance per cm of height: 0 for an upright wall
  int wall_points = 0;
  double nearest_floor = 0;  // cm: the forward distance of the nearest floor point (0: none)
  double floor_rms = 0;      // cm: RMS height of the floor points
  int floor_points = 0;
};

// The two lasers' walls may lie at most this far apart (cm) for a distance
// check to pass.
inline constexpr double kMaxDisagreement = 0.2;

// Measures the wall in `picture` (its target is not used) with `plane`.
WallMeasure MeasureWall(const CameraGeometry& geometry, const Plane& plane,
                        const StripePicture& picture, const DistanceOptions& options = {});

}  // namespace calc

#endif  // LASERCALI_TOOLS_CALC_DISTANCE_H_
