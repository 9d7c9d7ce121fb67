#include "tools/stripe_tool/overlay.h"

#include <algorithm>
#include <cmath>
#include <opencv2/imgproc.hpp>
#include <sstream>

namespace stripeinspect {

namespace {

using kivplugcali::SlopeCheck;
using kivplugcali::StripeCut;
using kivplugcali::StripeCutStop;
using kivplugcali::StripePointRole;

constexpr int kEdgeBar = 3;  // width of the scanned-row bars at either edge

// A point as a tick on its own row, `reach` pixels to either side.
void Tick(cv::Mat& out, float x, float y, int reach, const cv::Scalar& colour) {
  const int row = static_cast<int>(std::floor(y));
  const int col = static_cast<int>(std::lround(x));
  cv::line(out, {col - reach, row}, {col + reach, row}, colour, 1);
}

cv::Scalar PointColour(const StripeCut& cut, std::size_t j, const SlopeCheck* check) {
  if (cut.roles.empty()) return colour::kUnchecked;
  switch (cut.roles[j]) {
    case StripePointRole::kUnchecked:
      return colour::kUnchecked;
    case StripePointRole::kOutside:
      return colour::kOutside;
    case StripePointRole::kStray:
      return colour::kStray;
    case StripePointRole::kAfterCut:
      return colour::kAfterCut;
    case StripePointRole::kSlopeCheck:
      return check != nullptr && check->k1 > 3 ? colour::kSteep : colour::kShallow;
  }
  return colour::kUnchecked;
}

void DrawScannedRows(cv::Mat& out, const StripeCut& cut) {
  // The scan runs from row 479 up to row 2, or up to the row with two peaks.
  const int last_scanned = cut.stop == StripeCutStop::kTwoStripes ? cut.two_stripe_row : 2;
  for (int r = 0; r < out.rows; ++r) {
    const cv::Scalar& c = r >= last_scanned ? colour::kScannedRow : colour::kUnscannedRow;
    cv::line(out, {0, r}, {kEdgeBar - 1, r}, c, 1);
    cv::line(out, {out.cols - kEdgeBar, r}, {out.cols - 1, r}, c, 1);
  }
}

void DrawKeptRegion(cv::Mat& out, const StripeCut& cut) {
  if (!cut.cut_found) return;
  const int top = 30;
  const int bottom = cut.cut_line - 31;  // last kept row
  if (bottom < top) return;
  const cv::Rect area(1, top, 638, bottom - top + 1);
  if (cut.result == 0) {
    cv::Mat tint(area.size(), out.type(), colour::kKept);
    cv::addWeighted(out(area), 0.8, tint, 0.2, 0.0, out(area));
    cv::rectangle(out, area, colour::kKept, 1);
  } else {
    cv::rectangle(out, area, colour::kRefused, 1);
  }
}

void DrawCaption(cv::Mat& out, const std::string& caption) {
  if (caption.empty()) return;
  int baseline = 0;
  const double scale = 0.45;
  const cv::Size size = cv::getTextSize(caption, cv::FONT_HERSHEY_SIMPLEX, scale, 1, &baseline);
  cv::rectangle(out, {kEdgeBar + 2, 2}, {kEdgeBar + 8 + size.width, 8 + size.height + baseline},
                cv::Scalar(0, 0, 0), cv::FILLED);
  cv::putText(out, caption, {kEdgeBar + 5, 5 + size.height}, cv::FONT_HERSHEY_SIMPLEX, scale,
              cv::Scalar(255, 255, 255), 1, cv::LINE_AA);
}

}  // namespace

cv::Mat DrawOverlay(const cv::Mat& picture, const StripeCut& cut, const std::string& caption) {
  // The picture, dimmed so that the marks stand out.
  cv::Mat dimmed;
  picture.convertTo(dimmed, CV_8UC1, 0.6);
  cv::Mat out;
  cv::cvtColor(dimmed, out, cv::COLOR_GRAY2BGR);

  DrawKeptRegion(out, cut);
  DrawScannedRows(out, cut);

  // Every stripe point, coloured by what the search made of it; slope checks
  // are drawn wider.
  std::vector<const SlopeCheck*> check_of(cut.points.size(), nullptr);
  for (const SlopeCheck& check : cut.checks) check_of[check.point] = &check;
  for (std::size_t j = 0; j < cut.points.size(); ++j) {
    Tick(out, cut.points[j].x, cut.points[j].y, check_of[j] != nullptr ? 3 : 1,
         PointColour(cut, j, check_of[j]));
  }

  if (cut.cut_found) {
    cv::line(out, {0, cut.cut_line}, {out.cols - 1, cut.cut_line}, colour::kCutLine, 1);
    for (const SlopeCheck& check : cut.checks) {
      if (!check.cut) continue;
      const auto& p = cut.points[check.point];
      cv::circle(out, {static_cast<int>(std::lround(p.x)), static_cast<int>(p.y)}, 5,
                 colour::kCutCheck, 1, cv::LINE_AA);
    }
  }

  if (cut.stop == StripeCutStop::kTwoStripes) {
    const int r = cut.two_stripe_row;
    cv::line(out, {kEdgeBar, r}, {out.cols - 1 - kEdgeBar, r}, colour::kTwoStripes, 1);
    for (int col : {cut.first_peak_col, cut.second_peak_col}) {
      cv::circle(out, {col, r}, 6, colour::kPeak, 1, cv::LINE_AA);
    }
  }

  DrawCaption(out, caption);
  return out;
}

const std::vector<OverlayMark>& OverlayMarks() {
  using Shape = OverlayMark::Shape;
  static const std::vector<OverlayMark> marks = {
      {colour::kScannedRow, Shape::kEdgeBar, "row scanned"},
      {colour::kUnscannedRow, Shape::kEdgeBar, "row not scanned"},
      {colour::kUnchecked, Shape::kTick, "point not searched"},
      {colour::kOutside, Shape::kTick, "point outside rows 11 to 469"},
      {colour::kStray, Shape::kTick, "stray point"},
      {colour::kShallow, Shape::kWideTick, "slope check, not steep"},
      {colour::kSteep, Shape::kWideTick, "steep slope check"},
      {colour::kCutCheck, Shape::kCircle, "seventh steep check: cut point"},
      {colour::kAfterCut, Shape::kTick, "point after the cut (num2)"},
      {colour::kCutLine, Shape::kLine, "cut line"},
      {colour::kKept, Shape::kTintedBox, "region kept"},
      {colour::kRefused, Shape::kBox, "region a refused cut would keep"},
      {colour::kTwoStripes, Shape::kLine, "row with two stripes"},
      {colour::kPeak, Shape::kCircle, "its two peaks"},
  };
  return marks;
}

cv::Mat DrawLegend(int width) {
  constexpr int kSwatchWidth = 28;
  constexpr int kSwatchHeight = 16;
  constexpr int kRowHeight = 22;
  constexpr int kMargin = 8;
  constexpr int kTextGap = 6;
  constexpr int kItemGap = 18;
  constexpr double kScale = 0.45;
  const cv::Scalar ground(30, 30, 30);
  const cv::Scalar text_colour(220, 220, 220);

  // Where each mark goes: rows of marks, each as wide as it needs.
  std::vector<cv::Point> places;
  int x = kMargin;
  int y = kMargin;
  for (const OverlayMark& mark : OverlayMarks()) {
    int baseline = 0;
    const int text =
        cv::getTextSize(mark.words, cv::FONT_HERSHEY_SIMPLEX, kScale, 1, &baseline).width;
    const int item = kSwatchWidth + kTextGap + text;
    if (x > kMargin && x + item > width - kMargin) {
      x = kMargin;
      y += kRowHeight;
    }
    places.emplace_back(x, y);
    x += item + kItemGap;
  }
  cv::Mat legend(y + kSwatchHeight + kMargin, std::max(width, 1), CV_8UC3, ground);

  for (std::size_t i = 0; i < places.size(); ++i) {
    const OverlayMark& mark = OverlayMarks()[i];
    const cv::Rect swatch(places[i], cv::Size(kSwatchWidth, kSwatchHeight));
    const cv::Point centre(swatch.x + kSwatchWidth / 2, swatch.y + kSwatchHeight / 2);
    switch (mark.shape) {
      case OverlayMark::Shape::kEdgeBar:
        cv::rectangle(legend, cv::Rect(swatch.x + 2, swatch.y, kEdgeBar * 2, kSwatchHeight),
                      mark.colour, cv::FILLED);
        break;
      case OverlayMark::Shape::kTick:
        cv::line(legend, {centre.x - 2, centre.y}, {centre.x + 2, centre.y}, mark.colour, 1);
        cv::line(legend, {centre.x - 2, centre.y + 1}, {centre.x + 2, centre.y + 1}, mark.colour,
                 1);
        break;
      case OverlayMark::Shape::kWideTick:
        cv::line(legend, {centre.x - 6, centre.y}, {centre.x + 6, centre.y}, mark.colour, 1);
        cv::line(legend, {centre.x - 6, centre.y + 1}, {centre.x + 6, centre.y + 1}, mark.colour,
                 1);
        break;
      case OverlayMark::Shape::kCircle:
        cv::circle(legend, centre, 6, mark.colour, 1, cv::LINE_8);
        break;
      case OverlayMark::Shape::kLine:
        cv::line(legend, {swatch.x, centre.y}, {swatch.x + kSwatchWidth - 1, centre.y}, mark.colour,
                 1);
        break;
      case OverlayMark::Shape::kTintedBox: {
        cv::Mat tint(swatch.size(), legend.type(), mark.colour);
        cv::addWeighted(legend(swatch), 0.8, tint, 0.2, 0.0, legend(swatch));
        cv::rectangle(legend, swatch, mark.colour, 1);
        break;
      }
      case OverlayMark::Shape::kBox:
        cv::rectangle(legend, swatch, mark.colour, 1);
        break;
    }
    cv::putText(legend, mark.words, {swatch.x + kSwatchWidth + kTextGap, swatch.y + 12},
                cv::FONT_HERSHEY_SIMPLEX, kScale, text_colour, 1, cv::LINE_AA);
  }
  return legend;
}

std::string DescribeCut(const StripeCut& cut) {
  std::ostringstream words;
  switch (cut.stop) {
    case StripeCutStop::kCut:
      words << "cut at row " << cut.cut_line;
      break;
    case StripeCutStop::kTwoStripes:
      words << "two stripes at row " << cut.two_stripe_row << " (peaks in columns "
            << cut.first_peak_col << " and " << cut.second_peak_col << ")";
      break;
    case StripeCutStop::kTooFewPoints:
      words << "too few points: " << cut.points.size() << " (50 needed)";
      break;
    case StripeCutStop::kNoCutLine:
      words << "no cut line (no seven steep checks in a row)";
      break;
    case StripeCutStop::kCutRefused:
      words << "cut line at row " << cut.cut_line << " refused: num2 " << cut.num2
            << " (80 needed), G " << cut.G << " (10 needed)";
      break;
  }
  return words.str();
}

}  // namespace stripeinspect
