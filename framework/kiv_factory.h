// Node registry and builders of the kiv framework.
//
// A plug-in's entry point inserts one NodeBuilder per node type into the
// framework's NodeRegistry, keyed by node ID. A builder takes the node's
// configuration object and returns the new node, owned by the caller; right
// after construction it registers the node's two version tags.
#ifndef LASERCALI_FRAMEWORK_KIV_FACTORY_H_
#define LASERCALI_FRAMEWORK_KIV_FACTORY_H_

#include <rapidjson/document.h>

#include <functional>
#include <map>
#include <memory>
#include <string>

#include "framework/kiv_node.h"

namespace kiv {

using NodeBuilder = std::function<std::unique_ptr<KivNode>(const rapidjson::Value&)>;
using NodeRegistry = std::map<std::string, NodeBuilder>;

// Version tags fixed when a node library is built: a build commit tag of 29
// characters and a framework build tag of 16. Each node library defines
// both, with exactly that many characters before the terminating zero.
extern const char kBuildCommitTag[30];
extern const char kFrameworkTag[17];

class NodeFactory {
 public:
  // A builder for node type T. If T's constructor throws, the memory is freed
  // and the exception passes on; if version registration throws, the node is
  // destroyed through its virtual destructor and the exception passes on.
  template <typename T>
  static NodeBuilder getBuilderImpl() {
    return [](const rapidjson::Value& config) -> std::unique_ptr<KivNode> {
      std::unique_ptr<KivNode> node(new T(config));
      node->KivNodeRegisterVersion(kBuildCommitTag, kFrameworkTag);
      return node;
    };
  }
};

}  // namespace kiv

// The entry point every node plug-in exports with C linkage.
extern "C" void Kiv_RegisterNodesFromNodeV3(kiv::NodeRegistry& registry);

#endif  // LASERCALI_FRAMEWORK_KIV_FACTORY_H_
