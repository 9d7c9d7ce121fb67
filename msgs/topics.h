// Topics of the calibration node, in the order its constructor sets them up.
//
// Every subscription has queue depth 10. The JSON command topic has no fixed
// name: it is the node's identity string (kTopicTable row 3, topic null).
// "DISTANCESTARTCACULATE" is spelt so on purpose.
#ifndef LASERCALI_MSGS_TOPICS_H_
#define LASERCALI_MSGS_TOPICS_H_

namespace calitopics {

inline constexpr char kCameraCaliRes[] = "CAMERACALIRES";
inline constexpr char kCameraCali[] = "CAMERACALI";
inline constexpr char kDistanceStartCaculate[] = "DISTANCESTARTCACULATE";
inline constexpr char kCameraCaliIEParam[] = "CAMERACALI_IEPARAM";
inline constexpr char kLaserCalibrReq[] = "LASER_CALIBR_REQ";
inline constexpr char kCameraCaliIEParamRes[] = "CAMERACALI_IEPARAMRES";
inline constexpr char kLaserCalibrReqRes[] = "LASER_CALIBR_REQRES";
inline constexpr char kCameraCaliCheck[] = "CAMERACALICHECK";
inline constexpr char kCameraCaliCheckRes[] = "CAMERACALICHECKRES";
inline constexpr char kLaserState[] = "laser_state";
inline constexpr char kLaserCalibration[] = "laser_calibration";
inline constexpr char kAppDistanceRes[] = "APPDISTANCERES";
inline constexpr char kLaserPower[] = "LASERPOWER";

inline constexpr int kSubscribeDepth = 10;

enum class Direction { kAdvertise, kSubscribe };

struct TopicRow {
  int step;
  Direction direction;
  const char* topic;    // null: the node's identity string (JSON commands)
  const char* record;   // record type name
  const char* handler;  // handler of a subscription, publisher member of an advertisement
};

inline constexpr TopicRow kTopicTable[] = {
    {1, Direction::kAdvertise, kCameraCaliRes, "kiv_camera_calires_msg", "publisher 1"},
    {2, Direction::kSubscribe, kCameraCali, "kiv_camera_cali_msg", "CameraLaserCaliProcess"},
    {3, Direction::kSubscribe, nullptr, "KivJsonMsg", "JsonMsgProcess"},
    {4, Direction::kAdvertise, kDistanceStartCaculate, "kiv_camera_distance_msg", "publisher 3"},
    {5, Direction::kAdvertise, kCameraCaliIEParam, "CameraClibrIEParamMsg", "publisher 4"},
    {6, Direction::kAdvertise, kLaserCalibrReq, "LaserClibrMsg", "publisher 5"},
    {7, Direction::kSubscribe, kCameraCaliIEParamRes, "CameraClibrIEParamMsg",
     "CameraCaliIEparamProcess"},
    {8, Direction::kSubscribe, kLaserCalibrReqRes, "LaserClibrMsg", "CameraCaliPlaneProcess"},
    {9, Direction::kAdvertise, kCameraCaliCheck, "kiv_camera_calicheck_msg", "publisher 6"},
    {10, Direction::kSubscribe, kCameraCaliCheckRes, "kiv_camera_calires_msg",
     "CameraCaliCheckProcess"},
    {11, Direction::kAdvertise, kLaserState, "kiv_msg_laser_state", "publisher 2"},
    {12, Direction::kSubscribe, kLaserCalibration, "kiv_msg_laser_calibration",
     "APPCameraLaserCaliProcess"},
    {13, Direction::kSubscribe, kAppDistanceRes, "kiv_camera_distance_msg",
     "CameraDistanceResponse"},
    {14, Direction::kSubscribe, kLaserPower, "kiv_laserpower_msg", "LaserPowerResponse"},
};

}  // namespace calitopics

#endif  // LASERCALI_MSGS_TOPICS_H_
