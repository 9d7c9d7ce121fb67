#include "tools/stripe_tool/picture_input.h"

#include <cerrno>
#include <cstring>
#include <fstream>
#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>
#include <sstream>
#include <stdexcept>

#include "platform/sunxi_cam/picture_file.h"
#include "src/stripecut.h"

namespace stripetool {

namespace {

std::string DepthName(int depth) {
  switch (depth) {
    case CV_8U:
      return "8-bit";
    case CV_8S:
      return "signed 8-bit";
    case CV_16U:
      return "16-bit";
    case CV_16S:
      return "signed 16-bit";
    case CV_32S:
      return "32-bit integer";
    case CV_32F:
      return "32-bit float";
    case CV_64F:
      return "64-bit float";
    default:
      return "unusual";
  }
}

}  // namespace

cv::Mat ReadPicture(const std::string& path, bool gray) {
  if (!std::ifstream(path, std::ios::binary)) {
    throw std::runtime_error("cannot open '" + path + "': " + std::strerror(errno));
  }
  // A header that claims more than the cut can take, or a picture that is
  // neither BMP nor PNG, is refused unread.
  const std::string claim = sunxi_cam::sim::PictureHeaderProblem(path, kivplugcali::kStripeCols,
                                                                 kivplugcali::kStripeRows);
  if (!claim.empty()) {
    throw std::runtime_error("'" + path + "' is " + claim +
                             "; the stripe cut needs 640 x 480 with one 8-bit channel");
  }
  cv::Mat picture;
  try {
    picture = cv::imread(path, cv::IMREAD_UNCHANGED);
  } catch (const cv::Exception&) {
    // The decoder's own text does not name the file.
    throw std::runtime_error("cannot decode the picture in '" + path +
                             "': the file is damaged, or not a picture");
  }
  if (picture.empty()) {
    throw std::runtime_error("cannot read a picture from '" + path + "'");
  }
  if (gray && picture.depth() == CV_8U && picture.channels() == 3) {
    cv::cvtColor(picture, picture, cv::COLOR_BGR2GRAY);
  } else if (gray && picture.depth() == CV_8U && picture.channels() == 4) {
    cv::cvtColor(picture, picture, cv::COLOR_BGRA2GRAY);
  }
  if (picture.cols != kivplugcali::kStripeCols || picture.rows != kivplugcali::kStripeRows ||
      picture.type() != CV_8UC1) {
    std::ostringstream message;
    message << "'" << path << "' is " << picture.cols << " x " << picture.rows << " with "
            << picture.channels() << " " << DepthName(picture.depth()) << " channel"
            << (picture.channels() == 1 ? "" : "s")
            << "; the stripe cut needs 640 x 480 with one 8-bit channel";
    if (picture.depth() == CV_8U && (picture.channels() == 3 || picture.channels() == 4) && !gray) {
      message << " (--gray converts a colour picture)";
    }
    throw std::runtime_error(message.str());
  }
  return picture;
}

}  // namespace stripetool
