// Watching the camera and the pictures the node writes.
//
// CameraWatch is the camera simulator's observer: every call the node makes
// to the camera becomes a "camera" event (GetImageFrame only while frames
// are logged, since there is one a tick), with its arguments, whether it
// succeeded and why not; a frame not handed back is a "buffer_leak". Every
// failed call, logged or not, is also handed to the failure hook, so a step
// that runs out can say that the camera kept failing and why.
//
// WatchPictures() starts watching the node's picture places (/tmp/left,
// /tmp/right, /tmp/pic, /tmp/LL.bmp, /tmp/RR.bmp): before each event is
// written, every picture written since is logged as a "file" event (path,
// size, FNV-1a hash) and told to the round's summary.
#ifndef LASERCALI_TOOLS_KIVRUN_CAMERA_WATCH_H_
#define LASERCALI_TOOLS_KIVRUN_CAMERA_WATCH_H_

#include <cstdint>
#include <functional>
#include <string>

#include "platform/sunxi_cam/camera_sim.h"
#include "tools/kivrun/event_log.h"
#include "tools/kivrun/file_watch.h"
#include "tools/kivrun/round_context.h"

namespace kivrun {

class CameraWatch : public sunxi_cam::sim::Observer {
 public:
  explicit CameraWatch(RoundContext& round) : round_(round) {}

  // Called with "CALL: REASON" for every camera call that failed.
  void SetOnFailure(std::function<void(const std::string& failure)> hook) {
    on_failure_ = std::move(hook);
  }
  // Whether GetImageFrame calls are logged too.
  void LogFrames(bool on) { log_frames_ = on; }
  // Starts watching the picture places (they exist once the node is built).
  void WatchPictures();

  void OnOpenCamera(int camera, uint32_t pixel_format, int fps, int width, int height, bool ok,
                    const std::string& reason) override;
  void OnCloseCamera(bool ok, const std::string& reason) override;
  void OnGetImageFrame(bool ok, int64_t index, uint64_t laser, int64_t buffer,
                       const std::string& reason) override;
  void OnReturnImageFrame(bool ok, int64_t index, const std::string& reason) override;
  void OnSetExposureGain(int exposure, int gain, bool ok, const std::string& reason) override;
  void OnBufferLeak(int64_t index, int64_t buffer) override;

 private:
  void Call(const char* call, Fields& f, bool ok, const std::string& reason);
  void Failed(const char* call, const std::string& reason) {
    if (on_failure_) on_failure_(std::string(call) + ": " + reason);
  }

  RoundContext& round_;
  std::function<void(const std::string&)> on_failure_;
  bool log_frames_ = false;
  FileWatch files_;
};

}  // namespace kivrun

#endif  // LASERCALI_TOOLS_KIVRUN_CAMERA_WATCH_H_
