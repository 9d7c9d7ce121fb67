#include "tools/stripe_tool/contact_sheet.h"

#include <algorithm>
#include <opencv2/imgproc.hpp>
#include <sstream>
#include <utility>

#include "tools/stripe_tool/overlay.h"
#include "tools/stripe_tool/picture_output.h"
#include "tools/stripe_tool/sheet_text.h"

namespace stripetool {

namespace {

using sheet::kBandHeight;
using sheet::kColumns;
using sheet::kGap;
using sheet::kMargin;
using sheet::kPerPage;
using sheet::kThumbHeight;
using sheet::kThumbWidth;
using sheet::kWidth;

// Colours of the sheet (blue, green, red): grey but for the overlays and the
// outcome captions.
const cv::Scalar kBackground(48, 48, 48);
const cv::Scalar kBand(30, 30, 30);
const cv::Scalar kFrame(82, 82, 82);
const cv::Scalar kUnreadableTile(110, 110, 110);
const cv::Scalar kTitleText(255, 255, 255);
const cv::Scalar kPathText(240, 240, 240);
const cv::Scalar kLabelText(185, 185, 185);
const cv::Scalar kCutText(90, 230, 90);
const cv::Scalar kRefusedText(60, 170, 255);

constexpr double kTitleScale = 0.75;
constexpr double kSubtitleScale = 0.5;
constexpr double kBandScale = 0.45;
constexpr int kBandLine = 18;  // baseline to baseline in the band
constexpr int kTextInset = 6;
constexpr int kLegendTop = 76;

// Names and pictures may hold any byte; the sheet's font draws printable
// ASCII only, so anything else shows as '?'.
std::string Printable(std::string text) {
  for (char& c : text) {
    if (c < 0x20 || c > 0x7e) c = '?';
  }
  return text;
}

void DrawTile(cv::Mat& page, cv::Point corner, const SheetTile& tile) {
  cv::rectangle(
      page, cv::Rect(corner.x - 1, corner.y - 1, kThumbWidth + 2, kThumbHeight + kBandHeight + 2),
      kFrame, 1);
  const cv::Rect area(corner, cv::Size(kThumbWidth, kThumbHeight));
  if (tile.thumb.empty()) {
    page(area).setTo(kUnreadableTile);
    const std::string head = "cannot read";
    const double head_scale = 0.8;
    sheettext::Draw(page, head,
                    {corner.x + (kThumbWidth - sheettext::Width(head, head_scale, 2)) / 2,
                     corner.y + kThumbHeight / 2},
                    head_scale, kTitleText, 2);
  } else {
    tile.thumb.copyTo(page(area));
  }

  const cv::Point band(corner.x, corner.y + kThumbHeight);
  page(cv::Rect(band, cv::Size(kThumbWidth, kBandHeight))).setTo(kBand);
  const int text_width = kThumbWidth - 2 * kTextInset;
  const int x = band.x + kTextInset;
  int y = band.y + kBandLine;
  sheettext::Draw(page, sheettext::Fit(Printable(tile.path), kBandScale, text_width, true), {x, y},
                  kBandScale, kPathText);
  const cv::Scalar& colour = tile.kind == SheetTile::Kind::kCut       ? kCutText
                             : tile.kind == SheetTile::Kind::kRefused ? kRefusedText
                                                                      : kLabelText;
  for (const std::string& line :
       sheettext::Wrap(Printable(tile.caption), kBandScale, text_width, 2)) {
    y += kBandLine;
    sheettext::Draw(page, line, {x, y}, kBandScale, colour);
  }
}

}  // namespace

cv::Mat SheetThumbnail(const cv::Mat& overlay) {
  cv::Mat thumb;
  cv::resize(overlay, thumb, cv::Size(kThumbWidth, kThumbHeight), 0, 0, cv::INTER_AREA);
  return thumb;
}

std::string SheetPageName(const std::string& path, std::size_t page) {
  if (page <= 1) return path;
  const std::size_t dot = path.rfind('.');
  const std::string number = "-" + std::to_string(page);
  if (dot == std::string::npos || path.find('/', dot) != std::string::npos) return path + number;
  return path.substr(0, dot) + number + path.substr(dot);
}

std::size_t SheetPages(std::size_t pictures) {
  return std::max<std::size_t>(1, (pictures + kPerPage - 1) / kPerPage);
}

cv::Mat DrawSheetPage(const std::vector<SheetTile>& tiles, std::size_t first, std::size_t total,
                      std::size_t page, std::size_t pages) {
  const cv::Mat legend = stripeinspect::DrawLegend(kWidth - 2 * kMargin);
  const int title_height = kLegendTop + legend.rows + kGap;
  const int rows = static_cast<int>((tiles.size() + kColumns - 1) / kColumns);
  const int height = title_height +
                     (rows == 0 ? 40 : rows * (kThumbHeight + kBandHeight) + (rows - 1) * kGap) +
                     kMargin;
  cv::Mat sheet(height, kWidth, CV_8UC3, kBackground);

  std::ostringstream title;
  title << "stripe-inspect: ";
  if (tiles.empty()) {
    title << "no pictures";
  } else if (total == 1) {
    title << "1 picture";
  } else {
    title << "pictures " << first << " to " << first + tiles.size() - 1 << " of " << total;
  }
  if (pages > 1) title << ", page " << page << " of " << pages;
  sheettext::Draw(sheet, title.str(), {kMargin, 36}, kTitleScale, kTitleText, 2);
  sheettext::Draw(
      sheet,
      "Under each picture: its path, then the laser and the outcome (green: cut, orange: "
      "refused). Marks of the stripe cut:",
      {kMargin, 62}, kSubtitleScale, kLabelText);
  legend.copyTo(sheet(cv::Rect(kMargin, kLegendTop, legend.cols, legend.rows)));

  for (std::size_t i = 0; i < tiles.size(); ++i) {
    const int column = static_cast<int>(i % kColumns);
    const int row = static_cast<int>(i / kColumns);
    DrawTile(sheet,
             {kMargin + column * (kThumbWidth + kGap),
              title_height + row * (kThumbHeight + kBandHeight + kGap)},
             tiles[i]);
  }
  return sheet;
}

ContactSheet::ContactSheet(std::string path, std::size_t pictures, unsigned writers)
    : path_(std::move(path)),
      total_(pictures),
      pages_(SheetPages(pictures)),
      writers_(std::max(writers, 1u)) {}

ContactSheet::~ContactSheet() {
  for (Writing& page : writing_) {
    if (page.done.valid()) page.done.wait();
  }
}

void ContactSheet::Add(SheetTile tile) {
  tiles_.push_back(std::move(tile));
  ++added_;
  if (tiles_.size() == kPerPage) StartPage();
}

void ContactSheet::Finish() {
  if (!tiles_.empty() || started_ == 0) StartPage();
  while (!writing_.empty()) WaitForOldestPage();
}

void ContactSheet::StartPage() {
  ++started_;
  const std::string name = SheetPageName(path_, started_);
  cv::Mat drawn = DrawSheetPage(tiles_, added_ - tiles_.size() + 1, total_, started_, pages_);
  tiles_.clear();
  while (writing_.size() >= writers_) WaitForOldestPage();
  writing_.push_back({name, std::async(std::launch::async, [name, drawn = std::move(drawn)]() {
                        WritePicture(name, drawn, "contact sheet");
                      })});
}

void ContactSheet::WaitForOldestPage() {
  Writing page = std::move(writing_.front());
  writing_.pop_front();
  page.done.get();  // throws what the write threw
  written_.push_back(page.name);
}

}  // namespace stripetool
