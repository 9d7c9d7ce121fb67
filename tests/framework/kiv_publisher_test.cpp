// Publishing: thread check, typed delivery, the trace stack.
#include "framework/kiv_publisher.h"

#include <gtest/gtest.h>

#include <sstream>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "platform/kiv/host.h"
#include "tests/support/console_capture.h"

namespace {

struct Rec {
  int value = 0;
};
struct Other {
  int value = 0;
};

class PublisherTest : public ::testing::Test {
 protected:
  void SetUp() override {
    rec_.m_bEnable = false;
    rec_.m_publishInfo.clear();
    rec_.m_pOutput = nullptr;
  }
  void TearDown() override { SetUp(); }

  // A publisher on a topic that has no subscribers.
  static kiv::Publisher<Rec> Unheard() {
    return kiv::Publisher<Rec>(std::make_shared<kiv::TopicRecord>(), "empty");
  }

  kiv::Host host_;
  kiv::KivProcTimeRec& rec_ = *kiv::KivProcTimeRec::m_pInstance;
};

TEST_F(PublisherTest, NoSubscribersWithTraceOnPushesAndPopsTheTag) {
  kiv::Publisher<Rec> publisher = Unheard();
  rec_.m_bEnable = true;
  rec_.m_publishInfo.push_back("outer");
  testsupport::ConsoleCapture console;
  Rec r;
  publisher.publishWithLine(&r, "src/x_1");
  EXPECT_EQ(rec_.m_publishInfo, std::deque<std::string>{"outer"});
  EXPECT_EQ(console.Err(), "");
}

TEST_F(PublisherTest, NoSubscribersWithTraceOffTouchesNothing) {
  kiv::Publisher<Rec> publisher = Unheard();
  rec_.m_publishInfo.push_back("left alone");
  testsupport::ConsoleCapture console;
  Rec r;
  publisher.publishWithLine(&r, "src/x_1");
  EXPECT_EQ(rec_.m_publishInfo, std::deque<std::string>{"left alone"});
  EXPECT_EQ(console.Err(), "");
  EXPECT_EQ(console.Out(), "");
}

TEST_F(PublisherTest, DeliversSynchronouslyInSubscriptionOrderWithTheTagOnTop) {
  std::vector<std::string> calls;
  for (const char* who : {"a", "b", "c"}) {
    host_.Subscribe<Rec>(who, "t", [&calls, who, this](Rec* r) {
      calls.push_back(std::string(who) + ":" + std::to_string(r->value) + ":" +
                      rec_.m_publishInfo.back());
    });
  }
  rec_.m_bEnable = true;
  kiv::Publisher<Rec> publisher(host_.FindTopic("t"), "t");
  Rec r{5};
  publisher.publishWithLine(&r, "src/x_9");
  EXPECT_EQ(calls, (std::vector<std::string>{"a:5:src/x_9", "b:5:src/x_9", "c:5:src/x_9"}));
  EXPECT_TRUE(rec_.m_publishInfo.empty());
}

TEST_F(PublisherTest, PublishingFromASecondThreadIsRefused) {
  int called = 0;
  host_.Subscribe<Rec>("a", "t", [&called](Rec*) { ++called; });
  rec_.m_bEnable = true;
  rec_.m_publishInfo.push_back("before");
  kiv::Publisher<Rec> publisher(host_.FindTopic("t"), "t");
  testsupport::ConsoleCapture console;
  std::string error;
  std::thread worker([&] {
    Rec r;
    try {
      publisher.publishWithLine(&r, "src/caligetpic_310");
    } catch (const std::runtime_error& e) {
      error = e.what();
    }
  });
  worker.join();
  EXPECT_EQ(error, "src/caligetpic_310Error publish in sub thread");
  EXPECT_EQ(console.Err(), "src/caligetpic_310Error: publish in sub thread!!\n");
  EXPECT_EQ(called, 0);
  EXPECT_EQ(rec_.m_publishInfo, std::deque<std::string>{"before"});
}

TEST_F(PublisherTest, AnEntryOfAnotherRecordTypeStopsDelivery) {
  std::vector<std::string> calls;
  host_.Subscribe<Rec>("first", "t", [&calls](Rec*) { calls.push_back("first"); });
  host_.Subscribe<Other>("wrong", "t", [&calls](Other*) { calls.push_back("wrong"); });
  host_.Subscribe<Rec>("third", "t", [&calls](Rec*) { calls.push_back("third"); });
  rec_.m_bEnable = true;
  kiv::Publisher<Rec> publisher(host_.FindTopic("t"), "t");
  testsupport::ConsoleCapture console;
  Rec r;
  try {
    publisher.publishWithLine(&r, "src/x_2");
    FAIL() << "no exception";
  } catch (const std::runtime_error& e) {
    EXPECT_STREQ(e.what(), "publish type error");
  }
  EXPECT_EQ(calls, std::vector<std::string>{"first"});
  EXPECT_EQ(rec_.m_publishInfo, std::deque<std::string>{"src/x_2"});
  EXPECT_EQ(console.Out() + console.Err(), "");
}

TEST_F(PublisherTest, AnEmptyEntryIsATypeErrorAndAnEmptyFunctionABadCall) {
  host_.Subscribe<Rec>("a", "t", [](Rec*) {});
  kiv::Publisher<Rec> publisher(host_.FindTopic("t"), "t");
  Rec r;
  publisher.handle->subscribers[0].callback = kiv::Any();
  EXPECT_THROW(publisher.publishWithLine(&r, "src/x_3"), std::runtime_error);
  publisher.handle->subscribers[0].callback =
      kiv::Any(new kiv::Holder<std::function<void(Rec*)>>(std::function<void(Rec*)>()));
  EXPECT_THROW(publisher.publishWithLine(&r, "src/x_3"), std::bad_function_call);
}

TEST_F(PublisherTest, TraceSwitchedOnDuringDeliveryReportsAnEmptyStack) {
  host_.Subscribe<Rec>("a", "t", [this](Rec*) { rec_.m_bEnable = true; });
  kiv::Publisher<Rec> publisher(host_.FindTopic("t"), "t");
  testsupport::ConsoleCapture console;
  Rec r;
  EXPECT_NO_THROW(publisher.publishWithLine(&r, "src/x_4"));
  EXPECT_EQ(console.Err(), "PTime ERR:Pop Publish Info But Stack Empty!!\n");
  EXPECT_TRUE(rec_.m_publishInfo.empty());
}

TEST_F(PublisherTest, NestedPublicationsStackTheirTags) {
  std::vector<std::deque<std::string>> seen;
  host_.Subscribe<Other>("inner", "in", [&](Other*) { seen.push_back(rec_.m_publishInfo); });
  kiv::Publisher<Other> inner(host_.FindTopic("in"), "in");
  host_.Subscribe<Rec>("outer", "out", [&](Rec*) {
    Other o;
    inner.publishWithLine(&o, "src/inner_2");
    seen.push_back(rec_.m_publishInfo);
  });
  rec_.m_bEnable = true;
  kiv::Publisher<Rec> outer(host_.FindTopic("out"), "out");
  Rec r;
  outer.publishWithLine(&r, "src/outer_1");
  ASSERT_EQ(seen.size(), 2u);
  EXPECT_EQ(seen[0], (std::deque<std::string>{"src/outer_1", "src/inner_2"}));
  EXPECT_EQ(seen[1], std::deque<std::string>{"src/outer_1"});
  EXPECT_TRUE(rec_.m_publishInfo.empty());
}

TEST_F(PublisherTest, DeliveryTimesAreWrittenOnlyWithTraceAndOutput) {
  host_.Subscribe<Rec>("node_a", "t", [](Rec*) {});
  kiv::Publisher<Rec> publisher(host_.FindTopic("t"), "t");
  std::ostringstream times;
  rec_.m_pOutput = &times;
  Rec r;
  publisher.publishWithLine(&r, "src/x_5");
  EXPECT_EQ(times.str(), "");
  rec_.m_bEnable = true;
  publisher.publishWithLine(&r, "src/x_5");
  EXPECT_EQ(times.str().rfind("PTime src/x_5 t -> node_a ", 0), 0u) << times.str();
}

TEST_F(PublisherTest, CopiesShareTheTopic) {
  host_.Subscribe<Rec>("a", "t", [](Rec*) {});
  kiv::Publisher<Rec> publisher(host_.FindTopic("t"), "t");
  kiv::Publisher<Rec> copy = publisher;
  EXPECT_EQ(copy.handle, publisher.handle);
  EXPECT_EQ(copy.topic, "t");
}

}  // namespace
