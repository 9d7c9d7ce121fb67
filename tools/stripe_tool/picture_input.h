// Reading a picture file for the stripe cut, as stripe-inspect reads it.
//
// ReadPicture returns the picture in `path` as the stripe cut takes it: 640 x
// 480 with one 8-bit channel. Only BMP and PNG files are decoded, and only
// when their header claims at most 640 x 480 pixels; anything else is refused
// unread. With `gray`, a colour picture (3 or 4 channels, 8-bit) is converted
// to gray first. Every refusal throws std::runtime_error whose what() is the
// message to show, naming the file and the reason:
//
//   cannot open 'F': No such file or directory
//   'F' is not a BMP or PNG picture; the stripe cut needs 640 x 480 with one 8-bit channel
//   'F' is a BMP picture whose header claims 100000 x 100000 pixels; the stripe cut needs ...
//   cannot decode the picture in 'F': the file is damaged, or not a picture
//   cannot read a picture from 'F'
//   'F' is 200 x 100 with 1 8-bit channel; the stripe cut needs 640 x 480 with one 8-bit channel
//
// It keeps no state: any number of threads may read pictures at once.
#ifndef LASERCALI_TOOLS_STRIPE_TOOL_PICTURE_INPUT_H_
#define LASERCALI_TOOLS_STRIPE_TOOL_PICTURE_INPUT_H_

#include <opencv2/core.hpp>
#include <string>

namespace stripetool {

cv::Mat ReadPicture(const std::string& path, bool gray);

}  // namespace stripetool

#endif  // LASERCALI_TOOLS_STRIPE_TOOL_PICTURE_INPUT_H_
