// The laser stripe cut of app pictures.
//
// The rules are those of stripecut.h. tests/support/stripecut_reference.cpp
// states them plainly, a pixel and a point at a time; this version applies
// them sixteen columns at a time (simd16.h) and must give the same StripeCut,
// bit for bit, on every picture: tests/src/stripecut_diff_test.cpp and the
// fuzz target tests/fuzz/stripecut_diff_fuzz.cpp compare the two.
#include "src/stripecut.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <stdexcept>

#include "src/simd16.h"

namespace kivplugcali {

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

// The sixteen pixels of `row` from column `col` on; those outside the row
// read as 0.
simd16::Bytes LoadCols(const uint8_t* row, int col) {
  if (col >= 0 && col + simd16::kLanes <= kStripeCols) return simd16::Load(row + col);
  uint8_t bytes[simd16::kLanes] = {};
  const int low = std::max(col, 0);
  const int high = std::min(col + simd16::kLanes, kStripeCols);
  std::memcpy(bytes + (low - col), row + low, high - low);
  return simd16::Load(bytes);
}

// One row's walk, with a window of three pixels (previous, current, next),
// in the direction kStep: +1 for the left laser, from column 1 up to 638;
// -1 for the right laser, from column 638 down to 2. "Before", "after" and
// "first" below mean in walking order.
//
// The walk looks for the first peak; from the column after it, for the end of
// the stripe; from the column after that, for a second peak. Each search reads
// the row sixteen columns at a time. A block is the sixteen columns from a
// multiple of 16 on, so every block lies inside the row; its lane bits
// (simd16.h) say which of its columns take part. Only a pixel of 100 or more
// can be a peak, and in most of a row there is none: the walk first notes
// which blocks hold one (looking into a group of four blocks only when one of
// them does), and the peak searches look only into those blocks.
template <int kStep>
class RowWalk {
 public:
  explicit RowWalk(const uint8_t* row) : p_(row), bright_blocks_(BrightBlocks()) {}

  RowScan Scan() const {
    RowScan scan;
    if (bright_blocks_ == 0) return scan;
    const int peak = NextPeak(kFirst);
    if (peak < 0) return scan;
    scan.peaks = 1;
    scan.peak_col = peak;
    if (peak == kLast) return scan;
    // The stripe ends at a dark pixel, at its second far rise or at the end
    // of the walk; the column where it ends is not itself a peak.
    const int end = StripeEnd(peak);
    if (end == kLast) return scan;
    const int second = NextPeak(end + kStep);
    if (second >= 0) {
      scan.peaks = 2;
      scan.second_col = second;
    }
    return scan;
  }

 private:
  static constexpr int kFirst = kStep > 0 ? kFirstCol : kLastCol;
  static constexpr int kLast = kStep > 0 ? kLastCol : 2;

  static int BlockOf(int col) { return col & ~(simd16::kLanes - 1); }
  static int NextBlock(int block) { return block + kStep * simd16::kLanes; }
  // Lanes of `block` that hold column `col` or a column after it.
  static uint64_t FromCol(int block, int col) {
    return kStep > 0 ? simd16::LanesFrom(col - block) : simd16::LanesBelow(col - block + 1);
  }
  // Lanes of `block` that hold column `col` or a column before it.
  static uint64_t UpToCol(int block, int col) {
    return simd16::kAllLanes & ~FromCol(block, col + kStep);
  }
  // The lane bits of the first lane among `bits` (not 0).
  static uint64_t FirstLane(uint64_t bits) {
    return simd16::Lane(kStep > 0 ? simd16::LowestLane(bits) : simd16::HighestLane(bits));
  }
  // The first column of `block` among `bits` (not 0).
  static int FirstCol(int block, uint64_t bits) {
    return block + (kStep > 0 ? simd16::LowestLane(bits) : simd16::HighestLane(bits));
  }

  // The first peak from column `from` up to the end of the walk, or -1.
  int NextPeak(int from) const {
    const int from_index = from / simd16::kLanes;
    uint64_t blocks =
        bright_blocks_ & (kStep > 0 ? ~uint64_t{0} << from_index : (uint64_t{2} << from_index) - 1);
    while (blocks != 0) {
      const int index = kStep > 0 ? __builtin_ctzll(blocks) : 63 - __builtin_clzll(blocks);
      blocks &= ~(uint64_t{1} << index);
      const int block = index * simd16::kLanes;
      if ((BrightLanes(block) & FromCol(block, from)) == 0) continue;
      // Columns 0 and 639 lie beyond the end of the walk.
      const uint64_t peaks = PeakLanes(block) & FromCol(block, from) & UpToCol(block, kLast);
      if (peaks != 0) return FirstCol(block, peaks);
    }
    return -1;
  }

  // The lanes of `block` whose columns pass the peak rule: the pixel and the
  // one after it at least 100, the one before it at least 80, a rise onto it
  // and none after it.
  uint64_t PeakLanes(int block) const {
    const simd16::Bytes cur = simd16::Load(p_ + block);
    const simd16::Bytes prev = LoadCols(p_, block - kStep);
    const simd16::Bytes next = LoadCols(p_, block + kStep);
    return simd16::LaneBits((cur >= kPeakMin) & (next >= kPeakMin) & (prev >= kPeakPrevMin) &
                            (prev < cur) & (next <= cur));
  }

  // The lanes of `block` whose pixels are 100 or more.
  uint64_t BrightLanes(int block) const {
    return simd16::LaneBits(simd16::Load(p_ + block) >= kPeakMin);
  }

  // Bit k set when a pixel of block k (columns 16k to 16k + 15) is 100 or
  // more.
  uint64_t BrightBlocks() const {
    uint64_t blocks = 0;
    for (int group = 0; group < kStripeCols; group += 4 * simd16::kLanes) {
      const uint8_t* p = p_ + group;
      const simd16::Bytes a = simd16::Max(simd16::Load(p), simd16::Load(p + 16));
      const simd16::Bytes b = simd16::Max(simd16::Load(p + 32), simd16::Load(p + 48));
      if (simd16::LaneBits(simd16::Max(a, b) >= kPeakMin) == 0) continue;
      for (int block = group; block < group + 4 * simd16::kLanes; block += simd16::kLanes) {
        const bool bright = BrightLanes(block) != 0;
        blocks |= static_cast<uint64_t>(bright) << (block / simd16::kLanes);
      }
    }
    return blocks;
  }

  // Where the stripe that peaks at `peak` ends, looking from the column after
  // the peak on: at the first dark pixel (9 or less) or the end of the walk,
  // or at the second far rise (a pixel brighter than the one before it and
  // further than 14 columns from the peak), whichever comes first. A dark
  // pixel that is also a rise ends the stripe as a dark one.
  int StripeEnd(int peak) const {
    const int from = peak + kStep;
    const int far_from = peak + (kNearRise + 1) * kStep;
    bool first_rise_seen = false;
    for (int block = BlockOf(from);; block = NextBlock(block)) {
      const simd16::Bytes cur = simd16::Load(p_ + block);
      uint64_t ends = simd16::LaneBits(cur <= kDarkMax) & FromCol(block, from);
      if (block == BlockOf(kLast)) ends |= simd16::Lane(kLast - block);
      uint64_t rises = 0;
      const uint64_t far = FromCol(block, far_from);
      if (far != 0) rises = simd16::LaneBits(LoadCols(p_, block - kStep) < cur) & far;
      if (rises != 0 && !first_rise_seen) {
        // The first far rise keeps the stripe (when nothing ended it before).
        rises &= ~FirstLane(rises);
        first_rise_seen = true;
      }
      // Lanes beyond the end of the walk (columns 639, or 0 and 1) come after
      // its end, which is an end lane, so they are never the first.
      if ((ends | rises) != 0) return FirstCol(block, ends | rises);
    }
  }

  const uint8_t* p_;
  const uint64_t bright_blocks_;
};

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

// Two points as one vector: x, y, x, y.
simd16::Floats PointPair(const StripePoint* first) {
  simd16::Floats pair;
  std::memcpy(&pair, first, sizeof pair);
  return pair;
}

// True when more than 11 of the 18 neighbours of point i (nine on either
// side) agree with it: no more than 10 rows and 3 columns away. Two points
// at a time, x, y, x, y: a point agrees when both its lanes are near enough;
// each agreeing point then counts in both of its lanes. The floats are the
// same as in the plain rule: the same IEEE single subtractions, absolute
// values and compares, and no difference is subnormal (which NEON on 32-bit
// ARM would flush to zero), for centres lie in columns 2 to 638 and rows are
// whole numbers.
bool AgreesWithNeighbours(const std::vector<StripePoint>& pts, int i) {
  const StripePoint& pt = pts[i];
  const simd16::Floats centre = {pt.x, pt.y, pt.x, pt.y};
  const simd16::Floats reach = {kAgreeCols, kAgreeRows, kAgreeCols, kAgreeRows};
  const simd16::Words no_sign = {0x7FFFFFFFu, 0x7FFFFFFFu, 0x7FFFFFFFu, 0x7FFFFFFFu};
  simd16::Ints lanes = {0, 0, 0, 0};  // minus twice the agreeing neighbours
  const auto count = [&](simd16::Floats pair) {
    const simd16::Words distance = simd16::Reinterpret<simd16::Words>(pair - centre) & no_sign;
    const simd16::Ints near = simd16::Reinterpret<simd16::Floats>(distance) <= reach;
    lanes += near & simd16::SwapPairs(near);
  };
  // Neighbours i - 9 to i - 1 and i + 1 to i + 9: four pairs on either side,
  // then i - 9 and i + 9 together.
  for (int k = 1; k < kNeighbours; k += 2) {
    count(PointPair(&pts[i - k - 1]));
    count(PointPair(&pts[i + k]));
  }
  const StripePoint& below = pts[i - kNeighbours];
  const StripePoint& above = pts[i + kNeighbours];
  count(simd16::Floats{below.x, below.y, above.x, above.y});
  return -(lanes[0] + lanes[1] + lanes[2] + lanes[3]) >= 2 * kMinAgreeing;
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

// Traces the stripe from the bottom row up, walking each row in the
// direction kStep. False after a row with two peaks.
template <int kStep>
bool TracePoints(const cv::Mat& picture, StripeCut* cut) {
  std::vector<StripePoint>& pts = cut->points;
  pts.reserve(kFirstScanRow - kLastScanRow + 1);
  for (int r = kFirstScanRow; r >= kLastScanRow; --r) {
    const uint8_t* p = picture.ptr<uint8_t>(r);
    const RowScan scan = RowWalk<kStep>(p).Scan();
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
    // point; it stays as part of the rule. ceil(v) > 0 holds exactly when
    // v > 0, floor(v) < 640 when v < 640, and so on, without rounding.
    if (!(pt.x > 0 && pt.x < kStripeCols && pt.y < 470 && pt.y > 10)) {
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
    SlopeCheck& check = cut->checks.emplace_back();  // reserved: written in place
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
  }
}

// Keeps the rows from 30 up to 31 rows above the cut line, columns 1 to 638,
// and zeros elsewhere: every byte of the cut picture is written once, so a
// reused buffer needs no clearing first.
void KeepAboveCut(const cv::Mat& picture, StripeCut* cut) {
  cv::Mat& out = cut->picture;
  out.create(kStripeRows, kStripeCols, CV_8UC1);  // continuous
  const int first_kept = kKeepMargin;
  const int end_kept = std::max(first_kept, cut->cut_line - kKeepMargin);
  std::memset(out.ptr<uint8_t>(0), 0, static_cast<std::size_t>(first_kept) * kStripeCols);
  for (int r = first_kept; r < end_kept; ++r) {
    // The whole row sixteen bytes at a time, then its first and last column
    // cleared: faster than copying 638 bytes from an odd column.
    const uint8_t* in = picture.ptr<uint8_t>(r);
    uint8_t* row = out.ptr<uint8_t>(r);
    for (int c = 0; c < kStripeCols; c += simd16::kLanes)
      simd16::Store(row + c, simd16::Load(in + c));
    row[0] = 0;
    row[kStripeCols - 1] = 0;
  }
  std::memset(out.ptr<uint8_t>(end_kept), 0,
              static_cast<std::size_t>(kStripeRows - end_kept) * kStripeCols);
}

StripeCutStop Cut(const cv::Mat& picture, int mode, StripeCut* cut) {
  const bool one_stripe =
      mode == kStripeWalkLeft ? TracePoints<1>(picture, cut) : TracePoints<-1>(picture, cut);
  if (!one_stripe) return StripeCutStop::kTwoStripes;
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

const char* StripeScanFile(int mode) {
  return mode == kStripeWalkLeft ? "/tmp/LL.bmp" : "/tmp/RR.bmp";
}

void FormatStripeCutFile(char* out, std::size_t size, const std::string& folder, uint16_t distance,
                         uint16_t delt) {
  std::memset(out, 0, size);
  std::snprintf(out, size, "%s/%d.bmp", folder.c_str(), distance * 100 + delt);
}

}  // namespace kivplugcali
