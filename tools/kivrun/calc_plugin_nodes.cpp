#include "tools/kivrun/calc_plugin_nodes.h"

#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

#include <stdexcept>

#include "msgs/calcmsgs.h"
#include "platform/kiv/describe.h"
#include "platform/kiv/plugin.h"
#include "platform/sunxi_cam/camera_sim.h"

namespace kivrun {
namespace {

namespace sim = sunxi_cam::sim;
using Allocator = rapidjson::Document::AllocatorType;

rapidjson::Value PlaneConfig(const sim::LaserPlane& plane, Allocator& a) {
  rapidjson::Value normal(rapidjson::kArrayType);
  normal.PushBack(plane.nx, a).PushBack(plane.ny, a).PushBack(plane.nz, a);
  rapidjson::Value v(rapidjson::kObjectType);
  v.AddMember("normal", normal, a);
  v.AddMember("offset_cm", plane.offset, a);
  return v;
}

// The node's configuration: what the step says, and what the host knows of
// the round from the simulator's truth.
rapidjson::Document ConfigFor(const ResponderSetting& setting, const std::string& name) {
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
  if (setting.node != "ieparam") {
    rapidjson::Value camera(rapidjson::kObjectType);
    camera.AddMember("fx", truth.camera.fx, a);
    camera.AddMember("fy", truth.camera.fy, a);
    camera.AddMember("cx", truth.camera.cx, a);
    camera.AddMember("cy", truth.camera.cy, a);
    camera.AddMember("height_cm", truth.camera.height, a);
    camera.AddMember("pitch_deg", truth.camera.pitch, a);
    config.AddMember("camera", camera, a);
  }
  if (setting.node == "plane" || setting.node == "check") {
    config.AddMember("wall_height_cm", truth.wall_height, a);
  }
  if (setting.node == "distance") {
    // A stop-gap: the planes to measure with until a plane node sent some.
    rapidjson::Value planes(rapidjson::kObjectType);
    planes.AddMember("left", PlaneConfig(truth.left, a), a);
    planes.AddMember("right", PlaneConfig(truth.right, a), a);
    config.AddMember("fallback_planes", planes, a);
  }
  return config;
}

}  // namespace

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
  const std::string name = "kivrun/" + setting.node;
  const rapidjson::Document config = ConfigFor(setting, name);
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
  if (setting.node == "distance") answer_watch_.SetFallbackIsTruth(true);
  nodes_[setting.node] = std::move(node);
  configs_[setting.node] = text.GetString();
}

}  // namespace kivrun
