// Records every call the camera simulator sees, one line a call, for tests.
#ifndef LASERCALI_TESTS_SUPPORT_CAMERA_LOG_H_
#define LASERCALI_TESTS_SUPPORT_CAMERA_LOG_H_

#include <cstdint>
#include <string>
#include <vector>

#include "platform/sunxi_cam/camera_sim.h"

namespace testsupport {

class CameraLog : public sunxi_cam::sim::Observer {
 public:
  void OnOpenCamera(int camera, uint32_t format, int fps, int width, int height, bool ok,
                    const std::string& reason) override {
    Add("OpenCamera " + std::to_string(camera) + " " + std::to_string(format) + " " +
            std::to_string(fps) + " " + std::to_string(width) + " " + std::to_string(height),
        ok, reason);
  }
  void OnCloseCamera(bool ok, const std::string& reason) override {
    Add("CloseCamera", ok, reason);
  }
  void OnGetImageFrame(bool ok, int64_t index, uint64_t laser, int64_t buffer,
                       const std::string& reason) override {
    Add(ok ? "GetImageFrame " + std::to_string(index) + " laser " + std::to_string(laser) +
                 " buffer " + std::to_string(buffer)
           : "GetImageFrame",
        ok, reason);
  }
  void OnReturnImageFrame(bool ok, int64_t index, const std::string& reason) override {
    Add("ReturnImageFrame " + std::to_string(index), ok, reason);
  }
  void OnSetExposureGain(int exposure, int gain, bool ok, const std::string& reason) override {
    Add("setExposureGain " + std::to_string(exposure) + " " + std::to_string(gain), ok, reason);
  }
  void OnBufferLeak(int64_t index, int64_t buffer) override {
    lines.push_back("leak " + std::to_string(index) + " buffer " + std::to_string(buffer));
  }

  // Lines that start with `prefix`.
  std::vector<std::string> Starting(const std::string& prefix) const {
    std::vector<std::string> found;
    for (const std::string& line : lines) {
      if (line.rfind(prefix, 0) == 0) found.push_back(line);
    }
    return found;
  }

  std::vector<std::string> lines;

 private:
  void Add(const std::string& call, bool ok, const std::string& reason) {
    lines.push_back(call + (ok ? " ok" : " failed: " + reason));
  }
};

}  // namespace testsupport

#endif  // LASERCALI_TESTS_SUPPORT_CAMERA_LOG_H_
