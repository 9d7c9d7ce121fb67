// What a picture file's header claims, read without decoding the picture.
//
// The camera simulator and stripe-inspect read pictures that must be 640 x
// 480. A damaged or hostile header (a BMP claiming 100000 x 100000 pixels)
// would make the decoder give up with a text of its own; looking at the
// header first lets the caller say in plain words what is wrong, and spares
// decoding a picture that could never be used. BMP and PNG headers are read;
// pictures in other formats are not read at all.
#ifndef LASERCALI_PLATFORM_SUNXI_CAM_PICTURE_FILE_H_
#define LASERCALI_PLATFORM_SUNXI_CAM_PICTURE_FILE_H_

#include <cstddef>
#include <cstdint>
#include <fstream>
#include <string>

namespace sunxi_cam::sim {

struct PictureHeader {
  std::string format;  // "BMP", "PNG", or "" when not known
  int64_t width = 0;
  int64_t height = 0;  // a top-down BMP counts as its height
};

// The header of a picture whose first `got` bytes are `b`.
inline PictureHeader ReadPictureHeader(const unsigned char* b, std::size_t got) {
  PictureHeader header;
  auto little = [&b](int at) {
    return static_cast<uint32_t>(b[at]) | static_cast<uint32_t>(b[at + 1]) << 8 |
           static_cast<uint32_t>(b[at + 2]) << 16 | static_cast<uint32_t>(b[at + 3]) << 24;
  };
  auto big = [&b](int at) {
    return static_cast<uint32_t>(b[at]) << 24 | static_cast<uint32_t>(b[at + 1]) << 16 |
           static_cast<uint32_t>(b[at + 2]) << 8 | static_cast<uint32_t>(b[at + 3]);
  };
  if (got >= 26 && b[0] == 'B' && b[1] == 'M') {
    const uint32_t info_size = little(14);
    if (info_size == 12) {  // the old core header: 16-bit sizes
      header.width = b[18] | b[19] << 8;
      header.height = b[20] | b[21] << 8;
    } else {
      header.width = static_cast<int32_t>(little(18));
      header.height = static_cast<int32_t>(little(22));
      if (header.height < 0) header.height = -header.height;
    }
    header.format = "BMP";
  } else if (got >= 24 && b[0] == 0x89 && b[1] == 'P' && b[2] == 'N' && b[3] == 'G' &&
             b[12] == 'I' && b[13] == 'H' && b[14] == 'D' && b[15] == 'R') {
    header.format = "PNG";
    header.width = big(16);
    header.height = big(20);
  }
  return header;
}

inline PictureHeader PeekPictureHeader(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  unsigned char b[26] = {};
  in.read(reinterpret_cast<char*>(b), sizeof b);
  return ReadPictureHeader(b, static_cast<std::size_t>(in.gcount()));
}

// "" when the header is a BMP or PNG header claiming at most
// `width` x `height` pixels; else what it is, in words that follow "is":
// "a BMP picture whose header claims 100000 x 100000 pixels", "not a BMP or
// PNG picture". Only such pictures are ever decoded. A larger one could not
// be used, and decoding it could take gigabytes; the decoders of other
// formats allocate whatever their header claims before anything here could
// look at it, so those are refused unread.
inline std::string HeaderProblem(const PictureHeader& header, int64_t width, int64_t height) {
  if (header.format.empty()) return "not a BMP or PNG picture";
  if (header.width <= width && header.height <= height) return "";
  return "a " + header.format + " picture whose header claims " + std::to_string(header.width) +
         " x " + std::to_string(header.height) + " pixels";
}

inline std::string PictureHeaderProblem(const std::string& path, int64_t width, int64_t height) {
  return HeaderProblem(PeekPictureHeader(path), width, height);
}

}  // namespace sunxi_cam::sim

#endif  // LASERCALI_PLATFORM_SUNXI_CAM_PICTURE_FILE_H_
