// The centre line of a laser stripe, row by row, to a fraction of a pixel.
//
// A line laser draws one roughly upright stripe on a dark picture: in each
// row a bright run some pixels wide with a symmetric profile. For each row
// FindStripeCentres takes the row's background (its median), the brightest
// pixel, and the stripe's width at half its height above the background;
// the centre is the centroid of the brightness above the background over a
// window that reaches that width plus three pixels on each side of the
// pixel nearest the centroid itself (found again until it stays). The
// window takes in the stripe's whole profile, so the centroid of a
// symmetric profile is its centre whatever the profile's shape, and
// background noise inside the window averages out.
//
// A row gives no centre when its brightest pixel stands less than
// `min_contrast` above its background (no stripe), when the window would
// reach the picture's first or last column, or when a second bright run
// (above half the stripe's height) lies outside the window: that row shows
// two stripes and which one is the laser's cannot be told. The sums are
// whole numbers until the one division, so the result is the same on every
// target.
#ifndef LASERCALI_TOOLS_CALC_STRIPE_CENTRES_H_
#define LASERCALI_TOOLS_CALC_STRIPE_CENTRES_H_

#include <cstdint>
#include <vector>

namespace calc {

struct StripeCentre {
  double u = 0;         // centre column (pixel centres at whole numbers)
  int v = 0;            // row
  int contrast = 0;     // the brightest pixel above the background
  int half_window = 0;  // the centroid's window: u rounded +- half_window
};

struct StripeOptions {
  int min_contrast = 40;
};

struct StripeScan {
  std::vector<StripeCentre> centres;  // top row first
  int rows_two_stripes = 0;           // rows left out for a second bright run
  int rows_at_border = 0;             // rows left out for a window at the picture's edge
};

// The median of a row of `width` bytes (the lower of the middle two).
int RowMedian(const uint8_t* row, int width);

// Scans every row of an 8-bit picture of `width` x `height` pixels, rows
// `stride` bytes apart.
StripeScan FindStripeCentres(const uint8_t* pixels, int width, int height, int stride,
                             const StripeOptions& options = {});

}  // namespace calc

#endif  // LASERCALI_TOOLS_CALC_STRIPE_CENTRES_H_
