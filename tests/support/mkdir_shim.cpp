// A mkdir that can be made to succeed where the real one would fail.
//
// Loaded before the C library (LD_PRELOAD), it answers 0 without touching
// the file system for every path listed, separated by ':', in the
// environment variable LASERCALI_MKDIR_SUCCEEDS, and hands every other call
// to the real mkdir. Tests use it to make the node's second mkdir of a
// picture folder succeed.
#include <dlfcn.h>
#include <sys/stat.h>
#include <sys/types.h>

#include <cstdlib>
#include <cstring>
#include <string>

extern "C" int mkdir(const char* path, mode_t mode) {
  const char* listed = std::getenv("LASERCALI_MKDIR_SUCCEEDS");
  if (listed != nullptr) {
    const std::string list = std::string(":") + listed + ":";
    if (list.find(std::string(":") + path + ":") != std::string::npos) return 0;
  }
  using RealMkdir = int (*)(const char*, mode_t);
  static RealMkdir real = reinterpret_cast<RealMkdir>(dlsym(RTLD_NEXT, "mkdir"));
  return real(path, mode);
}
