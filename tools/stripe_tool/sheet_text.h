// Text on a contact sheet: measured, cut to a width and broken into lines.
//
// stripe-inspect's contact sheet and kivrun's picture report both write
// their captions with these, in OpenCV's plain sans-serif font. Width()
// is a text's width in pixels at a scale and thickness. Fit() cuts a text
// down to a width and marks the cut with "...": at its start when
// `keep_end` (a path, whose file name matters most), else at its end.
// Wrap() breaks a text between words into at most `max_lines` lines of a
// width; the last line ends in "..." when the rest does not fit. Draw()
// writes a line with its baseline's start at `at`. None keeps any state.
#ifndef LASERCALI_TOOLS_STRIPE_TOOL_SHEET_TEXT_H_
#define LASERCALI_TOOLS_STRIPE_TOOL_SHEET_TEXT_H_

#include <cstddef>
#include <opencv2/core.hpp>
#include <string>
#include <vector>

namespace sheettext {

int Width(const std::string& text, double scale, int thickness = 1);

std::string Fit(const std::string& text, double scale, int width, bool keep_end);

std::vector<std::string> Wrap(const std::string& text, double scale, int width,
                              std::size_t max_lines);

void Draw(cv::Mat& sheet, const std::string& text, cv::Point at, double scale,
          const cv::Scalar& colour, int thickness = 1);

}  // namespace sheettext

#endif  // LASERCALI_TOOLS_STRIPE_TOOL_SHEET_TEXT_H_
