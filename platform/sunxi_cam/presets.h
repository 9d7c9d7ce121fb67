// The camera simulator's presets: documented settings of a whole scene,
// kept as JSON files in platform/sunxi_cam/presets/ and built into the
// library, so a preset is found by its name wherever the simulator runs.
// A preset file is an object with "description" (text) and "scene" (the
// scene's settings, docs/camera-sim.md). Internal to the simulator.
#ifndef LASERCALI_PLATFORM_SUNXI_CAM_PRESETS_H_
#define LASERCALI_PLATFORM_SUNXI_CAM_PRESETS_H_

namespace sunxi_cam::sim {

struct PresetFile {
  const char* name;  // the file name without ".json"
  const char* text;  // the file's text
};

// Generated at build time from the preset files, sorted by name.
extern const PresetFile kShippedPresets[];
extern const int kShippedPresetCount;

}  // namespace sunxi_cam::sim

#endif  // LASERCALI_PLATFORM_SUNXI_CAM_PRESETS_H_
