// The calibration node's result handlers and the relay to the app.
#include "src/cameralasercali.h"
#include "src/caligetpic.h"

namespace kivplugcali {

void KivNodeLaserCali::laser_camera_APPcalires_send(kiv_camera_APPcalires_msg* /*msg*/) {}

void KivNodeLaserCali::CameraCaliPlaneProcess(LaserClibrMsg* /*msg*/) {}

void KivNodeLaserCali::CameraCaliIEparamProcess(CameraClibrIEParamMsg* /*msg*/) {}

void KivNodeLaserCali::CameraCaliCheckProcess(kiv_camera_calires_msg* /*msg*/) {}

void KivNodeLaserCali::CameraDistanceResponse(kiv_camera_distance_msg* /*msg*/) {}

void KivNodeLaserCali::LaserPowerResponse(kiv_laserpower_msg* /*msg*/) {}

}  // namespace kivplugcali
