// The calibration node's request handlers: factory request, start
// sequence, app request and JSON commands.
#include "src/cameralasercali.h"
#include "src/caligetpic.h"

namespace kivplugcali {

void KivNodeLaserCali::CameraLaserCaliProcess(kiv_camera_cali_msg* /*msg*/) {}

void KivNodeLaserCali::CameraCaliPStartProcess() {}

void KivNodeLaserCali::APPCameraLaserCaliProcess(kiv_msg_laser_calibration* /*msg*/) {}

void KivNodeLaserCali::JsonMsgProcess(KivJsonMsg* /*msg*/) {}

}  // namespace kivplugcali
