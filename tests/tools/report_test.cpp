// kivrun's picture report: the contact sheet and the Markdown summary,
// written from pictures made for the test in a folder of its own.
#include "tools/kivrun/report.h"

#include <gtest/gtest.h>
#include <stdlib.h>

#include <filesystem>
#include <fstream>
#include <map>
#include <opencv2/core.hpp>
#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

#include "src/stripecut.h"
#include "tests/support/stripe_pictures.h"
#include "tools/kivrun/report_layout.h"
#include "tools/stripe_tool/overlay.h"

namespace {

namespace fs = std::filesystem;
using kivrun::ReportInput;
using kivrun::ReportPicture;
namespace sheet = kivrun::sheet;

std::string ReadFile(const fs::path& path) {
  std::ifstream file(path, std::ios::binary);
  std::ostringstream text;
  text << file.rdbuf();
  return text.str();
}

// Sheet width and height for `pictures` pictures, from the layout.
int SheetWidth() {
  return 2 * sheet::kMargin + sheet::kColumns * sheet::kThumbWidth +
         (sheet::kColumns - 1) * sheet::kGap;
}
// The legend of the stripe cut's marks, as wide as the sheet's text.
int LegendHeight() { return stripeinspect::DrawLegend(SheetWidth() - 2 * sheet::kMargin).rows; }
// The height of the thumbnails' rows alone.
int BodyHeight(int pictures) {
  const int rows = (pictures + sheet::kColumns - 1) / sheet::kColumns;
  return rows == 0 ? sheet::kEmptyHeight
                   : rows * (sheet::kThumbHeight + sheet::kBandHeight) + (rows - 1) * sheet::kGap;
}
// With a subtitle of one line; `legend` when a thumbnail shows the cut's marks.
int SheetHeight(int pictures, bool legend = false) {
  return sheet::kTitleHeight + BodyHeight(pictures) + (legend ? sheet::kGap + LegendHeight() : 0) +
         sheet::kMargin;
}

// The picture area of thumbnail `index`, and the same with its label band.
cv::Rect ThumbArea(int index) {
  const int column = index % sheet::kColumns;
  const int row = index / sheet::kColumns;
  return {sheet::kMargin + column * (sheet::kThumbWidth + sheet::kGap),
          sheet::kTitleHeight + row * (sheet::kThumbHeight + sheet::kBandHeight + sheet::kGap),
          sheet::kThumbWidth, sheet::kThumbHeight};
}
cv::Rect TileArea(int index) {
  cv::Rect area = ThumbArea(index);
  area.height += sheet::kBandHeight;
  return area;
}

// Pixels of `area` whose channels differ by more than 40: marks in colour.
int ColouredPixels(const cv::Mat& area) {
  int count = 0;
  area.forEach<cv::Vec3b>([&count](const cv::Vec3b& p, const int*) {
    const int spread = std::max({p[0], p[1], p[2]}) - std::min({p[0], p[1], p[2]});
    if (spread > 40) ++count;
  });
  return count;
}

// Pixels of `area` whose channels are not all equal.
int UngreyPixels(const cv::Mat& area) {
  int count = 0;
  for (int r = 0; r < area.rows; ++r) {
    for (int c = 0; c < area.cols; ++c) {
      const cv::Vec3b p = area.at<cv::Vec3b>(r, c);
      if (p[0] != p[1] || p[1] != p[2]) ++count;
    }
  }
  return count;
}

// The share of `area` taken by its commonest pixel value, and that value.
double CommonestShare(const cv::Mat& area, cv::Vec3b* value) {
  std::map<std::vector<uchar>, int> counts;
  for (int r = 0; r < area.rows; ++r) {
    for (int c = 0; c < area.cols; ++c) {
      const cv::Vec3b p = area.at<cv::Vec3b>(r, c);
      ++counts[{p[0], p[1], p[2]}];
    }
  }
  auto best = counts.begin();
  for (auto it = counts.begin(); it != counts.end(); ++it) {
    if (it->second > best->second) best = it;
  }
  *value = cv::Vec3b(best->first[0], best->first[1], best->first[2]);
  return static_cast<double>(best->second) / area.total();
}

class ReportTest : public ::testing::Test {
 protected:
  void SetUp() override {
    char name[] = "/tmp/report_test.XXXXXX";
    ASSERT_NE(mkdtemp(name), nullptr);
    dir_ = name;
  }
  void TearDown() override { fs::remove_all(dir_); }

  // Writes `picture` as dir_/name, as the node writes its pictures.
  std::string Picture(const std::string& name, const cv::Mat& picture) {
    const fs::path path = dir_ / name;
    fs::create_directories(path.parent_path());
    EXPECT_TRUE(cv::imwrite(path.string(), picture));
    return path.string();
  }

  static ReportPicture Entry(const std::string& path, const std::string& label, bool app,
                             ReportPicture::Side side = ReportPicture::Side::kNone) {
    ReportPicture picture;
    picture.path = path;
    picture.label = label;
    picture.app = app;
    picture.side = side;
    picture.size = static_cast<int64_t>(fs::is_regular_file(path) ? fs::file_size(path) : 0);
    picture.hash = "00112233445566ff";
    picture.writes = 1;
    return picture;
  }

  // The thumbnail of an app picture as the report should show it: the stripe
  // cut for the laser's walk, drawn by the overlay, at thumbnail size.
  static cv::Mat ExpectedAppThumb(const cv::Mat& picture, int mode) {
    kivplugcali::StripeCut cut;
    kivplugcali::CutStripe(picture, mode, &cut);
    cv::Mat thumb;
    cv::resize(stripeinspect::DrawOverlay(picture, cut, ""), thumb,
               cv::Size(sheet::kThumbWidth, sheet::kThumbHeight), 0, 0, cv::INTER_AREA);
    return thumb;
  }

  fs::path dir_;
};

// A factory picture, a right laser picture, a missing picture and a left
// laser picture, with two summary rows.
class ReportOfARoundTest : public ReportTest {
 protected:
  void SetUp() override {
    ReportTest::SetUp();
    factory_ = testsupport::BlankPicture(200);
    right_ = testsupport::NoisyBentStripePicture();
    left_ = testsupport::Mirrored(testsupport::TwoStripePicture());
    input_.scenario = "scenarios/round.json";
    input_.description = "one round of pictures";
    input_.exit_code = 3;
    input_.summary = {{"pictures written", "4"}, {"figure|with bar", "a|b"}};
    input_.pictures = {
        Entry(Picture("pic/chessboard.bmp", factory_), "chessboard", false),
        Entry(Picture("RR.bmp", right_), "distance 15, right", true, ReportPicture::Side::kRight),
        Entry((dir_ / "left/1500.bmp").string(), "distance 15", true, ReportPicture::Side::kLeft),
        Entry(Picture("LL.bmp", left_), "distance 20, left", true, ReportPicture::Side::kLeft),
    };
    input_.pictures[1].writes = 3;
    out_ = dir_ / "report";
    kivrun::WriteReport(out_.string(), input_);
    sheet_ = cv::imread((out_ / kivrun::kReportSheet).string(), cv::IMREAD_COLOR);
    summary_ = ReadFile(out_ / kivrun::kReportSummary);
  }

  cv::Mat factory_, right_, left_;
  ReportInput input_;
  fs::path out_;
  cv::Mat sheet_;
  std::string summary_;
};

TEST_F(ReportOfARoundTest, WritesTheSheetAndTheSummaryInTheFolderItMakes) {
  EXPECT_TRUE(fs::is_regular_file(out_ / "pictures.png"));
  EXPECT_TRUE(fs::is_regular_file(out_ / "report.md"));
  ASSERT_FALSE(sheet_.empty());
  EXPECT_EQ(sheet_.cols, SheetWidth());
  EXPECT_EQ(sheet_.rows, SheetHeight(4, true));
}

TEST_F(ReportOfARoundTest, TheLegendOfTheMarksFollowsTheThumbnails) {
  const cv::Rect legend(sheet::kMargin, sheet::kTitleHeight + BodyHeight(4) + sheet::kGap,
                        SheetWidth() - 2 * sheet::kMargin, LegendHeight());
  const cv::Mat expected = stripeinspect::DrawLegend(legend.width);
  EXPECT_EQ(cv::norm(sheet_(legend), expected, cv::NORM_INF), 0);
  EXPECT_GT(ColouredPixels(sheet_(legend)), 50);
}

TEST_F(ReportTest, ALongDescriptionIsWrappedWholeAndTheTitleBandGrows) {
  ReportInput input;
  input.scenario = "long.json";
  for (int i = 0; i < 40; ++i) input.description += "a rather long description ";
  input.description += "ENDS HERE";
  input.pictures = {
      Entry(Picture("pic/chessboard.bmp", testsupport::BlankPicture(200)), "x", false)};
  kivrun::WriteReport((dir_ / "long").string(), input);
  const cv::Mat picture =
      cv::imread((dir_ / "long" / kivrun::kReportSheet).string(), cv::IMREAD_COLOR);
  const int extra = picture.rows - SheetHeight(1);
  EXPECT_GT(extra, 0);
  EXPECT_EQ(extra % sheet::kSubtitleLine, 0);
  const int lines = 1 + extra / sheet::kSubtitleLine;
  EXPECT_GE(lines, 4);
  EXPECT_LE(lines, sheet::kMaxSubtitleLines);
  // The thumbnail comes right under the band: grey (200) where it starts.
  const cv::Vec3b first = picture.at<cv::Vec3b>(sheet::TitleHeight(lines) + 5, sheet::kMargin + 5);
  EXPECT_EQ(first, cv::Vec3b(200, 200, 200));
}

TEST_F(ReportOfARoundTest, FactoryPictureIsShownAsItIsInGrey) {
  const cv::Mat thumb = sheet_(ThumbArea(0));
  EXPECT_EQ(UngreyPixels(sheet_(TileArea(0))), 0);
  cv::Vec3b value;
  EXPECT_EQ(CommonestShare(thumb, &value), 1.0);
  EXPECT_EQ(value, cv::Vec3b(200, 200, 200));
}

TEST_F(ReportOfARoundTest, AppPicturesCarryTheStripeCutOfTheirLaser) {
  EXPECT_GT(ColouredPixels(sheet_(ThumbArea(1))), 200);
  EXPECT_GT(ColouredPixels(sheet_(ThumbArea(3))), 200);

  const cv::Mat right = ExpectedAppThumb(right_, kivplugcali::kStripeWalkRight);
  EXPECT_EQ(cv::norm(sheet_(ThumbArea(1)), right, cv::NORM_INF), 0);
  const cv::Mat left = ExpectedAppThumb(left_, kivplugcali::kStripeWalkLeft);
  EXPECT_EQ(cv::norm(sheet_(ThumbArea(3)), left, cv::NORM_INF), 0);
}

TEST_F(ReportOfARoundTest, MissingPictureIsAPlainGreyTile) {
  const cv::Mat thumb = sheet_(ThumbArea(2));
  EXPECT_EQ(UngreyPixels(sheet_(TileArea(2))), 0);
  cv::Vec3b value;
  EXPECT_GT(CommonestShare(thumb, &value), 0.9);
  // Not black, not the factory picture, and some text on it.
  EXPECT_GT(value[0], 40);
  EXPECT_NE(value, cv::Vec3b(200, 200, 200));
  EXPECT_LT(CommonestShare(thumb, &value), 1.0);
}

TEST_F(ReportOfARoundTest, SummaryListsTheRoundAndEveryPicture) {
  EXPECT_NE(summary_.find("scenarios/round.json"), std::string::npos) << summary_;
  EXPECT_NE(summary_.find("one round of pictures"), std::string::npos) << summary_;
  EXPECT_NE(summary_.find("exit code: 3"), std::string::npos) << summary_;
  EXPECT_NE(summary_.find("| pictures written | 4 |"), std::string::npos) << summary_;
  EXPECT_NE(summary_.find("| figure\\|with bar | a\\|b |"), std::string::npos) << summary_;
  EXPECT_NE(summary_.find("![pictures](pictures.png)"), std::string::npos) << summary_;
  for (const ReportPicture& picture : input_.pictures) {
    EXPECT_NE(summary_.find("`" + picture.path + "`"), std::string::npos) << picture.path;
    EXPECT_NE(summary_.find("| " + picture.label + " |"), std::string::npos) << picture.label;
    const std::string size_and_hash =
        " | " + std::to_string(picture.size) + " | `" + picture.hash + "` | ";
    EXPECT_NE(summary_.find(size_and_hash), std::string::npos) << picture.path;
  }
  EXPECT_NE(summary_.find("` | 3 | right: "), std::string::npos) << summary_;
  EXPECT_NE(summary_.find("| cannot read: no such file |"), std::string::npos) << summary_;
  EXPECT_NE(summary_.find("| left: two stripes at row "), std::string::npos) << summary_;
}

// A stripe of sections 80 150 100, one per row from the bottom up to row 40:
// the left laser's walk meets a peak in each, the right laser's walk none.
cv::Mat OneSidedStripePicture() {
  cv::Mat picture = testsupport::BlankPicture();
  for (int row = 479; row >= 40; --row) {
    testsupport::PaintRun(picture, row, 300 + (479 - row) / 8, {80, 150, 100});
  }
  return picture;
}

TEST_F(ReportTest, LaserOfAnAppPictureChoosesTheWalk) {
  const cv::Mat picture = OneSidedStripePicture();
  const std::string path = Picture("LL.bmp", picture);
  ReportInput input;
  input.pictures = {Entry(path, "as left", true, ReportPicture::Side::kLeft),
                    Entry(path, "as right", true, ReportPicture::Side::kRight)};
  kivrun::WriteReport(dir_.string(), input);
  const cv::Mat sheet = cv::imread((dir_ / "pictures.png").string(), cv::IMREAD_COLOR);
  const cv::Mat left = ExpectedAppThumb(picture, kivplugcali::kStripeWalkLeft);
  const cv::Mat right = ExpectedAppThumb(picture, kivplugcali::kStripeWalkRight);
  EXPECT_GT(cv::norm(left, right, cv::NORM_INF), 0);
  EXPECT_EQ(cv::norm(sheet(ThumbArea(0)), left, cv::NORM_INF), 0);
  EXPECT_EQ(cv::norm(sheet(ThumbArea(1)), right, cv::NORM_INF), 0);
  const std::string summary = ReadFile(dir_ / "report.md");
  EXPECT_NE(summary.find("| as left | "), std::string::npos) << summary;
  EXPECT_NE(summary.find("| left: "), std::string::npos) << summary;
  EXPECT_EQ(summary.find("| left: too few points"), std::string::npos) << summary;
  EXPECT_NE(summary.find("| right: too few points: 0 (50 needed) |"), std::string::npos) << summary;
}

TEST_F(ReportTest, RoundWithoutPicturesStillGetsBothFiles) {
  ReportInput input;
  input.scenario = "scenarios/quiet.json";
  input.summary = {{"pictures written", "0"}};
  kivrun::WriteReport(dir_.string(), input);
  const cv::Mat picture = cv::imread((dir_ / "pictures.png").string(), cv::IMREAD_COLOR);
  ASSERT_FALSE(picture.empty());
  EXPECT_EQ(picture.cols, SheetWidth());
  EXPECT_EQ(picture.rows, SheetHeight(0));
  const std::string summary = ReadFile(dir_ / "report.md");
  EXPECT_NE(summary.find("No pictures were written."), std::string::npos) << summary;
  EXPECT_NE(summary.find("| pictures written | 0 |"), std::string::npos) << summary;
}

TEST_F(ReportTest, FifthPictureStartsASecondRow) {
  ReportInput input;
  const std::string path = Picture("pic/grey.bmp", testsupport::BlankPicture(90));
  for (int i = 0; i < 5; ++i) input.pictures.push_back(Entry(path, "same", false));
  kivrun::WriteReport(dir_.string(), input);
  const cv::Mat picture = cv::imread((dir_ / "pictures.png").string(), cv::IMREAD_COLOR);
  ASSERT_EQ(picture.rows, SheetHeight(5));
  EXPECT_GT(SheetHeight(5), SheetHeight(4));
  cv::Vec3b value;
  EXPECT_EQ(CommonestShare(picture(ThumbArea(4)), &value), 1.0);
  EXPECT_EQ(value, cv::Vec3b(90, 90, 90));
}

TEST_F(ReportTest, PictureOfAnotherShapeIsFittedIn) {
  ReportInput input;
  const cv::Mat wide(100, 400, CV_8UC3, cv::Scalar(0, 0, 255));
  input.pictures = {Entry(Picture("pic/wide.png", wide), "wide", true)};
  kivrun::WriteReport(dir_.string(), input);
  const cv::Mat picture = cv::imread((dir_ / "pictures.png").string(), cv::IMREAD_COLOR);
  const cv::Mat thumb = picture(ThumbArea(0));
  // 400 x 100 shrinks to 320 x 80, centred.
  const int top = (sheet::kThumbHeight - 80) / 2;
  EXPECT_EQ(thumb.at<cv::Vec3b>(top + 40, 160), cv::Vec3b(0, 0, 255));
  EXPECT_EQ(thumb.at<cv::Vec3b>(top - 5, 160), cv::Vec3b(0, 0, 0));
  const std::string summary = ReadFile(dir_ / "report.md");
  EXPECT_NE(summary.find("no stripe cut: 400 x 100, 3 channels"), std::string::npos) << summary;
}

TEST_F(ReportTest, UnreadableFileIsReportedNotThrown) {
  const fs::path junk = dir_ / "junk.bmp";
  std::ofstream(junk) << "not a picture";
  ReportInput input;
  input.pictures = {Entry(junk.string(), "junk", false), Entry(dir_.string(), "folder", true)};
  EXPECT_NO_THROW(kivrun::WriteReport((dir_ / "out").string(), input));
  const std::string summary = ReadFile(dir_ / "out" / "report.md");
  EXPECT_NE(summary.find("cannot read: not a BMP or PNG picture"), std::string::npos) << summary;
  EXPECT_NE(summary.find("cannot read: not a file"), std::string::npos) << summary;
}

TEST_F(ReportTest, FolderThatCannotBeMadeThrowsWithItsPath) {
  const fs::path file = dir_ / "plain";
  std::ofstream(file) << "x";
  for (const fs::path& bad : {file / "report", dir_ / "missing" / "report", file}) {
    try {
      kivrun::WriteReport(bad.string(), ReportInput{});
      ADD_FAILURE() << "no exception for " << bad;
    } catch (const std::runtime_error& e) {
      EXPECT_NE(std::string(e.what()).find(bad.string()), std::string::npos) << e.what();
    }
  }
}

TEST_F(ReportTest, FileThatCannotBeWrittenThrowsWithItsPath) {
  for (const char* name : {kivrun::kReportSheet, kivrun::kReportSummary}) {
    const fs::path out = dir_ / name;
    fs::remove_all(dir_ / kivrun::kReportSheet);
    fs::remove_all(dir_ / kivrun::kReportSummary);
    fs::create_directory(out);  // a folder where the file should go
    try {
      kivrun::WriteReport(dir_.string(), ReportInput{});
      ADD_FAILURE() << "no exception for " << out;
    } catch (const std::runtime_error& e) {
      EXPECT_NE(std::string(e.what()).find("cannot write " + out.string()), std::string::npos)
          << e.what();
    }
  }
}

}  // namespace
