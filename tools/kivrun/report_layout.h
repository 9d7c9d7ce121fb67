// The layout of the picture report's contact sheet (pictures.png).
//
// The sheet is kColumns thumbnails wide whatever the number of pictures, so
// that sheets of different rounds line up. The title band holds the title
// and, below it, the subtitle (picture count, exit code and the scenario's
// description) wrapped over as many lines as it needs: TitleHeight(lines)
// pixels, kTitleHeight for one line. Below it, thumbnail i sits in row
// i / kColumns and column i % kColumns: kThumbWidth x kThumbHeight pixels of
// picture (a 640 x 480 picture at half size; other shapes are fitted in and
// centred on black), with a label band of kBandHeight pixels under it.
// Thumbnails are kGap apart and kMargin from the left, right and bottom
// edges. A round without pictures gets a line of kEmptyHeight pixels saying
// so instead. When a thumbnail shows the stripe cut's marks, the legend of
// the marks (stripeinspect::DrawLegend, as wide as the sheet's text) follows
// the thumbnails, kGap below them.
#ifndef LASERCALI_TOOLS_KIVRUN_REPORT_LAYOUT_H_
#define LASERCALI_TOOLS_KIVRUN_REPORT_LAYOUT_H_

namespace kivrun {
namespace sheet {

constexpr int kColumns = 4;
constexpr int kThumbWidth = 320;
constexpr int kThumbHeight = 240;
constexpr int kBandHeight = 80;
constexpr int kTitleHeight = 84;
constexpr int kMargin = 16;
constexpr int kGap = 16;
constexpr int kEmptyHeight = 40;
constexpr int kSubtitleLine = 22;      // baseline to baseline in the subtitle
constexpr int kMaxSubtitleLines = 12;  // a longer description ends in "..."

inline int TitleHeight(int subtitle_lines) {
  return kTitleHeight + (subtitle_lines - 1) * kSubtitleLine;
}

}  // namespace sheet
}  // namespace kivrun

#endif  // LASERCALI_TOOLS_KIVRUN_REPORT_LAYOUT_H_
