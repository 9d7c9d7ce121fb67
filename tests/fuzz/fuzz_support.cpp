#include "tests/fuzz/fuzz_support.h"

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iostream>

#include "platform/sandbox/private_tmp.h"

namespace fuzzsupport {
namespace {

sandbox::PrivateTmp& Tmp() {
  static sandbox::PrivateTmp* tmp = new sandbox::PrivateTmp();  // kept to the end
  return *tmp;
}

}  // namespace

void EnterPrivateTmp() {
  if (Tmp().entered()) return;
  std::string reason;
  if (!Tmp().Enter(&reason)) {
    std::cerr << "no private /tmp (" << reason
              << "); this fuzz target writes files under /tmp and runs only in a /tmp of its own\n";
    std::exit(77);
  }
}

void WriteFile(const std::string& path, const uint8_t* data, std::size_t size) {
  std::ofstream out(path, std::ios::binary | std::ios::trunc);
  out.write(reinterpret_cast<const char*>(data), static_cast<std::streamsize>(size));
  out.close();
  if (!out) Fail("cannot write " + path);
}

void EmptyTmp() {
  std::string reason;
  if (!Tmp().Empty(&reason)) Fail("cannot empty the private /tmp: " + reason);
}

void Fail(const std::string& what) {
  std::fprintf(stderr, "fuzz target: %s\n", what.c_str());
  std::abort();
}

}  // namespace fuzzsupport
