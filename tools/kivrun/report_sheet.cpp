#include "tools/kivrun/report_sheet.h"

#include <algorithm>
#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>
#include <sstream>
#include <string>
#include <vector>

#include "src/stripecut.h"
#include "tools/kivrun/report_layout.h"
#include "tools/report_page/page_pictures.h"
#include "tools/stripe_tool/overlay.h"
#include "tools/stripe_tool/sheet_text.h"

namespace kivrun {

namespace {

using sheet::kBandHeight;
using sheet::kColumns;
using sheet::kEmptyHeight;
using sheet::kGap;
using sheet::kMargin;
using sheet::kThumbHeight;
using sheet::kThumbWidth;

// Colours of the sheet (blue, green, red). Everything but the overlay and
// the outcome captions is grey, so that the marks of the stripe cut stand out.
const cv::Scalar kBackground(48, 48, 48);
const cv::Scalar kBand(30, 30, 30);
const cv::Scalar kFrame(82, 82, 82);  // around each tile, in the gap
const cv::Scalar kPictureBack(0, 0, 0);
const cv::Scalar kUnreadable(110, 110, 110);
const cv::Scalar kTitleText(255, 255, 255);
const cv::Scalar kPathText(240, 240, 240);
const cv::Scalar kLabelText(185, 185, 185);
const cv::Scalar kCutText(90, 230, 90);       // picture cut
const cv::Scalar kRefusedText(60, 170, 255);  // two stripes, or refused
const cv::Scalar kNoCutText(185, 185, 185);   // app picture the cut cannot take

constexpr double kTitleScale = 0.75;
constexpr double kSubtitleScale = 0.5;
constexpr double kBandScale = 0.45;
constexpr int kBandLine = 18;  // baseline to baseline in the label band
constexpr int kTextInset = 6;  // text from the left edge of its tile
constexpr int kCaptionLines = 2;

// Why a file cannot be read as a picture, or "" with *picture filled in:
// the same checks as the round's page makes.
std::string ReadPicture(const std::string& path, cv::Mat* picture) {
  std::vector<unsigned char> bytes;
  const std::string problem = reportpage::ReadPictureFile(path, &bytes);
  return problem.empty() ? reportpage::DecodePicture(bytes, picture) : problem;
}

// Any decoded picture as 8-bit BGR, for showing.
cv::Mat ForShowing(const cv::Mat& picture) {
  cv::Mat eight;
  if (picture.depth() == CV_8U) {
    eight = picture;
  } else if (picture.depth() == CV_16U) {
    picture.convertTo(eight, CV_8U, 1.0 / 256);
  } else {
    cv::normalize(picture, eight, 0, 255, cv::NORM_MINMAX, CV_8U);
  }
  cv::Mat bgr;
  switch (eight.channels()) {
    case 3:
      bgr = eight;
      break;
    case 4:
      cv::cvtColor(eight, bgr, cv::COLOR_BGRA2BGR);
      break;
    default: {
      cv::Mat first;
      cv::extractChannel(eight, first, 0);
      cv::cvtColor(first, bgr, cv::COLOR_GRAY2BGR);
    }
  }
  return bgr;
}

// `picture` (8-bit BGR) shrunk to fit the thumbnail and centred on black.
cv::Mat Thumbnail(const cv::Mat& picture) {
  cv::Mat thumb(kThumbHeight, kThumbWidth, CV_8UC3, kPictureBack);
  const double scale = std::min(static_cast<double>(kThumbWidth) / picture.cols,
                                static_cast<double>(kThumbHeight) / picture.rows);
  const int width = std::clamp(static_cast<int>(picture.cols * scale + 0.5), 1, kThumbWidth);
  const int height = std::clamp(static_cast<int>(picture.rows * scale + 0.5), 1, kThumbHeight);
  const cv::Rect area((kThumbWidth - width) / 2, (kThumbHeight - height) / 2, width, height);
  cv::resize(picture, thumb(area), area.size(), 0, 0,
             scale < 1 ? cv::INTER_AREA : cv::INTER_NEAREST);
  return thumb;
}

std::string SideName(ReportPicture::Side side) {
  switch (side) {
    case ReportPicture::Side::kLeft:
      return "left";
    case ReportPicture::Side::kRight:
      return "right";
    case ReportPicture::Side::kNone:
      break;
  }
  return "left walk, laser unknown";
}

}  // namespace

Tile MakeTile(const ReportPicture& picture) {
  Tile tile;
  tile.caption_colour = kLabelText;
  cv::Mat decoded;
  if (picture.version > 0) {
    tile.unreadable = reportpage::DecodePicture(picture.bytes, &decoded);
  } else {
    tile.unreadable = ReadPicture(picture.path, &decoded);
  }
  if (!tile.unreadable.empty()) return tile;
  if (!picture.app) {
    tile.thumb = Thumbnail(ForShowing(decoded));
    return tile;
  }
  if (decoded.cols != kivplugcali::kStripeCols || decoded.rows != kivplugcali::kStripeRows ||
      decoded.type() != CV_8UC1) {
    std::ostringstream words;
    words << "no stripe cut: " << decoded.cols << " x " << decoded.rows << ", "
          << decoded.channels() << " channel" << (decoded.channels() == 1 ? "" : "s")
          << (decoded.depth() == CV_8U ? "" : ", not 8-bit");
    tile.caption = words.str();
    tile.caption_colour = kNoCutText;
    tile.thumb = Thumbnail(ForShowing(decoded));
    return tile;
  }
  // The right laser's pictures are walked from the right; an app picture of
  // no known laser is walked from the left, as the node does for mode 1.
  const int mode = picture.side == ReportPicture::Side::kRight ? kivplugcali::kStripeWalkRight
                                                               : kivplugcali::kStripeWalkLeft;
  kivplugcali::StripeCut cut;
  kivplugcali::CutStripe(decoded, mode, &cut);
  tile.caption = SideName(picture.side) + ": " + stripeinspect::DescribeCut(cut);
  tile.caption_colour = cut.result == 0 ? kCutText : kRefusedText;
  // The caption goes on the sheet, where it stays legible; on the picture
  // it would shrink with it.
  tile.thumb = Thumbnail(stripeinspect::DrawOverlay(decoded, cut, ""));
  return tile;
}

std::string Label(const ReportPicture& picture) {
  std::string label = picture.label;
  if (picture.version > 0) {
    label +=
        (label.empty() ? "" : ", ") + std::string("version ") + std::to_string(picture.version);
    if (!picture.reply.empty()) label += ", reply " + picture.reply;
  }
  return label;
}

namespace {

cv::Point TileCorner(std::size_t index, int title_height) {
  const int column = static_cast<int>(index % kColumns);
  const int row = static_cast<int>(index / kColumns);
  return {kMargin + column * (kThumbWidth + kGap),
          title_height + row * (kThumbHeight + kBandHeight + kGap)};
}

void DrawTile(cv::Mat& sheet, cv::Point corner, const ReportPicture& picture, const Tile& tile) {
  cv::rectangle(
      sheet, cv::Rect(corner.x - 1, corner.y - 1, kThumbWidth + 2, kThumbHeight + kBandHeight + 2),
      kFrame, 1);
  const cv::Rect area(corner, cv::Size(kThumbWidth, kThumbHeight));
  if (tile.thumb.empty()) {
    sheet(area).setTo(kUnreadable);
    const std::string head = "cannot read";
    const double head_scale = 0.8;
    sheettext::Draw(sheet, head,
                    {corner.x + (kThumbWidth - sheettext::Width(head, head_scale, 2)) / 2,
                     corner.y + kThumbHeight / 2},
                    head_scale, kTitleText, 2);
    const std::string why =
        sheettext::Fit(tile.unreadable, kBandScale, kThumbWidth - 2 * kTextInset, false);
    sheettext::Draw(sheet, why,
                    {corner.x + (kThumbWidth - sheettext::Width(why, kBandScale)) / 2,
                     corner.y + kThumbHeight / 2 + 26},
                    kBandScale, kTitleText);
  } else {
    tile.thumb.copyTo(sheet(area));
  }

  const cv::Point band(corner.x, corner.y + kThumbHeight);
  sheet(cv::Rect(band, cv::Size(kThumbWidth, kBandHeight))).setTo(kBand);
  const int text_width = kThumbWidth - 2 * kTextInset;
  const int x = band.x + kTextInset;
  int y = band.y + kBandLine;
  sheettext::Draw(sheet, sheettext::Fit(picture.path, kBandScale, text_width, true), {x, y},
                  kBandScale, kPathText);
  y += kBandLine;
  std::string label = Label(picture);
  if (picture.writes > 1) {
    label += (label.empty() ? "" : ", ") + std::string("written ") +
             std::to_string(picture.writes) + " times";
  }
  sheettext::Draw(sheet, sheettext::Fit(label, kBandScale, text_width, false), {x, y}, kBandScale,
                  kLabelText);
  for (const std::string& line :
       sheettext::Wrap(tile.caption, kBandScale, text_width, kCaptionLines)) {
    y += kBandLine;
    sheettext::Draw(sheet, line, {x, y}, kBandScale, tile.caption_colour);
  }
}

}  // namespace

cv::Mat DrawSheet(const ReportInput& input, const std::vector<Tile>& tiles) {
  const int width = 2 * kMargin + kColumns * kThumbWidth + (kColumns - 1) * kGap;
  const int text_width = width - 2 * kMargin;
  std::ostringstream subtitle;
  subtitle << tiles.size() << (tiles.size() == 1 ? " picture" : " pictures") << ", exit code "
           << input.exit_code;
  if (!input.description.empty()) subtitle << " - " << input.description;
  const std::vector<std::string> sub =
      sheettext::Wrap(subtitle.str(), kSubtitleScale, text_width, sheet::kMaxSubtitleLines);
  const int title_height = sheet::TitleHeight(static_cast<int>(sub.size()));
  // The legend of the stripe cut's marks, when a thumbnail shows them.
  const bool marks = std::any_of(input.pictures.begin(), input.pictures.end(),
                                 [](const ReportPicture& p) { return p.app; });
  const cv::Mat legend = marks ? stripeinspect::DrawLegend(text_width) : cv::Mat();

  const int rows = static_cast<int>((tiles.size() + kColumns - 1) / kColumns);
  const int body =
      rows == 0 ? kEmptyHeight : rows * (kThumbHeight + kBandHeight) + (rows - 1) * kGap;
  const int height = title_height + body + (legend.empty() ? 0 : kGap + legend.rows) + kMargin;
  cv::Mat sheet(height, width, CV_8UC3, kBackground);

  const std::string title = input.scenario.empty() ? "kivrun round" : input.scenario;
  sheettext::Draw(sheet, sheettext::Fit(title, kTitleScale, text_width, true), {kMargin, 36},
                  kTitleScale, kTitleText, 2);
  for (std::size_t i = 0; i < sub.size(); ++i) {
    sheettext::Draw(sheet, sub[i], {kMargin, 64 + static_cast<int>(i) * sheet::kSubtitleLine},
                    kSubtitleScale, kLabelText);
  }

  if (tiles.empty()) {
    sheettext::Draw(sheet, "no pictures were written", {kMargin, title_height + 26}, kSubtitleScale,
                    kPathText);
  }
  for (std::size_t i = 0; i < tiles.size(); ++i) {
    DrawTile(sheet, TileCorner(i, title_height), input.pictures[i], tiles[i]);
  }
  if (!legend.empty())
    legend.copyTo(sheet(cv::Rect(kMargin, title_height + body + kGap, legend.cols, legend.rows)));
  return sheet;
}

}  // namespace kivrun
