#include "platform/kiv/plugin.h"

#include <dlfcn.h>

#include "platform/kiv/describe.h"

namespace kiv {

std::unique_ptr<NodeLibrary> NodeLibrary::Load(const std::string& path, NodeRegistry& registry) {
  void* handle = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
  if (handle == nullptr) {
    const char* reason = dlerror();
    throw LoadError("cannot load plug-in '" + path + "': " + (reason ? reason : "unknown reason"));
  }
  std::unique_ptr<NodeLibrary> library(new NodeLibrary(path, handle));
  using EntryPoint = void (*)(NodeRegistry&);
  auto entry = reinterpret_cast<EntryPoint>(dlsym(handle, "Kiv_RegisterNodesFromNodeV3"));
  if (entry == nullptr) {
    throw LoadError("plug-in '" + path + "' has no entry point Kiv_RegisterNodesFromNodeV3");
  }
  try {
    entry(registry);
  } catch (...) {
    const ExceptionInfo info = DescribeException(std::current_exception());
    throw LoadError("plug-in '" + path + "': Kiv_RegisterNodesFromNodeV3 threw " + info.type +
                    ": " + info.what);
  }
  return library;
}

NodeLibrary::~NodeLibrary() { dlclose(handle_); }

std::unique_ptr<KivNode> BuildNode(const NodeRegistry& registry, const std::string& id,
                                   const rapidjson::Value& config) {
  auto it = registry.find(id);
  if (it == registry.end()) {
    std::string known;
    for (const auto& entry : registry) known += (known.empty() ? "" : ", ") + entry.first;
    throw LoadError("no node '" + id + "' is registered (known: " +
                    (known.empty() ? std::string("none") : known) + ")");
  }
  return it->second(config);
}

}  // namespace kiv
