// KivJson: the framework's small JSON document, an object at its root.
//
// AddString() appends one member with a string name and a string value,
// both copied into the document's own allocator (embedded zero bytes kept).
// It never looks for an existing member: adding a key twice gives two
// members of that name, in insertion order.
#ifndef LASERCALI_FRAMEWORK_KIV_JSON_H_
#define LASERCALI_FRAMEWORK_KIV_JSON_H_

#include <rapidjson/document.h>
#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

#include <string>

class KivJson : public rapidjson::Document {
 public:
  KivJson() { SetObject(); }

  void AddString(const std::string& key, const std::string& value) {
    rapidjson::Value name(key.data(), static_cast<rapidjson::SizeType>(key.size()),
                          GetAllocator());
    rapidjson::Value text(value.data(), static_cast<rapidjson::SizeType>(value.size()),
                          GetAllocator());
    AddMember(name, text, GetAllocator());
  }

  // The document as compact JSON text, members in order, duplicates kept.
  std::string ToString() const {
    rapidjson::StringBuffer buffer;
    rapidjson::Writer<rapidjson::StringBuffer> writer(buffer);
    Accept(writer);
    return std::string(buffer.GetString(), buffer.GetSize());
  }
};

#endif  // LASERCALI_FRAMEWORK_KIV_JSON_H_
