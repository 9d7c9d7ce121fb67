#include "tests/support/elf_dynamic.h"

#include <elf.h>

#include <cstring>
#include <fstream>
#include <iterator>

namespace testsupport {
namespace {

// Copies a T out of `file` at `offset`; false when it does not fit.
template <typename T>
bool At(const std::vector<char>& file, size_t offset, T* out) {
  if (offset > file.size() || file.size() - offset < sizeof(T)) return false;
  std::memcpy(out, file.data() + offset, sizeof(T));
  return true;
}

std::string StringAt(const std::vector<char>& file, size_t at) {
  if (at >= file.size()) return "";
  return std::string(file.data() + at, strnlen(file.data() + at, file.size() - at));
}

template <typename Ehdr, typename Shdr, typename Sym, typename Dyn>
void Read(const std::vector<char>& file, unsigned char (*bind_of)(unsigned char),
          unsigned char (*visibility_of)(unsigned char), ElfDynamic* out) {
  Ehdr header;
  if (!At(file, 0, &header)) return;
  for (size_t i = 0; i < header.e_shnum; ++i) {
    Shdr section;
    if (!At(file, header.e_shoff + i * header.e_shentsize, &section)) return;
    if (section.sh_type != SHT_DYNSYM && section.sh_type != SHT_DYNAMIC) continue;
    Shdr strings;
    if (!At(file, header.e_shoff + section.sh_link * header.e_shentsize, &strings)) return;
    if (section.sh_type == SHT_DYNAMIC) {
      for (size_t offset = 0; offset + sizeof(Dyn) <= section.sh_size; offset += sizeof(Dyn)) {
        Dyn entry;
        if (!At(file, section.sh_offset + offset, &entry) || entry.d_tag == DT_NULL) break;
        if (entry.d_tag == DT_NEEDED) {
          out->needed.push_back(StringAt(file, strings.sh_offset + entry.d_un.d_val));
        } else if (entry.d_tag == DT_RUNPATH || entry.d_tag == DT_RPATH) {
          out->runpath += (out->runpath.empty() ? "" : ":") +
                          StringAt(file, strings.sh_offset + entry.d_un.d_val);
        }
      }
      continue;
    }
    for (size_t offset = sizeof(Sym); offset + sizeof(Sym) <= section.sh_size;
         offset += sizeof(Sym)) {
      Sym symbol;
      if (!At(file, section.sh_offset + offset, &symbol)) break;
      const std::string name = StringAt(file, strings.sh_offset + symbol.st_name);
      if (symbol.st_shndx == SHN_UNDEF) {
        if (!name.empty()) out->undefined.insert(name);
        continue;
      }
      const unsigned char bind = bind_of(symbol.st_info);
      const unsigned char visibility = visibility_of(symbol.st_other);
      if ((bind == STB_GLOBAL || bind == STB_WEAK) &&
          (visibility == STV_DEFAULT || visibility == STV_PROTECTED)) {
        out->exported.insert(name);
      }
    }
  }
  out->ok = true;
}

unsigned char Bind32(unsigned char info) { return ELF32_ST_BIND(info); }
unsigned char Bind64(unsigned char info) { return ELF64_ST_BIND(info); }
unsigned char Visibility32(unsigned char other) { return ELF32_ST_VISIBILITY(other); }
unsigned char Visibility64(unsigned char other) { return ELF64_ST_VISIBILITY(other); }

}  // namespace

ElfDynamic ReadElfDynamic(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  const std::vector<char> file((std::istreambuf_iterator<char>(in)),
                               std::istreambuf_iterator<char>());
  ElfDynamic out;
  if (file.size() <= EI_NIDENT || std::memcmp(file.data(), ELFMAG, SELFMAG) != 0) return out;
  out.elf_class = file[EI_CLASS];
  out.byte_order = file[EI_DATA];
  if (out.elf_class == ELFCLASS64) {
    Read<Elf64_Ehdr, Elf64_Shdr, Elf64_Sym, Elf64_Dyn>(file, Bind64, Visibility64, &out);
  } else if (out.elf_class == ELFCLASS32) {
    Read<Elf32_Ehdr, Elf32_Shdr, Elf32_Sym, Elf32_Dyn>(file, Bind32, Visibility32, &out);
  }
  return out;
}

}  // namespace testsupport
