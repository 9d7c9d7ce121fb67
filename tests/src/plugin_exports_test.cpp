// The plug-in's dynamic symbol table: the framework finds the node through
// Kiv_RegisterNodesFromNodeV3, and nothing else of the plug-in is visible
// to the process that loads it. Read from the plug-in file itself, so the
// check holds for whichever target it was built for (32- or 64-bit ELF).
#include <elf.h>
#include <gtest/gtest.h>

#include <cstring>
#include <fstream>
#include <iterator>
#include <set>
#include <string>
#include <vector>

namespace {

std::vector<char> ReadFile(const char* path) {
  std::ifstream in(path, std::ios::binary);
  return std::vector<char>(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

// Copies a T out of `file` at `offset`; false when it does not fit.
template <typename T>
bool At(const std::vector<char>& file, size_t offset, T* out) {
  if (offset > file.size() || file.size() - offset < sizeof(T)) return false;
  std::memcpy(out, file.data() + offset, sizeof(T));
  return true;
}

// The names of the defined global and weak symbols of default or protected
// visibility in .dynsym: what a dlsym on the loaded file can reach.
template <typename Ehdr, typename Shdr, typename Sym>
std::set<std::string> Exported(const std::vector<char>& file,
                               unsigned char (*bind_of)(unsigned char),
                               unsigned char (*visibility_of)(unsigned char)) {
  std::set<std::string> names;
  Ehdr header;
  if (!At(file, 0, &header)) return names;
  for (size_t i = 0; i < header.e_shnum; ++i) {
    Shdr section;
    if (!At(file, header.e_shoff + i * header.e_shentsize, &section)) break;
    if (section.sh_type != SHT_DYNSYM) continue;
    Shdr strings;
    if (!At(file, header.e_shoff + section.sh_link * header.e_shentsize, &strings)) break;
    for (size_t offset = 0; offset + sizeof(Sym) <= section.sh_size; offset += sizeof(Sym)) {
      Sym symbol;
      if (!At(file, section.sh_offset + offset, &symbol)) break;
      const unsigned char bind = bind_of(symbol.st_info);
      const unsigned char visibility = visibility_of(symbol.st_other);
      if (symbol.st_shndx == SHN_UNDEF || (bind != STB_GLOBAL && bind != STB_WEAK) ||
          (visibility != STV_DEFAULT && visibility != STV_PROTECTED)) {
        continue;
      }
      const size_t name_at = strings.sh_offset + symbol.st_name;
      if (name_at >= file.size()) continue;
      names.insert(std::string(file.data() + name_at,
                               strnlen(file.data() + name_at, file.size() - name_at)));
    }
  }
  return names;
}

unsigned char Bind32(unsigned char info) { return ELF32_ST_BIND(info); }
unsigned char Bind64(unsigned char info) { return ELF64_ST_BIND(info); }
unsigned char Visibility32(unsigned char other) { return ELF32_ST_VISIBILITY(other); }
unsigned char Visibility64(unsigned char other) { return ELF64_ST_VISIBILITY(other); }

TEST(PluginExportsTest, OnlyTheEntryPointIsExported) {
  const std::vector<char> file = ReadFile(LASERCALI_PLUGIN_PATH);
  ASSERT_GT(file.size(), size_t{EI_NIDENT}) << LASERCALI_PLUGIN_PATH;
  ASSERT_EQ(0, std::memcmp(file.data(), ELFMAG, SELFMAG)) << "not an ELF file";

  std::set<std::string> exported;
  if (file[EI_CLASS] == ELFCLASS64) {
    exported = Exported<Elf64_Ehdr, Elf64_Shdr, Elf64_Sym>(file, Bind64, Visibility64);
  } else {
    ASSERT_EQ(ELFCLASS32, file[EI_CLASS]);
    exported = Exported<Elf32_Ehdr, Elf32_Shdr, Elf32_Sym>(file, Bind32, Visibility32);
  }
  EXPECT_EQ(std::set<std::string>{"Kiv_RegisterNodesFromNodeV3"}, exported);
}

// The same file is the one this process can load, built for this target.
TEST(PluginExportsTest, BuiltForThisProcessesTarget) {
  const std::vector<char> file = ReadFile(LASERCALI_PLUGIN_PATH);
  ASSERT_GT(file.size(), size_t{EI_NIDENT});
  EXPECT_EQ(sizeof(void*) == 8 ? ELFCLASS64 : ELFCLASS32, file[EI_CLASS]);
  EXPECT_EQ(ELFDATA2LSB, file[EI_DATA]);
}

}  // namespace
