// The check node: the stripe pictures measured against the planes a plane
// node sent.
#include <cstdio>

#include "msgs/topics.h"
#include "tools/calc/answer_values.h"
#include "tools/calc/calc_nodes.h"

namespace calc {

CheckNode::CheckNode(const rapidjson::Value& config)
    : CalcNode(config, NodeKind::kCheck),
      answers_(Advertise<kiv_camera_calires_msg>(calitopics::kCameraCaliCheckRes)) {
  TakeRequests<kiv_camera_calicheck_msg>(calitopics::kCameraCaliCheck);
  Subscribe<LaserClibrMsg>(
      calitopics::kLaserCalibrReqRes, [this](LaserClibrMsg* answer) { sent_.Take(*answer); }, 10);
}

void CheckNode::Refuse(int64_t code) {
  answer_ = kiv_camera_calires_msg{};
  answer_.kind = 4;
  answer_.check_result = static_cast<uint8_t>(code);
}

Outcome CheckNode::Compute(const std::vector<cv::Mat>& pictures, rapidjson::Document& report) {
  auto& a = report.GetAllocator();
  answer_ = kiv_camera_calires_msg{};
  answer_.kind = 4;

  // 1. The camera the pictures were taken with.
  Outcome outcome;
  CameraModel camera;
  if (!CameraFor(&camera, &outcome)) {
    answer_.check_result = static_cast<uint8_t>(outcome.code);
    return outcome;
  }
  const CameraGeometry geometry(camera);
  std::vector<StripePicture> sides[2];
  PicturesBySide(config().pictures, pictures, config().wall_height, sides);

  // 2. The planes to check: the ones a plane node last sent.
  if (!sent_.valid()) {
    outcome.Fail(kNothingToCheck, "no planes to check: the computing plane node has sent none");
  }
  // 3. Each laser's stripes against its plane.
  Residuals residuals[2];
  rapidjson::Value measured(rapidjson::kObjectType), planes(rapidjson::kObjectType);
  for (int side = 0; side < 2 && sent_.valid(); ++side) {
    planes.AddMember(rapidjson::StringRef(kSides[side]), PlaneReport(sent_[side], a), a);
    residuals[side] = CheckPlane(geometry, sent_[side], sides[side]);
    const Residuals& r = residuals[side];
    rapidjson::Value laser(rapidjson::kObjectType);
    if (r.code != kSuccess) {
      outcome.Fail(r.code, std::string(kSides[side]) + " laser: " + r.reason);
      laser.AddMember("code", r.code, a);
      laser.AddMember("reason", rapidjson::Value(r.reason.c_str(), a), a);
    } else {
      laser.AddMember("rms_px", r.rms, a);
      laser.AddMember("worst_px", r.worst, a);
      laser.AddMember("points", r.points, a);
      laser.AddMember("bias_px", r.bias, a);
      laser.AddMember("bias_picture", rapidjson::Value(r.bias_picture.c_str(), a), a);
    }
    measured.AddMember(rapidjson::StringRef(kSides[side]), laser, a);
  }
  // 4. The four values, and whether they pass.
  if (outcome.code == kSuccess) {
    EncodeCheck(residuals[0].rms, residuals[0].worst, residuals[1].rms, residuals[1].worst,
                answer_.check_data);
    for (int side = 0; side < 2; ++side) {
      const Residuals& r = residuals[side];
      char text[200];
      if (r.bias > config().max_bias_px) {
        std::snprintf(text, sizeof text, "%s laser: the stripe of %s lies %.3f px aside on average",
                      kSides[side], r.bias_picture.c_str(), r.bias);
        outcome.Fail(kCheckFailed,
                     text + ("; at most " + Figure(config().max_bias_px) + " px pass"));
      }
      if (r.rms > config().max_rms_px || r.worst > config().max_worst_px) {
        std::snprintf(text, sizeof text, "%s laser: residuals of %.3f px RMS and %.3f px at worst",
                      kSides[side], r.rms, r.worst);
        outcome.Fail(kCheckFailed, text + ("; at most " + Figure(config().max_rms_px) + " and " +
                                           Figure(config().max_worst_px) + " px pass"));
      }
    }
  }
  answer_.check_result = static_cast<uint8_t>(outcome.code);
  if (sent_.valid()) report.AddMember("planes", planes, a);
  report.AddMember("residuals", measured, a);
  return outcome;
}

}  // namespace calc
