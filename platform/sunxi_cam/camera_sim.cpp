// Camera simulator: the host implementation of SunxiCam.
#include "platform/sunxi_cam/camera_sim.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <memory>
#include <opencv2/core.hpp>
#include <opencv2/imgcodecs.hpp>
#include <stdexcept>
#include <utility>

#include "platform/sunxi_cam/board_light.h"
#include "platform/sunxi_cam/lens.h"
#include "platform/sunxi_cam/physical.h"
#include "platform/sunxi_cam/picture_file.h"
#include "platform/sunxi_cam/scene.h"
#include "platform/sunxi_cam/sim_state.h"
#include "platform/sunxi_cam/sunxi_cam.h"

namespace sunxi_cam {
namespace sim {
namespace {

constexpr int kCamera = 1;  // the robot's one camera
constexpr int kMaxFps = 120;

int Slot(ImageSlot slot) { return static_cast<int>(slot); }
int Op(Operation op) { return static_cast<int>(op); }

constexpr int kMaxBuffers = 64;  // a session's frame buffers at most

// One frame buffer of the camera.
struct Buffer {
  Buffer() : pixels(kFrameBytes, 128) { std::fill_n(pixels.begin(), kLumaBytes, 0); }
  // NV21: frames write the luminance plane; the VU plane stays neutral.
  std::vector<uint8_t> pixels;
  bool out = false;       // taken and not handed back
  bool reported = false;  // already reported as a leak
  int64_t index = 0;      // the frame it holds
  // The cached frame (by its generation) whose luminance the buffer holds;
  // 0: none. A frame the buffer already holds is not copied again: programs
  // only read the frames they get.
  uint64_t holds = 0;
};

struct FaultState {
  Fault fault;
  int calls = 0;  // since the fault was set
};

struct Camera {
  Settings settings;
  Observer* observer = nullptr;
  Status status;
  // Session.
  bool open = false;
  int fps = 0;
  int64_t next_index = 0;
  std::vector<Buffer> buffers;
  std::size_t next_buffer = 0;
  std::array<FaultState, 5> faults{};
  // Rendered frames (full NV21) by the laser field's low four bits; empty
  // until first needed.
  std::array<std::vector<uint8_t>, 16> cache;
  // Each cached frame's generation: a number no other frame this process
  // cached had, so a buffer's `holds` cannot match a frame cached after it.
  std::array<uint64_t, 16> cache_generation{};
};

Camera& TheCamera() {
  static Camera camera;
  return camera;
}

// Frame buffers of sessions that ended, kept for the next session: making a
// buffer's 460,800 bytes costs more than most sessions' frames. A kept
// buffer still holds the frame its `holds` names.
std::vector<Buffer>& SpareBuffers() {
  static std::vector<Buffer> spare;
  return spare;
}

// Gives `cam`'s buffers back to the spares; the camera has none afterwards.
void ReleaseBuffers(Camera& cam) {
  std::vector<Buffer>& spare = SpareBuffers();
  for (Buffer& b : cam.buffers) {
    if (spare.size() < static_cast<std::size_t>(kMaxBuffers)) spare.push_back(std::move(b));
  }
  cam.buffers.clear();
}

// Gives `cam` `count` buffers, none of them out, spares first.
void MakeBuffers(Camera& cam, int count) {
  std::vector<Buffer>& spare = SpareBuffers();
  ReleaseBuffers(cam);
  for (int i = 0; i < count; ++i) {
    if (spare.empty()) {
      cam.buffers.emplace_back();
      continue;
    }
    Buffer b = std::move(spare.back());
    spare.pop_back();
    b.out = false;
    b.reported = false;
    b.index = 0;
    cam.buffers.push_back(std::move(b));
  }
}

void ClearCache() {
  for (auto& frame : TheCamera().cache) frame.clear();
}

// Decides whether this call of `op` fails on purpose, and counts it.
bool Injected(Operation op) {
  FaultState& f = TheCamera().faults[static_cast<std::size_t>(Op(op))];
  ++f.calls;
  switch (f.fault.kind) {
    case Fault::Kind::kNever:
      return false;
    case Fault::Kind::kAlways:
      return true;
    case Fault::Kind::kNextCalls:
      return f.calls <= f.fault.count;
    case Fault::Kind::kAtCall:
      return f.calls == f.fault.count;
  }
  return false;
}

// Counts a call and its outcome; returns `ok`.
bool Count(Operation op, bool ok) {
  Status& s = TheCamera().status;
  ++s.calls[Op(op)];
  if (!ok) ++s.failures[Op(op)];
  return ok;
}

double BrightnessScale() {
  const Camera& cam = TheCamera();
  const Scene& scene = cam.settings.scene;
  if (!scene.exposure_scaling || cam.status.exposure_sets == 0) return 1.0;
  return (static_cast<double>(cam.status.exposure) * cam.status.gain) /
         (static_cast<double>(scene.reference_exposure) * scene.reference_gain);
}

const std::vector<uint8_t>& Frame(uint64_t laser) {
  Camera& cam = TheCamera();
  const unsigned lasers = static_cast<unsigned>(laser & 15u);
  std::vector<uint8_t>& frame = cam.cache[lasers];
  if (!frame.empty()) return frame;
  static uint64_t generations = 0;
  cam.cache_generation[lasers] = ++generations;
  frame.assign(kFrameBytes, 128);  // neutral colour in the VU plane
  const ImageSlot slot = lasers == 1   ? ImageSlot::kLeft
                         : lasers == 8 ? ImageSlot::kRight
                                       : ImageSlot::kOther;
  cv::Mat image = cam.settings.images[static_cast<std::size_t>(Slot(slot))];
  if (image.empty() && cam.settings.pictures) {
    // A missing picture shows black; GetImageFrame refuses such a frame.
    if (!cam.settings.pictures->Find(cam.settings.scene.distance, Slot(slot), &image).empty()) {
      image = cv::Mat::zeros(kHeight, kWidth, CV_8UC1);
    }
  }
  const double scale = BrightnessScale();
  if (image.empty() && cam.settings.scene.renderer == Renderer::kPhysical) {
    // The sensor's own setting; none before the first one is accepted.
    const bool set = cam.status.exposure_sets > 0;
    RenderOrRecall(cam.settings.scene, lasers, 1.0, set ? cam.status.exposure : 0,
                   set ? cam.status.gain : 0, frame.data());
  } else if (image.empty()) {
    RenderOrRecall(cam.settings.scene, lasers, scale, 0, 0, frame.data());
  } else if (scale == 1.0) {
    std::memcpy(frame.data(), image.data, kLumaBytes);
  } else {
    cv::Mat out(kHeight, kWidth, CV_8UC1, frame.data());
    image.convertTo(out, CV_8UC1, scale);
  }
  return frame;
}

// Why a frame with that laser field cannot be shown ("" when it can): its
// picture in the picture folder is missing or cannot be used.
std::string FrameProblem(uint64_t laser) {
  const Camera& cam = TheCamera();
  const unsigned lasers = static_cast<unsigned>(laser & 15u);
  const int slot = lasers == 1 ? 0 : lasers == 8 ? 1 : 2;
  if (!cam.settings.images[static_cast<std::size_t>(slot)].empty() || !cam.settings.pictures) {
    return "";
  }
  cv::Mat picture;
  return cam.settings.pictures->Find(cam.settings.scene.distance, slot, &picture);
}

// Reports frames still out that were not reported yet.
void ReportLeaks() {
  Camera& cam = TheCamera();
  for (std::size_t i = 0; i < cam.buffers.size(); ++i) {
    Buffer& b = cam.buffers[i];
    if (!b.out || b.reported) continue;
    b.reported = true;
    ++cam.status.leaks;
    if (cam.observer) cam.observer->OnBufferLeak(b.index, static_cast<int64_t>(i));
  }
}

std::string Describe(const char* format, long a, long b = 0) {
  char text[128];
  std::snprintf(text, sizeof(text), format, a, b);
  return text;
}

}  // namespace

const char* OperationName(Operation op) {
  switch (op) {
    case Operation::kOpen:
      return "open";
    case Operation::kClose:
      return "close";
    case Operation::kGetFrame:
      return "get_frame";
    case Operation::kReturnFrame:
      return "return_frame";
    case Operation::kSetExposureGain:
      return "set_exposure_gain";
  }
  return "?";
}

void Reset() {
  Camera& cam = TheCamera();
  ReleaseBuffers(cam);
  cam = Camera();
}

const Scene& GetScene() { return TheCamera().settings.scene; }

void SetScene(const Scene& scene) {
  ValidateScene(scene);
  TheCamera().settings.scene = scene;
  ClearCache();
}

void SetDistance(double distance) {
  Scene scene = GetScene();
  scene.distance = distance;
  SetScene(scene);
}

void SetLaserPattern(const std::vector<uint64_t>& pattern) {
  if (pattern.empty()) throw std::invalid_argument("camera sim: laser_pattern must not be empty");
  TheCamera().settings.laser_pattern = pattern;
}

const std::vector<uint64_t>& LaserPattern() { return TheCamera().settings.laser_pattern; }

void UseImageFile(ImageSlot slot, const std::string& path) {
  static const char* const kNames[] = {"images.left", "images.right", "images.other"};
  cv::Mat image = LoadImageFile(path, kNames[Slot(slot)]);
  TheCamera().settings.images[static_cast<std::size_t>(Slot(slot))] = image;
  ClearCache();
}

void SetFault(Operation op, Fault fault) {
  TheCamera().faults[static_cast<std::size_t>(Op(op))] = FaultState{fault, 0};
}

void SetBufferCount(int count) {
  if (count < 1 || count > kMaxBuffers) {
    throw std::invalid_argument("camera sim: buffers must be between 1 and 64");
  }
  TheCamera().settings.buffers = count;
}

void SetObserver(Observer* observer) { TheCamera().observer = observer; }

Status GetStatus() {
  const Camera& cam = TheCamera();
  Status s = cam.status;
  s.open = cam.open;
  s.frames_out = 0;
  for (const Buffer& b : cam.buffers) s.frames_out += b.out ? 1 : 0;
  return s;
}

const uint8_t* Luminance(uint64_t laser) { return Frame(laser).data(); }

const Settings& CurrentSettings() { return TheCamera().settings; }

void ApplySettings(Settings settings, const std::array<std::optional<Fault>, 5>& faults) {
  Camera& cam = TheCamera();
  cam.settings = std::move(settings);
  for (std::size_t i = 0; i < faults.size(); ++i) {
    if (faults[i]) cam.faults[i] = FaultState{*faults[i], 0};
  }
  ClearCache();
}

}  // namespace sim

using sim::Operation;

SunxiCam::SunxiCam() = default;
SunxiCam::~SunxiCam() = default;

bool SunxiCam::OpenCamera(int camera, uint32_t pixel_format, int fps, int width, int height) {
  sim::Camera& cam = sim::TheCamera();
  std::string reason;
  if (sim::Injected(Operation::kOpen)) {
    reason = "injected fault";
  } else if (cam.open) {
    reason = "camera already open";
  } else if (camera != sim::kCamera) {
    reason = sim::Describe("no camera %ld (the robot has camera %ld)", camera, sim::kCamera);
  } else if (pixel_format != kPixelFormatNV21) {
    reason = sim::Describe("pixel format 0x%08lx not supported (NV21 only)", pixel_format);
  } else if (fps < 1 || fps > sim::kMaxFps) {
    reason = sim::Describe("frame rate %ld out of range 1..%ld", fps, sim::kMaxFps);
  } else if (width != sim::kWidth || height != sim::kHeight) {
    reason = sim::Describe("size %ld x %ld not supported (640 x 480 only)", width, height);
  }
  const bool ok = sim::Count(Operation::kOpen, reason.empty());
  if (ok) {
    cam.open = true;
    cam.fps = fps;
    cam.next_index = 0;
    sim::MakeBuffers(cam, cam.settings.buffers);
    cam.next_buffer = 0;
    ++cam.status.open_count;
    cam.status.frames = 0;
  }
  if (cam.observer)
    cam.observer->OnOpenCamera(camera, pixel_format, fps, width, height, ok, reason);
  return ok;
}

bool SunxiCam::CloseCamera() {
  sim::Camera& cam = sim::TheCamera();
  std::string reason;
  if (sim::Injected(Operation::kClose)) {
    reason = "injected fault";
  } else if (!cam.open) {
    reason = "camera not open";
  }
  const bool ok = sim::Count(Operation::kClose, reason.empty());
  if (ok) {
    sim::ReportLeaks();  // frames still out are lost with the session
    cam.open = false;
    sim::ReleaseBuffers(cam);
  }
  if (cam.observer) cam.observer->OnCloseCamera(ok, reason);
  return ok;
}

bool SunxiCam::GetImageFrame(ImageFrame* frame) {
  sim::Camera& cam = sim::TheCamera();
  std::string reason;
  sim::Buffer* buffer = nullptr;
  if (sim::Injected(Operation::kGetFrame)) {
    reason = "injected fault";
  } else if (!cam.open) {
    reason = "camera not open";
  } else if (frame == nullptr) {
    reason = "no frame record";
  } else {
    sim::ReportLeaks();  // a frame still out was not handed back in time
    for (std::size_t n = 0; n < cam.buffers.size() && buffer == nullptr; ++n) {
      const std::size_t i = (cam.next_buffer + n) % cam.buffers.size();
      if (!cam.buffers[i].out) {
        buffer = &cam.buffers[i];
        cam.next_buffer = (i + 1) % cam.buffers.size();
      }
    }
    if (buffer == nullptr) reason = "no free frame buffer";
  }
  if (reason.empty()) {
    const std::vector<uint64_t>& pattern = cam.settings.laser_pattern;
    reason = sim::FrameProblem(pattern[static_cast<std::size_t>(cam.next_index) % pattern.size()]);
  }
  const bool ok = sim::Count(Operation::kGetFrame, reason.empty());
  if (!ok) {
    if (cam.observer) cam.observer->OnGetImageFrame(false, 0, 0, 0, reason);
    return false;
  }
  const int64_t index = cam.next_index++;
  const std::vector<uint64_t>& pattern = cam.settings.laser_pattern;
  const uint64_t laser = pattern[static_cast<std::size_t>(index) % pattern.size()];
  // Every frame's VU plane is the neutral one the buffer was made with.
  const std::vector<uint8_t>& picture = sim::Frame(laser);
  const uint64_t generation = cam.cache_generation[laser & 15u];
  if (buffer->holds != generation) {
    std::memcpy(buffer->pixels.data(), picture.data(), sim::kLumaBytes);
    buffer->holds = generation;
  }
  buffer->out = true;
  buffer->reported = false;
  buffer->index = index;
  frame->index = index;
  frame->timestamp_us = index * 1000000 / cam.fps;
  frame->laser = laser;
  frame->buffer = buffer - cam.buffers.data();
  frame->data = buffer->pixels.data();
  ++cam.status.frames;
  if (cam.observer) cam.observer->OnGetImageFrame(true, index, laser, frame->buffer, reason);
  return true;
}

bool SunxiCam::ReturnImageFrame(ImageFrame* frame) {
  sim::Camera& cam = sim::TheCamera();
  std::string reason;
  sim::Buffer* buffer = nullptr;
  if (sim::Injected(Operation::kReturnFrame)) {
    reason = "injected fault";  // the library keeps nothing: the frame stays out
  } else if (!cam.open) {
    reason = "camera not open";
  } else if (frame == nullptr) {
    reason = "no frame record";
  } else if (frame->buffer < 0 || frame->buffer >= static_cast<int64_t>(cam.buffers.size())) {
    reason = "not a frame of this camera";
  } else {
    buffer = &cam.buffers[static_cast<std::size_t>(frame->buffer)];
    if (!buffer->out || buffer->index != frame->index || buffer->pixels.data() != frame->data) {
      reason = "frame not out (handed back twice?)";
    }
  }
  const bool ok = sim::Count(Operation::kReturnFrame, reason.empty());
  if (ok) buffer->out = false;
  if (cam.observer) cam.observer->OnReturnImageFrame(ok, frame ? frame->index : -1, reason);
  return ok;
}

bool SunxiCam::setExposureGain(int exposure, int gain) {
  sim::Camera& cam = sim::TheCamera();
  std::string reason;
  if (sim::Injected(Operation::kSetExposureGain)) {
    reason = "injected fault";
  } else if (!cam.open) {
    reason = "camera not open";
  } else if (exposure <= 0 || gain <= 0) {
    reason = "exposure and gain must be greater than 0";
  }
  const bool ok = sim::Count(Operation::kSetExposureGain, reason.empty());
  if (ok) {
    const bool changed = exposure != cam.status.exposure || gain != cam.status.gain;
    cam.status.exposure = exposure;
    cam.status.gain = gain;
    ++cam.status.exposure_sets;
    const sim::Scene& scene = cam.settings.scene;
    if (changed && (scene.exposure_scaling || scene.renderer == sim::Renderer::kPhysical)) {
      sim::ClearCache();
    }
  }
  if (cam.observer) cam.observer->OnSetExposureGain(exposure, gain, ok, reason);
  return ok;
}

}  // namespace sunxi_cam
