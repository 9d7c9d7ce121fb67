#include "tools/calc/answer_values.h"

#include <cmath>

namespace calc {
namespace {

constexpr int64_t kU16Max = 65535;
constexpr int64_t kI16Min = -32768, kI16Max = 32767;
constexpr int64_t kBias = 32768;

// Whether x, in units, fits a biased u16 field.
bool FitsBiased(double units) { return units >= -32768.5 && units < 32767.5; }

uint16_t Biased(double units) {
  return static_cast<uint16_t>(RoundedWithin(units, -kBias, kBias - 1) + kBias);
}
double Unbiased(uint16_t value) { return static_cast<double>(static_cast<int64_t>(value) - kBias); }

uint16_t Count16(double x) { return static_cast<uint16_t>(RoundedWithin(x, 0, kU16Max)); }
int16_t Signed16(double x) { return static_cast<int16_t>(RoundedWithin(x, kI16Min, kI16Max)); }

}  // namespace

int64_t RoundedWithin(double x, int64_t low, int64_t high) {
  if (!(x == x)) return low;  // NaN
  const double r = x < 0 ? -std::floor(-x + 0.5) : std::floor(x + 0.5);
  if (r <= static_cast<double>(low)) return low;
  if (r >= static_cast<double>(high)) return high;
  return static_cast<int64_t>(r);
}

bool EncodePlanes(const LaserPlaneValues& left, const LaserPlaneValues& right, int points,
                  uint16_t out[9]) {
  for (const LaserPlaneValues* p : {&left, &right}) {
    if (!FitsBiased(p->angles.yaw * 1000) || !FitsBiased(p->angles.roll * 1000) ||
        !FitsBiased(p->angles.offset * 1000)) {
      return false;
    }
  }
  int at = 0;
  for (const LaserPlaneValues* p : {&left, &right}) {
    out[at++] = Biased(p->angles.yaw * 1000);
    out[at++] = Biased(p->angles.roll * 1000);
    out[at++] = Biased(p->angles.offset * 1000);  // cm -> hundredths of a mm
  }
  out[6] = Count16(left.rms * 10000);  // cm -> micrometres
  out[7] = Count16(right.rms * 10000);
  out[8] = Count16(points);
  return true;
}

void DecodePlanes(const uint16_t values[9], PlaneAngles* left, PlaneAngles* right) {
  PlaneAngles* sides[2] = {left, right};
  for (int i = 0; i < 2; ++i) {
    sides[i]->yaw = Unbiased(values[3 * i]) / 1000;
    sides[i]->roll = Unbiased(values[3 * i + 1]) / 1000;
    sides[i]->offset = Unbiased(values[3 * i + 2]) / 1000;
  }
}

void EncodeCheck(double left_rms, double left_worst, double right_rms, double right_worst,
                 uint16_t out[4]) {
  out[0] = Count16(left_rms * 1000);
  out[1] = Count16(left_worst * 1000);
  out[2] = Count16(right_rms * 1000);
  out[3] = Count16(right_worst * 1000);
}

void EncodeDistance(const WallValues& left, const WallValues& right, uint16_t* distance,
                    int16_t near_values[4], int16_t far_values[8]) {
  *distance = Count16((left.distance + right.distance) / 2 * 100);  // cm -> tenths of a mm
  const WallValues* sides[2] = {&left, &right};
  for (int i = 0; i < 2; ++i) {
    const WallValues& w = *sides[i];
    near_values[2 * i] = Signed16(w.nearest_floor * 100);
    near_values[2 * i + 1] = Signed16(w.floor_rms * 10000);
    far_values[4 * i] = Signed16(w.distance * 100);
    far_values[4 * i + 1] = Signed16(w.spread * 10000);
    far_values[4 * i + 2] = Signed16(w.tilt * 10000);
    far_values[4 * i + 3] = Signed16(w.points);
  }
}

}  // namespace calc
