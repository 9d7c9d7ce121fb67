// Frames from a folder of recorded pictures, chosen by the target distance
// and the frame's laser (docs/camera-sim.md, "Recorded pictures").
//
// A picture folder has one of two layouts:
//   by distance  DIR/<distance>/left.bmp (or .png), right.*, other.*: the
//                distance as a whole number ("35"), or with its fraction
//                ("12.5");
//   the node's   DIR/left/<N>.bmp and DIR/right/<N>.bmp with N = distance x
//                100 + the picture number offset (the node's delt_factory or
//                delt_app): a folder an earlier round wrote, as it is. The
//                node numbers whole distances only: a distance with a
//                fraction (the distance check's wall at 27.5) takes the
//                distance check's pictures of that folder,
//                DIR/pic/dis_left.bmp and dis_right.bmp.
// Left frames (laser field 1) show the left picture, right frames (8) the
// right one, other frames the "other" picture of the by-distance layout (the
// node's layout has none). Each picture must be a BMP or PNG file of 640 x
// 480 with one 8-bit channel. A picture is read the first time a frame
// needs it, and kept.
#ifndef LASERCALI_PLATFORM_SUNXI_CAM_PICTURE_FOLDER_H_
#define LASERCALI_PLATFORM_SUNXI_CAM_PICTURE_FOLDER_H_

#include <map>
#include <memory>
#include <opencv2/core.hpp>
#include <string>
#include <utility>

namespace sunxi_cam::sim {

class PictureFolder {
 public:
  enum class Layout { kByDistance, kNode };

  // Looks at `dir`; throws std::invalid_argument ("camera sim: pictures:
  // ...") when it is not a folder, or holds neither layout. `offset` is the
  // picture number offset of the node's layout (0..99), or -1 to take the
  // one number each distance has.
  PictureFolder(const std::string& dir, int offset);

  const std::string& dir() const { return dir_; }
  Layout layout() const { return layout_; }

  // The picture frames of `slot` (0 left, 1 right, 2 other) show at
  // `distance`: "" with *picture set, or what is wrong, naming the files
  // looked for ("no left picture for distance 35: 'DIR/35/left.bmp' or
  // '.png' is missing"; "no left picture for distance 35: 'DIR/left/3560.bmp'
  // is missing"). The answer is kept: asking again reads nothing.
  std::string Find(double distance, int slot, cv::Mat* picture) const;

 private:
  std::string Look(double distance, int slot, cv::Mat* picture) const;

  std::string dir_;
  int offset_;
  Layout layout_;
  // Pictures and problems read so far, by distance and slot.
  mutable std::map<std::pair<double, int>, std::pair<cv::Mat, std::string>> found_;
};

}  // namespace sunxi_cam::sim

#endif  // LASERCALI_PLATFORM_SUNXI_CAM_PICTURE_FOLDER_H_
