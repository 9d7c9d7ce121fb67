// The plane node: each laser's plane from its stripe pictures.
#include <cstring>

#include "msgs/topics.h"
#include "tools/calc/answer_values.h"
#include "tools/calc/calc_nodes.h"
#include "tools/calc/picture_files.h"

namespace calc {

void PicturesBySide(const std::vector<std::string>& paths, const std::vector<cv::Mat>& pictures,
                    double wall_height, std::vector<StripePicture> sides[2]) {
  for (std::size_t i = 0; i < paths.size(); ++i) {
    bool left = false;
    int distance = 0;
    StripePictureOf(paths[i], &left, &distance);  // the configuration made sure it can
    StripePicture p;
    p.name = paths[i];
    const cv::Mat& picture = pictures[i];
    p.picture = {picture.data, picture.cols, picture.rows, static_cast<int>(picture.step[0])};
    p.target = {static_cast<double>(distance), wall_height};
    sides[left ? 0 : 1].push_back(p);
  }
}

PlaneNode::PlaneNode(const rapidjson::Value& config)
    : CalcNode(config, NodeKind::kPlane),
      answers_(Advertise<LaserClibrMsg>(calitopics::kLaserCalibrReqRes)) {
  TakeRequests<LaserClibrMsg>(calitopics::kLaserCalibrReq);
}

void PlaneNode::Refuse(int64_t code) {
  answer_ = LaserClibrMsg{};
  answer_.kind = 2;
  answer_.result = static_cast<int32_t>(code);
}

Outcome PlaneNode::Compute(const std::vector<cv::Mat>& pictures, rapidjson::Document& report) {
  auto& a = report.GetAllocator();
  answer_ = LaserClibrMsg{};
  answer_.kind = 2;

  // 1. The camera the pictures were taken with.
  Outcome outcome;
  CameraModel camera;
  if (!CameraFor(&camera, &outcome)) {
    answer_.result = outcome.code;
    return outcome;
  }
  std::vector<StripePicture> sides[2];
  PicturesBySide(config().pictures, pictures, config().wall_height, sides);

  // 2. Each laser's plane through the stripe points of its pictures.
  LaserFit fits[2];
  rapidjson::Value lasers(rapidjson::kObjectType);
  for (int side = 0; side < 2; ++side) {
    fits[side] = CalibrateLaserThrough(camera, sides[side], config().calibration);
    const LaserFit& fit = fits[side];
    rapidjson::Value laser(rapidjson::kObjectType);
    if (fit.code != kSuccess) {
      outcome.Fail(fit.code, std::string(kSides[side]) + " laser: " + fit.reason);
      laser.AddMember("code", fit.code, a);
      laser.AddMember("reason", rapidjson::Value(fit.reason.c_str(), a), a);
    } else {
      laser = PlaneReport(fit.fit.plane, a);
      laser.AddMember("points", fit.points, a);
      laser.AddMember("floor_points", fit.floor_points, a);
      laser.AddMember("wall_points", fit.wall_points, a);
      laser.AddMember("rms_cm", fit.fit.rms, a);
      laser.AddMember("outliers", fit.outliers, a);
      rapidjson::Value sigma(rapidjson::kObjectType);
      sigma.AddMember("yaw_deg", fit.sigma.yaw, a);
      sigma.AddMember("roll_deg", fit.sigma.roll, a);
      sigma.AddMember("offset_cm", fit.sigma.offset, a);
      laser.AddMember("sigma", sigma, a);
    }
    lasers.AddMember(rapidjson::StringRef(kSides[side]), laser, a);
  }
  // 3. The two planes on the sides they belong to.
  if (outcome.code == kSuccess && SidesSwapped(fits[0].fit.plane, fits[1].fit.plane)) {
    outcome.Fail(kSidesSwapped,
                 "the left laser's plane lies right of the right laser's: the pictures of the "
                 "two lasers are swapped");
  }
  // 4. The nine values, when the planes fit in them.
  uint16_t values[9] = {};
  if (outcome.code == kSuccess) {
    LaserPlaneValues sent[2];
    for (int side = 0; side < 2; ++side) {
      sent[side].angles = AnglesOf(fits[side].fit.plane);
      sent[side].rms = fits[side].fit.rms;
    }
    if (!EncodePlanes(sent[0], sent[1], fits[0].points + fits[1].points, values)) {
      outcome.Fail(kNotEncodable,
                   "a plane lies outside what the nine values carry (yaw and roll within 32.767 "
                   "degrees, offset within 327.67 mm)");
    }
  }
  std::memcpy(answer_.plane_data, values, sizeof values);
  answer_.result = outcome.code;
  report.AddMember("lasers", lasers, a);
  return outcome;
}

}  // namespace calc
