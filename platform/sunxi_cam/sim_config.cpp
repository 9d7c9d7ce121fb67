// The camera simulator's JSON configuration (docs/camera-sim.md).
#include <cmath>
#include <functional>
#include <limits>
#include <map>
#include <memory>
#include <stdexcept>
#include <string>

#include "platform/sunxi_cam/camera_sim.h"
#include "platform/sunxi_cam/config_reader.h"
#include "platform/sunxi_cam/scene.h"
#include "platform/sunxi_cam/sim_state.h"

namespace sunxi_cam::sim {
namespace {

Handler LaserInto(LaserModel* laser) {
  return [laser](const rapidjson::Value& v, const std::string& path) {
    ForEachMember(v, path,
                  {{"x", NumberInto(&laser->x)},
                   {"y", NumberInto(&laser->y)},
                   {"z", NumberInto(&laser->z)},
                   {"yaw", NumberInto(&laser->yaw)},
                   {"roll", NumberInto(&laser->roll)},
                   {"on", BoolInto(&laser->on)}});
  };
}

Fault ReadFault(const rapidjson::Value& v, const std::string& member) {
  if (v.IsString()) {
    const std::string kind = v.GetString();
    if (kind == "never") return Fault::Never();
    if (kind == "always") return Fault::Always();
  } else if (v.IsObject() && v.MemberCount() == 1) {
    const auto& m = *v.MemberBegin();
    const std::string kind = m.name.GetString();
    if ((kind == "next" || kind == "at") && m.value.IsInt() && m.value.GetInt() >= 1) {
      return kind == "next" ? Fault::NextCalls(m.value.GetInt()) : Fault::AtCall(m.value.GetInt());
    }
  }
  Fail(member, R"(must be "never", "always", {"next": N} or {"at": K} with N, K >= 1)");
}

}  // namespace

void ReadScene(const rapidjson::Value& v, const std::string& path, Scene* scene) {
  CameraModel& c = scene->camera;
  StripeLook& s = scene->stripe;
  Background& b = scene->background;
  ForEachMember(v, path,
                {{"camera",
                  [&c](const rapidjson::Value& o, const std::string& p) {
                    ForEachMember(o, p,
                                  {{"fx", NumberInto(&c.fx)},
                                   {"fy", NumberInto(&c.fy)},
                                   {"cx", NumberInto(&c.cx)},
                                   {"cy", NumberInto(&c.cy)},
                                   {"height", NumberInto(&c.height)},
                                   {"pitch", NumberInto(&c.pitch)},
                                   {"k1", NumberInto(&c.k1)},
                                   {"k2", NumberInto(&c.k2)},
                                   {"p1", NumberInto(&c.p1)},
                                   {"p2", NumberInto(&c.p2)},
                                   {"k3", NumberInto(&c.k3)}});
                  }},
                 {"left_laser", LaserInto(&scene->left)},
                 {"right_laser", LaserInto(&scene->right)},
                 {"stripe",
                  [&s](const rapidjson::Value& o, const std::string& p) {
                    ForEachMember(o, p,
                                  {{"peak", NumberInto(&s.peak)},
                                   {"core", NumberInto(&s.core)},
                                   {"edge", NumberInto(&s.edge)}});
                  }},
                 {"background",
                  [&b](const rapidjson::Value& o, const std::string& p) {
                    ForEachMember(o, p,
                                  {{"level", NumberInto(&b.level)},
                                   {"noise", NumberInto(&b.noise)},
                                   {"ambient", NumberInto(&b.ambient)},
                                   {"seed", [&b](const rapidjson::Value& x, const std::string& m) {
                                      if (!x.IsUint64()) Fail(m, "must be an integer of 0 or more");
                                      b.seed = x.GetUint64();
                                    }}});
                  }},
                 {"wall", BoolInto(&scene->wall)},
                 {"wall_height", NumberInto(&scene->wall_height)},
                 {"second_stripe", IntegerInto(&scene->second_stripe)},
                 {"gap_rows",
                  [scene](const rapidjson::Value& x, const std::string& m) {
                    if (x.IsNull()) {
                      scene->gap_from = scene->gap_to = -1;
                      return;
                    }
                    if (!x.IsArray() || x.Size() != 2 || !x[0].IsInt() || !x[1].IsInt()) {
                      Fail(m, "must be [from, to] (two integers) or null");
                    }
                    scene->gap_from = x[0].GetInt();
                    scene->gap_to = x[1].GetInt();
                  }},
                 {"exposure_scaling", BoolInto(&scene->exposure_scaling)},
                 {"reference_exposure", IntegerInto(&scene->reference_exposure)},
                 {"reference_gain", IntegerInto(&scene->reference_gain)},
                 {"renderer", RendererInto(&scene->renderer)},
                 {"optics", OpticsInto(&scene->optics)},
                 {"laser_light", LaserLightInto(&scene->light)},
                 {"sensor", SensorInto(&scene->sensor)},
                 {"board", BoardInto(&scene->board)}});
}

void Configure(const rapidjson::Value& json) {
  if (!json.IsObject()) Fail("settings", "must be an object");
  // "reset" comes first, wherever it stands.
  Settings settings = CurrentSettings();
  std::array<std::optional<Fault>, 5> faults;
  auto reset = json.FindMember("reset");
  if (reset != json.MemberEnd() && Bool(reset->value, "reset")) {
    settings = Settings();
    for (auto& f : faults) f = Fault::Never();
  }

  // "preset" comes next: it sets the whole scene but its distance, and the
  // members given with it change that scene.
  auto preset = json.FindMember("preset");
  if (preset != json.MemberEnd()) {
    if (!preset->value.IsString() || preset->value.GetStringLength() == 0) {
      Fail("preset", "must be the name of a preset or a file ending in .json");
    }
    settings.scene = PresetScene(preset->value.GetString(), settings.scene, "preset");
  }

  // The picture folder is opened once both of its members are read.
  std::string picture_dir = settings.pictures ? settings.pictures->dir() : "";
  int picture_offset = settings.pictures ? settings.picture_offset : -1;
  bool pictures_changed = false;

  ForEachMember(json, "",
                {{"reset", [](const rapidjson::Value&, const std::string&) {}},
                 {"preset", [](const rapidjson::Value&, const std::string&) {}},
                 {"pictures",
                  [&](const rapidjson::Value& v, const std::string& m) {
                    if (!v.IsNull() && (!v.IsString() || v.GetStringLength() == 0)) {
                      Fail(m, "must be a folder name or null");
                    }
                    picture_dir = v.IsNull() ? "" : v.GetString();
                    pictures_changed = true;
                  }},
                 {"picture_offset",
                  [&](const rapidjson::Value& v, const std::string& m) {
                    if (!v.IsNull() && (!v.IsInt() || v.GetInt() < 0 || v.GetInt() > 99)) {
                      Fail(m, "must be an integer from 0 to 99, or null");
                    }
                    picture_offset = v.IsNull() ? -1 : v.GetInt();
                    pictures_changed = true;
                  }},
                 {"distance", NumberInto(&settings.scene.distance)},
                 {"laser_pattern",
                  [&settings](const rapidjson::Value& v, const std::string& m) {
                    if (!v.IsArray() || v.Empty()) Fail(m, "must be a non-empty array");
                    std::vector<uint64_t> pattern;
                    for (rapidjson::SizeType i = 0; i < v.Size(); ++i) {
                      if (!v[i].IsUint64()) {
                        Fail(m + "[" + std::to_string(i) + "]", "must be an integer of 0 or more");
                      }
                      pattern.push_back(v[i].GetUint64());
                    }
                    settings.laser_pattern = pattern;
                  }},
                 {"buffers",
                  [&settings](const rapidjson::Value& v, const std::string& m) {
                    const int n = Integer(v, m);
                    if (n < 1 || n > 64) Fail(m, "must be between 1 and 64");
                    settings.buffers = n;
                  }},
                 {"scene", [&settings](const rapidjson::Value& v,
                                       const std::string& m) { ReadScene(v, m, &settings.scene); }},
                 {"images",
                  [&settings](const rapidjson::Value& v, const std::string& path) {
                    auto slot = [&settings](std::size_t i) {
                      return [&settings, i](const rapidjson::Value& x, const std::string& m) {
                        if (!x.IsNull() && !x.IsString()) Fail(m, "must be a file name or null");
                        settings.images[i] = LoadImageFile(x.IsNull() ? "" : x.GetString(), m);
                      };
                    };
                    ForEachMember(
                        v, path,
                        {{"left", slot(0)},
                         {"right", slot(1)},
                         {"other", slot(2)},
                         {"all", [&settings](const rapidjson::Value& x, const std::string& m) {
                            if (!x.IsNull() && !x.IsString())
                              Fail(m, "must be a file name or null");
                            const cv::Mat image = LoadImageFile(x.IsNull() ? "" : x.GetString(), m);
                            settings.images = {image, image, image};
                          }}});
                  }},
                 {"faults", [&faults](const rapidjson::Value& v, const std::string& path) {
                    std::map<std::string, Handler> handlers;
                    for (int op = 0; op < 5; ++op) {
                      handlers[OperationName(static_cast<Operation>(op))] =
                          [&faults, op](const rapidjson::Value& x, const std::string& m) {
                            faults[static_cast<std::size_t>(op)] = ReadFault(x, m);
                          };
                    }
                    ForEachMember(v, path, handlers);
                  }}});

  if (pictures_changed) {
    settings.picture_offset = picture_offset;
    settings.pictures = picture_dir.empty()
                            ? nullptr
                            : std::make_shared<const PictureFolder>(picture_dir, picture_offset);
  }

  ValidateScene(settings.scene);
  ApplySettings(std::move(settings), faults);
}

}  // namespace sunxi_cam::sim
