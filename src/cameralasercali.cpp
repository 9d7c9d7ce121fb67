// The calibration node's construction, teardown and registration, and the
// node file's globals.
#include "src/cameralasercali.h"

#include <sys/stat.h>
#include <sys/types.h>

#include <functional>
#include <iostream>
#include <stdexcept>
#include <string>

#include "msgs/topics.h"
#include "src/caligetpic.h"

namespace kivplugcali {

// Made at load after the capture unit's globals.
std::string left_path = "/tmp/left";
std::string right_path = "/tmp/right";
std::string pic_path = "/tmp/pic";
kiv_camera_calires_msg msg_camera_calires = {};
kiv_camera_APPcalires_msg msg_camera_APPcalires = {};

namespace {

// Makes a picture folder. The second mkdir is meant to fail because the
// first one made the folder (or found it): a second success means the
// folder vanished in between, and only that stops construction. A folder
// that cannot be made at all fails both calls and does not stop it.
void MakePictureFolder(const std::string& path, const char* which) {
  createfile_res = mkdir(path.c_str(), 0775);
  createfile_res = mkdir(path.c_str(), 0775);
  if (createfile_res == 0) {
    std::cout << "xxx  can't create file/" << which << " " << std::endl;
    throw std::runtime_error(std::string("can't create file/") + which);
  }
}

// The low 16 bits of a required integer member of the configuration.
uint16_t ReadDistance(const rapidjson::Value& config, const char* key) {
  if (!config.IsObject()) throw std::runtime_error(std::string("can't find cali/") + key);
  auto it = config.FindMember(key);
  if (it == config.MemberEnd() || !it->value.IsInt()) {
    throw std::runtime_error(std::string("can't find cali/") + key);
  }
  return static_cast<uint16_t>(it->value.GetInt());
}

}  // namespace

KivNodeLaserCali::KivNodeLaserCali(const rapidjson::Value& config) : kiv::KivNode(config) {
  using std::placeholders::_1;
  using namespace calitopics;

  MakePictureFolder(left_path, "left");
  MakePictureFolder(right_path, "right");
  MakePictureFolder(pic_path, "pic");

  distance_factory = ReadDistance(config, "delt_factory");
  std::cout << "xxx  delt_factory " << distance_factory << std::endl;
  distance_app = ReadDistance(config, "delt_app");
  std::cout << "xxx  delt_app " << distance_app << std::endl;
  distance_delt = distance_factory;

  calires_pub_ = Advertise<kiv_camera_calires_msg>(kCameraCaliRes);
  Subscribe<kiv_camera_cali_msg>(
      kCameraCali, std::bind(&KivNodeLaserCali::CameraLaserCaliProcess, this, _1), kSubscribeDepth);
  Subscribe<KivJsonMsg>(NodeName(), std::bind(&KivNodeLaserCali::JsonMsgProcess, this, _1),
                        kSubscribeDepth);
  distance_pub_ = Advertise<kiv_camera_distance_msg>(kDistanceStartCaculate);
  ieparam_pub_ = Advertise<CameraClibrIEParamMsg>(kCameraCaliIEParam);
  plane_pub_ = Advertise<LaserClibrMsg>(kLaserCalibrReq);
  Subscribe<CameraClibrIEParamMsg>(
      kCameraCaliIEParamRes, std::bind(&KivNodeLaserCali::CameraCaliIEparamProcess, this, _1),
      kSubscribeDepth);
  Subscribe<LaserClibrMsg>(kLaserCalibrReqRes,
                           std::bind(&KivNodeLaserCali::CameraCaliPlaneProcess, this, _1),
                           kSubscribeDepth);
  calicheck_pub_ = Advertise<kiv_camera_calicheck_msg>(kCameraCaliCheck);
  Subscribe<kiv_camera_calires_msg>(
      kCameraCaliCheckRes, std::bind(&KivNodeLaserCali::CameraCaliCheckProcess, this, _1),
      kSubscribeDepth);
  laser_state_pub_ = Advertise<kiv_msg_laser_state>(kLaserState);
  Subscribe<kiv_msg_laser_calibration>(
      kLaserCalibration, std::bind(&KivNodeLaserCali::APPCameraLaserCaliProcess, this, _1),
      kSubscribeDepth);
  Subscribe<kiv_camera_distance_msg>(
      kAppDistanceRes, std::bind(&KivNodeLaserCali::CameraDistanceResponse, this, _1),
      kSubscribeDepth);
  Subscribe<kiv_laserpower_msg>(kLaserPower,
                                std::bind(&KivNodeLaserCali::LaserPowerResponse, this, _1),
                                kSubscribeDepth);

  std::cout << "xxx  ARMxxx" << std::endl;
}

KivNodeLaserCali::~KivNodeLaserCali() = default;

}  // namespace kivplugcali

extern "C" __attribute__((visibility("default"))) void Kiv_RegisterNodesFromNodeV3(
    kiv::NodeRegistry& registry) {
  const std::string id = "KivNodeLaserCali";
  kiv::NodeBuilder builder = kiv::NodeFactory::getBuilderImpl<kivplugcali::KivNodeLaserCali>();
  auto it = registry.lower_bound(id);
  if (it != registry.end() && !registry.key_comp()(id, it->first)) {
    throw std::runtime_error("ID '" + id + "' already registered");
  }
  registry.emplace_hint(it, id, std::move(builder));
}
