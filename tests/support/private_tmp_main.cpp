// The main of every unit test binary. The tests run in a /tmp of their own
// (platform/sandbox/private_tmp.h): the node they build writes its pictures
// into it, and so does everything they start, never into the machine's /tmp.
// Where no private /tmp can be had, nothing runs and the binary says why
// (exit code 77, which ctest counts as skipped).
#include <gtest/gtest.h>

#include <iostream>
#include <string>

#include "platform/sandbox/private_tmp.h"

int main(int argc, char** argv) {
  sandbox::PrivateTmp tmp;
  std::string reason;
  if (!tmp.Enter(&reason)) {
    std::cout << "skipped: no private /tmp (" << reason
              << "); these tests run the node, which writes under /tmp\n";
    return 77;
  }
  testing::InitGoogleTest(&argc, argv);
  return RUN_ALL_TESTS();
}
