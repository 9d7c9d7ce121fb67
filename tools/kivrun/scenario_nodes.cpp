// A scenario's plug-ins and other nodes (scenario.h).
#include <string>
#include <vector>

#include "tools/kivrun/json_values.h"
#include "tools/kivrun/scenario.h"

namespace kivrun {

std::string BesideScenario(const std::string& scenario, const std::string& file) {
  if (file.rfind('/', 0) == 0) return file;
  const auto slash = scenario.rfind('/');
  return (slash == std::string::npos ? std::string(".") : scenario.substr(0, slash)) + "/" + file;
}

std::vector<std::string> ReadPlugins(const rapidjson::Value& value, const std::string& path) {
  const std::string what = path + ": \"plugins\" needs a list of plug-in files";
  if (!value.IsArray()) throw ScenarioError(what);
  std::vector<std::string> plugins;
  for (const auto& item : value.GetArray()) {
    if (!item.IsString() || item.GetStringLength() == 0) throw ScenarioError(what);
    const std::string name = StringOf(item);
    // A file name alone is one of kivrun's plug-ins; a path is the scenario's.
    plugins.push_back(name.find('/') == std::string::npos ? name : BesideScenario(path, name));
  }
  return plugins;
}

std::vector<OtherNode> ReadNodes(const rapidjson::Value& value, const std::string& path) {
  if (!value.IsArray()) {
    throw ScenarioError(path +
                        ": \"nodes\" needs a list of nodes, each {\"node\": ID, "
                        "\"config\": {...}} or {\"node\": ID, \"config_file\": FILE}");
  }
  std::vector<OtherNode> nodes;
  for (rapidjson::SizeType i = 0; i < value.Size(); ++i) {
    const rapidjson::Value& item = value[i];
    const std::string where = path + ": \"nodes\"[" + std::to_string(i) + "]";
    if (!item.IsObject()) throw ScenarioError(where + " needs an object");
    OtherNode node;
    for (const auto& member : item.GetObject()) {
      const std::string key = StringOf(member.name);
      if (key == "node") {
        if (!member.value.IsString() || member.value.GetStringLength() == 0) {
          throw ScenarioError(where + ": \"node\" needs a node ID");
        }
        node.node_id = StringOf(member.value);
      } else if (key == "config" || key == "config_file") {
        if (node.config) {
          throw ScenarioError(where + ": give \"config\" or \"config_file\", not both");
        }
        if (key == "config") {
          node.config = std::make_shared<rapidjson::Document>();
          node.config->CopyFrom(member.value, node.config->GetAllocator());
        } else if (!member.value.IsString()) {
          throw ScenarioError(where + ": \"config_file\" needs a file name");
        } else {
          node.config = ReadJsonFile(BesideScenario(path, StringOf(member.value)));
        }
      } else {
        throw ScenarioError(where + ": unknown member \"" + Printable(key) +
                            "\" (a node has node, config or config_file)");
      }
    }
    if (node.node_id.empty()) throw ScenarioError(where + " needs \"node\", the node's ID");
    if (!node.config) node.config = std::make_shared<rapidjson::Document>(rapidjson::kObjectType);
    nodes.push_back(std::move(node));
  }
  return nodes;
}

}  // namespace kivrun
