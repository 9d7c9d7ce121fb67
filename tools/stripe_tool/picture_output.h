// Writing a picture file from stripe-inspect, so that a failed write is
// never taken for a written file.
//
// WritePicture encodes the picture in memory in the format the file name's
// extension asks for (.png, .bmp, ...), then writes the bytes with every
// write checked and closes the file (tools/kivrun/output_file.h). It throws
// std::runtime_error with the message to show:
//
//   cannot write the WHAT to 'PATH': No space left on device
//   cannot write the WHAT to 'PATH': the file name has no extension (.png, .bmp, ...) to choose the
//   picture format cannot write the WHAT to 'PATH': no picture format for the extension '.xyz'
//
// PictureNameProblem gives the message for a name that can never be
// written (no extension, or one no encoder takes), or "" for one that may
// be; a caller can ask before spending time on the picture.
#ifndef LASERCALI_TOOLS_STRIPE_TOOL_PICTURE_OUTPUT_H_
#define LASERCALI_TOOLS_STRIPE_TOOL_PICTURE_OUTPUT_H_

#include <opencv2/core.hpp>
#include <string>

namespace stripetool {

// `what` names the picture in the message: "overlay", "cut picture", ...
void WritePicture(const std::string& path, const cv::Mat& picture, const std::string& what);

std::string PictureNameProblem(const std::string& path, const std::string& what);

}  // namespace stripetool

#endif  // LASERCALI_TOOLS_STRIPE_TOOL_PICTURE_OUTPUT_H_
