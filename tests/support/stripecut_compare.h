// Field-by-field comparison of two stripe cuts, for the differential test and
// the fuzz target.
#ifndef LASERCALI_TESTS_SUPPORT_STRIPECUT_COMPARE_H_
#define LASERCALI_TESTS_SUPPORT_STRIPECUT_COMPARE_H_

#include <string>

#include "src/stripecut.h"

namespace testsupport {

// Empty when `a` and `b` are the same in every field of StripeCut: stop,
// result, the two-stripe row and columns, every point (floats compared bit for
// bit), role and slope check, num2, G, cut_found, cut_line and the cut
// picture (both empty, or the same size, type and bytes). Otherwise one line
// per field that differs, naming the first difference in it.
std::string StripeCutDifference(const kivplugcali::StripeCut& a, const kivplugcali::StripeCut& b);

}  // namespace testsupport

#endif  // LASERCALI_TESTS_SUPPORT_STRIPECUT_COMPARE_H_
