// libFuzzer target: the stripe centres of a picture, ridge and centroid.
//
// Input: pixels, repeated until they fill a 640 x 480 picture (a 640-byte
// input gives the same row on every row; 641 bytes a stripe that moves one
// column left per row). calc::FindRidgeCentres and calc::FindStripeCentres
// scan it and calc::JudgeStripe judges the ridge centres; every centre must
// be finite and in the picture, one per row at most, rows in order; every
// count, width and slope must be in range; the verdict must have a reason
// exactly when the stripe is not usable.
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "tests/fuzz/fuzz_support.h"
#include "tools/calc/ridge_centres.h"
#include "tools/calc/stripe_centres.h"

namespace {

constexpr int kWidth = 640, kHeight = 480;

void Check(bool ok, const std::string& what) {
  if (!ok) fuzzsupport::Fail(what);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
  if (size == 0) return 0;
  std::vector<uint8_t> pixels(static_cast<std::size_t>(kWidth) * kHeight);
  for (std::size_t i = 0; i < pixels.size(); ++i) pixels[i] = data[i % size];

  const calc::RidgeScan ridge = calc::FindRidgeCentres(pixels.data(), kWidth, kHeight, kWidth);
  int last = -1;
  for (const calc::RidgeCentre& c : ridge.centres) {
    Check(std::isfinite(c.u) && c.u >= 0 && c.u <= kWidth - 1, "a ridge centre off the picture");
    Check(c.v > last && c.v < kHeight, "ridge centres out of row order");
    last = c.v;
    Check(c.contrast >= 40 && c.contrast <= 255, "a ridge contrast out of range");
    Check(std::isfinite(c.width) && c.width > 0 && c.width < kWidth, "a ridge width out of range");
    Check(c.saturated >= 0 && c.saturated <= kWidth, "a count of clipped pixels out of range");
    Check(std::isfinite(c.slope) && std::fabs(c.slope) <= 255, "a background slope out of range");
  }
  const std::size_t rows = ridge.centres.size() + static_cast<std::size_t>(ridge.rows_two_stripes) +
                           static_cast<std::size_t>(ridge.rows_at_border) +
                           static_cast<std::size_t>(ridge.rows_no_ridge);
  Check(rows <= kHeight, "more rows counted than the picture has");

  const calc::StripeJudgement j = calc::JudgeStripe(ridge);
  Check((j.verdict == calc::StripeVerdict::kUsable) == j.reason.empty(),
        "a verdict and its reason disagree: " + j.reason);
  Check(j.rows == static_cast<int>(ridge.centres.size()), "the verdict counts other rows");

  const calc::StripeScan centroid = calc::FindStripeCentres(pixels.data(), kWidth, kHeight, kWidth);
  last = -1;
  for (const calc::StripeCentre& c : centroid.centres) {
    Check(std::isfinite(c.u) && c.u >= 0 && c.u <= kWidth - 1, "a centroid off the picture");
    Check(c.v > last && c.v < kHeight, "centroids out of row order");
    last = c.v;
  }
  return 0;
}
