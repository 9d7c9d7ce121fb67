// The YAML camera files are written in: what it takes, and what it
// refuses with the line named.
#include "tools/calc/yaml_subset.h"

#include <gtest/gtest.h>

#include <string>

namespace {

std::string Refusal(const std::string& text) {
  std::string what;
  EXPECT_FALSE(calc::CheckYamlSubset(text, &what)) << text;
  return what;
}

bool Takes(const std::string& text) {
  std::string what;
  const bool ok = calc::CheckYamlSubset(text, &what);
  EXPECT_TRUE(ok) << text << "\n" << what;
  return ok;
}

TEST(YamlSubsetTest, TakesWhatCameraFilesHold) {
  EXPECT_TRUE(Takes(""));
  EXPECT_TRUE(Takes("%YAML:1.0\n---\na: 1\n"));
  EXPECT_TRUE(Takes("%YAML 1.2\n---  # a comment\na: 1\n"));
  EXPECT_TRUE(Takes("# a comment first\n\na: -1.5e-03  # and after\nname: narrow stereo\n"));
  EXPECT_TRUE(
      Takes("m: !!opencv-matrix\n   rows: 1\n   dt: d\n   data: [ 1., -2.5e+00,\n"
            "       3 ]\nnext: 2\n"));
  EXPECT_TRUE(Takes("m:\n  rows: 3\n  inner:\n    deep: 1\n  back: 2\ntop: x\n"));
  EXPECT_TRUE(Takes("a: []\nb: [ .nan, -.inf, 0x1F ]\nc: \"quoted # not a comment\"\n"));
  EXPECT_TRUE(Takes("a: 1\r\nb: [1,\r\n  2]\r\n"));
  EXPECT_TRUE(Takes("a: 999999999\nb: -000000000012\n# 12345678901 in a comment\n"));
}

TEST(YamlSubsetTest, RefusesDocumentsAndDirectivesOutOfPlace) {
  EXPECT_EQ(Refusal("---L:0\nd1 -\n "), "line 1: not a \"key: value\" line");
  EXPECT_EQ(Refusal("a: 1\n---\n"), "line 2: \"---\" other than once, before the first key");
  EXPECT_EQ(Refusal("---\n---\n"), "line 2: \"---\" other than once, before the first key");
  EXPECT_EQ(Refusal("a: 1\n%YAML:1.0\n"), "line 2: a directive other than first");
  EXPECT_EQ(Refusal("%TAG ! x\n"), "line 1: a directive other than %YAML and its version");
  EXPECT_EQ(Refusal("...\n"), "line 1: not a \"key: value\" line");
}

TEST(YamlSubsetTest, RefusesKeysItDoesNotTake) {
  EXPECT_EQ(Refusal(": 1\n"), "line 1: not a \"key: value\" line");
  EXPECT_EQ(Refusal("a:\n   rows: 1\n   : [ 1, 2 ]\n"), "line 3: not a \"key: value\" line");
  EXPECT_EQ(Refusal("- 1\n"), "line 1: not a \"key: value\" line");
  EXPECT_EQ(Refusal("1a: 1\n"), "line 1: not a \"key: value\" line");
  EXPECT_EQ(Refusal("a:1\n"), "line 1: no blank after the ':' of a");
  EXPECT_EQ(Refusal("a: 1\nb: 2\na: 3\n"), "line 3: a is given twice");
  EXPECT_EQ(Refusal("m:\n  a: 1\n  a: 2\n"), "line 3: a is given twice");
  EXPECT_EQ(Refusal("  a: 1\n"), "line 1: the top keys are indented");
  EXPECT_EQ(Refusal("m:\n    a: 1\n  b: 2\n"), "line 3: the indentation of b matches no map");
  EXPECT_EQ(Refusal("m:\nb: 2\n"), "line 2: m has no value");
}

TEST(YamlSubsetTest, RefusesValuesItDoesNotTake) {
  const std::string odd = "line 1: a value with a character this reader does not take";
  EXPECT_EQ(Refusal("a: {b: 1, : 2}\n"), odd);
  EXPECT_EQ(Refusal("a: &x 1\n"), odd);
  EXPECT_EQ(Refusal("a: *x\n"), odd);
  EXPECT_EQ(Refusal("a: !!str 1\n"), odd);
  EXPECT_EQ(Refusal("a: 'x'\n"), odd);
  EXPECT_EQ(Refusal("a: x  y\n"), odd);
  EXPECT_EQ(Refusal("a: - 1\n"), "line 1: a value starting \"- \"");
  EXPECT_EQ(Refusal("a: \"x\" y\n"),
            "line 1: the quoted value of a is not one text without '\"' or '\\' in it");
  EXPECT_EQ(Refusal("a: \"x\\\"\"\n"),
            "line 1: the quoted value of a is not one text without '\"' or '\\' in it");
  EXPECT_EQ(Refusal("a: 4294967936\n"),
            "line 1: the whole number 4294967936 is too large (at most nine digits)");
  EXPECT_EQ(Refusal("a: [1, 0x123456789]\n"),
            "line 1: the whole number 0x123456789 is too large (at most nine digits)");
}

TEST(YamlSubsetTest, RefusesListsItDoesNotTake) {
  const std::string bad = "line 1: the list of a is not values separated by ','";
  EXPECT_EQ(Refusal("a: [1 2]\n"), bad);
  EXPECT_EQ(Refusal("a: [1,, 2]\n"), bad);
  EXPECT_EQ(Refusal("a: [1, ]\n"), bad);
  EXPECT_EQ(Refusal("a: [, 1]\n"), bad);
  EXPECT_EQ(Refusal("a: [[1]]\n"), bad);
  EXPECT_EQ(Refusal("a: [1] x\n"), "line 1: something follows the list of a");
  EXPECT_EQ(Refusal("a: [1,\nb: 2]\n"), "line 2: the list of a is not closed");
  EXPECT_EQ(Refusal("a: [1,\n  2,\n"),
            "line 1: the list of a is not closed (is the file cut short?)");
  EXPECT_EQ(Refusal("x: 1\nm: !!opencv-matrix\n"),
            "line 2: m has no value (is the file cut short?)");
}

TEST(YamlSubsetTest, RefusesBytesOutOfPlace) {
  EXPECT_EQ(Refusal("a: 1\n\tb: 2\n"), "line 2: a control character or tab");
  EXPECT_EQ(Refusal("a: 1\r2\n"), "line 1: a control character or tab");
  EXPECT_EQ(Refusal("# \x01\n"), "line 1: a control character or tab");
  EXPECT_EQ(Refusal("a: caf\xc3\xa9\n"), "line 1: a byte above 127 outside a comment or quotes");
  EXPECT_TRUE(Takes("a: \"caf\xc3\xa9\"  # caf\xc3\xa9\n"));
}

}  // namespace
