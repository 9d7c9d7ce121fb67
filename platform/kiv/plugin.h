// Loading node plug-ins and building their nodes.
//
// NodeLibrary::Load opens a shared library, finds its entry point
// Kiv_RegisterNodesFromNodeV3 and calls it with a registry. Every failure
// raises LoadError with one line naming the cause: the file cannot be
// opened (with the loader's reason), it has no entry point, or the entry
// point threw. The library stays loaded as long as the NodeLibrary lives;
// destroy every node it built before it.
//
// BuildNode looks a node ID up and calls its builder. An unknown ID raises
// LoadError listing the IDs that are known; an exception of the node's own
// builder passes through unchanged, for the caller to report.
#ifndef LASERCALI_PLATFORM_KIV_PLUGIN_H_
#define LASERCALI_PLATFORM_KIV_PLUGIN_H_

#include <rapidjson/document.h>

#include <memory>
#include <stdexcept>
#include <string>

#include "framework/kiv_factory.h"

namespace kiv {

class LoadError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

class NodeLibrary {
 public:
  static std::unique_ptr<NodeLibrary> Load(const std::string& path, NodeRegistry& registry);
  ~NodeLibrary();
  NodeLibrary(const NodeLibrary&) = delete;
  NodeLibrary& operator=(const NodeLibrary&) = delete;

  const std::string& path() const { return path_; }

 private:
  NodeLibrary(std::string path, void* handle) : path_(std::move(path)), handle_(handle) {}
  std::string path_;
  void* handle_;
};

std::unique_ptr<KivNode> BuildNode(const NodeRegistry& registry, const std::string& id,
                                   const rapidjson::Value& config);

}  // namespace kiv

#endif  // LASERCALI_PLATFORM_KIV_PLUGIN_H_
