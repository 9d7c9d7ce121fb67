#include "tools/kivrun/camera_watch.h"

namespace kivrun {

void CameraWatch::Call(const char* call, Fields& f, bool ok, const std::string& reason) {
  Fields e;
  e.Str("call", call);
  for (auto& member : f.value().GetObject()) {
    e.value().AddMember(rapidjson::Value(member.name, e.allocator()),
                        rapidjson::Value(member.value, e.allocator()), e.allocator());
  }
  e.Bool("ok", ok);
  if (!ok) e.Str("reason", reason);
  round_.log.Write("camera", e.value());
  if (!ok) Failed(call, reason);
}

void CameraWatch::OnOpenCamera(int camera, uint32_t pixel_format, int fps, int width, int height,
                               bool ok, const std::string& reason) {
  std::string format;
  for (int i = 0; i < 4; ++i) format.push_back(static_cast<char>((pixel_format >> (8 * i)) & 0xFF));
  Fields f;
  f.Int("camera", camera)
      .Str("format", format)
      .Int("fps", fps)
      .Int("width", width)
      .Int("height", height);
  Call("OpenCamera", f, ok, reason);
}

void CameraWatch::OnCloseCamera(bool ok, const std::string& reason) {
  Fields f;
  Call("CloseCamera", f, ok, reason);
}

void CameraWatch::OnGetImageFrame(bool ok, int64_t index, uint64_t laser, int64_t buffer,
                                  const std::string& reason) {
  if (!ok && !log_frames_) Failed("GetImageFrame", reason);  // logged or not
  if (!log_frames_) return;
  Fields f;
  if (ok) f.Int("index", index).Int("laser", static_cast<int64_t>(laser)).Int("buffer", buffer);
  Call("GetImageFrame", f, ok, reason);
}

void CameraWatch::OnReturnImageFrame(bool ok, int64_t index, const std::string& reason) {
  Fields f;
  f.Int("index", index);
  Call("ReturnImageFrame", f, ok, reason);
}

void CameraWatch::OnSetExposureGain(int exposure, int gain, bool ok, const std::string& reason) {
  Fields f;
  f.Int("exposure", exposure).Int("gain", gain);
  Call("setExposureGain", f, ok, reason);
}

void CameraWatch::OnBufferLeak(int64_t index, int64_t buffer) {
  Fields f;
  f.Int("index", index).Int("buffer", buffer);
  round_.log.Write("buffer_leak", f.value());
}

// The picture folders exist once the node is built; /tmp itself only for
// the stripe pictures.
void CameraWatch::WatchPictures() {
  for (const char* folder : {"/tmp/left", "/tmp/right", "/tmp/pic"}) files_.Add(folder);
  files_.Add("/tmp", {"LL.bmp", "RR.bmp"});
  round_.log.SetBeforeWrite([this] {
    files_.Poll([this](const WrittenFile& file) {
      Fields f;
      f.Str("path", file.path).Int("size", file.size).Str("fnv1a64", file.hash);
      round_.log.Write("file", f.value());
      round_.summary.Written(file.path, file.size, file.hash);
    });
  });
}

}  // namespace kivrun
