#include "tools/kivrun/records.h"

#include <cstdint>
#include <cstring>
#include <limits>
#include <stdexcept>

#include "msgs/calimsgs.h"

namespace kivrun {
namespace {

template <typename T>
RecordLayout MakeLayout(const char* name, std::vector<FieldLayout> fields) {
  RecordLayout layout;
  layout.name = name;
  layout.type = &typeid(T);
  layout.fields = std::move(fields);
  layout.make = [] {
    return std::shared_ptr<void>(new T(), [](void* p) { delete static_cast<T*>(p); });
  };
  layout.publish = [](const std::shared_ptr<kiv::TopicRecord>& topic, const std::string& topic_name,
                      void* record, const std::string& tag) {
    kiv::Publisher<T> publisher(topic, topic_name);
    publisher.publishWithLine(static_cast<T*>(record), tag);
  };
  layout.watch = [](kiv::Host& host, const std::string& who, const std::string& topic,
                    std::function<void(const void*)> watcher) {
    host.Subscribe<T>(who, topic, [watcher](T* record) { watcher(record); });
  };
  return layout;
}

constexpr std::size_t Width(FieldKind kind) {
  switch (kind) {
    case FieldKind::kU8:
    case FieldKind::kI8:
      return 1;
    case FieldKind::kU16:
    case FieldKind::kI16:
      return 2;
    case FieldKind::kI32:
      return 4;
  }
  return 1;
}

#define KIVRUN_FIELD(Record, member, kind)                                                    \
  FieldLayout {                                                                               \
#member, offsetof(Record, member), kind, int(sizeof(Record::member) / Width(kind)), false \
  }
#define KIVRUN_PADDING(Record, member)                                                   \
  FieldLayout {                                                                          \
#member, offsetof(Record, member), FieldKind::kU8, int(sizeof(Record::member)), true \
  }

const std::vector<RecordLayout>& Layouts() {
  static const std::vector<RecordLayout> layouts = [] {
    using K = FieldKind;
    std::vector<RecordLayout> all;
    all.push_back(MakeLayout<kiv_camera_cali_msg>(
        "kiv_camera_cali_msg", {KIVRUN_FIELD(kiv_camera_cali_msg, distance, K::kU16)}));
    all.push_back(MakeLayout<kiv_msg_laser_calibration>(
        "kiv_msg_laser_calibration", {KIVRUN_FIELD(kiv_msg_laser_calibration, distance, K::kU16)}));
    all.push_back(MakeLayout<kiv_camera_calires_msg>(
        "kiv_camera_calires_msg", {KIVRUN_FIELD(kiv_camera_calires_msg, kind, K::kU8),
                                   KIVRUN_FIELD(kiv_camera_calires_msg, camera_state, K::kU8),
                                   KIVRUN_FIELD(kiv_camera_calires_msg, distance, K::kU16),
                                   KIVRUN_FIELD(kiv_camera_calires_msg, ieparam1, K::kI8),
                                   KIVRUN_FIELD(kiv_camera_calires_msg, ieparam2, K::kI8),
                                   KIVRUN_FIELD(kiv_camera_calires_msg, ieparam3, K::kU16),
                                   KIVRUN_FIELD(kiv_camera_calires_msg, check_data, K::kU16),
                                   KIVRUN_FIELD(kiv_camera_calires_msg, plane_data, K::kU16),
                                   KIVRUN_FIELD(kiv_camera_calires_msg, plane_result, K::kU8),
                                   KIVRUN_FIELD(kiv_camera_calires_msg, check_result, K::kU8),
                                   KIVRUN_PADDING(kiv_camera_calires_msg, reserved)}));
    all.push_back(MakeLayout<kiv_msg_laser_state>("kiv_msg_laser_state", {}));
    all.push_back(MakeLayout<LaserClibrMsg>(
        "LaserClibrMsg",
        {KIVRUN_FIELD(LaserClibrMsg, kind, K::kU8), KIVRUN_PADDING(LaserClibrMsg, reserved0),
         KIVRUN_FIELD(LaserClibrMsg, plane_data, K::kU16),
         KIVRUN_FIELD(LaserClibrMsg, result, K::kI32)}));
    all.push_back(MakeLayout<CameraClibrIEParamMsg>(
        "CameraClibrIEParamMsg", {KIVRUN_FIELD(CameraClibrIEParamMsg, kind, K::kU8),
                                  KIVRUN_FIELD(CameraClibrIEParamMsg, ieparam1, K::kU8),
                                  KIVRUN_FIELD(CameraClibrIEParamMsg, ieparam2, K::kU8),
                                  KIVRUN_PADDING(CameraClibrIEParamMsg, reserved0),
                                  KIVRUN_FIELD(CameraClibrIEParamMsg, ieparam3, K::kU16)}));
    all.push_back(MakeLayout<kiv_camera_distance_msg>(
        "kiv_camera_distance_msg", {KIVRUN_FIELD(kiv_camera_distance_msg, kind, K::kI8),
                                    KIVRUN_PADDING(kiv_camera_distance_msg, reserved0),
                                    KIVRUN_FIELD(kiv_camera_distance_msg, distance, K::kU16),
                                    KIVRUN_FIELD(kiv_camera_distance_msg, near_values, K::kI16),
                                    KIVRUN_FIELD(kiv_camera_distance_msg, far_values, K::kI16),
                                    KIVRUN_FIELD(kiv_camera_distance_msg, status, K::kU8),
                                    KIVRUN_PADDING(kiv_camera_distance_msg, reserved1)}));
    all.push_back(MakeLayout<kiv_camera_calicheck_msg>(
        "kiv_camera_calicheck_msg", {KIVRUN_FIELD(kiv_camera_calicheck_msg, mode, K::kU16)}));
    all.push_back(MakeLayout<kiv_laserpower_msg>(
        "kiv_laserpower_msg", {KIVRUN_FIELD(kiv_laserpower_msg, power_a, K::kU16),
                               KIVRUN_FIELD(kiv_laserpower_msg, power_b, K::kU16)}));
    return all;
  }();
  return layouts;
}

int64_t ReadElement(const uint8_t* at, FieldKind kind) {
  switch (kind) {
    case FieldKind::kU8:
      return *at;
    case FieldKind::kI8:
      return static_cast<int8_t>(*at);
    case FieldKind::kU16: {
      uint16_t v;
      std::memcpy(&v, at, 2);
      return v;
    }
    case FieldKind::kI16: {
      int16_t v;
      std::memcpy(&v, at, 2);
      return v;
    }
    case FieldKind::kI32: {
      int32_t v;
      std::memcpy(&v, at, 4);
      return v;
    }
  }
  return 0;
}

void Range(FieldKind kind, int64_t& low, int64_t& high) {
  switch (kind) {
    case FieldKind::kU8:
      low = 0, high = 255;
      return;
    case FieldKind::kI8:
      low = -128, high = 127;
      return;
    case FieldKind::kU16:
      low = 0, high = 65535;
      return;
    case FieldKind::kI16:
      low = -32768, high = 32767;
      return;
    case FieldKind::kI32:
      low = std::numeric_limits<int32_t>::min(), high = std::numeric_limits<int32_t>::max();
      return;
  }
}

void WriteElement(uint8_t* at, FieldKind kind, int64_t value) {
  switch (kind) {
    case FieldKind::kU8:
    case FieldKind::kI8:
      *at = static_cast<uint8_t>(value);
      return;
    case FieldKind::kU16:
    case FieldKind::kI16: {
      const uint16_t v = static_cast<uint16_t>(value);
      std::memcpy(at, &v, 2);
      return;
    }
    case FieldKind::kI32: {
      const int32_t v = static_cast<int32_t>(value);
      std::memcpy(at, &v, 4);
      return;
    }
  }
}

int64_t CheckedValue(const FieldLayout& field, const rapidjson::Value& value) {
  int64_t low = 0, high = 0;
  Range(field.kind, low, high);
  if (!value.IsInt64() || value.GetInt64() < low || value.GetInt64() > high) {
    throw std::invalid_argument("field \"" + std::string(field.name) + "\" needs an integer from " +
                                std::to_string(low) + " to " + std::to_string(high));
  }
  return value.GetInt64();
}

}  // namespace

const RecordLayout* FindRecord(const std::type_info& type) {
  for (const RecordLayout& layout : Layouts()) {
    if (*layout.type == type) return &layout;
  }
  return nullptr;
}

const RecordLayout* FindRecord(const std::string& name) {
  for (const RecordLayout& layout : Layouts()) {
    if (layout.name == name) return &layout;
  }
  return nullptr;
}

std::string KnownRecordNames() {
  std::string names;
  for (const RecordLayout& layout : Layouts()) names += (names.empty() ? "" : ", ") + layout.name;
  return names;
}

void DecodeFields(const RecordLayout& layout, const void* record, rapidjson::Value& out,
                  rapidjson::Document::AllocatorType& allocator) {
  if (*layout.type == typeid(kiv_msg_laser_state)) {
    const std::string& text = static_cast<const kiv_msg_laser_state*>(record)->text;
    out.AddMember(
        "text",
        rapidjson::Value(text.data(), static_cast<rapidjson::SizeType>(text.size()), allocator),
        allocator);
    return;
  }
  const auto* bytes = static_cast<const uint8_t*>(record);
  for (const FieldLayout& field : layout.fields) {
    const uint8_t* at = bytes + field.offset;
    const std::size_t width = Width(field.kind);
    if (field.padding) {
      bool zero = true;
      for (int i = 0; i < field.count; ++i) zero = zero && at[i] == 0;
      if (zero) continue;
    }
    rapidjson::Value name(rapidjson::StringRef(field.name));
    if (field.count == 1 && !field.padding) {
      out.AddMember(name, rapidjson::Value(ReadElement(at, field.kind)), allocator);
      continue;
    }
    rapidjson::Value list(rapidjson::kArrayType);
    for (int i = 0; i < field.count; ++i) {
      list.PushBack(rapidjson::Value(ReadElement(at + i * width, field.kind)), allocator);
    }
    out.AddMember(name, list, allocator);
  }
}

void EncodeFields(const RecordLayout& layout, const rapidjson::Value& fields, void* record) {
  if (!fields.IsObject()) throw std::invalid_argument("\"fields\" must be an object");
  if (*layout.type == typeid(kiv_msg_laser_state)) {
    for (const auto& member : fields.GetObject()) {
      if (std::string(member.name.GetString()) != "text" || !member.value.IsString()) {
        throw std::invalid_argument("kiv_msg_laser_state takes only a string member \"text\"");
      }
      static_cast<kiv_msg_laser_state*>(record)->text = member.value.GetString();
    }
    return;
  }
  auto* bytes = static_cast<uint8_t*>(record);
  for (const auto& member : fields.GetObject()) {
    const std::string key = member.name.GetString();
    const FieldLayout* field = nullptr;
    for (const FieldLayout& f : layout.fields) {
      if (key == f.name) field = &f;
    }
    if (field == nullptr) {
      std::string names;
      for (const FieldLayout& f : layout.fields)
        names += (names.empty() ? "" : ", ") + std::string(f.name);
      throw std::invalid_argument(layout.name + " has no field \"" + key + "\" (fields: " + names +
                                  ")");
    }
    uint8_t* at = bytes + field->offset;
    const std::size_t width = Width(field->kind);
    if (field->count == 1 && !field->padding) {
      WriteElement(at, field->kind, CheckedValue(*field, member.value));
      continue;
    }
    if (!member.value.IsArray() ||
        member.value.Size() > static_cast<rapidjson::SizeType>(field->count)) {
      throw std::invalid_argument("field \"" + key + "\" needs an array of at most " +
                                  std::to_string(field->count) + " integers");
    }
    for (rapidjson::SizeType i = 0; i < member.value.Size(); ++i) {
      WriteElement(at + i * width, field->kind, CheckedValue(*field, member.value[i]));
    }
  }
}

}  // namespace kivrun
