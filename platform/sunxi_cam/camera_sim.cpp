// Camera simulator: the host implementation of SunxiCam.
//
// This first version only keeps the session state and serves dark frames
// with alternating lasers; scenes, image files and faults come with the
// capture work.
#include <array>
#include <vector>

#include "platform/sunxi_cam/sunxi_cam.h"

namespace sunxi_cam {
namespace {

struct Camera {
  bool open = false;
  bool frame_out = false;
  int64_t next_index = 0;
  std::vector<uint8_t> pixels = std::vector<uint8_t>(640 * 480 * 3 / 2, 0);
};

Camera& TheCamera() {
  static Camera camera;
  return camera;
}

}  // namespace

SunxiCam::SunxiCam() = default;
SunxiCam::~SunxiCam() = default;

bool SunxiCam::OpenCamera(int /*camera*/, uint32_t pixel_format, int fps, int width, int height) {
  Camera& cam = TheCamera();
  if (cam.open || pixel_format != kPixelFormatNV21 || fps <= 0 || width != 640 || height != 480) {
    return false;
  }
  cam.open = true;
  cam.next_index = 0;
  return true;
}

bool SunxiCam::CloseCamera() {
  Camera& cam = TheCamera();
  if (!cam.open) return false;
  cam.open = false;
  cam.frame_out = false;
  return true;
}

bool SunxiCam::GetImageFrame(ImageFrame* frame) {
  Camera& cam = TheCamera();
  if (!cam.open || frame == nullptr) return false;
  frame->index = cam.next_index++;
  frame->timestamp_us = frame->index * 10000;
  frame->laser = (frame->index % 2 == 0) ? 1 : 8;
  frame->buffer = 0;
  frame->data = cam.pixels.data();
  cam.frame_out = true;
  return true;
}

bool SunxiCam::ReturnImageFrame(ImageFrame* frame) {
  Camera& cam = TheCamera();
  if (!cam.frame_out || frame == nullptr) return false;
  cam.frame_out = false;
  return true;
}

bool SunxiCam::setExposureGain(int /*exposure*/, int /*gain*/) { return TheCamera().open; }

}  // namespace sunxi_cam
