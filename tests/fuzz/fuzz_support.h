// Support code of the fuzz targets (tests/fuzz/*_fuzz.cpp).
//
// A target that writes files, or runs the node (which writes its pictures
// under /tmp), calls EnterPrivateTmp() from LLVMFuzzerInitialize: from then
// on the process has an empty /tmp of its own (platform/sandbox/
// private_tmp.h) and the machine's /tmp is never touched, however many
// inputs run. Where no private /tmp can be had, the program says why and
// exits with code 77 before any input runs.
#ifndef LASERCALI_TESTS_FUZZ_FUZZ_SUPPORT_H_
#define LASERCALI_TESTS_FUZZ_FUZZ_SUPPORT_H_

#include <cstddef>
#include <cstdint>
#include <string>

namespace fuzzsupport {

// Enters the private /tmp; a second call does nothing.
void EnterPrivateTmp();

// Makes `path` hold exactly `size` bytes of `data`; aborts when it cannot
// (the private /tmp is a tmpfs, so it always can).
void WriteFile(const std::string& path, const uint8_t* data, std::size_t size);

// Removes everything under the private /tmp but the folders kept from the
// machine's (the program's own, the working folder), so the next input
// starts from an empty /tmp; aborts when called before EnterPrivateTmp().
void EmptyTmp();

// Stops the program with `what` on standard error: an input broke a rule the
// target checks. libFuzzer keeps the input as a crash.
[[noreturn]] void Fail(const std::string& what);

}  // namespace fuzzsupport

#endif  // LASERCALI_TESTS_FUZZ_FUZZ_SUPPORT_H_
