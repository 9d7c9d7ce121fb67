// Captions on a contact sheet: widths, cutting to a width, breaking into lines.
#include "tools/stripe_tool/sheet_text.h"

#include <gtest/gtest.h>

#include <opencv2/core.hpp>
#include <string>

namespace {

constexpr double kScale = 0.45;

TEST(SheetTextTest, WidthGrowsWithTheTextAndTheScale) {
  EXPECT_LE(sheettext::Width("", kScale), 1);
  EXPECT_GT(sheettext::Width("ab", kScale), sheettext::Width("a", kScale));
  EXPECT_GT(sheettext::Width("ab", 2 * kScale), sheettext::Width("ab", kScale));
}

TEST(SheetTextTest, FitKeepsWhatFitsAndCutsWhatDoesNot) {
  const std::string path = "/a/long/folder/name/of/the/round/left/2560.bmp";
  const int full = sheettext::Width(path, kScale);
  EXPECT_EQ(sheettext::Fit(path, kScale, full, true), path);

  const std::string end = sheettext::Fit(path, kScale, full / 2, true);
  EXPECT_EQ(end.rfind("...", 0), 0u) << end;
  EXPECT_EQ(end.substr(end.size() - 8), "2560.bmp");
  EXPECT_LE(sheettext::Width(end, kScale), full / 2);

  const std::string start = sheettext::Fit(path, kScale, full / 2, false);
  EXPECT_EQ(start.substr(start.size() - 3), "...") << start;
  EXPECT_EQ(start.rfind("/a/long", 0), 0u);
  EXPECT_LE(sheettext::Width(start, kScale), full / 2);

  EXPECT_EQ(sheettext::Fit(path, kScale, 1, true), "...");
}

TEST(SheetTextTest, WrapBreaksBetweenWordsAndMarksWhatIsLeftOut) {
  const std::string text = "two stripes in the picture, the cut refused it";
  const int width = sheettext::Width("two stripes in the", kScale);
  const auto lines = sheettext::Wrap(text, kScale, width, 2);
  ASSERT_EQ(lines.size(), 2u);
  EXPECT_EQ(lines[0], "two stripes in the");
  EXPECT_EQ(lines[1].substr(lines[1].size() - 3), "...") << lines[1];
  for (const std::string& line : lines) EXPECT_LE(sheettext::Width(line, kScale), width);

  const auto all = sheettext::Wrap(text, kScale, sheettext::Width(text, kScale), 2);
  ASSERT_EQ(all.size(), 1u);
  EXPECT_EQ(all[0], text);
  EXPECT_TRUE(sheettext::Wrap("   ", kScale, width, 2).empty());
}

TEST(SheetTextTest, DrawMarksTheSheetOnlyWhereTheTextIs) {
  cv::Mat sheet(40, 200, CV_8UC3, cv::Scalar(0, 0, 0));
  sheettext::Draw(sheet, "cut", {10, 30}, kScale, cv::Scalar(255, 255, 255));
  EXPECT_GT(cv::countNonZero(sheet.reshape(1)), 0);
  EXPECT_EQ(cv::countNonZero(sheet(cv::Rect(100, 0, 100, 40)).clone().reshape(1)), 0);
}

}  // namespace
