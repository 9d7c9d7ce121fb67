// Whether the tests run under an emulator or the sanitizers
// (LASERCALI_EMULATED=1, which the cross builds and the sanitizer build set
// on the ctest entries of the slow calculation tests). There, many times
// slower, a test checks behaviour rather than statistics:
// it draws fewer seeds or views and leaves out the comparisons of spreads
// that need many.
#ifndef LASERCALI_TESTS_CALC_EMULATED_H_
#define LASERCALI_TESTS_CALC_EMULATED_H_

#include <cstdlib>
#include <cstring>

namespace calctest {

inline bool Emulated() {
  const char* text = std::getenv("LASERCALI_EMULATED");
  return text != nullptr && std::strcmp(text, "1") == 0;
}

}  // namespace calctest

#endif  // LASERCALI_TESTS_CALC_EMULATED_H_
