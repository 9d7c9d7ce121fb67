// What a shared object's dynamic section says, read from the file itself,
// so a test holds for whichever target the file was built for (32- or
// 64-bit little-endian ELF): the symbols it exports, the symbols it needs
// from elsewhere, the libraries it names (DT_NEEDED) and where it looks for
// them (DT_RUNPATH, DT_RPATH).
#ifndef LASERCALI_TESTS_SUPPORT_ELF_DYNAMIC_H_
#define LASERCALI_TESTS_SUPPORT_ELF_DYNAMIC_H_

#include <set>
#include <string>
#include <vector>

namespace testsupport {

struct ElfDynamic {
  bool ok = false;     // an ELF file of a class this reader knows
  int elf_class = 0;   // ELFCLASS32 or ELFCLASS64
  int byte_order = 0;  // ELFDATA2LSB, ...
  // Defined global and weak symbols of default or protected visibility in
  // .dynsym: what a dlsym on the loaded file can reach.
  std::set<std::string> exported;
  // Undefined symbols in .dynsym: what the file takes from the libraries
  // it names (or from the program that loads it).
  std::set<std::string> undefined;
  std::vector<std::string> needed;  // the DT_NEEDED libraries, in order
  // DT_RUNPATH and DT_RPATH, as written: in a build tree, the folders of
  // the shared libraries on the file's link line.
  std::string runpath;
};

ElfDynamic ReadElfDynamic(const std::string& path);

}  // namespace testsupport

#endif  // LASERCALI_TESTS_SUPPORT_ELF_DYNAMIC_H_
