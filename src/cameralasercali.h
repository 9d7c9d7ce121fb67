// KivNodeLaserCali: the camera/laser calibration node.
//
// The node is the go-between of a calibration. Requests come from a factory
// tool ("CAMERACALI"), from the app ("laser_calibration") and as JSON
// commands on the topic named by the node's identity string. For each
// request it drives the camera (KivNode_caligetpic, caligetpic.h), and once
// a picture set is complete it asks the calculation nodes for a plane,
// camera-parameter or distance result; their answers are relayed to the
// factory side ("CAMERACALIRES") or, in app mode, as state text
// ("laser_state").
//
// Construction makes the picture folders, reads "delt_factory" and
// "delt_app" (required integers, kept as their low 16 bits), advertises six
// topics and subscribes eight handlers in a fixed order, and prints three
// lines. Failures throw std::runtime_error:
//   "can't create file/left" (also right, pic)  -- see MakePictureFolder
//   "can't find cali/delt_factory", "can't find cali/delt_app".
// The node holds only its publishers; all working state is the plug-in's
// globals (caligetpic.h). The destructor releases the publishers and nothing
// else: it neither closes the camera nor stops the frame timer.
//
// The plug-in's entry point Kiv_RegisterNodesFromNodeV3 registers the
// builder of "KivNodeLaserCali"; a second registration into the same
// registry throws "ID 'KivNodeLaserCali' already registered".
#ifndef LASERCALI_SRC_CAMERALASERCALI_H_
#define LASERCALI_SRC_CAMERALASERCALI_H_

#include <rapidjson/document.h>

#include "framework/kiv.h"
#include "msgs/calimsgs.h"

namespace kivplugcali {

class KivNodeLaserCali : public kiv::KivNode {
 public:
  explicit KivNodeLaserCali(const rapidjson::Value& config);
  ~KivNodeLaserCali() override;

  // Requests.
  void CameraLaserCaliProcess(kiv_camera_cali_msg* msg);
  void APPCameraLaserCaliProcess(kiv_msg_laser_calibration* msg);
  void JsonMsgProcess(KivJsonMsg* msg);
  void CameraCaliPStartProcess();

  // Results.
  void laser_camera_APPcalires_send(kiv_camera_APPcalires_msg* msg);
  void CameraCaliPlaneProcess(LaserClibrMsg* msg);
  void CameraCaliIEparamProcess(CameraClibrIEParamMsg* msg);
  void CameraCaliCheckProcess(kiv_camera_calires_msg* msg);
  void CameraDistanceResponse(kiv_camera_distance_msg* msg);
  void LaserPowerResponse(kiv_laserpower_msg* msg);

 private:
  // Publishers, in this declaration order (released in reverse).
  kiv::Publisher<kiv_camera_calires_msg> calires_pub_;      // "CAMERACALIRES"
  kiv::Publisher<kiv_msg_laser_state> laser_state_pub_;     // "laser_state"
  kiv::Publisher<kiv_camera_distance_msg> distance_pub_;    // "DISTANCESTARTCACULATE"
  kiv::Publisher<CameraClibrIEParamMsg> ieparam_pub_;       // "CAMERACALI_IEPARAM"
  kiv::Publisher<LaserClibrMsg> plane_pub_;                 // "LASER_CALIBR_REQ"
  kiv::Publisher<kiv_camera_calicheck_msg> calicheck_pub_;  // "CAMERACALICHECK"
};

}  // namespace kivplugcali

#endif  // LASERCALI_SRC_CAMERALASERCALI_H_
