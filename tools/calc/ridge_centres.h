// The centre line of a laser stripe, row by row, as the ridge of its
// smoothed profile over a background line: unbiased on wide, blurred,
// speckled and clipped stripes and on a sloping background, with a quality
// for every centre and a verdict on the picture.
//
// In each row, as stripe_centres.h (the grey-level centroid, kept as the
// baseline): the stripe is the brightest pixel if it stands `min_contrast`
// above the row's median, and a row with a second bright run (above half
// the stripe's height, beyond the stripe's reach) gives no centre. Then:
//
// 1. The stripe's run above half its height, across dips of speckle of up
//    to two pixels, gives its width w (between the half-height crossings,
//    interpolated) and its pixels at the saturation level.
// 2. The background is a line through the medians of two bands of eight
//    pixels, one each side, beyond the window of step 3: an ambient light
//    that slopes across the picture shifts no centre.
// 3. The profile above that line is smoothed with a kernel of half-width
//    H = w + 2 pixels and the centre is where the smoothed profile has its
//    ridge, its slope zero. The kernel's slope at x is proportional to
//    -x k(x), with k = 1 up to H - 1 and falling linearly to 0 at H, so
//    the slope at u is zero where u is the centroid of the profile under
//    k(. - u): the steps u <- centroid under k(. - u) climb to the ridge from
//    halfway between the half-height crossings. k is flat over the whole
//    stripe, so every pixel of it counts alike and speckle averages out as
//    in a plain centroid; its sloping shoulders keep the result a smooth
//    function of the pixels (no pull towards whole pixels); the window
//    grows with the stripe, so a wide blur or a clipped, flat-topped peak
//    keeps one ridge. A symmetric profile, clipped or not, has its ridge at
//    its centre.
//
// A Gaussian kernel (Steger's detector) weighs the stripe's pixels unevenly:
// with sigma 0.4 w it spreads 0.6 times as much on a clean stripe but 1.8
// times as much under speckle; with 0.8 w, 0.75 and 1.2 times (measured on
// the tests' stripes, docs/calibration.md). Speckle is what real pictures
// have.
//
// Plain IEEE doubles and sums in one order: the same bits on every target.
#ifndef LASERCALI_TOOLS_CALC_RIDGE_CENTRES_H_
#define LASERCALI_TOOLS_CALC_RIDGE_CENTRES_H_

#include <cstdint>
#include <string>
#include <vector>

namespace calc {

struct RidgeOptions {
  int min_contrast = 40;  // grey levels above the row's median
  int saturation = 255;   // the grey level of a clipped pixel
};

// A centre and how good it is.
struct RidgeCentre {
  double u = 0;       // centre column (pixel centres at whole numbers)
  int v = 0;          // row
  int contrast = 0;   // the brightest pixel above the row's median
  double width = 0;   // pixels, at half the stripe's height
  int saturated = 0;  // pixels of the stripe at the saturation level
  double slope = 0;   // the background line's, grey levels per pixel
};

struct RidgeScan {
  std::vector<RidgeCentre> centres;  // top row first
  int rows_two_stripes = 0;          // rows left out for a second bright run
  int rows_at_border = 0;            // rows left out for a stripe too near the picture's edge
  int rows_no_ridge = 0;             // rows left out where the steps found no ridge
};

RidgeScan FindRidgeCentres(const uint8_t* pixels, int width, int height, int stride,
                           const RidgeOptions& options = {});

// Whether a picture's stripe can be used, and if not, why.
enum class StripeVerdict { kUsable, kNoStripe, kSaturated, kTooBlurred };

struct JudgeOptions {
  int min_rows = 20;                  // fewer rows with a centre: no stripe
  int max_saturated_pixels = 6;       // a row clipped over more pixels is badly saturated ...
  double max_saturated_share = 0.25;  // ... and a larger share of such rows: saturated stripe
  double max_width = 12;              // pixels: a larger median width is too blurred
};

struct StripeJudgement {
  StripeVerdict verdict = StripeVerdict::kUsable;
  std::string reason;  // "no stripe (...)", "saturated stripe (...)", "too blurred (...)"
  int rows = 0;
  double median_width = 0;
  double saturated_share = 0;
};

StripeJudgement JudgeStripe(const RidgeScan& scan, const JudgeOptions& options = {});

}  // namespace calc

#endif  // LASERCALI_TOOLS_CALC_RIDGE_CENTRES_H_
