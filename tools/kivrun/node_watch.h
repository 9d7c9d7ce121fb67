// Watching the node under test through the host framework.
//
// NodeWatch is the host's observer: it writes the node's framework events
// into the log ("advertise", "subscribe", "timer_add", "timer_del",
// "version") and subscribes a watcher to every topic the node advertises,
// which logs each publication ("publish": topic, trace tag, record, every
// field) and hands its decoded fields on to whoever waits for it. It keeps
// what the node publishes on each topic and which record types it takes
// there, for the steps that send and wait.
//
// Only the node under test is watched so: while another node is built
// (SetMuted), its advertisements, subscriptions and version tags are not
// logged, and the timers named after another node (MuteTimersNamed), which
// the calculation nodes' answer timers are, are not logged either.
#ifndef LASERCALI_TOOLS_KIVRUN_NODE_WATCH_H_
#define LASERCALI_TOOLS_KIVRUN_NODE_WATCH_H_

#include <rapidjson/document.h>

#include <functional>
#include <map>
#include <set>
#include <string>
#include <typeinfo>
#include <vector>

#include "platform/kiv/host.h"
#include "tools/kivrun/records.h"
#include "tools/kivrun/round_context.h"

namespace kivrun {

// The name kivrun logs for a record type: its layout's name, "KivJsonMsg",
// or "unknown".
std::string RecordName(const std::type_info& type);

class NodeWatch : public kiv::HostObserver {
 public:
  explicit NodeWatch(RoundContext& round) : round_(round) {}

  // Called after each publication of the node is logged, with its topic and
  // decoded fields.
  void SetOnPublished(
      std::function<void(const std::string& topic, const rapidjson::Value& fields)> hook) {
    on_published_ = std::move(hook);
  }

  // While muted, the framework events of the node being built are not
  // logged: it is not the node under test.
  void SetMuted(bool muted) { muted_ = muted; }
  // The timers named `name`, and their deletion, are not logged.
  void MuteTimersNamed(const std::string& name) { muted_timer_names_.insert(name); }

  // The record the node publishes on `topic`, or null when it does not.
  const RecordLayout* Published(const std::string& topic) const;
  // The record types the node takes on `topic`, in the order it subscribed
  // them; null when it takes none there.
  const std::vector<const std::type_info*>* Takes(const std::string& topic) const;

  void OnAdvertise(const std::string& node, const std::string& topic,
                   const std::type_info& type) override;
  void OnSubscribe(const std::string& node, const std::string& topic, const std::type_info& type,
                   int depth) override;
  void OnTimerAdded(int id, const std::string& name, long delay, long period) override;
  void OnTimerDeleted(int id, bool was_running) override;
  void OnVersion(const std::string& node, const std::string& commit_tag,
                 const std::string& framework_tag) override;

 private:
  RoundContext& round_;
  bool muted_ = false;
  std::set<std::string> muted_timer_names_;
  std::set<int> muted_timers_;
  std::function<void(const std::string&, const rapidjson::Value&)> on_published_;
  std::map<std::string, const RecordLayout*> watched_;  // topic -> record the node publishes
  // topic -> the record types the node takes there (a node named after a
  // topic takes its JSON commands on it too)
  std::map<std::string, std::vector<const std::type_info*>> subscribed_;
};

}  // namespace kivrun

#endif  // LASERCALI_TOOLS_KIVRUN_NODE_WATCH_H_
