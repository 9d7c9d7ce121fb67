// The message records kivrun can send and decode, by name and by type.
//
// Each record type has a layout listing its fields (name, byte offset, width
// and signedness, element count). A layout turns a record into JSON fields
// for the event log and builds a record from JSON fields given in a
// scenario; it also knows how to publish the type on a topic and how to
// subscribe a watcher to it. Fields marked as padding are decoded only when
// they are not zero. kiv_msg_laser_state decodes as {"text": ...}.
// KivJsonMsg is sent by the scenario's "json" step and has no layout here.
#ifndef LASERCALI_TOOLS_KIVRUN_RECORDS_H_
#define LASERCALI_TOOLS_KIVRUN_RECORDS_H_

#include <rapidjson/document.h>

#include <functional>
#include <memory>
#include <string>
#include <typeinfo>
#include <vector>

#include "framework/kiv_publisher.h"
#include "platform/kiv/host.h"

namespace kivrun {

enum class FieldKind { kU8, kI8, kU16, kI16, kI32 };

struct FieldLayout {
  const char* name;
  std::size_t offset;
  FieldKind kind;
  int count;  // 1 for a scalar, else the array length
  bool padding;
};

struct RecordLayout {
  std::string name;
  const std::type_info* type;
  std::vector<FieldLayout> fields;  // empty for kiv_msg_laser_state

  // A new zero record of this type.
  std::function<std::shared_ptr<void>()> make;
  // Publishes `record` on `topic` with trace tag `tag`.
  std::function<void(const std::shared_ptr<kiv::TopicRecord>& topic, const std::string& name,
                     void* record, const std::string& tag)>
      publish;
  // Subscribes `watcher` to `topic` under the name `who`.
  std::function<void(kiv::Host& host, const std::string& who, const std::string& topic,
                     std::function<void(const void*)> watcher)>
      watch;
};

// The layout of a record type, or null when kivrun does not know it.
const RecordLayout* FindRecord(const std::type_info& type);
const RecordLayout* FindRecord(const std::string& name);
// Names of all known record types, for error messages.
std::string KnownRecordNames();

// Writes the record's fields into `out` (an object) in field order.
void DecodeFields(const RecordLayout& layout, const void* record, rapidjson::Value& out,
                  rapidjson::Document::AllocatorType& allocator);
// Sets the record's fields from `fields` (an object). Unnamed fields stay
// zero. Throws std::invalid_argument naming a member that is unknown, of the
// wrong type or out of range for its field.
void EncodeFields(const RecordLayout& layout, const rapidjson::Value& fields, void* record);

}  // namespace kivrun

#endif  // LASERCALI_TOOLS_KIVRUN_RECORDS_H_
