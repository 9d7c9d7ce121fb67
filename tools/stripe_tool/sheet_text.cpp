#include "tools/stripe_tool/sheet_text.h"

#include <iterator>
#include <opencv2/imgproc.hpp>
#include <sstream>

namespace sheettext {

namespace {
constexpr int kFont = cv::FONT_HERSHEY_SIMPLEX;
}  // namespace

int Width(const std::string& text, double scale, int thickness) {
  int baseline = 0;
  return cv::getTextSize(text, kFont, scale, thickness, &baseline).width;
}

std::string Fit(const std::string& text, double scale, int width, bool keep_end) {
  if (Width(text, scale) <= width) return text;
  for (std::size_t keep = text.size(); keep-- > 0;) {
    const std::string cut =
        keep_end ? "..." + text.substr(text.size() - keep) : text.substr(0, keep) + "...";
    if (Width(cut, scale) <= width) return cut;
  }
  return "...";
}

std::vector<std::string> Wrap(const std::string& text, double scale, int width,
                              std::size_t max_lines) {
  std::istringstream in(text);
  const std::vector<std::string> words{std::istream_iterator<std::string>(in),
                                       std::istream_iterator<std::string>()};
  std::vector<std::string> lines;
  std::size_t w = 0;
  while (w < words.size() && lines.size() < max_lines) {
    std::string line = words[w++];
    while (w < words.size() && Width(line + " " + words[w], scale) <= width) {
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

void Draw(cv::Mat& sheet, const std::string& text, cv::Point at, double scale,
          const cv::Scalar& colour, int thickness) {
  cv::putText(sheet, text, at, kFont, scale, colour, thickness, cv::LINE_AA);
}

}  // namespace sheettext
