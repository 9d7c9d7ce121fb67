// The contact sheet of the picture report (pictures.png): a tile a picture,
// drawn in the sheet's layout (report_layout.h).
//
// MakeTile reads one picture of the report (its file, or the bytes of a kept
// version) and makes its thumbnail: an app stripe picture with the stripe
// cut drawn over it and the cut's outcome as its caption, any other picture
// as it is, one that cannot be read as the reason why. DrawSheet draws the
// title band, the tiles with their labels and the legend of the cut's marks.
// Label is what a picture's label band and the report's table call it.
#ifndef LASERCALI_TOOLS_KIVRUN_REPORT_SHEET_H_
#define LASERCALI_TOOLS_KIVRUN_REPORT_SHEET_H_

#include <opencv2/core.hpp>
#include <string>
#include <vector>

#include "tools/kivrun/report.h"

namespace kivrun {

// One picture as the sheet shows it.
struct Tile {
  cv::Mat thumb;           // kThumbHeight x kThumbWidth, 8-bit BGR; empty when unreadable
  std::string unreadable;  // why the picture cannot be read
  std::string caption;     // the stripe cut's outcome, for app pictures
  cv::Scalar caption_colour;
};

Tile MakeTile(const ReportPicture& picture);
cv::Mat DrawSheet(const ReportInput& input, const std::vector<Tile>& tiles);
// What was being taken, and for a version of a rewritten picture its number
// and the node's acknowledge after it: "app distance 20, version 2, reply 2;257".
std::string Label(const ReportPicture& picture);

}  // namespace kivrun

#endif  // LASERCALI_TOOLS_KIVRUN_REPORT_SHEET_H_
