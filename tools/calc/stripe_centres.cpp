#include "tools/calc/stripe_centres.h"

#include <algorithm>
#include <cstdlib>

namespace calc {
namespace {

constexpr int kMaxHalfWindow = 60;

// Centroid of the brightness above `background` over [centre - half,
// centre + half]; false when the window leaves the picture's inner columns
// or holds no light.
bool Centroid(const uint8_t* row, int width, int background, int centre, int half, double* u) {
  if (centre - half < 1 || centre + half > width - 2) return false;
  int64_t sum = 0, moment = 0;
  for (int x = centre - half; x <= centre + half; ++x) {
    const int above = row[x] - background;
    sum += above;
    moment += static_cast<int64_t>(above) * (x - centre);
  }
  if (sum <= 0) return false;
  *u = centre + static_cast<double>(moment) / static_cast<double>(sum);
  return true;
}

int Nearest(double u) { return static_cast<int>(u < 0 ? u - 0.5 : u + 0.5); }

}  // namespace

int RowMedian(const uint8_t* row, int width) {
  int histogram[256] = {};
  for (int u = 0; u < width; ++u) ++histogram[row[u]];
  const int half = (width + 1) / 2;
  int seen = 0;
  for (int value = 0; value < 256; ++value) {
    seen += histogram[value];
    if (seen >= half) return value;
  }
  return 255;
}

StripeScan FindStripeCentres(const uint8_t* pixels, int width, int height, int stride,
                             const StripeOptions& options) {
  StripeScan scan;
  for (int v = 0; v < height; ++v) {
    const uint8_t* row = pixels + static_cast<std::ptrdiff_t>(v) * stride;
    const int background = RowMedian(row, width);
    const int brightest = static_cast<int>(std::max_element(row, row + width) - row);
    const int contrast = row[brightest] - background;
    if (contrast < options.min_contrast) continue;

    // Width at half height.
    const int half_level = background + contrast / 2;
    int left = brightest, right = brightest;
    while (left > 0 && row[left - 1] > half_level) --left;
    while (right < width - 1 && row[right + 1] > half_level) ++right;
    const int half = std::min(kMaxHalfWindow, (right - left + 1) + 3);

    int centre = brightest;
    double u = 0;
    bool ok = true;
    for (int round = 0; round < 4 && ok; ++round) {
      ok = Centroid(row, width, background, centre, half, &u);
      if (!ok) break;
      const int next = Nearest(u);
      if (next == centre) break;
      centre = next;
    }
    if (!ok) {
      ++scan.rows_at_border;
      continue;
    }
    if (std::abs(centre - brightest) > half) continue;  // no stable centre

    bool second = false;
    for (int x = 0; x < width && !second; ++x) {
      if (x >= centre - half - 1 && x <= centre + half + 1) continue;
      second = row[x] > half_level;
    }
    if (second) {
      ++scan.rows_two_stripes;
      continue;
    }
    StripeCentre c;
    c.u = u;
    c.v = v;
    c.contrast = contrast;
    c.half_window = half;
    scan.centres.push_back(c);
  }
  return scan;
}

}  // namespace calc
