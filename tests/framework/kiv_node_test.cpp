// The node base: identity, Advertise/Subscribe and what they leave behind.
#include "framework/kiv_node.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <thread>
#include <type_traits>
#include <stdexcept>

#include "platform/kiv/host.h"

namespace {

struct Rec {
  int value = 0;
};

rapidjson::Document Config(const char* json) {
  rapidjson::Document doc;
  doc.Parse(json);
  return doc;
}

class VersionLog : public kiv::HostObserver {
 public:
  void OnVersion(const std::string& node, const std::string& commit,
                 const std::string& framework) override {
    line = node + " " + commit + " " + framework;
  }
  std::string line;
};

TEST(KivNodeTest, IdentityComesFromTheNameMember) {
  kiv::Host host;
  kiv::KivNode named(Config(R"({"name": "cali_1"})"));
  EXPECT_EQ(named.NodeName(), "cali_1");
  kiv::KivNode unnamed(Config(R"({"name": 5})"));
  EXPECT_EQ(unnamed.NodeName(), "kivnode");
  kiv::KivNode not_object(Config("[1]"));
  EXPECT_EQ(not_object.NodeName(), "kivnode");
}

TEST(KivNodeTest, AdvertiseReturnsAPublisherOnTheTopic) {
  kiv::Host host;
  kiv::KivNode node(Config(R"({"name": "n"})"));
  kiv::Publisher<Rec> publisher = node.Advertise<Rec>("topic_a");
  EXPECT_EQ(publisher.topic, "topic_a");
  EXPECT_EQ(publisher.handle, host.FindTopic("topic_a"));
  EXPECT_TRUE(publisher.handle->subscribers.empty());
}

TEST(KivNodeTest, SubscribeKeepsOneCopyOfTheCallback) {
  kiv::Host host;
  kiv::KivNode node(Config(R"({"name": "n"})"));
  auto token = std::make_shared<int>(0);
  node.Subscribe<Rec>("t", [token](Rec* r) { *token += r->value; }, 10);
  // The caller's lambda is gone; the framework's entry holds the only copy.
  EXPECT_EQ(token.use_count(), 2);
  auto topic = host.FindTopic("t");
  ASSERT_EQ(topic->subscribers.size(), 1u);
  EXPECT_EQ(topic->subscribers[0].name, "n");
  Rec r{3};
  kiv::Publisher<Rec>(topic, "t").publishWithLine(&r, "src/t_1");
  EXPECT_EQ(*token, 3);
}

TEST(KivNodeTest, SubscribeDestroysTheHolderWhenTheFrameworkThrows) {
  kiv::Host host;
  kiv::KivNode node(Config(R"({"name": "n"})"));
  auto token = std::make_shared<int>(0);
  EXPECT_THROW(node.Subscribe<Rec>("", [token](Rec*) {}, 10), std::runtime_error);
  EXPECT_EQ(token.use_count(), 1);
}

TEST(KivNodeTest, DestroyingANodeDropsItsSubscriptions) {
  kiv::Host host;
  auto token = std::make_shared<int>(0);
  host.Subscribe<Rec>("other", "t", [](Rec*) {});
  {
    kiv::KivNode node(Config(R"({"name": "n"})"));
    node.Subscribe<Rec>("t", [token](Rec*) {}, 10);
    EXPECT_EQ(host.FindTopic("t")->subscribers.size(), 2u);
  }
  ASSERT_EQ(host.FindTopic("t")->subscribers.size(), 1u);
  EXPECT_EQ(host.FindTopic("t")->subscribers[0].name, "other");
  EXPECT_EQ(token.use_count(), 1);
}

TEST(KivNodeTest, VersionTagsReachTheHost) {
  kiv::Host host;
  VersionLog log;
  host.SetObserver(&log);
  kiv::KivNode node(Config(R"({"name": "n"})"));
  node.KivNodeRegisterVersion("c", "f");
  EXPECT_EQ(log.line, "n c f");
  host.SetObserver(nullptr);
}

TEST(KivNodeTest, LayoutIsTheVtablePointerThenTheIdentity) {
  EXPECT_TRUE(std::has_virtual_destructor_v<kiv::KivNode>);
  struct Plain {
    void* vptr;
    std::string name;
    void* host;
  };
  EXPECT_EQ(sizeof(kiv::KivNode), sizeof(Plain));
  kiv::Host host;
  kiv::KivNode node(Config(R"({"name": "first_member"})"));
  const auto* first = reinterpret_cast<const std::string*>(
      reinterpret_cast<const char*>(&node) + sizeof(void*));
  EXPECT_EQ(*first, "first_member");
}

TEST(KivNodeTest, MakingAHostMakesThisTheMainThread) {
  std::thread([] {
    kiv::Host host;
    EXPECT_EQ(kiv::main_thread_id, std::this_thread::get_id());
  }).join();
  kiv::Host host;
  EXPECT_EQ(kiv::main_thread_id, std::this_thread::get_id());
}

}  // namespace
