#include "platform/kiv/host.h"

#include <stdexcept>
#include <thread>

#include "framework/kiv_thread.h"
#include "framework/kiv_timer.h"

namespace kiv {

std::thread::id main_thread_id;

namespace {
Host* g_current = nullptr;
}  // namespace

Host::Host() : previous_(g_current) {
  g_current = this;
  main_thread_id = std::this_thread::get_id();
}

Host::~Host() { g_current = previous_; }

Host& Host::Current() {
  if (g_current == nullptr) {
    static Host fallback;  // becomes current in its constructor
    return fallback;
  }
  return *g_current;
}

std::shared_ptr<TopicRecord>& Host::TopicFor(const std::string& topic,
                                             const std::type_info& type) {
  if (topic.empty()) throw std::runtime_error("kiv: empty topic name");
  std::shared_ptr<TopicRecord>& record = topics_[topic];
  if (!record) {
    record = std::make_shared<TopicRecord>();
    record->name = topic;
    record->first_type = &type;
    topic_order_.push_back(topic);
  }
  return record;
}

std::shared_ptr<TopicRecord> Host::Advertise(const KivNode& node, const std::string& topic,
                                             const std::type_info& type) {
  std::shared_ptr<TopicRecord> record = TopicFor(topic, type);
  if (observer_) observer_->OnAdvertise(node.NodeName(), topic, type);
  return record;
}

void Host::Subscribe(const KivNode& node, const std::string& topic, Any& callback, int depth,
                     const std::type_info& type) {
  AddEntry(&node, node.NodeName(), topic, callback, type);
  if (observer_) observer_->OnSubscribe(node.NodeName(), topic, type, depth);
}

void Host::AddEntry(const void* owner, const std::string& who, const std::string& topic,
                    Any& callback, const std::type_info& type) {
  std::shared_ptr<TopicRecord>& record = TopicFor(topic, type);
  record->subscribers.push_back(SubscriberEntry{who, Any(callback.release())});
  owners_[topic].owners.push_back(owner);
}

void Host::DropSubscriptions(const KivNode& node) {
  for (auto& [topic, owned] : owners_) {
    std::vector<SubscriberEntry>& entries = topics_.at(topic)->subscribers;
    for (std::size_t i = owned.owners.size(); i-- > 0;) {
      if (owned.owners[i] != &node) continue;
      owned.owners.erase(owned.owners.begin() + static_cast<std::ptrdiff_t>(i));
      entries.erase(entries.begin() + static_cast<std::ptrdiff_t>(i));
    }
  }
}

std::shared_ptr<TopicRecord> Host::FindTopic(const std::string& topic) const {
  auto it = topics_.find(topic);
  return it == topics_.end() ? nullptr : it->second;
}

int Host::AddTimer(std::function<void()> callback, long delay, long period,
                   const std::string& name) {
  const int id = loop_.AddTimer(std::move(callback), delay, period, name);
  if (observer_) observer_->OnTimerAdded(id, name, delay, period);
  return id;
}

void Host::DelTimer(int id) {
  const bool was_running = loop_.DelTimer(id);
  if (observer_) observer_->OnTimerDeleted(id, was_running);
}

void Host::RegisterVersion(const KivNode& node, const std::string& commit_tag,
                           const std::string& framework_tag) {
  if (observer_) observer_->OnVersion(node.NodeName(), commit_tag, framework_tag);
}

int AddTimerWithName(std::function<void()> callback, long delay, long period,
                     const std::string& name) {
  return Host::Current().AddTimer(std::move(callback), delay, period, name);
}

void DelTimer(int id) { Host::Current().DelTimer(id); }

}  // namespace kiv
