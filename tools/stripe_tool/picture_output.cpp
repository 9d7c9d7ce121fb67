#include "tools/stripe_tool/picture_output.h"

#include <opencv2/imgcodecs.hpp>
#include <stdexcept>
#include <vector>

#include "tools/kivrun/output_file.h"

namespace stripetool {

namespace {

std::string Where(const std::string& path, const std::string& what) {
  return "cannot write the " + what + " to '" + path + "': ";
}

// The extension of the file name, with its dot, or "" when it has none.
std::string Extension(const std::string& path) {
  const std::size_t dot = path.rfind('.');
  if (dot == std::string::npos || path.find('/', dot) != std::string::npos) return "";
  return path.substr(dot);
}

std::string NoExtension(const std::string& path, const std::string& what) {
  return Where(path, what) +
         "the file name has no extension (.png, .bmp, ...) to choose the picture format";
}

std::string NoFormat(const std::string& path, const std::string& what) {
  return Where(path, what) + "no picture format for the extension '" + Extension(path) + "'";
}

}  // namespace

std::string PictureNameProblem(const std::string& path, const std::string& what) {
  const std::string extension = Extension(path);
  if (extension.empty()) return NoExtension(path, what);
  bool writer = false;
  try {
    writer = cv::haveImageWriter(extension);
  } catch (const cv::Exception&) {
    writer = false;
  }
  return writer ? "" : NoFormat(path, what);
}

void WritePicture(const std::string& path, const cv::Mat& picture, const std::string& what) {
  const std::string extension = Extension(path);
  if (extension.empty()) throw std::runtime_error(NoExtension(path, what));
  std::vector<uchar> bytes;
  bool encoded = false;
  try {
    encoded = cv::imencode(extension, picture, bytes);
  } catch (const cv::Exception&) {
    encoded = false;
  }
  if (!encoded) throw std::runtime_error(NoFormat(path, what));
  std::string reason;
  if (!kivrun::WriteWholeFile(path, bytes.data(), bytes.size(), &reason)) {
    throw std::runtime_error(Where(path, what) + reason);
  }
}

}  // namespace stripetool
