// What stripe-inspect shows of a picture: the JSON object, the CSV row, the
// list line and the summary of a list, for pictures that were read and
// pictures that were not.
#include "tools/stripe_tool/findings.h"

#include <gtest/gtest.h>
#include <rapidjson/document.h>

#include <set>
#include <string>
#include <vector>

#include "src/stripecut.h"
#include "tests/support/csv_fields.h"
#include "tests/support/stripe_pictures.h"

namespace {

using stripetool::Inspection;

constexpr int kLeft = kivplugcali::kStripeWalkLeft;
constexpr int kRight = kivplugcali::kStripeWalkRight;

Inspection Inspect(const cv::Mat& picture, const std::string& image, int mode) {
  kivplugcali::StripeCut cut;
  kivplugcali::CutStripe(picture, mode, &cut);
  return stripetool::Describe(cut, image, mode, 30, 7, mode == kLeft ? "/tmp/left" : "/tmp/right");
}

std::vector<std::string> Keys(const std::string& json_line) {
  rapidjson::Document json;
  json.Parse(json_line.c_str());
  EXPECT_FALSE(json.HasParseError()) << json_line;
  std::vector<std::string> keys;
  for (const auto& member : json.GetObject()) keys.push_back(member.name.GetString());
  return keys;
}

TEST(InspectionTest, ACutPictureIsDescribedWithTheNodesFileName) {
  const Inspection cut = Inspect(testsupport::BentStripePicture(), "bent.png", kLeft);
  EXPECT_TRUE(cut.read);
  EXPECT_EQ(cut.result, 0);
  EXPECT_EQ(cut.outcome, "cut");
  EXPECT_EQ(cut.words.rfind("cut at row ", 0), 0u);
  ASSERT_TRUE(cut.file.has_value());
  EXPECT_EQ(*cut.file, "/tmp/left/3007.bmp");
  EXPECT_EQ(stripetool::ScanFile(cut), "/tmp/LL.bmp");
  const std::string report = stripetool::TextReport(cut);
  EXPECT_EQ(report.rfind("picture      bent.png (left laser, mode 1)\noutcome      cut at row ", 0),
            0u)
      << report;
  EXPECT_NE(report.find("\nfile         /tmp/left/3007.bmp\n"), std::string::npos) << report;
}

TEST(InspectionTest, JsonLinesHaveTheSameKeysWhetherThePictureWasReadOrNot) {
  const Inspection two = Inspect(testsupport::TwoStripePicture(), "two.png", kLeft);
  const Inspection unread =
      stripetool::Unreadable("bad \"x\".bmp", kRight, 20, 0, "cannot read a picture from 'x'");
  const std::vector<std::string> keys = {"image",
                                         "side",
                                         "mode",
                                         "distance",
                                         "delt",
                                         "result",
                                         "outcome",
                                         "description",
                                         "points",
                                         "num2",
                                         "G",
                                         "cut_line",
                                         "two_stripe_row",
                                         "two_stripe_peaks",
                                         "slope_checks",
                                         "steep_checks",
                                         "stray_points",
                                         "scan_file",
                                         "file",
                                         "calibration",
                                         "calibration_reason"};
  EXPECT_EQ(Keys(stripetool::JsonLine(two)), keys);
  EXPECT_EQ(Keys(stripetool::JsonLine(unread)), keys);

  const std::string line = stripetool::JsonLine(unread);
  ASSERT_EQ(line.back(), '\n');
  EXPECT_EQ(line.find('\n'), line.size() - 1);
  rapidjson::Document json;
  json.Parse(line.c_str());
  EXPECT_STREQ(json["image"].GetString(), "bad \"x\".bmp");
  EXPECT_STREQ(json["side"].GetString(), "right");
  EXPECT_EQ(json["mode"].GetInt(), 8);
  EXPECT_TRUE(json["result"].IsNull());
  EXPECT_STREQ(json["outcome"].GetString(), "unreadable");
  EXPECT_STREQ(json["description"].GetString(), "cannot read a picture from 'x'");
  for (const char* key : {"points", "num2", "G", "cut_line", "two_stripe_row", "two_stripe_peaks",
                          "slope_checks", "steep_checks", "stray_points", "file", "calibration",
                          "calibration_reason"}) {
    EXPECT_TRUE(json[key].IsNull()) << key;
  }
  EXPECT_STREQ(json["scan_file"].GetString(), "/tmp/RR.bmp");
}

TEST(InspectionTest, CsvRowsHaveTheHeadersColumnsAndQuoteWhatNeedsIt) {
  const std::vector<std::string> header = testsupport::CsvFields(stripetool::CsvHeader());
  ASSERT_EQ(header.size(), 22u);
  EXPECT_EQ(header[0], "image");
  EXPECT_EQ(header[19], "file");
  EXPECT_EQ(header[20], "calibration");
  EXPECT_EQ(header[21], "calibration_reason");

  const Inspection two =
      Inspect(testsupport::Mirrored(testsupport::TwoStripePicture()), "right/two.png", kRight);
  const std::vector<std::string> row = testsupport::CsvFields(stripetool::CsvRow(two));
  ASSERT_EQ(row.size(), header.size());
  const auto column = [&](const std::string& name) {
    for (std::size_t i = 0; i < header.size(); ++i) {
      if (header[i] == name) return row[i];
    }
    ADD_FAILURE() << "no column " << name;
    return std::string();
  };
  EXPECT_EQ(column("image"), "right/two.png");
  EXPECT_EQ(column("side"), "right");
  EXPECT_EQ(column("mode"), "8");
  EXPECT_EQ(column("distance"), "30");
  EXPECT_EQ(column("delt"), "7");
  EXPECT_EQ(column("result"), "1");
  EXPECT_EQ(column("outcome"), "two_stripes");
  EXPECT_EQ(column("points"), "");
  EXPECT_EQ(column("two_stripe_row"), std::to_string(*two.two_stripe_row));
  EXPECT_EQ(column("two_stripe_first_peak"), std::to_string(two.first_peak));
  EXPECT_EQ(column("two_stripe_second_peak"), std::to_string(two.second_peak));
  EXPECT_EQ(column("slope_checks"), "0");
  EXPECT_EQ(column("scan_file"), "/tmp/RR.bmp");
  EXPECT_EQ(column("file"), "");

  const Inspection odd = stripetool::Unreadable("a,b \"c\"\nd.bmp", kLeft, 20, 0,
                                                "cannot open 'a,b': No such file or directory");
  EXPECT_EQ(stripetool::CsvRow(odd),
            "\"a,b \"\"c\"\"\nd.bmp\",left,1,20,0,,unreadable,\"cannot open 'a,b': No such file "
            "or directory\",,,,,,,,,,,/tmp/LL.bmp,,,\n");
}

TEST(InspectionTest, ListLinesLineUpAndSayWhyAPictureWasNotRead) {
  const Inspection cut = Inspect(testsupport::BentStripePicture(), "a.bmp", kLeft);
  const Inspection unread = stripetool::Unreadable("long/name.bmp", kRight, 20, 0, "why");
  EXPECT_EQ(stripetool::ListHeader(13), "picture        laser  outcome\n");
  EXPECT_EQ(stripetool::ListLine(cut, 13), "a.bmp          left   " + cut.words + "\n");
  EXPECT_EQ(stripetool::ListLine(unread, 13), "long/name.bmp  right  unreadable: why\n");
  // A path longer than the column still has two blanks after it.
  EXPECT_EQ(stripetool::ListLine(unread, 4), "long/name.bmp  right  unreadable: why\n");
}

TEST(InspectionTest, TheSummaryCountsEveryOutcomeAndListsTheRefusedAndTheUnread) {
  stripetool::Tally tally(7);
  const Inspection cut = Inspect(testsupport::BentStripePicture(), "a.bmp", kLeft);
  const Inspection two = Inspect(testsupport::TwoStripePicture(), "b.bmp", kLeft);
  const Inspection empty = Inspect(testsupport::EmptyPicture(), "c.bmp", kLeft);
  tally.Add(cut);
  tally.Add(two);
  tally.Add(cut);
  tally.Add(stripetool::Unreadable("d.bmp", kLeft, 20, 0, "cannot open 'd.bmp': gone"));
  tally.Add(empty);
  tally.PassedOver(2);
  EXPECT_EQ(tally.pictures(), 5u);
  EXPECT_EQ(tally.unread(), 1u);
  EXPECT_EQ(tally.Text(),
            "\n"
            "5 pictures: 2 cut, 2 refused, 1 unreadable\n"
            "outcome           pictures\n"
            "cut                      2\n"
            "two stripes              1\n"
            "too few points           1\n"
            "no cut line              0\n"
            "cut line refused         0\n"
            "unreadable               1\n"
            "\n"
            "refused (2):\n"
            "  b.bmp    left   " +
                two.words +
                "\n"
                "  c.bmp    left   too few points: 0 (50 needed)\n"
                "\n"
                "unreadable (1):\n"
                "  cannot open 'd.bmp': gone\n"
                "\n"
                "passed over in the folders: 2 files not named .bmp or .png\n");
}

TEST(InspectionTest, ASummaryOfAllGoodPicturesListsNoneRefused) {
  stripetool::Tally tally(5);
  tally.Add(Inspect(testsupport::BentStripePicture(), "a.bmp", kLeft));
  EXPECT_EQ(tally.Text(),
            "\n"
            "1 picture: 1 cut, 0 refused, 0 unreadable\n"
            "outcome           pictures\n"
            "cut                      1\n"
            "two stripes              0\n"
            "too few points           0\n"
            "no cut line              0\n"
            "cut line refused         0\n"
            "unreadable               0\n");
}

}  // namespace
