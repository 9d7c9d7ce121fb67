// The recovered camera against the truth, as the page draws it: a grid of
// the picture as each camera maps it.
//
// Both cameras are given by the figures the event log carries of a camera
// (`fx`, `fy`, `cx`, `cy` in pixels and the radial coefficient `k1`). The
// grid's lines are straight in the true camera's ideal picture: columns and
// rows every `step` pixels across the picture, each sampled at `samples`
// points. Each camera maps every point of a line through its own focal
// lengths, principal point and k1, so the truth's grid shows the lens's
// distortion, and the recovered grid lies on it where the camera was
// measured right. The largest distance between the two grids' matching
// points says, in pixels, how far apart they are anywhere in the picture.
#ifndef LASERCALI_TOOLS_REPORT_PAGE_CAMERA_GRID_H_
#define LASERCALI_TOOLS_REPORT_PAGE_CAMERA_GRID_H_

#include <rapidjson/document.h>

#include <optional>
#include <vector>

namespace reportpage {

struct LensFigures {
  double fx = 0, fy = 0, cx = 0, cy = 0, k1 = 0;
};

// fx, fy, cx, cy and k1 of a JSON object; nullopt unless all five are
// finite numbers and both focal lengths are above 0.
std::optional<LensFigures> LensOf(const rapidjson::Value& figures);

struct GridLine {
  std::vector<double> columns;
  std::vector<double> rows;
};

struct CameraGrid {
  std::vector<GridLine> truth;
  std::vector<GridLine> recovered;
  double largest_difference_px = 0;
  // False when a camera maps a point of the grid to no finite place (a
  // damaged log's figures): then the grid is not to be drawn.
  bool finite = true;
};

CameraGrid GridOf(const LensFigures& truth, const LensFigures& recovered, int width, int height,
                  int step = 80, int samples = 33);

}  // namespace reportpage

#endif  // LASERCALI_TOOLS_REPORT_PAGE_CAMERA_GRID_H_
