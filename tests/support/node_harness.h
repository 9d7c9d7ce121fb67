// A calibration node built inside its own host framework, for unit tests.
//
// NodeHarness resets every plug-in global to its load-time value, makes a
// kiv::Host (the calling thread becomes the main thread), switches the trace
// on so each publication's trace tag is known, watches the six topics the
// node publishes, captures the console, and builds the node through the
// plug-in's entry point. Publications are recorded in order with topic,
// trace tag and the record's bytes (state texts as text).
#ifndef LASERCALI_TESTS_SUPPORT_NODE_HARNESS_H_
#define LASERCALI_TESTS_SUPPORT_NODE_HARNESS_H_

#include <rapidjson/document.h>

#include <cstdint>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "framework/kiv.h"
#include "msgs/calimsgs.h"
#include "platform/kiv/host.h"
#include "src/cameralasercali.h"
#include "tests/support/console_capture.h"

namespace testsupport {

// Puts every global of the plug-in back to its load-time value.
void ResetPluginGlobals();

struct Publication {
  std::string topic;
  std::string tag;
  std::vector<uint8_t> bytes;  // the record as it lay in memory (plain records)
  std::string text;            // kiv_msg_laser_state only

  template <typename T>
  T As() const {
    T record;
    std::memcpy(static_cast<void*>(&record), bytes.data(), sizeof(T));
    return record;
  }
};

class NodeHarness {
 public:
  static constexpr const char* kDefaultConfig =
      R"({"name":"lasercali","delt_factory":60,"delt_app":20})";

  explicit NodeHarness(const std::string& config_json = kDefaultConfig);
  ~NodeHarness();

  kivplugcali::KivNodeLaserCali& node() { return *node_; }
  kiv::Host& host() { return host_; }
  ConsoleCapture& console() { return *console_; }

  // Publishes `record` on `topic` as an outside sender would, tag "test".
  template <typename T>
  void Send(const std::string& topic, T record) {
    kiv::Publisher<T> publisher(host_.FindTopic(topic), topic);
    publisher.publishWithLine(&record, "test");
  }

  std::vector<Publication> publications;

 private:
  template <typename T>
  void Watch(const std::string& topic);

  kiv::Host host_;
  std::unique_ptr<ConsoleCapture> console_;
  kiv::NodeRegistry registry_;
  std::unique_ptr<kivplugcali::KivNodeLaserCali> node_;
  bool trace_was_on_;
};

}  // namespace testsupport

#endif  // LASERCALI_TESTS_SUPPORT_NODE_HARNESS_H_
