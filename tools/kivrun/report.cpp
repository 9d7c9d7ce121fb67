#include "tools/kivrun/report.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <opencv2/core.hpp>
#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>
#include <sstream>
#include <stdexcept>
#include <string>
#include <system_error>
#include <vector>

#include "platform/sunxi_cam/picture_file.h"
#include "src/stripecut.h"
#include "tools/kivrun/report_layout.h"
#include "tools/report_page/kivrun_page.h"
#include "tools/stripe_tool/overlay.h"

namespace kivrun {

namespace {

namespace fs = std::filesystem;
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

constexpr int kFont = cv::FONT_HERSHEY_SIMPLEX;
constexpr double kTitleScale = 0.75;
constexpr double kSubtitleScale = 0.5;
constexpr double kBandScale = 0.45;
constexpr int kBandLine = 18;  // baseline to baseline in the label band
constexpr int kTextInset = 6;  // text from the left edge of its tile
constexpr int kCaptionLines = 2;

// One picture as the sheet shows it.
struct Tile {
  cv::Mat thumb;           // kThumbHeight x kThumbWidth, 8-bit BGR; empty when unreadable
  std::string unreadable;  // why the picture cannot be read
  std::string caption;     // the stripe cut's outcome, for app pictures
  cv::Scalar caption_colour = kLabelText;
};

int TextWidth(const std::string& text, double scale, int thickness = 1) {
  int baseline = 0;
  return cv::getTextSize(text, kFont, scale, thickness, &baseline).width;
}

// `text` cut down to `width` pixels: its end is kept and "..." put before it
// when `keep_end` (for paths, whose file name matters most), else its start
// is kept and "..." put after it.
std::string Fit(const std::string& text, double scale, int width, bool keep_end) {
  if (TextWidth(text, scale) <= width) return text;
  for (std::size_t keep = text.size(); keep-- > 0;) {
    const std::string cut =
        keep_end ? "..." + text.substr(text.size() - keep) : text.substr(0, keep) + "...";
    if (TextWidth(cut, scale) <= width) return cut;
  }
  return "...";
}

// `text` broken between words into at most `max_lines` lines of `width`
// pixels; the last line is cut short with "..." when the text does not fit.
std::vector<std::string> Wrap(const std::string& text, double scale, int width,
                              std::size_t max_lines) {
  std::istringstream in(text);
  std::vector<std::string> words{std::istream_iterator<std::string>(in),
                                 std::istream_iterator<std::string>()};
  std::vector<std::string> lines;
  std::size_t w = 0;
  while (w < words.size() && lines.size() < max_lines) {
    std::string line = words[w++];
    while (w < words.size() && TextWidth(line + " " + words[w], scale) <= width) {
      line += " " + words[w++];
    }
    lines.push_back(line);
  }
  if (w < words.size()) {
    std::string rest = lines.back();
    while (w < words.size()) rest += " " + words[w++];
    lines.back() = Fit(rest, scale, width, false);
  } else if (!lines.empty()) {
    lines.back() = Fit(lines.back(), scale, width, false);  // one word too long for a line
  }
  return lines;
}

void Text(cv::Mat& sheet, const std::string& text, cv::Point at, double scale,
          const cv::Scalar& colour, int thickness = 1) {
  cv::putText(sheet, text, at, kFont, scale, colour, thickness, cv::LINE_AA);
}

// The largest picture the report reads: the node's pictures are 640 x 480.
constexpr int64_t kMaxPictureSide = 4096;
constexpr std::uintmax_t kMaxPictureBytes = 16 * 1024 * 1024;

// Why a file cannot be read as a picture, or "" with *picture filled in.
std::string ReadPicture(const std::string& path, cv::Mat* picture) {
  std::error_code error;
  const fs::file_status status = fs::status(path, error);
  if (!fs::exists(status)) return "no such file";
  if (!fs::is_regular_file(status)) return "not a file";
  const std::uintmax_t size = fs::file_size(path, error);
  if (error) return error.message();
  if (size > kMaxPictureBytes) return "larger than 16 MiB";
  if (size == 0) return "empty file";
  const std::string header =
      sunxi_cam::sim::PictureHeaderProblem(path, kMaxPictureSide, kMaxPictureSide);
  if (!header.empty()) return header;
  std::ifstream in(path, std::ios::binary);
  if (!in) return std::strerror(errno);
  const std::vector<uchar> bytes{std::istreambuf_iterator<char>(in),
                                 std::istreambuf_iterator<char>()};
  if (in.bad()) return "read error";
  if (bytes.empty()) return "empty file";
  try {
    *picture = cv::imdecode(bytes, cv::IMREAD_UNCHANGED);
  } catch (const cv::Exception&) {
    picture->release();
  }
  if (picture->empty()) return "not a picture";
  return "";
}

// Why the bytes of a version of a picture cannot be shown, or "" with
// *picture filled in: the same checks as a file's.
std::string DecodeVersion(const std::vector<unsigned char>& bytes, cv::Mat* picture) {
  if (bytes.empty()) return "empty file";
  if (bytes.size() > kMaxPictureBytes) return "larger than 16 MiB";
  const std::string header =
      sunxi_cam::sim::HeaderProblem(sunxi_cam::sim::ReadPictureHeader(bytes.data(), bytes.size()),
                                    kMaxPictureSide, kMaxPictureSide);
  if (!header.empty()) return header;
  try {
    *picture = cv::imdecode(bytes, cv::IMREAD_UNCHANGED);
  } catch (const cv::Exception&) {
    picture->release();
  }
  if (picture->empty()) return "not a picture";
  return "";
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

Tile MakeTile(const ReportPicture& picture) {
  Tile tile;
  cv::Mat decoded;
  if (picture.version > 0) {
    tile.unreadable = DecodeVersion(picture.bytes, &decoded);
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

// What was being taken, and for a version of a rewritten picture its number
// and the node's acknowledge after it: "app distance 20, version 2, reply 2;257".
std::string Label(const ReportPicture& picture) {
  std::string label = picture.label;
  if (picture.version > 0) {
    label +=
        (label.empty() ? "" : ", ") + std::string("version ") + std::to_string(picture.version);
    if (!picture.reply.empty()) label += ", reply " + picture.reply;
  }
  return label;
}

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
    Text(sheet, head,
         {corner.x + (kThumbWidth - TextWidth(head, head_scale, 2)) / 2,
          corner.y + kThumbHeight / 2},
         head_scale, kTitleText, 2);
    const std::string why = Fit(tile.unreadable, kBandScale, kThumbWidth - 2 * kTextInset, false);
    Text(sheet, why,
         {corner.x + (kThumbWidth - TextWidth(why, kBandScale)) / 2,
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
  Text(sheet, Fit(picture.path, kBandScale, text_width, true), {x, y}, kBandScale, kPathText);
  y += kBandLine;
  std::string label = Label(picture);
  if (picture.writes > 1) {
    label += (label.empty() ? "" : ", ") + std::string("written ") +
             std::to_string(picture.writes) + " times";
  }
  Text(sheet, Fit(label, kBandScale, text_width, false), {x, y}, kBandScale, kLabelText);
  for (const std::string& line : Wrap(tile.caption, kBandScale, text_width, kCaptionLines)) {
    y += kBandLine;
    Text(sheet, line, {x, y}, kBandScale, tile.caption_colour);
  }
}

cv::Mat DrawSheet(const ReportInput& input, const std::vector<Tile>& tiles) {
  const int width = 2 * kMargin + kColumns * kThumbWidth + (kColumns - 1) * kGap;
  const int text_width = width - 2 * kMargin;
  std::ostringstream subtitle;
  subtitle << tiles.size() << (tiles.size() == 1 ? " picture" : " pictures") << ", exit code "
           << input.exit_code;
  if (!input.description.empty()) subtitle << " - " << input.description;
  const std::vector<std::string> sub =
      Wrap(subtitle.str(), kSubtitleScale, text_width, sheet::kMaxSubtitleLines);
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
  Text(sheet, Fit(title, kTitleScale, text_width, true), {kMargin, 36}, kTitleScale, kTitleText, 2);
  for (std::size_t i = 0; i < sub.size(); ++i) {
    Text(sheet, sub[i], {kMargin, 64 + static_cast<int>(i) * sheet::kSubtitleLine}, kSubtitleScale,
         kLabelText);
  }

  if (tiles.empty()) {
    Text(sheet, "no pictures were written", {kMargin, title_height + 26}, kSubtitleScale,
         kPathText);
  }
  for (std::size_t i = 0; i < tiles.size(); ++i) {
    DrawTile(sheet, TileCorner(i, title_height), input.pictures[i], tiles[i]);
  }
  if (!legend.empty())
    legend.copyTo(sheet(cv::Rect(kMargin, title_height + body + kGap, legend.cols, legend.rows)));
  return sheet;
}

// `text` for a Markdown table cell: on one line, with | and \ escaped.
std::string Cell(const std::string& text) {
  std::string out;
  for (char c : text) {
    if (c == '\n' || c == '\r') {
      out += ' ';
    } else if (c == '|' || c == '\\') {
      out += '\\';
      out += c;
    } else {
      out += c;
    }
  }
  return out;
}

// `text` as a Markdown code span for a table cell.
std::string Code(const std::string& text) {
  std::size_t longest = 0;
  std::size_t run = 0;
  for (char c : text) {
    run = c == '`' ? run + 1 : 0;
    longest = std::max(longest, run);
  }
  const std::string fence(longest + 1, '`');
  std::string out;
  for (char c : text) {
    if (c == '\n' || c == '\r') {
      out += ' ';
    } else {
      if (c == '|') out += '\\';
      out += c;
    }
  }
  const bool pad = !out.empty() && (out.front() == '`' || out.back() == '`');
  return fence + (pad ? " " : "") + out + (pad ? " " : "") + fence;
}

std::string Summary(const ReportInput& input, const std::vector<Tile>& tiles) {
  std::ostringstream md;
  md << "# Picture report";
  if (!input.scenario.empty()) md << " of " << Code(input.scenario);
  md << "\n\n";
  if (!input.description.empty()) md << input.description << "\n\n";
  md << "kivrun exit code: " << input.exit_code << "\n\n";

  md << "## Summary\n\n";
  if (input.summary.empty()) {
    md << "No figures.\n\n";
  } else {
    md << "| Figure | Value |\n|---|---|\n";
    for (const auto& [figure, value] : input.summary) {
      md << "| " << Cell(figure) << " | " << Cell(value) << " |\n";
    }
    md << "\n";
  }

  if (!input.problems.empty()) {
    md << "## What the calculation nodes refused or failed on\n\n";
    for (const std::string& problem : input.problems) md << "- " << Cell(problem) << "\n";
    md << "\n";
  }

  md << "## Pictures\n\n";
  md << "![pictures](" << kReportSheet << ")\n\n";
  if (input.pictures.empty()) {
    md << "No pictures were written.\n";
    return md.str();
  }
  md << "| # | Path | Label | Size (bytes) | FNV-1a 64 | Writes | Note |\n"
     << "|---:|---|---|---:|---|---:|---|\n";
  for (std::size_t i = 0; i < input.pictures.size(); ++i) {
    const ReportPicture& picture = input.pictures[i];
    const Tile& tile = tiles[i];
    const std::string shown =
        !tile.unreadable.empty() ? "cannot read: " + tile.unreadable : tile.caption;
    md << "| " << i + 1 << " | " << Code(picture.path) << " | " << Cell(Label(picture)) << " | "
       << picture.size << " | " << (picture.hash.empty() ? "-" : Code(picture.hash)) << " | "
       << picture.writes << " | " << Cell(shown) << " |\n";
  }
  if (input.versions_not_kept > 0) {
    md << "\n"
       << input.versions_not_kept
       << " later versions of rewritten pictures are not shown: at most 64 a picture are kept.\n";
  }
  return md.str();
}

void WriteFile(const fs::path& path, const char* data, std::size_t size) {
  errno = 0;
  std::ofstream out(path, std::ios::binary | std::ios::trunc);
  if (out) out.write(data, static_cast<std::streamsize>(size));
  if (out) out.close();
  if (!out) {
    const int error = errno;
    throw std::runtime_error("cannot write " + path.string() +
                             (error != 0 ? std::string(": ") + std::strerror(error) : ""));
  }
}

}  // namespace

void WriteReport(const std::string& dir, const ReportInput& input) {
  const fs::path folder(dir);
  // Only the folder itself is made: a missing parent is more likely a typo
  // than a wish for a new tree.
  if (!folder.empty()) {
    std::error_code error;
    if (!fs::is_directory(folder, error)) {
      error.clear();
      fs::create_directory(folder, error);
      if (error) {
        throw std::runtime_error("cannot make the folder " + dir + ": " + error.message());
      }
    }
  }

  std::vector<Tile> tiles;
  tiles.reserve(input.pictures.size());
  for (const ReportPicture& picture : input.pictures) tiles.push_back(MakeTile(picture));

  const fs::path sheet_path = folder / kReportSheet;
  std::vector<uchar> png;
  try {
    if (!cv::imencode(".png", DrawSheet(input, tiles), png)) png.clear();
  } catch (const cv::Exception&) {
    png.clear();
  }
  if (png.empty()) throw std::runtime_error("cannot write " + sheet_path.string() + ": no PNG");
  WriteFile(sheet_path, reinterpret_cast<const char*>(png.data()), png.size());

  const std::string summary = Summary(input, tiles);
  WriteFile(folder / kReportSummary, summary.data(), summary.size());

  // The same round as one page with plots: report.html.
  reportpage::WriteRoundPage(dir, input);
}

}  // namespace kivrun
