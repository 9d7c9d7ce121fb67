// libFuzzer target: the stripe cut against its plain reference on any picture.
//
// Input: a control byte, then the picture's pixels. The pixels fill the
// 480 x 640 picture row by row; a shorter input is repeated (tiled) until the
// picture is full, so a pattern of 641 bytes, say, makes a slanted stripe.
// The control byte picks the walk and the picture's layout:
//   bits 0-1  the mode: 1 (left laser), 8 (right laser), 0 or 2 (which walk
//             from the right too);
//   bit 2     the picture is a view into a wider buffer (not continuous),
//             starting at column 1 + bits 3-6 of it.
// Any difference between the two cuts, in any field of StripeCut (floats bit
// for bit), is reported on stderr and aborts. Each input is cut into a fresh
// result and into one reused from the inputs before.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <opencv2/core.hpp>
#include <string>

#include "src/stripecut.h"
#include "tests/support/stripecut_compare.h"
#include "tests/support/stripecut_reference.h"

namespace {

constexpr int kRows = kivplugcali::kStripeRows;
constexpr int kCols = kivplugcali::kStripeCols;
constexpr int kModes[] = {kivplugcali::kStripeWalkLeft, kivplugcali::kStripeWalkRight, 0, 2};

// Fills `picture` row by row with `pixels`, repeated as often as needed.
void Tile(const uint8_t* pixels, std::size_t size, cv::Mat& picture) {
  std::size_t at = 0;
  for (int r = 0; r < kRows; ++r) {
    uint8_t* row = picture.ptr<uint8_t>(r);
    for (int c = 0; c < kCols;) {
      const std::size_t run = std::min<std::size_t>(size - at, static_cast<std::size_t>(kCols - c));
      std::memcpy(row + c, pixels + at, run);
      c += static_cast<int>(run);
      at = (at + run) % size;
    }
  }
}

void Check(const char* what, const kivplugcali::StripeCut& expected,
           const kivplugcali::StripeCut& got, int mode) {
  const std::string difference = testsupport::StripeCutDifference(expected, got);
  if (difference.empty()) return;
  std::fprintf(stderr, "stripe cut differs from the reference (mode %d, %s result):\n%s", mode,
               what, difference.c_str());
  std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
  if (size < 2) return 0;
  const uint8_t control = data[0];
  const int mode = kModes[control & 3];

  cv::Mat buffer;
  cv::Mat picture;
  if (control & 4) {
    const int left = 1 + ((control >> 3) & 15);
    buffer = cv::Mat(kRows, kCols + 32, CV_8UC1, cv::Scalar(control));
    picture = buffer(cv::Rect(left, 0, kCols, kRows));
  } else {
    picture = cv::Mat(kRows, kCols, CV_8UC1);
  }
  Tile(data + 1, size - 1, picture);

  kivplugcali::StripeCut expected;
  stripecut_reference::CutStripe(picture, mode, &expected);
  kivplugcali::StripeCut fresh;
  kivplugcali::CutStripe(picture, mode, &fresh);
  Check("a fresh", expected, fresh, mode);
  static kivplugcali::StripeCut reused;
  kivplugcali::CutStripe(picture, mode, &reused);
  Check("a reused", expected, reused, mode);
  return 0;
}
