// Laser stripe pictures with a known centre in every row, for the tests of
// the stripe centres: a profile of a given kind, integrated over each
// pixel, on a background, with speckle (multiplicative noise on the stripe,
// independent from pixel to pixel), camera noise, rounding and clipping at
// 255. The centre moves 0.37 pixels to the right per row, so the rows sweep
// every fraction of a pixel. The noise comes from the seed by its own
// arithmetic, so every target draws the same pictures.
#ifndef LASERCALI_TESTS_CALC_SYNTHETIC_STRIPES_H_
#define LASERCALI_TESTS_CALC_SYNTHETIC_STRIPES_H_

#include <cstdint>
#include <string>
#include <vector>

namespace calctest {

struct StripeKind {
  std::string name;
  double peak = 180;      // the profile's height above the background (may clip)
  double core = 0;        // a flat top this wide, pixels ...
  double edge = 1.5;      // ... with Gaussian edges of this sigma (a Gaussian when core is 0)
  double background = 6;  // grey level at the picture's middle column
  double slope = 0;       // grey levels per column, across the picture
  double speckle = 0;     // the stripe's relative standard deviation
  double noise = 2;       // camera noise, grey levels
  uint64_t seed = 1;
};

// The kinds the tests measure: gaussian, flat_top, wide_blurred, clipped,
// clipped_flat_top, speckled, sloped_background, robot (speckle, blur and a
// little clipping together).
std::vector<StripeKind> StripeKinds();

struct StripePicture {
  static constexpr int kWidth = 640, kHeight = 480;
  std::vector<uint8_t> pixels;  // kWidth x kHeight, rows kWidth apart
  std::vector<double> centres;  // the true centre of each row
};
StripePicture DrawStripe(const StripeKind& kind);

}  // namespace calctest

#endif  // LASERCALI_TESTS_CALC_SYNTHETIC_STRIPES_H_
