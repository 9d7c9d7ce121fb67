// The contact sheet: page names and counts, the layout of a page, and the
// pages written with every write checked.
#include "tools/stripe_tool/contact_sheet.h"

#include <gtest/gtest.h>
#include <stdlib.h>

#include <filesystem>
#include <opencv2/core.hpp>
#include <opencv2/imgcodecs.hpp>
#include <stdexcept>
#include <string>
#include <vector>

#include "src/stripecut.h"
#include "tests/support/stripe_pictures.h"
#include "tools/stripe_tool/overlay.h"

namespace {

namespace fs = std::filesystem;
using stripetool::SheetTile;

class ContactSheetTest : public ::testing::Test {
 protected:
  void SetUp() override {
    char pattern[] = "/tmp/contact_sheet_test.XXXXXX";
    ASSERT_NE(mkdtemp(pattern), nullptr);
    dir_ = pattern;
  }
  void TearDown() override {
    if (!dir_.empty()) fs::remove_all(dir_);
  }
  std::string Path(const std::string& name) const { return (dir_ / name).string(); }

  // The tile of a cut picture, and of one that was not read.
  static SheetTile CutTile() {
    const cv::Mat picture = testsupport::BentStripePicture();
    kivplugcali::StripeCut cut;
    kivplugcali::CutStripe(picture, kivplugcali::kStripeWalkLeft, &cut);
    SheetTile tile;
    tile.path = "left/2000.bmp";
    tile.kind = SheetTile::Kind::kCut;
    tile.caption = "left: " + stripeinspect::DescribeCut(cut);
    tile.thumb = stripetool::SheetThumbnail(stripeinspect::DrawOverlay(picture, cut, ""));
    return tile;
  }
  static SheetTile UnreadTile() {
    SheetTile tile;
    tile.path = "right/bad.bmp";
    tile.caption = "cannot read a picture from 'right/bad.bmp'";
    return tile;
  }

  fs::path dir_;
};

TEST(SheetPagesTest, PagesAreNamedAfterTheFirst) {
  EXPECT_EQ(stripetool::SheetPageName("out/s.png", 1), "out/s.png");
  EXPECT_EQ(stripetool::SheetPageName("out/s.png", 2), "out/s-2.png");
  EXPECT_EQ(stripetool::SheetPageName("out.d/s.v1.png", 12), "out.d/s.v1-12.png");
  EXPECT_EQ(stripetool::SheetPages(0), 1u);
  EXPECT_EQ(stripetool::SheetPages(1), 1u);
  EXPECT_EQ(stripetool::SheetPages(40), 1u);
  EXPECT_EQ(stripetool::SheetPages(41), 2u);
  EXPECT_EQ(stripetool::SheetPages(1000), 25u);
}

TEST_F(ContactSheetTest, ATileShowsTheOverlayAtHalfSize) {
  const SheetTile tile = CutTile();
  ASSERT_EQ(tile.thumb.rows, stripetool::sheet::kThumbHeight);
  ASSERT_EQ(tile.thumb.cols, stripetool::sheet::kThumbWidth);
  EXPECT_EQ(tile.thumb.type(), CV_8UC3);
}

TEST_F(ContactSheetTest, APageIsFourTilesWideAndAsHighAsItsRows) {
  using namespace stripetool::sheet;
  const std::vector<SheetTile> five = {CutTile(), UnreadTile(), CutTile(), CutTile(), CutTile()};
  const cv::Mat two_rows = stripetool::DrawSheetPage(five, 1, 5, 1, 1);
  const std::vector<SheetTile> one = {CutTile()};
  const cv::Mat one_row = stripetool::DrawSheetPage(one, 41, 41, 2, 2);
  EXPECT_EQ(two_rows.cols, kWidth);
  EXPECT_EQ(one_row.cols, kWidth);
  EXPECT_EQ(two_rows.type(), CV_8UC3);
  EXPECT_EQ(two_rows.rows - one_row.rows, kThumbHeight + kBandHeight + kGap);

  // The first tile's picture is the thumbnail itself; the second, not read,
  // is grey.
  const int top = one_row.rows - kMargin - kThumbHeight - kBandHeight;
  const cv::Mat first = one_row(cv::Rect(kMargin, top, kThumbWidth, kThumbHeight));
  EXPECT_EQ(cv::norm(first, CutTile().thumb, cv::NORM_INF), 0.0);
  const int first_row_top = two_rows.rows - kMargin - 2 * (kThumbHeight + kBandHeight) - kGap;
  const cv::Mat grey =
      two_rows(cv::Rect(kMargin + kThumbWidth + kGap, first_row_top + 4, kThumbWidth, 20));
  EXPECT_EQ(grey.at<cv::Vec3b>(0, 0), cv::Vec3b(110, 110, 110));
}

TEST_F(ContactSheetTest, PagesAreWrittenAsTheyFillUp) {
  const std::string path = Path("s.png");
  stripetool::ContactSheet sheet(path, 45);
  EXPECT_EQ(sheet.pages(), 2u);
  const SheetTile tile = CutTile();
  for (int i = 0; i < 40; ++i) sheet.Add(tile);
  sheet.Add(UnreadTile());
  // The first page is written while the second fills; the last one is
  // written by Finish.
  for (int i = 0; i < 4; ++i) sheet.Add(tile);
  EXPECT_FALSE(fs::exists(Path("s-2.png")));
  sheet.Finish();
  EXPECT_EQ(sheet.written(), (std::vector<std::string>{path, Path("s-2.png")}));

  const cv::Mat first = cv::imread(path, cv::IMREAD_UNCHANGED);
  const cv::Mat second = cv::imread(Path("s-2.png"), cv::IMREAD_UNCHANGED);
  ASSERT_FALSE(first.empty());
  ASSERT_FALSE(second.empty());
  EXPECT_EQ(first.cols, stripetool::sheet::kWidth);
  // Ten rows of tiles, then two.
  EXPECT_EQ(first.rows - second.rows,
            8 * (stripetool::sheet::kThumbHeight + stripetool::sheet::kBandHeight +
                 stripetool::sheet::kGap));
}

TEST_F(ContactSheetTest, SeveralPagesAreWrittenAtOnceAndReportedInOrder) {
  const std::string path = Path("s.png");
  stripetool::ContactSheet sheet(path, 130, 3);
  EXPECT_EQ(sheet.pages(), 4u);
  const SheetTile tile = UnreadTile();
  for (int i = 0; i < 130; ++i) sheet.Add(tile);
  sheet.Finish();
  EXPECT_EQ(sheet.written(),
            (std::vector<std::string>{path, Path("s-2.png"), Path("s-3.png"), Path("s-4.png")}));
  for (const std::string& page : sheet.written()) {
    EXPECT_FALSE(cv::imread(page, cv::IMREAD_UNCHANGED).empty()) << page;
  }
}

TEST_F(ContactSheetTest, ASheetOfNoPicturesIsOnePageSayingSo) {
  stripetool::ContactSheet sheet(Path("none.png"), 0);
  sheet.Finish();
  EXPECT_EQ(sheet.written(), std::vector<std::string>{Path("none.png")});
  EXPECT_FALSE(cv::imread(Path("none.png")).empty());
}

TEST_F(ContactSheetTest, APageThatCannotBeWrittenIsReportedWithItsName) {
  fs::create_symlink("/dev/full", dir_ / "full.png");
  stripetool::ContactSheet sheet(Path("full.png"), 3);
  sheet.Add(CutTile());
  sheet.Add(UnreadTile());
  sheet.Add(CutTile());
  try {
    sheet.Finish();
    ADD_FAILURE() << "no exception";
  } catch (const std::runtime_error& e) {
    EXPECT_EQ(std::string(e.what()), "cannot write the contact sheet to '" + Path("full.png") +
                                         "': No space left on device");
  }
  EXPECT_TRUE(sheet.written().empty());

  // A first page that cannot be written is reported at the latest by Finish,
  // however many pages are written at once.
  stripetool::ContactSheet big(Path("full.png"), 50, 4);
  EXPECT_THROW(
      {
        for (int i = 0; i < 50; ++i) big.Add(UnreadTile());
        big.Finish();
      },
      std::runtime_error);
  EXPECT_TRUE(big.written().empty());
}

}  // namespace
