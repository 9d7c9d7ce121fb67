// The stripe cut's rules in their plain form (see stripecut_reference.h).
#include "tests/support/stripecut_reference.h"

#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <stdexcept>
#include <vector>

namespace stripecut_reference {

using kivplugcali::kStripeCols;
using kivplugcali::kStripeRows;
using kivplugcali::kStripeWalkLeft;
using kivplugcali::SlopeCheck;
using kivplugcali::StripeCut;
using kivplugcali::StripeCutStop;
using kivplugcali::StripePoint;
using kivplugcali::StripePointRole;

namespace {

constexpr int kFirstScanRow = kStripeRows - 1;  // 479
constexpr int kLastScanRow = 2;                 // rows 1 and 0 are never scanned
constexpr int kFirstCol = 1;
constexpr int kLastCol = kStripeCols - 2;  // 638

// Peak thresholds: the peak pixel and the one after it in walking order must
// be at least 100, the one before it at least 80.
constexpr int kPeakMin = 100;
constexpr int kPeakPrevMin = 80;
// A pixel this dark or darker ends the stripe in a row's walk.
constexpr int kDarkMax = 9;
// A rise further than this from the peak is a far rise.
constexpr int kNearRise = 14;
// Pixels of the bright run that make up a stripe point's centre.
constexpr int kRunMin = 100;

constexpr int kMinPoints = 50;
constexpr int kSearchMargin = 10;  // points skipped at either end of the search
constexpr int kNeighbours = 9;     // neighbours looked at on either side
constexpr int kMinAgreeing = 12;   // a point agrees with more than 11 of them
constexpr float kAgreeRows = 10.0f;
constexpr float kAgreeCols = 3.0f;
constexpr int kSlopeReach = 10;   // slope from point - 10 to point + 10
constexpr int kSteepK1 = 3;       // k1 above this is steep
constexpr int kSteepRun = 6;      // the check after six steep ones is the cut
constexpr int kMinAfterCut = 80;  // num2 must exceed 79
constexpr int kMinChecks = 10;    // G must exceed 9
constexpr int kKeepMargin = 30;   // rows kept: 30 up to cut line - 31

struct RowScan {
  int peaks = 0;
  int peak_col = 0;  // 0: no peak
  int second_col = 0;
};

// Walks one row with a window of three pixels (previous, current, next) in
// the direction of `step` (+1 from column 1 to 638, -1 from 638 down to 2).
RowScan ScanRow(const uint8_t* p, int step) {
  RowScan scan;
  const int first = step > 0 ? kFirstCol : kLastCol;
  const int last = step > 0 ? kLastCol : 2;
  bool in_stripe = false;
  int far_rises = 0;
  for (int c = first;; c += step) {
    if (!in_stripe) {
      // Outside the stripe only a pixel of 100 or more can be a peak; pass
      // over the others at once.
      while (p[c] < kPeakMin && c != last) c += step;
    }
    const int prev = p[c - step];
    const int cur = p[c];
    const int next = p[c + step];
    if (!in_stripe) {
      if (cur >= kPeakMin && next >= kPeakMin && prev >= kPeakPrevMin && prev < cur &&
          next <= cur) {
        ++scan.peaks;
        if (scan.peaks == 1) {
          scan.peak_col = c;
          in_stripe = true;
        } else {
          scan.second_col = c;
          break;
        }
      }
    } else if (cur <= kDarkMax || c == last) {
      // A dark gap (or the end of the walk) ends the stripe; peaks are
      // looked for again from the next column on.
      in_stripe = false;
    } else if (prev < cur && std::abs(c - scan.peak_col) > kNearRise) {
      // The first far rise of the row keeps the stripe, every later one ends
      // it. The column of that rise is not itself taken as a peak.
      ++far_rises;
      if (far_rises > 1) in_stripe = false;
    }
    if (c == last) break;
  }
  return scan;
}

// Brightness-weighted centre of the bright run around column c. Column 1 and
// column 639 never count. False when the run is empty.
bool RunCentre(const uint8_t* p, int c, float* x) {
  int32_t weighted = 0;
  int32_t sum = 0;
  if (p[c] >= kRunMin && c <= kLastCol) {
    for (int j = c; j <= kLastCol && p[j] >= kRunMin; ++j) {
      weighted += p[j] * j;
      sum += p[j];
    }
  }
  for (int j = c - 1; j != 1 && p[j] >= kRunMin; --j) {
    weighted += p[j] * j;
    sum += p[j];
  }
  if (sum == 0) return false;
  *x = static_cast<float>(weighted) / static_cast<float>(sum);
  return true;
}

bool Agrees(const StripePoint& a, const StripePoint& b) {
  return std::fabs(a.y - b.y) <= kAgreeRows && std::fabs(a.x - b.x) <= kAgreeCols;
}

// True when more than 11 of the 18 neighbours of point i agree with it.
bool AgreesWithNeighbours(const std::vector<StripePoint>& pts, int i) {
  int agreeing = 0;
  for (int k = 1; k <= kNeighbours; ++k) {
    if (Agrees(pts[i], pts[i - k]) && ++agreeing >= kMinAgreeing) return true;
    if (Agrees(pts[i], pts[i + k]) && ++agreeing >= kMinAgreeing) return true;
  }
  return false;
}

void ResetCut(StripeCut* cut) {
  cut->stop = StripeCutStop::kTooFewPoints;
  cut->result = 2;
  cut->two_stripe_row = cut->first_peak_col = cut->second_peak_col = -1;
  cut->points.clear();
  cut->roles.clear();
  cut->checks.clear();
  cut->num2 = 0;
  cut->G = 0;
  cut->cut_found = false;
  cut->cut_line = 0;
}

// Traces the stripe from the bottom row up. False after a row with two peaks.
bool TracePoints(const cv::Mat& picture, int mode, StripeCut* cut) {
  std::vector<StripePoint>& pts = cut->points;
  pts.reserve(kFirstScanRow - kLastScanRow + 1);
  const int step = mode == kStripeWalkLeft ? 1 : -1;
  for (int r = kFirstScanRow; r >= kLastScanRow; --r) {
    const uint8_t* p = picture.ptr<uint8_t>(r);
    const RowScan scan = ScanRow(p, step);
    if (scan.peaks >= 2) {
      pts.clear();
      cut->two_stripe_row = r;
      cut->first_peak_col = scan.peak_col;
      cut->second_peak_col = scan.second_col;
      return false;
    }
    if (scan.peak_col <= 1) continue;
    float x;
    if (RunCentre(p, scan.peak_col, &x)) pts.push_back({x, static_cast<float>(r)});
  }
  return true;
}

// Looks for the cut line, the seventh steep slope check in a row, and counts
// the agreeing points after it.
void SearchCutLine(StripeCut* cut) {
  const std::vector<StripePoint>& pts = cut->points;
  const int n = static_cast<int>(pts.size());
  cut->roles.assign(pts.size(), StripePointRole::kUnchecked);
  cut->checks.reserve(pts.size());
  int steep = 0;
  for (uint16_t i = kSearchMargin; i < n - kSearchMargin; ++i) {
    const StripePoint& pt = pts[i];
    // With one point per row from row 479 up to row 2, points 10 to N - 11
    // lie in rows 12 to 469 and columns 2 to 638, so this test never skips a
    // point; it stays as part of the rule.
    if (!(std::ceil(pt.x) > 0 && std::floor(pt.x) < kStripeCols && std::floor(pt.y) < 470 &&
          std::ceil(pt.y) > 10)) {
      cut->roles[i] = StripePointRole::kOutside;
      continue;
    }
    if (!AgreesWithNeighbours(pts, i)) {
      cut->roles[i] = StripePointRole::kStray;
      continue;
    }
    if (cut->cut_found) {
      cut->roles[i] = StripePointRole::kAfterCut;
      ++cut->num2;
      continue;
    }
    cut->roles[i] = StripePointRole::kSlopeCheck;
    ++cut->G;
    const StripePoint& below = pts[i - kSlopeReach];
    const StripePoint& above = pts[i + kSlopeReach];
    SlopeCheck check;
    check.point = i;
    check.dx = static_cast<int>(below.x - above.x);
    if (check.dx == 0) check.dx = 1;
    check.dy = static_cast<int>(below.y - above.y);
    check.k1 = std::abs(check.dy / check.dx);
    check.cut = false;
    if (check.k1 <= kSteepK1) {
      steep = 0;
    } else if (steep >= kSteepRun) {
      check.cut = true;
      cut->cut_found = true;
      cut->cut_line = static_cast<int>(std::floor(pt.y));
    } else {
      ++steep;
    }
    cut->checks.push_back(check);
  }
}

// Keeps the rows from 30 up to 31 rows above the cut line, columns 1 to 638.
void KeepAboveCut(const cv::Mat& picture, StripeCut* cut) {
  cut->picture.create(kStripeRows, kStripeCols, CV_8UC1);
  cut->picture.setTo(cv::Scalar(0));
  for (int r = kKeepMargin; r < cut->cut_line - kKeepMargin; ++r) {
    std::memcpy(cut->picture.ptr<uint8_t>(r) + kFirstCol, picture.ptr<uint8_t>(r) + kFirstCol,
                kLastCol - kFirstCol + 1);
  }
}

StripeCutStop Cut(const cv::Mat& picture, int mode, StripeCut* cut) {
  if (!TracePoints(picture, mode, cut)) return StripeCutStop::kTwoStripes;
  if (static_cast<int>(cut->points.size()) < kMinPoints) return StripeCutStop::kTooFewPoints;
  SearchCutLine(cut);
  if (!cut->cut_found) return StripeCutStop::kNoCutLine;
  if (cut->num2 < kMinAfterCut || cut->G < kMinChecks) return StripeCutStop::kCutRefused;
  KeepAboveCut(picture, cut);
  return StripeCutStop::kCut;
}

}  // namespace

void CutStripe(const cv::Mat& picture, int mode, StripeCut* cut) {
  if (picture.rows != kStripeRows || picture.cols != kStripeCols || picture.type() != CV_8UC1) {
    throw std::invalid_argument("stripe cut needs a 480 x 640 picture with one 8-bit channel");
  }
  ResetCut(cut);
  cut->stop = Cut(picture, mode, cut);
  switch (cut->stop) {
    case StripeCutStop::kCut:
      cut->result = 0;
      break;
    case StripeCutStop::kTwoStripes:
      cut->result = 1;
      break;
    default:
      cut->result = 2;
      break;
  }
  // Only a successful cut has a picture; a reused one keeps its buffer.
  if (cut->result != 0) cut->picture.release();
}

}  // namespace stripecut_reference
