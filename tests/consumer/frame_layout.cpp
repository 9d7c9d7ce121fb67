// Built against lasercali::sunxi_cam: prints the camera frame record's size
// and the offset of its pixel pointer, then opens the robot's camera (1),
// takes one frame, hands it back and closes the camera.
#include <cstddef>
#include <cstdio>

#include "platform/sunxi_cam/sunxi_cam.h"

int main() {
  std::printf("ImageFrame %zu bytes, data at %zu, ", sizeof(sunxi_cam::ImageFrame),
              offsetof(sunxi_cam::ImageFrame, data));
  sunxi_cam::SunxiCam camera;
  if (!camera.OpenCamera(1, sunxi_cam::kPixelFormatNV21, 100, 640, 480)) {
    std::printf("the camera did not open\n");
    return 1;
  }
  sunxi_cam::ImageFrame frame;
  const bool taken = camera.GetImageFrame(&frame) && frame.data != nullptr;
  const bool returned = taken && camera.ReturnImageFrame(&frame);
  const bool closed = camera.CloseCamera();
  std::printf("frame %s\n", taken && returned && closed ? "taken" : "not taken");
  return taken && returned && closed ? 0 : 1;
}
