#include "tools/kivrun/node_watch.h"

#include <algorithm>

#include "framework/kiv_trace.h"
#include "msgs/calimsgs.h"

namespace kivrun {

std::string RecordName(const std::type_info& type) {
  if (type == typeid(KivJsonMsg)) return "KivJsonMsg";
  const RecordLayout* layout = FindRecord(type);
  return layout ? layout->name : std::string("unknown");
}

const RecordLayout* NodeWatch::Published(const std::string& topic) const {
  const auto found = watched_.find(topic);
  return found == watched_.end() ? nullptr : found->second;
}

const std::vector<const std::type_info*>* NodeWatch::Takes(const std::string& topic) const {
  const auto found = subscribed_.find(topic);
  return found == subscribed_.end() ? nullptr : &found->second;
}

void NodeWatch::OnAdvertise(const std::string& node, const std::string& topic,
                            const std::type_info& type) {
  if (muted_) return;
  Fields f;
  f.Str("node", node).Str("topic", topic).Str("record", RecordName(type));
  round_.log.Write("advertise", f.value());
  const RecordLayout* layout = FindRecord(type);
  if (layout == nullptr || !watched_.emplace(topic, layout).second) return;
  layout->watch(round_.host, "kivrun", topic, [this, layout, topic](const void* record) {
    const auto& stack = kiv::KivProcTimeRec::m_pInstance->m_publishInfo;
    Fields p;
    p.Str("topic", topic)
        .Str("tag", stack.empty() ? std::string() : stack.back())
        .Str("record", layout->name);
    rapidjson::Value fields(rapidjson::kObjectType);
    DecodeFields(*layout, record, fields, p.allocator());
    p.value().AddMember("fields", fields, p.allocator());
    // Written first: writing an event reports the pictures written before
    // it, so the summary sees a picture before the reply about it.
    round_.log.Write("publish", p.value());
    if (on_published_) on_published_(topic, p.value()["fields"]);
  });
}

void NodeWatch::OnSubscribe(const std::string& node, const std::string& topic,
                            const std::type_info& type, int depth) {
  if (muted_) return;
  auto& types = subscribed_[topic];
  if (std::find(types.begin(), types.end(), &type) == types.end()) types.push_back(&type);
  Fields f;
  f.Str("node", node).Str("topic", topic).Str("record", RecordName(type)).Int("depth", depth);
  round_.log.Write("subscribe", f.value());
}

void NodeWatch::OnTimerAdded(int id, const std::string& name, long delay, long period) {
  if (muted_ || muted_timer_names_.count(name) != 0) {
    muted_timers_.insert(id);
    return;
  }
  Fields f;
  f.Int("id", id).Str("name", name).Int("delay_us", delay).Int("period_us", period);
  round_.log.Write("timer_add", f.value());
}

void NodeWatch::OnTimerDeleted(int id, bool was_running) {
  if (muted_timers_.count(id) != 0) return;
  Fields f;
  f.Int("id", id).Bool("running", was_running);
  round_.log.Write("timer_del", f.value());
}

void NodeWatch::OnVersion(const std::string& node, const std::string& commit_tag,
                          const std::string& framework_tag) {
  if (muted_) return;
  Fields f;
  f.Str("node", node).Str("commit", commit_tag).Str("framework", framework_tag);
  round_.log.Write("version", f.value());
}

}  // namespace kivrun
