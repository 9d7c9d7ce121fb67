// The camera library interface, as the calibration node uses it.
//
// SunxiCam drives the robot's one camera: open it with a pixel format, a
// frame rate and a size, take frames one at a time, hand each frame back
// before taking the next, set exposure and gain, close it. Every operation
// returns true on success. On the PC this library is the camera simulator
// (platform/sunxi_cam/camera_sim.h); all SunxiCam objects of a process
// share the one simulated camera, as they would share the one device.
#ifndef LASERCALI_PLATFORM_SUNXI_CAM_SUNXI_CAM_H_
#define LASERCALI_PLATFORM_SUNXI_CAM_SUNXI_CAM_H_

#include <cstddef>
#include <cstdint>

namespace sunxi_cam {

// Four-character code of the NV21 pixel format: 'N' 'V' '2' '1'.
inline constexpr uint32_t kPixelFormatNV21 = 0x3132564E;

// One frame, filled by GetImageFrame (40 bytes).
struct ImageFrame {
  int64_t index = 0;         // sequence number within the camera session, from 0
  int64_t timestamp_us = 0;  // capture time, microseconds since the session opened
  uint64_t laser = 0;        // low four bits: the laser lit in this frame (1 left, 8 right)
  int64_t buffer = 0;        // the library's buffer slot
  uint8_t* data = nullptr;   // the pixels, valid until the frame is handed back
                             // (on 32-bit targets 4 bytes of padding follow)
};
static_assert(sizeof(ImageFrame) == 40);
static_assert(offsetof(ImageFrame, index) == 0);
static_assert(offsetof(ImageFrame, laser) == 16);
static_assert(offsetof(ImageFrame, data) == 32);

class SunxiCam {
 public:
  SunxiCam();
  ~SunxiCam();
  SunxiCam(const SunxiCam&) = delete;
  SunxiCam& operator=(const SunxiCam&) = delete;

  bool OpenCamera(int camera, uint32_t pixel_format, int fps, int width, int height);
  bool CloseCamera();
  bool GetImageFrame(ImageFrame* frame);
  bool ReturnImageFrame(ImageFrame* frame);
  bool setExposureGain(int exposure, int gain);
};

}  // namespace sunxi_cam

#endif  // LASERCALI_PLATFORM_SUNXI_CAM_SUNXI_CAM_H_
