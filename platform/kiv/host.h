// The host framework: what the robot's kiv library provides, on a PC.
//
// A Host holds the topics, the main loop with its timers and the version
// tags that nodes register. Nodes and the framework functions
// (kiv::AddTimerWithName, kiv::DelTimer, KivNode's operations) act on the
// current host: the most recently made Host still alive, or, when none was
// made, a process-wide default one. Making a Host sets kiv::main_thread_id
// to the calling thread, which becomes the node main thread.
//
// An observer sees what happens in the framework (topics, subscriptions,
// timers, versions), for logs and tests.
#ifndef LASERCALI_PLATFORM_KIV_HOST_H_
#define LASERCALI_PLATFORM_KIV_HOST_H_

#include <map>
#include <memory>
#include <string>
#include <typeinfo>
#include <vector>

#include "framework/kiv_any.h"
#include "framework/kiv_node.h"
#include "framework/kiv_publisher.h"
#include "platform/kiv/main_loop.h"

namespace kiv {

class HostObserver {
 public:
  virtual ~HostObserver() = default;
  virtual void OnAdvertise(const std::string& /*node*/, const std::string& /*topic*/,
                           const std::type_info& /*type*/) {}
  virtual void OnSubscribe(const std::string& /*node*/, const std::string& /*topic*/,
                           const std::type_info& /*type*/, int /*depth*/) {}
  virtual void OnTimerAdded(int /*id*/, const std::string& /*name*/, long /*delay*/,
                            long /*period*/) {}
  virtual void OnTimerDeleted(int /*id*/, bool /*was_running*/) {}
  virtual void OnVersion(const std::string& /*node*/, const std::string& /*commit_tag*/,
                         const std::string& /*framework_tag*/) {}
};

class Host {
 public:
  Host();
  ~Host();
  Host(const Host&) = delete;
  Host& operator=(const Host&) = delete;

  static Host& Current();

  // The topic named `topic`, made on first use. Throws std::runtime_error on
  // an empty name.
  std::shared_ptr<TopicRecord> Advertise(const KivNode& node, const std::string& topic,
                                         const std::type_info& type);
  // Adds a subscriber entry named after the node, taking the holder out of
  // `callback`. Throws std::runtime_error on an empty name.
  void Subscribe(const KivNode& node, const std::string& topic, Any& callback, int depth,
                 const std::type_info& type);
  // Subscribes a plain callback under `who` (for tools and tests that are not nodes).
  template <typename T>
  void Subscribe(const std::string& who, const std::string& topic,
                 std::function<void(T*)> callback) {
    Any any(new Holder<std::function<void(T*)>>(std::move(callback)));
    AddEntry(nullptr, who, topic, any, typeid(T));
  }
  // Removes every subscriber entry the node made.
  void DropSubscriptions(const KivNode& node);

  // The topic, or null when nobody advertised or subscribed it.
  std::shared_ptr<TopicRecord> FindTopic(const std::string& topic) const;
  // Topic names in order of first use.
  const std::vector<std::string>& TopicOrder() const { return topic_order_; }

  // Timers (the framework's AddTimerWithName/DelTimer land here).
  int AddTimer(std::function<void()> callback, long delay, long period, const std::string& name);
  void DelTimer(int id);
  MainLoop& Loop() { return loop_; }

  void RegisterVersion(const KivNode& node, const std::string& commit_tag,
                       const std::string& framework_tag);

  // Not owned; null for none.
  void SetObserver(HostObserver* observer) { observer_ = observer; }

 private:
  void AddEntry(const void* owner, const std::string& who, const std::string& topic, Any& callback,
                const std::type_info& type);
  std::shared_ptr<TopicRecord>& TopicFor(const std::string& topic, const std::type_info& type);

  struct Owned {  // who made each subscriber entry, parallel to the entry list
    std::vector<const void*> owners;
  };
  std::map<std::string, std::shared_ptr<TopicRecord>> topics_;
  std::map<std::string, Owned> owners_;
  std::vector<std::string> topic_order_;
  MainLoop loop_;
  HostObserver* observer_ = nullptr;
  Host* previous_;
};

}  // namespace kiv

#endif  // LASERCALI_PLATFORM_KIV_HOST_H_
