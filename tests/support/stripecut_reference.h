// The stripe cut's rules in their plain form, one pixel and one point at a
// time: the reference the node's kivplugcali::CutStripe, written for speed,
// is held to.
//
// stripecut_reference::CutStripe takes the same picture and mode and fills the
// same StripeCut as kivplugcali::CutStripe (src/stripecut.h documents both);
// the differential test and the fuzz target (tests/fuzz/) compare the two
// field by field. It is written for reading, not for speed.
#ifndef LASERCALI_TESTS_SUPPORT_STRIPECUT_REFERENCE_H_
#define LASERCALI_TESTS_SUPPORT_STRIPECUT_REFERENCE_H_

#include <opencv2/core.hpp>

#include "src/stripecut.h"

namespace stripecut_reference {

// Cuts `picture` (480 x 640, one 8-bit channel, need not be continuous) for
// the laser `mode` and stores everything found in *cut, replacing what it held.
// Throws std::invalid_argument for a picture of another shape or type.
void CutStripe(const cv::Mat& picture, int mode, kivplugcali::StripeCut* cut);

}  // namespace stripecut_reference

#endif  // LASERCALI_TESTS_SUPPORT_STRIPECUT_REFERENCE_H_
