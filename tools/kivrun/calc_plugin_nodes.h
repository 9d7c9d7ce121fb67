// The computing calculation nodes of a round: nodes of the calculation
// plug-in (liblasercalc.so) that kivrun builds for "responder" steps with
// "compute" (docs/kivrun.md, docs/calibration.md).
//
// For such a step CalcPluginNodes builds the plug-in's node of that kind,
// loading the plug-in first when no plug-in loaded so far registers it
// (quietly: the event log shows the step's "responder" event, and then the
// node's answers). The node's configuration holds what the step says (the
// pictures, the refusal code, the delay) and what the host knows of the
// round: the camera model and the wall's height. The camera model is the
// file the round's camera parameter node writes (kCameraModelFile) once a
// computing camera parameter step has played, which plane, check and
// distance nodes read at each request; else the scenario's camera model
// file ("camera_model", SetCameraModel); else none, and those nodes refuse
// every request (docs/calibration.md). The wall's height is the target's,
// from the camera simulator's scene. A camera parameter node gets the
// fixture's board and, before each chessboard request reaches it, a file
// saying where the fixture holds the board on the robot (kPlacementFile);
// it writes the camera model it calibrates to kCameraModelFile (an earlier
// one is removed when the node is built). On the chessboard views of a
// picture folder (SetChessboard) the board, the number of views and the
// placements are those of its board.json, the n-th request's placement the
// n-th view's; otherwise the simulator's board, where it stands now, and
// sixteen views. The node is named "kivrun/<node>",
// which names its answer timer and its answers' trace tag too.
//
// Such a node is the host's helper, not the node under test: while it is
// built the node watch is muted, and its timers are not logged. A later
// step for the same node replaces it: the node built before is destroyed
// first (with any answer it still owed), since two nodes of a kind would
// both answer. Clear() destroys them all; it must come before the plug-ins
// are unloaded.
#ifndef LASERCALI_TOOLS_KIVRUN_CALC_PLUGIN_NODES_H_
#define LASERCALI_TOOLS_KIVRUN_CALC_PLUGIN_NODES_H_

#include <map>
#include <memory>
#include <string>

#include "framework/kiv_node.h"
#include "tools/kivrun/chessboard_folder.h"
#include "tools/kivrun/node_watch.h"
#include "tools/kivrun/responders.h"
#include "tools/kivrun/round_context.h"

namespace kivrun {

// The calculation plug-in's file name.
inline constexpr char kCalcPlugin[] = "liblasercalc.so";

// Where a computing camera parameter node writes the camera model it
// calibrates, and reads where the fixture holds the board for the view it
// is asked about (kivrun writes it at each chessboard request). Both are
// in the node's /tmp, the round's own unless kivrun runs with
// --machine-tmp.
inline constexpr char kFixtureFolder[] = "/tmp/kivrun";
inline constexpr char kCameraModelFile[] = "/tmp/kivrun/camera.yaml";
inline constexpr char kPlacementFile[] = "/tmp/kivrun/board_placement.json";

class CalcPluginNodes : public ComputingNodes {
 public:
  CalcPluginNodes(RoundContext& round, NodeWatch& node_watch)
      : round_(round), node_watch_(node_watch) {}
  ~CalcPluginNodes() override { Clear(); }
  CalcPluginNodes(const CalcPluginNodes&) = delete;
  CalcPluginNodes& operator=(const CalcPluginNodes&) = delete;

  void Compute(const ResponderSetting& setting) override;
  // The scenario's camera model file, for rounds without a chessboard step
  // ("" for none).
  void SetCameraModel(const std::string& path) { camera_model_ = path; }
  // The chessboard views of a picture folder, or null.
  void SetChessboard(std::shared_ptr<const ChessboardFolder> views) { chessboard_ = views; }
  void Retire(const std::string& node) override {
    nodes_.erase(node);
    configs_.erase(node);
  }
  void Clear() {
    nodes_.clear();
    configs_.clear();
  }

 private:
  RoundContext& round_;
  NodeWatch& node_watch_;
  std::map<std::string, std::unique_ptr<kiv::KivNode>> nodes_;
  std::map<std::string, std::string> configs_;  // node -> its configuration, minified
  bool placements_watched_ = false;
  bool chessboard_camera_ = false;  // a computing camera parameter step played
  std::string camera_model_;
  std::shared_ptr<const ChessboardFolder> chessboard_;
  std::size_t placed_ = 0;  // chessboard requests the node was told a placement for
  void WritePlacement();
};

}  // namespace kivrun

#endif  // LASERCALI_TOOLS_KIVRUN_CALC_PLUGIN_NODES_H_
