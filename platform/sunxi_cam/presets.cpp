// Presets: shipped ones by name, others from a JSON file (presets.h).
#include "platform/sunxi_cam/presets.h"

#include <rapidjson/document.h>
#include <rapidjson/error/en.h>

#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

#include "platform/sunxi_cam/camera_sim.h"
#include "platform/sunxi_cam/config_reader.h"

namespace sunxi_cam::sim {
namespace {

constexpr std::uintmax_t kMaxPresetBytes = 1024 * 1024;

std::string Names() {
  std::string names;
  for (int i = 0; i < kShippedPresetCount; ++i) {
    names += (i == 0 ? "" : i + 1 == kShippedPresetCount ? " or " : ", ");
    names += kShippedPresets[i].name;
  }
  return names;
}

bool EndsWith(const std::string& text, const std::string& end) {
  return text.size() >= end.size() && text.compare(text.size() - end.size(), end.size(), end) == 0;
}

// The preset's text; `where` names it in messages.
std::string PresetSource(const std::string& preset, const std::string& member, std::string* where) {
  if (!EndsWith(preset, ".json")) {
    const std::string text = PresetText(preset);
    if (text.empty()) {
      Fail(member, "must be " + Names() + ", or a file ending in .json (not '" + preset + "')");
    }
    *where = member + " '" + preset + "'";
    return text;
  }
  *where = member + " file '" + preset + "'";
  std::error_code error;
  if (!std::filesystem::is_regular_file(preset, error)) {
    Fail(*where, "does not exist or is not a file");
  }
  const std::uintmax_t size = std::filesystem::file_size(preset, error);
  if (error || size > kMaxPresetBytes) Fail(*where, "is larger than 1048576 bytes (1 MiB)");
  std::ifstream in(preset, std::ios::binary);
  std::ostringstream text;
  text << in.rdbuf();
  if (!in && !in.eof()) Fail(*where, "cannot be read");
  return text.str();
}

}  // namespace

std::vector<std::string> PresetNames() {
  std::vector<std::string> names;
  for (int i = 0; i < kShippedPresetCount; ++i) names.emplace_back(kShippedPresets[i].name);
  return names;
}

std::string PresetText(const std::string& name) {
  for (int i = 0; i < kShippedPresetCount; ++i) {
    if (name == kShippedPresets[i].name) return kShippedPresets[i].text;
  }
  return "";
}

Scene PresetScene(const std::string& preset, const Scene& current, const std::string& member) {
  std::string where;
  const std::string text = PresetSource(preset, member, &where);
  rapidjson::Document doc;
  // Iterative: a file of any nesting cannot exhaust the stack.
  doc.Parse<rapidjson::kParseIterativeFlag>(text.data(), text.size());
  if (doc.HasParseError()) {
    Fail(where, std::string("is not JSON: ") + rapidjson::GetParseError_En(doc.GetParseError()) +
                    " (at byte " + std::to_string(doc.GetErrorOffset()) + ")");
  }
  if (!doc.IsObject()) Fail(where, "must hold a JSON object");
  Scene scene;
  try {
    ForEachMember(doc, "",
                  {{"description",
                    [](const rapidjson::Value& v, const std::string& m) {
                      if (!v.IsString()) Fail(m, "must be a text");
                    }},
                   {"scene", [&scene](const rapidjson::Value& v, const std::string& m) {
                      ReadScene(v, m, &scene);
                    }}});
  } catch (const std::invalid_argument& refused) {
    // "camera sim: scene.x ..." -> "camera sim: preset 'p': scene.x ..."
    const std::string message = refused.what();
    const std::string head = "camera sim: ";
    throw std::invalid_argument(head + where + ": " + message.substr(head.size()));
  }
  scene.distance = current.distance;
  return scene;
}

}  // namespace sunxi_cam::sim
