#include "tools/kivrun/calc_plugin_nodes.h"

#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>
#include <sys/stat.h>

#include <cstdio>
#include <stdexcept>

#include "msgs/calcmsgs.h"
#include "msgs/calimsgs.h"
#include "msgs/topics.h"
#include "platform/kiv/describe.h"
#include "platform/kiv/plugin.h"
#include "platform/sunxi_cam/camera_sim.h"

namespace kivrun {
namespace {

namespace sim = sunxi_cam::sim;
using Allocator = rapidjson::Document::AllocatorType;

// The node's configuration: what the step says, and what the host knows of
// the round: the camera model (the file a camera parameter node of the
// round writes, else the scenario's), the fixture's board and the target's
// wall.
rapidjson::Document ConfigFor(const ResponderSetting& setting, const std::string& name,
                              const std::string& camera_file, const std::string& camera_model,
                              const ChessboardFolder* chessboard) {
  rapidjson::Document config(rapidjson::kObjectType);
  auto& a = config.GetAllocator();
  config.AddMember("name", rapidjson::Value(name.c_str(), a), a);
  rapidjson::Value pictures(rapidjson::kArrayType);
  for (const std::string& path : setting.needs) {
    pictures.PushBack(rapidjson::Value(path.c_str(), a), a);
  }
  config.AddMember("pictures", pictures, a);
  config.AddMember("refuse", setting.refuse, a);
  config.AddMember("delay_ms", setting.delay_us / 1000, a);
  const sim::SceneTruth truth = sim::Truth();
  if (setting.node == "ieparam") {
    // The fixture's board, where the fixture says it stands for each view,
    // and where the camera model goes.
    rapidjson::Value board(rapidjson::kObjectType);
    if (chessboard != nullptr) {
      board.AddMember("columns", chessboard->board.columns, a);
      board.AddMember("rows", chessboard->board.rows, a);
      board.AddMember("square_cm", chessboard->board.square, a);
      board.AddMember("margin_cm", chessboard->board.margin, a);
    } else {
      board.AddMember("columns", truth.board.cols, a);
      board.AddMember("rows", truth.board.rows, a);
      board.AddMember("square_cm", truth.board.square, a);
      board.AddMember("margin_cm", truth.board.margin, a);
    }
    config.AddMember("board", board, a);
    if (chessboard != nullptr) {
      config.AddMember("views", static_cast<int>(chessboard->views.size()), a);
    }
    config.AddMember("camera_out", rapidjson::StringRef(kCameraModelFile), a);
    config.AddMember("placement_file", rapidjson::StringRef(kPlacementFile), a);
  } else if (!camera_file.empty()) {
    // The camera the round's chessboard views measure, read at each request.
    config.AddMember("camera_file", rapidjson::Value(camera_file.c_str(), a), a);
  } else if (!camera_model.empty()) {
    config.AddMember("camera", rapidjson::Value(camera_model.c_str(), a), a);
  }
  if (setting.node == "plane" || setting.node == "check") {
    config.AddMember("wall_height_cm", truth.wall_height, a);
  }
  return config;
}

}  // namespace

// The board's placement on the robot while it is seen: what the fixture
// knows of where it holds the board; the node reads it as a fixture's file.
// In a simulated round, the board the simulator shows (its frame, origin
// at the first inner corner, in the camera's, carried into the robot's
// frame by the camera's pose); on a folder's views, the view's own.
void CalcPluginNodes::WritePlacement() {
  const Placement placement =
      chessboard_ && !chessboard_->placements.empty()
          ? chessboard_->placements[placed_ % chessboard_->placements.size()]
          : PlacementOf(sim::Truth());
  ++placed_;
  std::FILE* file = std::fopen(kPlacementFile, "w");
  if (file == nullptr) return;  // the node says the file is missing
  const std::string text = PlacementText(placement);
  std::fputs(text.c_str(), file);
  std::fclose(file);
}

void CalcPluginNodes::Compute(const ResponderSetting& setting) {
  std::string id;
  for (const calctopics::CalcNodeName& node : calctopics::kCalcNodes) {
    if (setting.node == node.node) id = node.id;
  }
  if (id.empty()) {
    throw std::invalid_argument("the calculation plug-in has no " + setting.node + " node");
  }
  // The plug-in, unless one loaded so far registers the node.
  if (round_.registry.count(id) == 0) {
    try {
      round_.libraries.push_back(
          kiv::NodeLibrary::Load(FindPlugin(round_.options, kCalcPlugin), round_.registry));
    } catch (const kiv::LoadError& e) {
      throw std::invalid_argument(std::string("the computing ") + setting.node +
                                  " node needs the calculation plug-in: " + e.what());
    }
  }
  if (setting.node == "ieparam") {
    ::mkdir(kFixtureFolder, 0755);
    // Each chessboard request, before the node takes it: where the board
    // stands for this view.
    if (!placements_watched_) {
      round_.host.Subscribe<CameraClibrIEParamMsg>("kivrun", calitopics::kCameraCaliIEParam,
                                                   [this](CameraClibrIEParamMsg*) {
                                                     if (nodes_.count("ieparam") != 0)
                                                       WritePlacement();
                                                   });
      placements_watched_ = true;
    }
  }
  const std::string name = "kivrun/" + setting.node;
  if (setting.node == "ieparam") chessboard_camera_ = true;
  const rapidjson::Document config =
      ConfigFor(setting, name, chessboard_camera_ ? kCameraModelFile : "", camera_model_,
                setting.node == "ieparam" ? chessboard_.get() : nullptr);
  rapidjson::StringBuffer text;
  rapidjson::Writer<rapidjson::StringBuffer> writer(text);
  config.Accept(writer);
  const auto kept = configs_.find(setting.node);
  if (kept != configs_.end() && kept->second == text.GetString()) return;
  Retire(setting.node);
  std::unique_ptr<kiv::KivNode> node;
  node_watch_.SetMuted(true);
  try {
    node = kiv::BuildNode(round_.registry, id, config);
  } catch (...) {
    node_watch_.SetMuted(false);
    throw std::invalid_argument("the computing " + setting.node + " node cannot be built: " +
                                kiv::DescribeException(std::current_exception()).what);
  }
  node_watch_.SetMuted(false);
  if (!node) throw std::invalid_argument("the builder of " + id + " returned no node");
  node_watch_.MuteTimersNamed(node->NodeName());
  nodes_[setting.node] = std::move(node);
  configs_[setting.node] = text.GetString();
  if (setting.node == "ieparam") {
    // A new set of views: the camera a set before it measured is gone.
    placed_ = 0;
    std::remove(kCameraModelFile);
  }
}

}  // namespace kivrun
