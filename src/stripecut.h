// The laser stripe cut of app pictures, as a computation without side effects.
//
// CutStripe traces the laser stripe of a 480 x 640 8-bit picture row by row,
// from the bottom row (479) up to row 2, and keeps one stripe point per row:
// the brightness-weighted centre of the bright run around the row's peak.
// A row with two peaks ends the trace at once (two stripes, result 1). With
// fewer than 50 points the picture is refused (result 2). Otherwise the points
// that agree with their neighbours are slope-checked from the bottom up; the
// seventh steep check in a row marks the cut line, where the stripe turns
// from the floor onto the wall. The picture is cut (result 0) when at least
// 80 agreeing points lie above the cut line and at least 10 slope checks were
// made up to it; the cut picture holds rows 30 to cut line - 31, columns 1 to
// 638, of the input and zeros elsewhere. Otherwise the result is 2.
//
// CutStripe reads only the picture and writes only *cut: no files, no console,
// no globals. It reads the picture sixteen pixels at a time (src/simd16.h:
// SSE2 on x86-64, NEON on ARM); tests/support/stripecut_reference.cpp keeps
// the same rules a pixel at a time, and the differential test holds the two
// to the same result, bit for bit. KivNode_caligetpic::pic_carveup wraps it with the picture files
// and console lines of the node. A StripeCut can be reused across calls; its
// buffers keep their capacity, so repeated cuts allocate nothing.
#ifndef LASERCALI_SRC_STRIPECUT_H_
#define LASERCALI_SRC_STRIPECUT_H_

#include <cstddef>
#include <cstdint>
#include <opencv2/core.hpp>
#include <string>
#include <vector>

namespace kivplugcali {

constexpr int kStripeRows = 480;
constexpr int kStripeCols = 640;

// Walk direction: kStripeWalkLeft (the left laser) walks each row from the
// left; every other mode (the right laser, 8) walks from the right.
constexpr int kStripeWalkLeft = 1;
constexpr int kStripeWalkRight = 8;

// A stripe point: x is the centre column, y the row.
struct StripePoint {
  float x;
  float y;
};

// What the cut-line search made of a point.
enum class StripePointRole : uint8_t {
  kUnchecked,   // among the first or last ten points: only a neighbour or slope end
  kOutside,     // outside the checked area (rows 11 to 469); cannot happen with
                //   one point per row, kept as a guard
  kStray,       // 11 or fewer of its 18 neighbours agree; skipped
  kSlopeCheck,  // agrees with its neighbours, at or before the cut: one slope check (G)
  kAfterCut,    // agrees with its neighbours, after the cut (num2)
};

// One slope check, made on an agreeing point up to the cut.
struct SlopeCheck {
  uint16_t point;  // index of the checked point
  int dx;          // x of point - 10 minus x of point + 10, truncated; 1 instead of 0
  int dy;          // y of point - 10 minus y of point + 10, truncated
  int k1;          // |dy / dx| in truncating integer division; steep when above 3
  bool cut;        // this check is the seventh steep one in a row: the cut line
};

// Where the cut stopped.
enum class StripeCutStop : uint8_t {
  kCut,           // result 0: the picture was cut at the cut line
  kTwoStripes,    // result 1: a row showed two stripe peaks
  kTooFewPoints,  // result 2: fewer than 50 stripe points
  kNoCutLine,     // result 2: no seven steep checks in a row
  kCutRefused,    // result 2: a cut line, but num2 below 80 or G below 10
};

struct StripeCut {
  StripeCutStop stop = StripeCutStop::kTooFewPoints;
  uint8_t result = 2;  // 0, 1 or 2, the node's result code

  // Two stripes: the row and the columns of its first and second peak.
  int two_stripe_row = -1;
  int first_peak_col = -1;
  int second_peak_col = -1;

  // The stripe points, bottom row first; empty after two stripes.
  std::vector<StripePoint> points;
  // The search's verdict on each point (parallel to points); empty when the
  // search did not run (two stripes, too few points).
  std::vector<StripePointRole> roles;
  // The slope checks in order; they give the node's "abs(k1)" lines.
  std::vector<SlopeCheck> checks;

  int num2 = 0;  // agreeing points after the cut
  int G = 0;     // slope checks up to and including the cut
  bool cut_found = false;
  int cut_line = 0;  // row of the cut, when cut_found

  // The cut picture (480 x 640, 8-bit) when result is 0, else empty.
  cv::Mat picture;
};

// Cuts `picture` (480 x 640, one 8-bit channel, need not be continuous) for
// the laser `mode` and stores everything found in *cut, replacing what it held.
// Throws std::invalid_argument for a picture of another shape or type.
void CutStripe(const cv::Mat& picture, int mode, StripeCut* cut);

// Picture the node stores before every cut: "/tmp/LL.bmp" for mode 1, else
// "/tmp/RR.bmp".
const char* StripeScanFile(int mode);

// Formats the cut picture's path, "<folder>/<number>.bmp", into `out`
// (cleared first), where number is distance * 100 + delt.
void FormatStripeCutFile(char* out, std::size_t size, const std::string& folder, uint16_t distance,
                         uint16_t delt);

}  // namespace kivplugcali

#endif  // LASERCALI_SRC_STRIPECUT_H_
