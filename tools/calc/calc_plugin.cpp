// The entry point of liblasercalc.so: the calculation nodes' builders.
#include <stdexcept>
#include <string>

#include "framework/kiv_factory.h"
#include "tools/calc/calc_config.h"
#include "tools/calc/calc_nodes.h"

// Enters the four nodes' builders into the registry. An ID that is already
// there is refused ("ID '...' already registered") and the registry is
// left as it was.
extern "C" __attribute__((visibility("default"))) void Kiv_RegisterNodesFromNodeV3(
    kiv::NodeRegistry& registry) {
  using calc::NodeKind;
  const std::pair<NodeKind, kiv::NodeBuilder> builders[] = {
      {NodeKind::kPlane, kiv::NodeFactory::getBuilderImpl<calc::PlaneNode>()},
      {NodeKind::kCheck, kiv::NodeFactory::getBuilderImpl<calc::CheckNode>()},
      {NodeKind::kDistance, kiv::NodeFactory::getBuilderImpl<calc::DistanceNode>()},
      {NodeKind::kCameraParam, kiv::NodeFactory::getBuilderImpl<calc::CameraParamNode>()},
  };
  for (const auto& [kind, builder] : builders) {
    const std::string id = calc::NodeId(kind);
    if (registry.count(id) != 0) throw std::runtime_error("ID '" + id + "' already registered");
  }
  for (const auto& [kind, builder] : builders) registry.emplace(calc::NodeId(kind), builder);
}
