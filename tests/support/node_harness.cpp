#include "tests/support/node_harness.h"

#include <stdexcept>

#include "msgs/topics.h"
#include "src/caligetpic.h"

namespace testsupport {

void ResetPluginGlobals() {
  using namespace kivplugcali;
  pic_save = cv::Mat::zeros(480, 640, CV_8UC1);
  pic_left = cv::Mat::zeros(480, 640, CV_8UC1);
  pic_right = cv::Mat::zeros(480, 640, CV_8UC1);
  dis_chessboard = 255;
  dis_DistanceCheck = 0x3333;
  time_interval = 10;
  REAR_VIDEO_FPS = 100;
  distance_curr = 60;
  exposure_value = 1900;
  gain_value = 32;
  distance_factory = distance_app = distance_delt = 0;
  APP_USE = 0;
  APPcalires_dis = 0;
  cameraopen_flag = camera1_open_flag = timer_fd = 0;
  set_expgain_flag = delay_count = save_pic_success = 0;
  LASER_ID = 0;
  cameraplanecali_reset_flag = cameraplaneCheck_reset_flag = 0;
  DistanceCheck_reset_flag = cameraIEparamcali_reset_flag = 0;
  cameraplanecali_publish_flag = cameraIEparamcali_publish_flag = DistanceCheck_publish_flag = 0;
  image_frame = sunxi_cam::ImageFrame();
  std::memset(filename, 0, sizeof(filename));
  left_path = "/tmp/left";
  right_path = "/tmp/right";
  pic_path = "/tmp/pic";
  msg_camera_calires = kiv_camera_calires_msg();
  msg_camera_APPcalires = kiv_camera_APPcalires_msg();
  createfile_res = camera_fd = 0;
}

template <typename T>
void NodeHarness::Watch(const std::string& topic) {
  host_.Subscribe<T>("test", topic, [this, topic](T* record) {
    Publication p;
    p.topic = topic;
    const auto& stack = kiv::KivProcTimeRec::m_pInstance->m_publishInfo;
    p.tag = stack.empty() ? std::string() : stack.back();
    if constexpr (std::is_same_v<T, kiv_msg_laser_state>) {
      p.text = record->text;
    } else {
      const auto* bytes = reinterpret_cast<const uint8_t*>(record);
      p.bytes.assign(bytes, bytes + sizeof(T));
    }
    publications.push_back(std::move(p));
  });
}

NodeHarness::NodeHarness(const std::string& config_json) {
  ResetPluginGlobals();
  kiv::KivProcTimeRec* rec = kiv::KivProcTimeRec::m_pInstance;
  trace_was_on_ = rec->m_bEnable;
  rec->m_bEnable = true;
  rec->m_publishInfo.clear();

  using namespace calitopics;
  Watch<kiv_camera_calires_msg>(kCameraCaliRes);
  Watch<kiv_msg_laser_state>(kLaserState);
  Watch<kiv_camera_distance_msg>(kDistanceStartCaculate);
  Watch<CameraClibrIEParamMsg>(kCameraCaliIEParam);
  Watch<LaserClibrMsg>(kLaserCalibrReq);
  Watch<kiv_camera_calicheck_msg>(kCameraCaliCheck);

  console_ = std::make_unique<ConsoleCapture>();
  rapidjson::Document config;
  config.Parse(config_json.c_str());
  if (config.HasParseError()) throw std::invalid_argument("bad test config: " + config_json);
  Kiv_RegisterNodesFromNodeV3(registry_);
  std::unique_ptr<kiv::KivNode> built = registry_.at("KivNodeLaserCali")(config);
  node_.reset(static_cast<kivplugcali::KivNodeLaserCali*>(built.release()));
}

NodeHarness::~NodeHarness() {
  node_.reset();
  console_.reset();
  kiv::KivProcTimeRec::m_pInstance->m_bEnable = trace_was_on_;
  kiv::KivProcTimeRec::m_pInstance->m_publishInfo.clear();
}

}  // namespace testsupport
