#include "tools/calc/picture_files.h"

#include <cstdint>
#include <fstream>
#include <opencv2/imgcodecs.hpp>

namespace calc {
namespace {

uint32_t Little32(const unsigned char* at) {
  return static_cast<uint32_t>(at[0]) | static_cast<uint32_t>(at[1]) << 8 |
         static_cast<uint32_t>(at[2]) << 16 | static_cast<uint32_t>(at[3]) << 24;
}

}  // namespace

std::string PictureProblem(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  if (!in) return "missing";
  unsigned char header[30] = {};
  in.read(reinterpret_cast<char*>(header), sizeof header);
  if (in.gcount() < static_cast<std::streamsize>(sizeof header) || header[0] != 'B' ||
      header[1] != 'M') {
    return "not a BMP file";
  }
  const int64_t width = static_cast<int32_t>(Little32(header + 18));
  int64_t height = static_cast<int32_t>(Little32(header + 22));
  if (height < 0) height = -height;  // a top-down picture (64 bits: -INT32_MIN fits)
  const int bits = header[28] | header[29] << 8;
  if (width != kPictureWidth || height != kPictureHeight) {
    return std::to_string(width) + " x " + std::to_string(height) + ", not 640 x 480";
  }
  if (bits != 8) return std::to_string(bits) + "-bit, not 8-bit";
  return "";
}

std::string ReadPicture(const std::string& path, cv::Mat* picture) {
  // The header says 640 x 480, 8 bits; the decoder must agree.
  *picture = cv::imread(path, cv::IMREAD_UNCHANGED);
  if (picture->empty() || picture->type() != CV_8UC1 || picture->cols != kPictureWidth ||
      picture->rows != kPictureHeight) {
    return "cannot be decoded as a 640 x 480 8-bit picture";
  }
  return "";
}

std::vector<std::string> FactoryPictures(const std::string& left, const std::string& right,
                                         int delt, const std::vector<int>& distances) {
  std::vector<std::string> paths;
  for (const std::string* folder : {&left, &right}) {
    for (int d : distances)
      paths.push_back(*folder + "/" + std::to_string(d * 100 + delt) + ".bmp");
  }
  return paths;
}

std::vector<std::string> FactoryPlanePictures(int delt_factory) {
  return FactoryPictures("/tmp/left", "/tmp/right", delt_factory,
                         {5, 10, 15, 20, 25, 30, 35, 40, 45});
}

bool StripePictureOf(const std::string& path, bool* left, int* distance) {
  const std::size_t slash = path.rfind('/');
  if (slash == std::string::npos || slash == 0) return false;
  const std::size_t folder_start = path.rfind('/', slash - 1);
  const std::string folder =
      path.substr(folder_start == std::string::npos ? 0 : folder_start + 1,
                  slash - (folder_start == std::string::npos ? 0 : folder_start + 1));
  if (folder != "left" && folder != "right") return false;
  const std::string name = path.substr(slash + 1);
  if (name.size() < 5 || name.size() > 13 || name.compare(name.size() - 4, 4, ".bmp") != 0) {
    return false;
  }
  int64_t number = 0;
  for (std::size_t i = 0; i + 4 < name.size(); ++i) {
    if (name[i] < '0' || name[i] > '9') return false;
    number = number * 10 + (name[i] - '0');
  }
  if (number < 100) return false;
  *left = folder == "left";
  *distance = static_cast<int>(number / 100);
  return true;
}

}  // namespace calc
