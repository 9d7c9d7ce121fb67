// The plug-in's dynamic symbol table: the framework finds the node through
// Kiv_RegisterNodesFromNodeV3, and nothing else of the plug-in is visible
// to the process that loads it. Read from the plug-in file itself, so the
// check holds for whichever target it was built for (32- or 64-bit ELF).
#include <elf.h>
#include <gtest/gtest.h>

#include <set>
#include <string>

#include "tests/support/elf_dynamic.h"

namespace {

TEST(PluginExportsTest, OnlyTheEntryPointIsExported) {
  const testsupport::ElfDynamic elf = testsupport::ReadElfDynamic(LASERCALI_PLUGIN_PATH);
  ASSERT_TRUE(elf.ok) << LASERCALI_PLUGIN_PATH << " is not an ELF file";
  EXPECT_EQ(std::set<std::string>{"Kiv_RegisterNodesFromNodeV3"}, elf.exported);
}

// The same file is the one this process can load, built for this target.
TEST(PluginExportsTest, BuiltForThisProcessesTarget) {
  const testsupport::ElfDynamic elf = testsupport::ReadElfDynamic(LASERCALI_PLUGIN_PATH);
  ASSERT_TRUE(elf.ok);
  EXPECT_EQ(sizeof(void*) == 8 ? ELFCLASS64 : ELFCLASS32, elf.elf_class);
  EXPECT_EQ(ELFDATA2LSB, elf.byte_order);
}

}  // namespace
