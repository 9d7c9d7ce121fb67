#include "tests/support/random_stripe_pictures.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>
#include <sstream>
#include <vector>

namespace testsupport {

namespace {

constexpr int kRows = 480;
constexpr int kCols = 640;

// splitmix64: small, fast, and the same everywhere. The order of draws is
// the same with every compiler only when each draw is a statement of its own
// (or sequenced by && or ?:): two draws in one call's arguments, or in the
// operands of + or *, may run in either order.
class Random {
 public:
  explicit Random(uint64_t seed) : state_(seed) {}
  uint64_t Next() {
    uint64_t z = (state_ += 0x9E3779B97F4A7C15ull);
    z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9ull;
    z = (z ^ (z >> 27)) * 0x94D049BB133111EBull;
    return z ^ (z >> 31);
  }
  // A whole number from lo to hi.
  int Between(int lo, int hi) {
    return lo + static_cast<int>(Next() % static_cast<uint64_t>(hi - lo + 1));
  }
  // A number from lo to hi in steps of 1/1024.
  double Real(double lo, double hi) { return lo + (hi - lo) * Between(0, 1024) / 1024.0; }
  // True with probability num / den.
  bool Chance(int num, int den) { return Between(1, den) <= num; }
  template <typename T, std::size_t N>
  T Pick(const std::array<T, N>& values) {
    return values[static_cast<std::size_t>(Between(0, static_cast<int>(N) - 1))];
  }

 private:
  uint64_t state_;
};

// The values the cut's rules turn on, and their neighbours.
constexpr std::array<int, 10> kThresholdValues = {9, 10, 79, 80, 99, 100, 0, 101, 255, 14};

uint8_t Clamp(int v) { return static_cast<uint8_t>(std::clamp(v, 0, 255)); }

// --- Backgrounds ---------------------------------------------------------------

// Fills the picture from a few prepared rows of kCols + 16 bytes: each row of
// the picture is one of them, from an offset of 0 to 16.
void FillFromRows(cv::Mat& picture, const std::vector<std::vector<uint8_t>>& rows, Random& random) {
  for (int r = 0; r < kRows; ++r) {
    const std::vector<uint8_t>& row = rows[random.Between(0, static_cast<int>(rows.size()) - 1)];
    std::memcpy(picture.ptr<uint8_t>(r), row.data() + random.Between(0, 16), kCols);
  }
}

void PaintBackground(cv::Mat& picture, Random& random, std::ostringstream& recipe) {
  const int kind = random.Between(0, 9);
  if (kind <= 2) {
    static constexpr std::array<int, 12> kFlat = {0, 0, 0, 3, 9, 10, 40, 79, 80, 99, 100, 120};
    const int value = random.Pick(kFlat);
    recipe << "flat " << value;
    picture.setTo(cv::Scalar(value));
    return;
  }
  // Noise, ambient light or both, as eight prepared rows.
  const int base = random.Pick(std::array<int, 6>{0, 0, 5, 15, 30, 60});
  const int noise = random.Pick(std::array<int, 6>{0, 3, 6, 8, 16, 40});
  const int rise = kind >= 7 ? random.Between(10, 60) : 0;  // ambient light across the row
  recipe << "noise base " << base << " +-" << noise << " rise " << rise;
  std::vector<std::vector<uint8_t>> rows(8, std::vector<uint8_t>(kCols + 16));
  for (std::vector<uint8_t>& row : rows) {
    for (std::size_t c = 0; c < row.size(); ++c) {
      const int ambient = base + rise * static_cast<int>(c) / kCols;
      row[c] = Clamp(ambient + (noise ? random.Between(-noise, noise) : 0));
    }
  }
  FillFromRows(picture, rows, random);
}

// --- Stripes --------------------------------------------------------------------

struct Stripe {
  int bottom = 479;      // first (lowest) row
  int top = 2;           // last (highest) row
  double x_bottom = 0;   // centre column at the bottom row
  int bend = 0;          // row where the slope changes
  double slope_low = 0;  // columns per row going up, below the bend
  double slope_high = 0;
  double jitter = 0;   // random shift of the centre per row, up to this
  int half_width = 2;  // pixels on either side of the centre
  int peak = 200;
  int fall = 40;              // brightness lost per pixel from the centre
  bool flat = false;          // the same brightness across the width
  int edge = -1;              // when >= 0, the value of the pixel just outside
  int gap_percent = 0;        // rows left out
  int dark_percent = 0;       // rows with a dark (or almost dark) pixel inside
  int threshold_percent = 0;  // rows with a threshold value beside the stripe
};

double CentreAt(const Stripe& s, int row) {
  if (row >= s.bend) return s.x_bottom + s.slope_low * (s.bottom - row);
  return s.x_bottom + s.slope_low * (s.bottom - s.bend) + s.slope_high * (s.bend - row);
}

Stripe RandomStripe(Random& random, bool camera_like) {
  Stripe s;
  if (camera_like) {
    // On the floor the stripe slants; from the bend up the wall it is almost
    // upright: the picture a cut is made of.
    s.bottom = random.Chance(3, 4) ? 479 : random.Between(400, 479);
    s.top = random.Between(2, 110);
    s.bend = random.Between(std::max(s.top + 60, 150), std::min(s.bottom - 20, 420));
    s.x_bottom = random.Real(60, 580);
    s.slope_low = random.Real(0.25, 0.7);
    if (random.Chance(1, 2)) s.slope_low = -s.slope_low;
    s.slope_high = random.Real(-0.15, 0.15);
    s.jitter = random.Chance(1, 2) ? 0 : random.Real(0, 1.5);
  } else {
    s.bottom = random.Chance(1, 3) ? 479 : random.Between(2, 479);
    s.top = random.Chance(1, 3) ? random.Between(0, 2) : random.Between(0, s.bottom);
    s.bend = random.Between(s.top, s.bottom);
    // Some start at the first or last columns, or outside and walk in.
    const int where = random.Between(0, 5);
    s.x_bottom = where == 0   ? random.Real(-20, 4)
                 : where == 1 ? random.Real(635, 660)
                              : random.Real(0, 639);
    s.slope_low = random.Chance(1, 3) ? random.Real(-0.1, 0.1) : random.Real(-2, 2);
    s.slope_high = random.Chance(1, 3) ? random.Real(-0.1, 0.1) : random.Real(-2, 2);
    s.jitter = random.Chance(2, 3) ? 0 : random.Real(0, 6);
  }
  s.half_width = random.Chance(1, 8) ? random.Between(8, 40) : random.Between(0, 5);
  s.peak = random.Chance(1, 3) ? random.Pick(std::array<int, 6>{100, 101, 120, 180, 230, 255})
                               : random.Between(80, 255);
  s.fall = random.Between(1, 90);
  s.flat = random.Chance(1, 5);
  s.edge = random.Chance(1, 4) ? random.Pick(kThresholdValues) : -1;
  s.gap_percent = random.Pick(std::array<int, 5>{0, 0, 0, 5, 30});
  s.dark_percent = random.Pick(std::array<int, 5>{0, 0, 0, 3, 20});
  s.threshold_percent = random.Pick(std::array<int, 5>{0, 0, 5, 20, 60});
  return s;
}

void SetPixel(cv::Mat& picture, int row, int col, int value) {
  if (col >= 0 && col < kCols) picture.at<uint8_t>(row, col) = Clamp(value);
}

void PaintStripe(cv::Mat& picture, const Stripe& s, Random& random) {
  for (int r = s.bottom; r >= s.top; --r) {
    if (s.gap_percent && random.Between(1, 100) <= s.gap_percent) continue;
    double x = CentreAt(s, r);
    if (s.jitter > 0) x += random.Real(-s.jitter, s.jitter);
    const int centre = static_cast<int>(std::floor(x));
    const double frac = x - centre;
    uint8_t* row = picture.ptr<uint8_t>(r);
    for (int d = -s.half_width; d <= s.half_width + 1; ++d) {
      const int c = centre + d;
      if (c < 0 || c >= kCols) continue;
      const double distance = std::fabs(d - frac);
      const int value = s.flat ? s.peak : s.peak - static_cast<int>(std::lround(distance * s.fall));
      row[c] = std::max(row[c], Clamp(value));
    }
    if (s.edge >= 0) {
      SetPixel(picture, r, centre - s.half_width - 1, s.edge);
      SetPixel(picture, r, centre + s.half_width + 2, s.edge);
    }
    if (s.dark_percent && random.Between(1, 100) <= s.dark_percent) {
      const int col = centre + random.Between(-4, 4);
      SetPixel(picture, r, col, random.Pick(std::array<int, 4>{9, 10, 0, 8}));
    }
    if (s.threshold_percent && random.Between(1, 100) <= s.threshold_percent) {
      // A short run of threshold values near the stripe, on either side.
      const int at = centre + random.Between(-24, 24);
      const int length = random.Between(1, 4);
      for (int k = 0; k < length; ++k) SetPixel(picture, r, at + k, random.Pick(kThresholdValues));
    }
  }
}

// --- Other marks --------------------------------------------------------------

void PaintSpeckles(cv::Mat& picture, Random& random, int count) {
  for (int k = 0; k < count; ++k) {
    const int row = random.Between(0, kRows - 1);
    const int col = random.Between(0, kCols - 1);
    SetPixel(picture, row, col, random.Pick(kThresholdValues));
  }
}

// Long runs of 100 or more: saturated glare across part of a row.
void PaintSaturatedRuns(cv::Mat& picture, Random& random, int count) {
  for (int k = 0; k < count; ++k) {
    const int row = random.Between(0, kRows - 1);
    const int from = random.Chance(1, 4) ? 0 : random.Between(0, kCols - 1);
    const int to = random.Chance(1, 4) ? kCols - 1 : random.Between(from, kCols - 1);
    const int value = random.Pick(std::array<int, 4>{255, 100, 101, 200});
    for (int c = from; c <= to; ++c) picture.at<uint8_t>(row, c) = static_cast<uint8_t>(value);
    if (random.Chance(1, 2)) SetPixel(picture, row, from - 1, random.Pick(kThresholdValues));
  }
}

// The picture as a view into a wider buffer (layout 0), as a continuous
// picture at an odd address (layout 1), or as it is.
cv::Mat Placed(const cv::Mat& picture, int layout, Random& random, std::ostringstream& recipe) {
  if (layout == 0) {
    const int pad = random.Between(1, 40);
    const int left = random.Between(0, pad);
    cv::Mat wide(kRows, kCols + pad, CV_8UC1, cv::Scalar(random.Pick(kThresholdValues)));
    cv::Mat view = wide(cv::Rect(left, 0, kCols, kRows));
    picture.copyTo(view);
    recipe << ", view at column " << left << " of " << kCols + pad;
    return view;
  }
  if (layout == 1) {
    // One long row from an odd offset on, seen as 480 rows of 640.
    const int offset = random.Between(1, 15);
    cv::Mat line(1, kRows * kCols + 16, CV_8UC1);
    cv::Mat placed = line.colRange(offset, offset + kRows * kCols).reshape(1, kRows);
    picture.copyTo(placed);
    recipe << ", continuous at byte offset " << offset;
    return placed;
  }
  return picture;
}

}  // namespace

uint64_t RandomPictureSeed(uint64_t run_seed, uint64_t index) {
  Random random(run_seed ^ (index * 0xD1B54A32D192ED03ull));
  return random.Next();
}

RandomStripePicture MakeRandomStripePicture(uint64_t seed) {
  Random random(seed);
  std::ostringstream recipe;
  cv::Mat picture(kRows, kCols, CV_8UC1);
  PaintBackground(picture, random, recipe);

  const int stripes = random.Pick(std::array<int, 10>{0, 1, 1, 1, 1, 1, 1, 2, 2, 3});
  recipe << "; stripes " << stripes;
  for (int k = 0; k < stripes; ++k) {
    const bool camera_like = k == 0 && random.Chance(2, 5);
    Stripe stripe = RandomStripe(random, camera_like);
    if (k > 0 && random.Chance(1, 2)) {
      // A reflection: a fainter stripe beside the first, over part of its rows.
      stripe.x_bottom = random.Real(0, 639);
      stripe.peak = random.Between(95, 180);
    }
    recipe << (camera_like ? " [bent" : " [") << " rows " << stripe.bottom << ".." << stripe.top
           << " x " << stripe.x_bottom << " slopes " << stripe.slope_low << "/" << stripe.slope_high
           << " at " << stripe.bend << " width " << stripe.half_width << " peak " << stripe.peak
           << (stripe.flat ? " flat" : "") << "]";
    PaintStripe(picture, stripe, random);
  }
  if (random.Chance(1, 3)) {
    const int speckles = random.Pick(std::array<int, 4>{1, 10, 100, 2000});
    recipe << "; speckles " << speckles;
    PaintSpeckles(picture, random, speckles);
  }
  if (random.Chance(1, 6)) {
    const int runs = random.Between(1, 8);
    recipe << "; saturated runs " << runs;
    PaintSaturatedRuns(picture, random, runs);
  }
  const int layout = random.Between(0, 7);
  RandomStripePicture made;
  made.picture = Placed(picture, layout, random, recipe);
  made.recipe = recipe.str();
  return made;
}

}  // namespace testsupport
