// libFuzzer target: records of any content on each topic the node
// subscribes to with a plain record type.
//
// Input: a sequence of chunks, played in order against a node built afresh
// (the plug-in's globals as at load, the test configuration, the camera
// simulator's default scene, an empty /tmp of the process's own). Each chunk
// starts with a selector byte; selector % 8 picks what comes next:
//   0 "CAMERACALI"            kiv_camera_cali_msg
//   1 "CAMERACALI_IEPARAMRES" CameraClibrIEParamMsg
//   2 "LASER_CALIBR_REQRES"   LaserClibrMsg
//   3 "CAMERACALICHECKRES"    kiv_camera_calires_msg
//   4 "laser_calibration"     kiv_msg_laser_calibration
//   5 "APPDISTANCERES"        kiv_camera_distance_msg
//   6 "LASERPOWER"            kiv_laserpower_msg
//       the record's bytes follow (sizeof the record; zeros where the input
//       ends first) and it is delivered as another node would publish it;
//   7   one byte N follows: the next N timer callbacks run (the 10 ms
//       frame timer among them), at most 3000 an input in all. A capture
//       stores its pictures some 80 frames after the camera opens, so one
//       chunk can complete it, and a whole factory round fits in an input.
// The JSON command topic has a target of its own (node_commands_fuzz). The
// node must take every record without throwing, crashing or a sanitizer
// report.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <type_traits>

#include "msgs/topics.h"
#include "platform/sunxi_cam/camera_sim.h"
#include "tests/fuzz/fuzz_support.h"
#include "tests/support/node_harness.h"

namespace {

constexpr int64_t kMaxTicks = 3000;

// The input, read from its start to its end.
class Input {
 public:
  Input(const uint8_t* data, std::size_t size) : data_(data), size_(size) {}
  bool done() const { return at_ >= size_; }
  uint8_t Byte() { return at_ < size_ ? data_[at_++] : 0; }
  template <typename T>
  T Record() {
    static_assert(std::is_trivially_copyable_v<T>, "records are plain bytes");
    T record;
    std::memset(static_cast<void*>(&record), 0, sizeof record);
    const std::size_t n = std::min(sizeof record, size_ - std::min(at_, size_));
    std::memcpy(static_cast<void*>(&record), data_ + at_, n);
    at_ += n;
    return record;
  }

 private:
  const uint8_t* data_;
  std::size_t size_;
  std::size_t at_ = 0;
};

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  fuzzsupport::EnterPrivateTmp();
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
  using namespace calitopics;
  fuzzsupport::EmptyTmp();
  sunxi_cam::sim::Reset();
  int64_t ticks_left = kMaxTicks;
  {
    testsupport::NodeHarness node;
    Input input(data, size);
    while (!input.done()) {
      switch (input.Byte() % 8) {
        case 0:
          node.Send(kCameraCali, input.Record<kiv_camera_cali_msg>());
          break;
        case 1:
          node.Send(kCameraCaliIEParamRes, input.Record<CameraClibrIEParamMsg>());
          break;
        case 2:
          node.Send(kLaserCalibrReqRes, input.Record<LaserClibrMsg>());
          break;
        case 3:
          node.Send(kCameraCaliCheckRes, input.Record<kiv_camera_calires_msg>());
          break;
        case 4:
          node.Send(kLaserCalibration, input.Record<kiv_msg_laser_calibration>());
          break;
        case 5:
          node.Send(kAppDistanceRes, input.Record<kiv_camera_distance_msg>());
          break;
        case 6:
          node.Send(kLaserPower, input.Record<kiv_laserpower_msg>());
          break;
        default: {
          const int64_t count = std::min<int64_t>(input.Byte(), ticks_left);
          ticks_left -= count;
          node.host().Loop().RunTicks(count);
          break;
        }
      }
    }
  }
  sunxi_cam::sim::Reset();
  return 0;
}
