// Chessboard views for sim-pictures: the board and its poses (a JSON file
// like tools/sim_pictures/chessboard_views.json, whose copy is built in),
// each turned into the camera setting that shows it, and the board.json
// that describes what was written (docs/camera-sim.md, "Pictures for
// others").
#ifndef LASERCALI_TOOLS_SIM_PICTURES_CHESSBOARD_H_
#define LASERCALI_TOOLS_SIM_PICTURES_CHESSBOARD_H_

#include <string>
#include <vector>

#include "platform/sunxi_cam/camera_sim.h"

namespace simpictures {

struct BoardViews {
  int cols = 9, rows = 6;
  double square = 2.5, margin = 2.5;
  // Each view's camera setting: {"scene": {"board": {"on": true, ...}}}.
  std::vector<std::string> settings;
};

// The shipped views.
std::string ShippedViewsText();
// Reads views from JSON text; `name` names it in messages. Throws
// std::invalid_argument naming the member that is wrong.
BoardViews ReadViews(const std::string& text, const std::string& name);

// What one written view showed.
struct WrittenView {
  std::string file;  // "01.png"
  sunxi_cam::sim::SceneTruth truth;
};

// board.json: the board (as kivrun --pictures reads it, the camera
// parameter node's "board"), the picture size, the setting, the camera's
// truth (intrinsics and distortion) and each view's file, pose in the
// camera's frame and placement on the robot (tools/kivrun/chessboard_folder.h).
std::string BoardJson(const BoardViews& views, const std::vector<WrittenView>& written,
                      int exposure, int gain);

}  // namespace simpictures

#endif  // LASERCALI_TOOLS_SIM_PICTURES_CHESSBOARD_H_
