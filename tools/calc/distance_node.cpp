// The distance node: the wall of the distance check, measured with the
// planes a plane node sent.
#include <cmath>
#include <cstdio>

#include "msgs/topics.h"
#include "tools/calc/answer_values.h"
#include "tools/calc/calc_nodes.h"
#include "tools/calc/distance.h"

namespace calc {

DistanceNode::DistanceNode(const rapidjson::Value& config)
    : CalcNode(config, NodeKind::kDistance),
      answers_(Advertise<kiv_camera_distance_msg>(calitopics::kAppDistanceRes)) {
  TakeRequests<kiv_camera_distance_msg>(calitopics::kDistanceStartCaculate);
  Subscribe<LaserClibrMsg>(
      calitopics::kLaserCalibrReqRes, [this](LaserClibrMsg* answer) { sent_.Take(*answer); }, 10);
}

void DistanceNode::Refuse(int64_t code) {
  answer_ = kiv_camera_distance_msg{};
  answer_.kind = 1;
  answer_.status = static_cast<uint8_t>(code);
}

Outcome DistanceNode::Compute(const std::vector<cv::Mat>& pictures, rapidjson::Document& report) {
  auto& a = report.GetAllocator();
  answer_ = kiv_camera_distance_msg{};
  answer_.kind = 1;

  // 1. The camera the pictures were taken with.
  Outcome outcome;
  CameraModel camera;
  if (!CameraFor(&camera, &outcome)) {
    answer_.status = static_cast<uint8_t>(outcome.code);
    return outcome;
  }
  const CameraGeometry geometry(camera);

  // 2. The planes to measure with: the ones a plane node sent, else the
  // configured ones.
  const bool sent = sent_.valid();
  if (!sent && !config().has_fallback) {
    outcome.Fail(kNothingToCheck,
                 "no planes to measure with: no plane node has sent planes, and none are "
                 "configured");
    answer_.status = static_cast<uint8_t>(outcome.code);
    report.AddMember("planes", "none", a);
    return outcome;
  }
  const Plane planes[2] = {sent ? sent_[0] : config().fallback[0],
                           sent ? sent_[1] : config().fallback[1]};
  // 3. Each laser's wall.
  WallMeasure walls[2];
  WallValues values[2];
  rapidjson::Value measured(rapidjson::kObjectType);
  for (int side = 0; side < 2; ++side) {
    StripePicture picture;
    picture.name = config().pictures[side];
    const cv::Mat& p = pictures[side];
    picture.picture = {p.data, p.cols, p.rows, static_cast<int>(p.step[0])};
    walls[side] = MeasureWall(geometry, planes[side], picture);
    const WallMeasure& w = walls[side];
    rapidjson::Value laser(rapidjson::kObjectType);
    if (w.code != kSuccess) {
      outcome.Fail(w.code, std::string(kSides[side]) + " laser: " + w.reason);
      laser.AddMember("code", w.code, a);
      laser.AddMember("reason", rapidjson::Value(w.reason.c_str(), a), a);
    } else {
      laser.AddMember("distance_cm", w.distance, a);
      laser.AddMember("spread_cm", w.spread, a);
      laser.AddMember("tilt", w.tilt, a);
      laser.AddMember("wall_points", w.wall_points, a);
      laser.AddMember("nearest_floor_cm", w.nearest_floor, a);
      laser.AddMember("floor_rms_cm", w.floor_rms, a);
      laser.AddMember("floor_points", w.floor_points, a);
    }
    measured.AddMember(rapidjson::StringRef(kSides[side]), laser, a);
    values[side] = {w.distance, w.spread, w.tilt, w.wall_points, w.nearest_floor, w.floor_rms};
  }
  // 4. The values, when both walls were measured, and whether they agree.
  if (outcome.code == kSuccess) {
    EncodeDistance(values[0], values[1], &answer_.distance, answer_.near_values,
                   answer_.far_values);
    const double apart = std::fabs(walls[0].distance - walls[1].distance);
    if (apart > config().max_apart) {
      char text[80];
      std::snprintf(text, sizeof text, "the lasers' walls lie %.2f mm apart", apart * 10);
      outcome.Fail(kLasersDisagree,
                   text + ("; at most " + Figure(config().max_apart * 10) + " mm pass"));
    }
  }
  answer_.status = static_cast<uint8_t>(outcome.code == kSuccess ? 0 : outcome.code);
  report.AddMember("planes", rapidjson::StringRef(sent ? "sent" : "fallback"), a);
  report.AddMember("walls", measured, a);
  return outcome;
}

}  // namespace calc
