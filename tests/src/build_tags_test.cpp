// The version tags the plug-in registers: lasercali-<version>-<commit> in 29
// characters and kiv-<version>-<commit> in 16, from the version header the
// build writes, with the project's version and the same commit in both.
#include <gtest/gtest.h>

#include <cstring>
#include <regex>
#include <string>

#include "framework/kiv_factory.h"
#include "lasercali_version.h"

namespace {

TEST(BuildTagsTest, TheVersionIsTheProjects) {
  EXPECT_STREQ(LASERCALI_PROJECT_VERSION, LASERCALI_VERSION);
}

TEST(BuildTagsTest, TheTagsHaveTheirLengths) {
  EXPECT_EQ(29u, std::strlen(kiv::kBuildCommitTag));
  EXPECT_EQ(16u, std::strlen(kiv::kFrameworkTag));
}

TEST(BuildTagsTest, TheNodeRegistersTheHeadersTags) {
  EXPECT_STREQ(LASERCALI_BUILD_COMMIT_TAG, kiv::kBuildCommitTag);
  EXPECT_STREQ(LASERCALI_FRAMEWORK_TAG, kiv::kFrameworkTag);
}

TEST(BuildTagsTest, TheTagsNameTheVersionAndOneCommit) {
  const std::string version = LASERCALI_VERSION;
  const std::regex version_text(R"(\d+\.\d+\.\d+)");
  ASSERT_TRUE(std::regex_match(version, version_text)) << version;

  const std::string commit_tag = kiv::kBuildCommitTag;
  const std::string commit_prefix = "lasercali-" + version + "-";
  ASSERT_EQ(commit_prefix, commit_tag.substr(0, commit_prefix.size()));
  const std::string commit = commit_tag.substr(commit_prefix.size());
  EXPECT_TRUE(std::regex_match(commit, std::regex("[0-9a-f]+"))) << commit;

  const std::string framework_tag = kiv::kFrameworkTag;
  const std::string framework_prefix = "kiv-" + version + "-";
  ASSERT_EQ(framework_prefix, framework_tag.substr(0, framework_prefix.size()));
  const std::string framework_commit = framework_tag.substr(framework_prefix.size());
  EXPECT_GE(framework_commit.size(), 4u);
  EXPECT_EQ(commit.substr(0, framework_commit.size()), framework_commit);
}

}  // namespace
