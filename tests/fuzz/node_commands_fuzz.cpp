// libFuzzer target: the node's JSON commands, delivered to a built node with
// the simulated camera.
//
// Input: lines of text, played in order against a node built afresh (the
// plug-in's globals as at load, configuration
// {"name":"lasercali","delt_factory":60,"delt_app":20}, the camera
// simulator's default scene, an empty /tmp of the process's own):
//   ticks N     runs the next N timer callbacks (the 10 ms frame timer
//               among them); at most 3000 ticks an input in all
//   camera {..} applies camera settings (docs/camera-sim.md); a refused
//               setting changes nothing
//   null        delivers a null command record
//   anything    else is a JSON command (KivJsonMsg) on the node's identity
//               topic "lasercali", as another node would send it; a line
//               that is not JSON is delivered as a JSON string
// The node must take every command without throwing, crashing or a
// sanitizer report, and its reply must be an object.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <stdexcept>
#include <string>

#include "platform/sunxi_cam/camera_sim.h"
#include "tests/fuzz/fuzz_support.h"
#include "tests/support/node_harness.h"

namespace sim = sunxi_cam::sim;

namespace {

constexpr char kTopic[] = "lasercali";
constexpr int64_t kMaxTicks = 3000;

void Command(testsupport::NodeHarness& harness, const std::string& line) {
  kiv::Publisher<KivJsonMsg> publisher(harness.host().FindTopic(kTopic), kTopic);
  if (line == "null") {
    publisher.publishWithLine(nullptr, "fuzz");
    return;
  }
  KivJsonMsg message;
  message.command.Parse<rapidjson::kParseIterativeFlag>(line.c_str(), line.size());
  if (message.command.HasParseError()) {
    message.command.SetString(line.c_str(), static_cast<rapidjson::SizeType>(line.size()),
                              message.command.GetAllocator());
  }
  publisher.publishWithLine(&message, "fuzz");
  if (!message.reply.IsObject()) fuzzsupport::Fail("a reply that is not an object");
}

void Camera(const std::string& text) {
  rapidjson::Document settings;
  settings.Parse<rapidjson::kParseIterativeFlag>(text.c_str(), text.size());
  if (settings.HasParseError()) return;
  try {
    sim::Configure(settings);
  } catch (const std::invalid_argument&) {
    // refused: the camera stays as it was
  }
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  fuzzsupport::EnterPrivateTmp();
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
  fuzzsupport::EmptyTmp();
  sim::Reset();
  int64_t ticks_left = kMaxTicks;
  {
    testsupport::NodeHarness harness;
    const std::string input(reinterpret_cast<const char*>(data), size);
    std::size_t start = 0;
    while (start < input.size()) {
      std::size_t end = input.find('\n', start);
      if (end == std::string::npos) end = input.size();
      const std::string line = input.substr(start, end - start);
      start = end + 1;
      if (line.rfind("ticks ", 0) == 0) {
        int64_t count = 0;
        for (char c : line.substr(6)) {
          if (c < '0' || c > '9') break;
          count = std::min<int64_t>(count * 10 + (c - '0'), kMaxTicks);
        }
        count = std::min(count, ticks_left);
        ticks_left -= count;
        harness.host().Loop().RunTicks(count);
      } else if (line.rfind("camera ", 0) == 0) {
        Camera(line.substr(7));
      } else {
        Command(harness, line);
      }
    }
  }
  sim::Reset();
  return 0;
}
