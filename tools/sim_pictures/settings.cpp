// sim-pictures' camera settings and chessboard views (settings.h).
#include "tools/sim_pictures/settings.h"

#include <rapidjson/document.h>

#include <memory>

#include "platform/sunxi_cam/camera_sim.h"
#include "tools/kivrun/scenario.h"

namespace simpictures {

void ApplySettings(const Options& options) {
  namespace sim = sunxi_cam::sim;
  if (!options.preset.empty()) {
    rapidjson::Document preset(rapidjson::kObjectType);
    preset.AddMember("preset", rapidjson::Value(options.preset.c_str(), preset.GetAllocator()),
                     preset.GetAllocator());
    sim::Configure(preset);
  }
  if (options.settings.empty()) return;
  const bool text = options.settings.find('{') != std::string::npos;
  std::shared_ptr<rapidjson::Document> settings =
      text ? kivrun::ParseJsonText(options.settings, "--settings")
           : kivrun::ReadJsonFile(options.settings);
  sim::Configure(*settings);
}

BoardViews ReadBoardViews(const std::string& file) {
  if (file.empty()) return ReadViews(ShippedViewsText(), "shipped views");
  return ReadViews(kivrun::ReadTextFile(file), file);
}

}  // namespace simpictures
