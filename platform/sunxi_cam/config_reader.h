// Reading the camera simulator's JSON settings: each member goes to its
// handler, and a member without one, or of the wrong type, is refused with
// a std::invalid_argument that names it ("camera sim: scene.camera.fx must
// be a number"). Internal to the simulator.
#ifndef LASERCALI_PLATFORM_SUNXI_CAM_CONFIG_READER_H_
#define LASERCALI_PLATFORM_SUNXI_CAM_CONFIG_READER_H_

#include <rapidjson/document.h>

#include <functional>
#include <map>
#include <string>

#include "platform/sunxi_cam/camera_sim.h"

namespace sunxi_cam::sim {

[[noreturn]] void Fail(const std::string& member, const std::string& what);

using Handler = std::function<void(const rapidjson::Value&, const std::string&)>;

// Calls the handler of each member of `object`; a member without one is an
// error. `path` names the object ("" for the settings themselves).
void ForEachMember(const rapidjson::Value& object, const std::string& path,
                   const std::map<std::string, Handler>& handlers);

double Number(const rapidjson::Value& v, const std::string& member);
int Integer(const rapidjson::Value& v, const std::string& member);
bool Bool(const rapidjson::Value& v, const std::string& member);

Handler NumberInto(double* out);
Handler IntegerInto(int* out);
Handler BoolInto(bool* out);

// The members of the physical renderer's parts of the scene.
Handler RendererInto(Renderer* out);
Handler OpticsInto(Optics* out);
Handler LaserLightInto(LaserLight* out);
Handler SensorInto(Sensor* out);
Handler BoardInto(Board* out);

// Reads a scene object ("scene": {...}) into `scene`; members left out keep
// their values.
void ReadScene(const rapidjson::Value& v, const std::string& path, Scene* scene);

// The scene a preset sets: the default scene with the preset's members, the
// distance kept from `current`. `preset` is a shipped preset's name
// ("ideal", "robot", "harsh") or a JSON file ending in ".json"; `member`
// names the setting for messages.
Scene PresetScene(const std::string& preset, const Scene& current, const std::string& member);

}  // namespace sunxi_cam::sim

#endif  // LASERCALI_PLATFORM_SUNXI_CAM_CONFIG_READER_H_
