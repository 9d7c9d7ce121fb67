// A node plug-in whose builder returns no node: kivrun must say so and exit
// with 3, as for any node that could not be built.
#include <memory>

#include "framework/kiv_factory.h"

extern "C" __attribute__((visibility("default"))) void Kiv_RegisterNodesFromNodeV3(
    kiv::NodeRegistry& registry) {
  registry.emplace("NullNode",
                   [](const rapidjson::Value&) { return std::unique_ptr<kiv::KivNode>(); });
}
