// The numbers the reference calculation nodes send, in the whole-number
// fields of their answer records (docs/calibration.md).
//
// Plane values (`plane_data`, nine u16), per laser, left then right:
//   [0] [3]  yaw in thousandths of a degree, plus 32768 (-32.768 .. 32.767 deg)
//   [1] [4]  roll, the same
//   [2] [5]  offset in hundredths of a millimetre, plus 32768 (-327.68 .. 327.67 mm)
//   [6] [7]  the fit's RMS distance of the stripe points from the plane, micrometres
//   [8]      stripe points used by both fits
// Check values (`check_data`, four u16): left RMS and worst residual, right
// RMS and worst residual, in thousandths of a pixel along the rows.
// Distance values: `distance` (u16) the wall's distance in tenths of a
// millimetre, the mean of both lasers; `near_values` (four i16) per laser
// the nearest floor point's forward distance (tenths of a millimetre) and
// the floor points' RMS height (micrometres); `far_values` (eight i16) per
// laser the wall's distance (tenths of a millimetre), the wall points' RMS
// spread about it (micrometres), the wall's tilt (micrometres of distance
// per centimetre of height) and the number of wall points.
//
// Values are rounded to the nearest unit (halves away from zero). Quality
// figures and counts stop at the field's largest value; a plane whose yaw,
// roll or offset lies outside its range cannot be sent (EncodePlanes says
// so), since a clipped calibration would be a wrong one.
#ifndef LASERCALI_TOOLS_CALC_ANSWER_VALUES_H_
#define LASERCALI_TOOLS_CALC_ANSWER_VALUES_H_

#include <cstdint>

#include "tools/calc/plane_fit.h"

namespace calc {

struct LaserPlaneValues {
  PlaneAngles angles;  // offset in cm
  double rms = 0;      // cm
};

// Fills `out`; false (and `out` untouched) when a plane lies outside the range.
bool EncodePlanes(const LaserPlaneValues& left, const LaserPlaneValues& right, int points,
                  uint16_t out[9]);
// The planes the nine values carry.
void DecodePlanes(const uint16_t values[9], PlaneAngles* left, PlaneAngles* right);

// Residuals in pixels.
void EncodeCheck(double left_rms, double left_worst, double right_rms, double right_worst,
                 uint16_t out[4]);

struct WallValues {
  double distance = 0;  // cm
  double spread = 0;    // cm
  double tilt = 0;      // cm per cm
  int points = 0;
  double nearest_floor = 0;  // cm
  double floor_rms = 0;      // cm
};
void EncodeDistance(const WallValues& left, const WallValues& right, uint16_t* distance,
                    int16_t near_values[4], int16_t far_values[8]);

// The whole number nearest `x` (halves away from zero), clamped to [low, high].
int64_t RoundedWithin(double x, int64_t low, int64_t high);

}  // namespace calc

#endif  // LASERCALI_TOOLS_CALC_ANSWER_VALUES_H_
