// The chessboard views of a picture folder (kivrun --pictures DIR): the
// views a round measures the camera from when DIR holds no camera model.
//
// DIR/chessboard holds the views, every *.png and *.bmp file in it, played
// in the order of their names, and board.json, which gives the board as the
// camera parameter node's configuration does ("board": "columns" and "rows"
// of inner corners, "square_cm", "margin_cm") and, for each view ("views":
// a list of {"file", "placement"}), where the fixture held the board on the
// robot: "placement" is {"origin_cm", "x_axis", "y_axis"}, the board's first
// inner corner and the directions of its rows and columns in the robot's
// frame, as the node reads it for each view. The camera's pose on the robot
// is measured from them. sim-pictures --chessboard writes such a folder;
// its other members ("picture", "camera", a view's "rotation" and
// "translation": the simulator's truth) are allowed and not read.
//
// ParseBoardJson checks the text alone; ReadChessboardFolder reads the
// folder: board.json, the views it lists against the files there, and each
// view as the camera would show it. Both throw ChessboardFolderError with
// one line naming the file (board.json, or the view) and what is wrong.
// PlacementOf gives the placement of the board the simulator shows, as the
// fixture knows it: what kivrun hands the node in a simulated round and
// what sim-pictures writes into board.json; PlacementText the file the node
// reads.
#ifndef LASERCALI_TOOLS_KIVRUN_CHESSBOARD_FOLDER_H_
#define LASERCALI_TOOLS_KIVRUN_CHESSBOARD_FOLDER_H_

#include <stdexcept>
#include <string>
#include <vector>

#include "platform/sunxi_cam/camera_sim.h"
#include "tools/calc/camera_calibration.h"
#include "tools/calc/chessboard.h"

namespace kivrun {

class ChessboardFolderError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// The largest board.json read (bytes).
inline constexpr long kMaxBoardJsonBytes = 1024 * 1024;
// How many views a calibration takes, at least and at most (the camera
// parameter node's "views").
inline constexpr int kMinChessboardViews = calc::kMinViews;
inline constexpr int kMaxChessboardViews = 100;

// Where the fixture held the board: its first inner corner (cm) and the
// unit directions of its rows (x) and columns (y), in the robot's frame.
struct Placement {
  double origin[3] = {0, 0, 0};
  double x_axis[3] = {0, -1, 0};
  double y_axis[3] = {0, 0, -1};
};

struct BoardViewFile {
  std::string file;  // the file's name in DIR/chessboard ("01.png")
  Placement placement;
};

struct BoardJson {
  calc::BoardGeometry board{9, 6, 2.5, 2.5};
  std::vector<BoardViewFile> views;  // in the order board.json lists them
};

// Checks board.json's text; `name` starts every message ("DIR/chessboard/board.json: ...").
BoardJson ParseBoardJson(const std::string& text, const std::string& name);

struct ChessboardFolder {
  std::string dir;  // DIR/chessboard
  calc::BoardGeometry board;
  std::vector<std::string> views;     // the files, absolute, in the order played
  std::vector<Placement> placements;  // each view's
};

// Whether `dir` (a picture folder) has a folder "chessboard".
bool HasChessboardFolder(const std::string& dir);
// Reads DIR/chessboard (see above).
ChessboardFolder ReadChessboardFolder(const std::string& dir);

// The placement of the board in `truth`, in the robot's frame.
Placement PlacementOf(const sunxi_cam::sim::SceneTruth& truth);
// The placement file the camera parameter node reads:
// {"origin_cm": [x, y, z], "x_axis": [x, y, z], "y_axis": [x, y, z]} and a
// line end, every number to its last bit.
std::string PlacementText(const Placement& placement);

}  // namespace kivrun

#endif  // LASERCALI_TOOLS_KIVRUN_CHESSBOARD_FOLDER_H_
