// Topics and publishers of the kiv framework.
//
// A topic record is owned by the framework and begins with its subscriber
// list, in subscription order. A kiv::Publisher<T> holds a shared handle to
// the record and the topic's name; publishWithLine() delivers a record
// synchronously to every subscriber, on the calling thread, which must be
// the node main thread. `line` is the trace tag of the publishing call site;
// a caller that keeps its tags as std::string constants publishes without
// allocating while the trace is off.
//
// Failures, exactly:
//  - called off the main thread: `line` + "Error: publish in sub thread!!" on
//    std::cerr, then std::runtime_error(`line` + "Error publish in sub
//    thread"); nothing is delivered and the trace stack is untouched.
//  - a subscriber entry whose callback is empty or of another record type:
//    std::runtime_error("publish type error"); earlier subscribers have been
//    called and a pushed tag stays on the stack.
//  - an entry holding an empty function: std::bad_function_call.
//  - trace enabled and the stack found empty after delivery:
//    "PTime ERR:Pop Publish Info But Stack Empty!!" on std::cerr; the
//    publication still succeeds.
#ifndef LASERCALI_FRAMEWORK_KIV_PUBLISHER_H_
#define LASERCALI_FRAMEWORK_KIV_PUBLISHER_H_

#include <functional>
#include <iostream>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>
#include <typeinfo>
#include <utility>
#include <vector>

#include "framework/kiv_any.h"
#include "framework/kiv_thread.h"
#include "framework/kiv_trace.h"

namespace kiv {

// One subscription: the subscriber's name and its callback, a
// Holder<std::function<void(T*)>> for the topic's record type T.
struct SubscriberEntry {
  std::string name;
  Any callback;
};

// The framework's record of one topic. Nodes read only `subscribers`.
struct TopicRecord {
  std::vector<SubscriberEntry> subscribers;
  // The rest belongs to the framework.
  std::string name;
  const std::type_info* first_type = nullptr;  // record type of the first advertiser or subscriber
};

template <typename T>
class Publisher {
 public:
  Publisher() = default;
  Publisher(std::shared_ptr<TopicRecord> topic_handle, std::string topic_name)
      : handle(std::move(topic_handle)), topic(std::move(topic_name)) {}

  // Delivers *msg to every subscriber of the topic, in list order.
  void publishWithLine(T* msg, const std::string& line) {
    if (std::this_thread::get_id() != main_thread_id) {
      std::cerr << line << "Error: publish in sub thread!!" << std::endl;
      throw std::runtime_error(line + "Error publish in sub thread");
    }
    KivProcTimeRec* rec = KivProcTimeRec::m_pInstance;
    if (rec->m_bEnable) rec->m_publishInfo.push_back(line);

    if (handle) {
      // Indexed: a subscriber may subscribe more entries while being called.
      for (std::size_t i = 0; i < handle->subscribers.size(); ++i) {
        SubscriberEntry& entry = handle->subscribers[i];
        auto* callback = entry.callback.template get<std::function<void(T*)>>();
        if (callback == nullptr) throw std::runtime_error("publish type error");
        // Both do nothing while the trace is off, so they are not called then.
        if (rec->m_bEnable) PrintProcessInfoBefore(entry.name, topic);
        (*callback)(msg);
        if (rec->m_bEnable) PrintProcessInfoAfter();
      }
    }

    if (rec->m_bEnable) {
      if (rec->m_publishInfo.empty()) {
        std::cerr << "PTime ERR:Pop Publish Info But Stack Empty!!\n" << std::flush;
      } else {
        rec->m_publishInfo.pop_back();
      }
    }
  }

  // Copies share the handle; the destructor drops `topic`, then the handle.
  std::shared_ptr<TopicRecord> handle;  // the topic record from AdvertiseImpl
  std::string topic;                    // the topic's name
};

}  // namespace kiv

#endif  // LASERCALI_FRAMEWORK_KIV_PUBLISHER_H_
