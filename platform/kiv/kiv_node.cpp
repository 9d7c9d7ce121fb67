#include "framework/kiv_node.h"

#include "platform/kiv/host.h"

namespace kiv {
namespace {

std::string IdentityFrom(const rapidjson::Value& config) {
  if (config.IsObject()) {
    auto it = config.FindMember("name");
    if (it != config.MemberEnd() && it->value.IsString()) {
      return std::string(it->value.GetString(), it->value.GetStringLength());
    }
  }
  return "kivnode";
}

}  // namespace

KivNode::KivNode(const rapidjson::Value& config)
    : node_name_(IdentityFrom(config)), host_(&Host::Current()) {}

KivNode::~KivNode() { host_->DropSubscriptions(*this); }

std::shared_ptr<TopicRecord> KivNode::AdvertiseImpl(const std::string& topic,
                                                    const std::type_info& type) {
  return host_->Advertise(*this, topic, type);
}

void KivNode::SubscribeImpl(const std::string& topic, Any& callback, int depth,
                            const std::type_info& type) {
  host_->Subscribe(*this, topic, callback, depth, type);
}

void KivNode::KivNodeRegisterVersion(const std::string& commitTag,
                                     const std::string& frameworkTag) {
  host_->RegisterVersion(*this, commitTag, frameworkTag);
}

}  // namespace kiv
