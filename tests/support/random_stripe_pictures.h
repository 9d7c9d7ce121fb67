// Random stripe pictures for the differential test of the stripe cut.
//
// Each picture is made from one 64-bit seed, the same on every platform, and
// cheaply (rows copied from a few prepared rows, stripes painted row by row),
// so that a test run can afford thousands of them, also under emulation. The
// pictures mix what the camera sees with what pins the cut's rules:
//  - backgrounds: flat (also right at the thresholds 9/10, 79/80, 99/100),
//    noise of several strengths, ambient light rising across the picture;
//  - stripes of random width, brightness, profile (peaked, flat, saturated),
//    slope and bend, from no stripe to three, some like a stripe bent from
//    the floor onto the wall, some reaching the first and last rows and
//    columns, with gaps, jitter and a reflection beside them;
//  - single pixels and short runs at the threshold values, also inside and
//    right beside the stripe, and long saturated runs;
//  - every eighth picture a view into a wider buffer (not continuous), every
//    eighth one continuous but starting at an odd address.
#ifndef LASERCALI_TESTS_SUPPORT_RANDOM_STRIPE_PICTURES_H_
#define LASERCALI_TESTS_SUPPORT_RANDOM_STRIPE_PICTURES_H_

#include <cstdint>
#include <opencv2/core.hpp>
#include <string>

namespace testsupport {

struct RandomStripePicture {
  cv::Mat picture;     // 480 x 640, one 8-bit channel
  std::string recipe;  // what went into it, for failure messages
};

// The picture made from `seed`.
RandomStripePicture MakeRandomStripePicture(uint64_t seed);

// The seed of picture `index` of a run started with `run_seed`.
uint64_t RandomPictureSeed(uint64_t run_seed, uint64_t index);

}  // namespace testsupport

#endif  // LASERCALI_TESTS_SUPPORT_RANDOM_STRIPE_PICTURES_H_
