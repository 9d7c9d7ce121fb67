#ifndef LASERCALI_TOOLS_KIVRUN_JSON_VALUES_H_
#define LASERCALI_TOOLS_KIVRUN_JSON_VALUES_H_

// Two small readers of parsed JSON that kivrun's units share. StringOf is a
// string value's text, embedded NULs included; the value must be a string.
// MemberOrNull is an object's member, or a null value when the object is
// not an object or has no such member, so that a chain of lookups needs no
// checks between its steps.

#include <rapidjson/document.h>

#include <string>

namespace kivrun {

inline std::string StringOf(const rapidjson::Value& value) {
  return std::string(value.GetString(), value.GetStringLength());
}

inline const rapidjson::Value& MemberOrNull(const rapidjson::Value& object, const char* key) {
  static const rapidjson::Value null;
  if (!object.IsObject()) return null;
  const auto it = object.FindMember(key);
  return it != object.MemberEnd() ? it->value : null;
}

}  // namespace kivrun

#endif  // LASERCALI_TOOLS_KIVRUN_JSON_VALUES_H_
