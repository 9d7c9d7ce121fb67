#include "tools/calc/ridge_centres.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

#include "tools/calc/stripe_centres.h"

namespace calc {
namespace {

constexpr int kGap = 2;        // pixels of speckle dip a run crosses
constexpr int kBand = 8;       // pixels in each background band
constexpr int kMaxSteps = 50;  // steps to the ridge

// The median of row[first .. first + kBand - 1] (the lower of the middle two).
int BandMedian(const uint8_t* row, int first) {
  uint8_t band[kBand];
  std::copy(row + first, row + first + kBand, band);
  std::sort(band, band + kBand);
  return band[kBand / 2 - 1];
}

// Where the profile crosses `level` between pixels `below` (at or under
// it) and `above` (over it).
double Crossing(const uint8_t* row, int below, int above, double level) {
  const double a = row[below], b = row[above];
  return below + (above - below) * (level - a) / (b - a);
}

// The kernel's weight at `x` pixels from its middle: 1 up to half - 1,
// then falling linearly to 0 at half.
double Weight(double x, double half) {
  const double d = std::fabs(x);
  if (d <= half - 1) return 1;
  return d >= half ? 0 : half - d;
}

std::string Figure(double value, int decimals) {
  char text[64];
  std::snprintf(text, sizeof text, "%.*f", decimals, value);
  return text;
}

}  // namespace

RidgeScan FindRidgeCentres(const uint8_t* pixels, int width, int height, int stride,
                           const RidgeOptions& options) {
  RidgeScan scan;
  for (int v = 0; v < height; ++v) {
    const uint8_t* row = pixels + static_cast<std::ptrdiff_t>(v) * stride;
    // The stripe: the brightest pixel, well above the row's median.
    const int median = RowMedian(row, width);
    const int brightest = static_cast<int>(std::max_element(row, row + width) - row);
    const int contrast = row[brightest] - median;
    if (contrast < options.min_contrast) continue;

    // 1. Its run above half its height, its width there, its clipped pixels.
    const double half_level = median + contrast / 2.0;
    int left = brightest, right = brightest;
    for (int x = brightest - 1; x >= 0 && left - x <= kGap + 1; --x) {
      if (row[x] > half_level) left = x;
    }
    for (int x = brightest + 1; x < width && x - right <= kGap + 1; ++x) {
      if (row[x] > half_level) right = x;
    }
    if (left == 0 || right == width - 1) {
      ++scan.rows_at_border;
      continue;
    }
    const double from = Crossing(row, left - 1, left, half_level);
    const double to = Crossing(row, right + 1, right, half_level);
    const double stripe_width = to - from;
    int saturated = 0;
    for (int k = left; k <= right; ++k) saturated += row[k] >= options.saturation;

    // A second bright run beyond the stripe's reach: two stripes.
    const double half = stripe_width + 2;
    const int reach = static_cast<int>(std::ceil(half));
    bool second = false;
    for (int x = 0; x < width && !second; ++x) {
      second = (x < left - reach || x > right + reach) && row[x] > half_level;
    }
    if (second) {
      ++scan.rows_two_stripes;
      continue;
    }

    // 2. The background line, through bands beyond the window's reach from
    // the middle of the run (the ridge stays within the run).
    const double start = (from + to) / 2;
    const int low = static_cast<int>(std::floor(start - (to - from) / 2 - half)) - 1;
    const int high = static_cast<int>(std::ceil(start + (to - from) / 2 + half)) + 1;
    if (low - kBand < 0 || high + kBand > width - 1) {
      ++scan.rows_at_border;
      continue;
    }
    const double left_x = low - (kBand + 1) / 2.0, right_x = high + (kBand + 1) / 2.0;
    const double left_y = BandMedian(row, low - kBand), right_y = BandMedian(row, high + 1);
    const double slope = (right_y - left_y) / (right_x - left_x);

    // 3. The ridge of the smoothed profile: the centroid under the kernel,
    // moved to it until it stays.
    double u = start;
    bool ridge = false;
    for (int step = 0; step < kMaxSteps; ++step) {
      double mass = 0, moment = 0;
      for (int k = static_cast<int>(std::ceil(u - half)); k <= static_cast<int>(u + half); ++k) {
        const double w = Weight(k - u, half);
        const double above = row[k] - (left_y + slope * (k - left_x));
        mass += w * above;
        moment += w * above * (k - u);
      }
      if (!(mass > 0)) break;
      const double move = moment / mass;
      u += move;
      if (!(std::fabs(u - start) <= stripe_width / 2 + 1)) break;
      if (std::fabs(move) < 1e-9) {
        ridge = true;
        break;
      }
    }
    if (!ridge) {
      ++scan.rows_no_ridge;
      continue;
    }
    RidgeCentre c;
    c.u = u;
    c.v = v;
    c.contrast = contrast;
    c.width = stripe_width;
    c.saturated = saturated;
    c.slope = slope;
    scan.centres.push_back(c);
  }
  return scan;
}

StripeJudgement JudgeStripe(const RidgeScan& scan, const JudgeOptions& options) {
  StripeJudgement j;
  j.rows = static_cast<int>(scan.centres.size());
  if (j.rows < options.min_rows) {
    j.verdict = StripeVerdict::kNoStripe;
    j.reason = "no stripe (" + std::to_string(j.rows) + " rows with a centre, at least " +
               std::to_string(options.min_rows) + ")";
    return j;
  }
  std::vector<double> widths;
  int saturated = 0;
  for (const RidgeCentre& c : scan.centres) {
    widths.push_back(c.width);
    saturated += c.saturated > options.max_saturated_pixels;
  }
  std::nth_element(widths.begin(), widths.begin() + widths.size() / 2, widths.end());
  j.median_width = widths[widths.size() / 2];
  j.saturated_share = static_cast<double>(saturated) / j.rows;
  if (j.saturated_share > options.max_saturated_share) {
    j.verdict = StripeVerdict::kSaturated;
    j.reason = "saturated stripe (" + Figure(100 * j.saturated_share, 0) +
               " % of the rows clipped over more than " +
               std::to_string(options.max_saturated_pixels) + " pixels, at most " +
               Figure(100 * options.max_saturated_share, 0) + " %)";
  } else if (j.median_width > options.max_width) {
    j.verdict = StripeVerdict::kTooBlurred;
    j.reason = "too blurred (the stripe is " + Figure(j.median_width, 1) +
               " px wide at half its height, at most " + Figure(options.max_width, 1) + ")";
  }
  return j;
}

}  // namespace calc
