// Reading JSON settings member by member (config_reader.h).
#include "platform/sunxi_cam/config_reader.h"

#include <stdexcept>

namespace sunxi_cam::sim {

void Fail(const std::string& member, const std::string& what) {
  throw std::invalid_argument("camera sim: " + member + " " + what);
}

using Handler = std::function<void(const rapidjson::Value&, const std::string&)>;

// Calls the handler of each member of `object`; a member without one is an error.
void ForEachMember(const rapidjson::Value& object, const std::string& path,
                   const std::map<std::string, Handler>& handlers) {
  if (!object.IsObject()) Fail(path.empty() ? "settings" : path, "must be an object");
  for (auto it = object.MemberBegin(); it != object.MemberEnd(); ++it) {
    const std::string name(it->name.GetString(), it->name.GetStringLength());
    const std::string member = path.empty() ? name : path + "." + name;
    auto handler = handlers.find(name);
    if (handler == handlers.end()) Fail(member, "is not a camera setting");
    handler->second(it->value, member);
  }
}

double Number(const rapidjson::Value& v, const std::string& member) {
  if (!v.IsNumber()) Fail(member, "must be a number");
  return v.GetDouble();
}

int Integer(const rapidjson::Value& v, const std::string& member) {
  if (!v.IsInt()) Fail(member, "must be an integer");
  return v.GetInt();
}

bool Bool(const rapidjson::Value& v, const std::string& member) {
  if (!v.IsBool()) Fail(member, "must be true or false");
  return v.GetBool();
}

Handler NumberInto(double* out) {
  return [out](const rapidjson::Value& v, const std::string& m) { *out = Number(v, m); };
}
Handler IntegerInto(int* out) {
  return [out](const rapidjson::Value& v, const std::string& m) { *out = Integer(v, m); };
}
Handler BoolInto(bool* out) {
  return [out](const rapidjson::Value& v, const std::string& m) { *out = Bool(v, m); };
}

Handler RendererInto(Renderer* out) {
  return [out](const rapidjson::Value& v, const std::string& m) {
    const std::string name = v.IsString() ? v.GetString() : "";
    if (name == "ideal") {
      *out = Renderer::kIdeal;
    } else if (name == "physical") {
      *out = Renderer::kPhysical;
    } else {
      Fail(m, R"(must be "ideal" or "physical")");
    }
  };
}

Handler OpticsInto(Optics* o) {
  return [o](const rapidjson::Value& v, const std::string& path) {
    ForEachMember(v, path,
                  {{"focus", NumberInto(&o->focus)},
                   {"f_number", NumberInto(&o->f_number)},
                   {"pixel_size", NumberInto(&o->pixel_size)},
                   {"vignetting", NumberInto(&o->vignetting)}});
  };
}

Handler LaserLightInto(LaserLight* l) {
  return [l](const rapidjson::Value& v, const std::string& path) {
    ForEachMember(v, path,
                  {{"power", NumberInto(&l->power)},
                   {"width", NumberInto(&l->width)},
                   {"divergence", NumberInto(&l->divergence)},
                   {"speckle", NumberInto(&l->speckle)},
                   {"speckle_grain", NumberInto(&l->speckle_grain)}});
  };
}

Handler SensorInto(Sensor* s) {
  return [s](const rapidjson::Value& v, const std::string& path) {
    ForEachMember(v, path,
                  {{"conversion", NumberInto(&s->conversion)},
                   {"full_well", NumberInto(&s->full_well)},
                   {"read_noise", NumberInto(&s->read_noise)},
                   {"prnu", NumberInto(&s->prnu)},
                   {"gain_unit", IntegerInto(&s->gain_unit)}});
  };
}

Handler BoardInto(Board* b) {
  return [b](const rapidjson::Value& v, const std::string& path) {
    ForEachMember(v, path,
                  {{"on", BoolInto(&b->on)},
                   {"cols", IntegerInto(&b->cols)},
                   {"rows", IntegerInto(&b->rows)},
                   {"square", NumberInto(&b->square)},
                   {"margin", NumberInto(&b->margin)},
                   {"x", NumberInto(&b->x)},
                   {"y", NumberInto(&b->y)},
                   {"z", NumberInto(&b->z)},
                   {"yaw", NumberInto(&b->yaw)},
                   {"pitch", NumberInto(&b->pitch)},
                   {"roll", NumberInto(&b->roll)},
                   {"white", NumberInto(&b->white)},
                   {"black", NumberInto(&b->black)}});
  };
}

}  // namespace sunxi_cam::sim
