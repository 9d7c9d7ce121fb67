// The base class of every kiv node.
//
// A node is built from its JSON configuration object on the node main
// thread. The base keeps the node's identity string, taken from the
// configuration member "name" (a string; "kivnode" when absent or not a
// string); the calibration node uses it unchanged as the topic of its JSON
// commands. The only virtual operation is the destructor.
//
// Advertise<T>() and Subscribe<T>() are compiled into the node; they call the
// framework library's AdvertiseImpl() and SubscribeImpl(). Both refuse an
// empty topic name with std::runtime_error.
#ifndef LASERCALI_FRAMEWORK_KIV_NODE_H_
#define LASERCALI_FRAMEWORK_KIV_NODE_H_

#include <rapidjson/document.h>

#include <functional>
#include <memory>
#include <string>
#include <typeinfo>

#include "framework/kiv_any.h"
#include "framework/kiv_publisher.h"

namespace kiv {

class Host;

class KivNode {
 public:
  explicit KivNode(const rapidjson::Value& config);
  virtual ~KivNode();

  KivNode(const KivNode&) = delete;
  KivNode& operator=(const KivNode&) = delete;

  // Creates (or finds) `topic` for publishing records of type T.
  template <typename T>
  Publisher<T> Advertise(const std::string& topic) {
    return Publisher<T>(AdvertiseImpl(topic, typeid(T)), topic);
  }

  // Subscribes `callback` to `topic`. The callback is wrapped in a holder
  // inside a local Any; whatever the Any still holds when SubscribeImpl
  // returns or throws is destroyed here, so the framework keeps its own copy.
  template <typename T>
  void Subscribe(const std::string& topic, std::function<void(T*)> callback, int depth) {
    Any any(new Holder<std::function<void(T*)>>(callback));
    SubscribeImpl(topic, any, depth, typeid(T));
  }

  // Framework library operations.
  std::shared_ptr<TopicRecord> AdvertiseImpl(const std::string& topic, const std::type_info& type);
  void SubscribeImpl(const std::string& topic, Any& callback, int depth,
                     const std::type_info& type);
  void KivNodeRegisterVersion(const std::string& commitTag, const std::string& frameworkTag);

  // The identity string (see above).
  const std::string& NodeName() const { return node_name_; }

 private:
  std::string node_name_;  // first data member: the node's identity
  Host* host_;             // the framework host the node was built in
};

}  // namespace kiv

#endif  // LASERCALI_FRAMEWORK_KIV_NODE_H_
