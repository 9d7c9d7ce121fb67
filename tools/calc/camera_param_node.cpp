// The camera parameter node: chessboard views in, the camera out.
#include <rapidjson/document.h>
#include <rapidjson/error/en.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <fstream>
#include <sstream>

#include "msgs/topics.h"
#include "tools/calc/calc_nodes.h"
#include "tools/calc/camera_calibration.h"
#include "tools/calc/camera_model_file.h"

namespace calc {
namespace {

// "view 03": the view's place in the set, as reasons name it.
std::string ViewName(int number) {
  char text[24];
  std::snprintf(text, sizeof text, "view %02d", number);
  return text;
}

bool ReadVector(const rapidjson::Value& object, const char* key, Vec3* v) {
  if (!object.HasMember(key)) return false;
  const rapidjson::Value& a = object[key];
  if (!a.IsArray() || a.Size() != 3) return false;
  double x[3];
  for (rapidjson::SizeType i = 0; i < 3; ++i) {
    if (!a[i].IsNumber() || !std::isfinite(a[i].GetDouble())) return false;
    x[i] = a[i].GetDouble();
  }
  *v = {x[0], x[1], x[2]};
  return true;
}

// The board's placement on the robot for the view being taken, from the
// fixture's file; empty on success, else what is wrong.
std::string ReadPlacement(const std::string& path, BoardPlacement* placement) {
  std::ifstream in(path, std::ios::binary);
  if (!in) return "the board's placement file " + path + " is missing";
  std::stringstream text;
  text << in.rdbuf();
  const std::string s = text.str();
  if (s.size() > 65536) return "the board's placement file " + path + " is larger than 64 KiB";
  rapidjson::Document doc;
  doc.Parse(s.c_str(), s.size());
  if (doc.HasParseError()) {
    return "the board's placement file " + path + " is not JSON (" +
           rapidjson::GetParseError_En(doc.GetParseError()) + ")";
  }
  BoardPlacement p;
  if (!doc.IsObject() || !ReadVector(doc, "origin_cm", &p.origin) ||
      !ReadVector(doc, "x_axis", &p.x_axis) || !ReadVector(doc, "y_axis", &p.y_axis)) {
    return "the board's placement file " + path +
           " needs {\"origin_cm\": [x, y, z], \"x_axis\": [x, y, z], \"y_axis\": [x, y, z]}";
  }
  const double tolerance = 1e-6;
  if (std::fabs(Dot(p.x_axis, p.x_axis) - 1) > tolerance ||
      std::fabs(Dot(p.y_axis, p.y_axis) - 1) > tolerance ||
      std::fabs(Dot(p.x_axis, p.y_axis)) > tolerance) {
    return "the board's placement file " + path +
           ": x_axis and y_axis must be at right "
           "angles, each of unit length";
  }
  *placement = p;
  return "";
}

rapidjson::Value Numbers(std::initializer_list<double> values,
                         rapidjson::Document::AllocatorType& a) {
  rapidjson::Value list(rapidjson::kArrayType);
  for (double v : values) list.PushBack(v, a);
  return list;
}

rapidjson::Value PoseReport(const CameraPose& pose, rapidjson::Document::AllocatorType& a) {
  rapidjson::Value v(rapidjson::kObjectType);
  v.AddMember("x_cm", pose.x, a);
  v.AddMember("y_cm", pose.y, a);
  v.AddMember("height_cm", pose.height, a);
  v.AddMember("yaw_deg", pose.yaw, a);
  v.AddMember("pitch_deg", pose.pitch, a);
  v.AddMember("roll_deg", pose.roll, a);
  return v;
}

// The calibrated camera as the report gives it (docs/calibration.md).
rapidjson::Value CameraReport(const CameraCalibration& c, const std::string& file,
                              rapidjson::Document::AllocatorType& a) {
  const CameraModel& m = c.model;
  rapidjson::Value v(rapidjson::kObjectType);
  v.AddMember("fx", m.intrinsics.fx, a);
  v.AddMember("fy", m.intrinsics.fy, a);
  v.AddMember("cx", m.intrinsics.cx, a);
  v.AddMember("cy", m.intrinsics.cy, a);
  const Distortion& d = m.distortion;
  v.AddMember("distortion", Numbers({d.k1, d.k2, d.p1, d.p2, d.k3}, a), a);
  const Intrinsics& ks = m.intrinsics_sigma;
  const Distortion& ds = m.distortion_sigma;
  v.AddMember("sigma", Numbers({ks.fx, ks.fy, ks.cx, ks.cy, ds.k1, ds.k2, ds.p1, ds.p2, ds.k3}, a),
              a);
  if (m.pose_known) {
    v.AddMember("pose", PoseReport(m.pose, a), a);
    v.AddMember("pose_sigma", PoseReport(m.pose_sigma, a), a);
  }
  v.AddMember("rms_px", c.rms, a);
  v.AddMember("pose_rms_px", c.pose_rms, a);
  v.AddMember("coverage", c.coverage, a);
  v.AddMember("views", c.views, a);
  v.AddMember("file", rapidjson::Value(file.c_str(), a), a);
  return v;
}

// The RMS reprojection error as ieparam2 carries it: hundredths of a pixel,
// at most 127 (the calibration node relays the value as a signed byte).
uint8_t RmsValue(double rms) {
  const double hundredths = std::floor(rms * 100 + 0.5);
  return static_cast<uint8_t>(std::fmin(std::fmax(hundredths, 0.0), 127.0));
}

}  // namespace

CameraParamNode::CameraParamNode(const rapidjson::Value& config)
    : CalcNode(config, NodeKind::kCameraParam),
      answers_(Advertise<CameraClibrIEParamMsg>(calitopics::kCameraCaliIEParamRes)) {
  TakeRequests<CameraClibrIEParamMsg>(calitopics::kCameraCaliIEParam);
}

void CameraParamNode::Refuse(int64_t code) {
  answer_ = CameraClibrIEParamMsg{};
  answer_.ieparam1 = static_cast<uint8_t>(std::min<std::size_t>(kept_.size(), 127));
  answer_.ieparam3 = static_cast<uint16_t>(code);
}

Outcome CameraParamNode::Compute(const std::vector<cv::Mat>& pictures,
                                 rapidjson::Document& report) {
  auto& a = report.GetAllocator();
  const BoardGeometry& board = config().board;
  const std::string name = ViewName(++asked_);
  Outcome outcome;

  // 1. The board in this view, its corners to a fraction of a pixel.
  const cv::Mat& picture = pictures[0];
  const GrayPicture gray{picture.data, picture.cols, picture.rows,
                         static_cast<int>(picture.step[0])};
  const FoundBoard found = FindBoard(name, gray, board);
  rapidjson::Value seen(rapidjson::kObjectType);
  seen.AddMember("view", rapidjson::Value(name.c_str(), a), a);
  seen.AddMember("columns", board.columns, a);
  seen.AddMember("rows", board.rows, a);
  seen.AddMember("found", found.code == kSuccess, a);
  if (found.code == kSuccess) {
    rapidjson::Value points(rapidjson::kArrayType);
    for (const Pixel& c : found.corners) points.PushBack(Numbers({c.u, c.v}, a), a);
    seen.AddMember("corners", points, a);
  }
  report.AddMember("board", seen, a);

  // 2. Where the board stood on the robot, when the fixture says so.
  BoardPlacement placement;
  std::string placement_problem;
  if (!config().placement_file.empty()) {
    placement_problem = ReadPlacement(config().placement_file, &placement);
  }

  // 3. Keep the view: the picture itself, as the next request overwrites
  // its file.
  if (found.code != kSuccess) {
    outcome.Fail(found.code, found.reason);
  } else if (!placement_problem.empty()) {
    outcome.Fail(static_cast<int>(config().refuse), name + ": " + placement_problem);
  } else {
    kept_.push_back({name, picture.clone(), found.corners, placement});
  }

  // 4. Once the set is complete, the camera from the views kept.
  answer_ = CameraClibrIEParamMsg{};
  rapidjson::Value views(rapidjson::kObjectType);
  views.AddMember("asked", asked_, a);
  views.AddMember("kept", static_cast<int>(kept_.size()), a);
  views.AddMember("needed", config().views, a);
  report.AddMember("views", views, a);
  uint16_t status = outcome.code == kSuccess ? kViewKept : static_cast<uint16_t>(outcome.code);
  if (asked_ >= config().views) {
    std::vector<std::string> names;
    std::vector<std::vector<Pixel>> corners;
    std::vector<BoardPlacement> placements;
    for (const KeptView& view : kept_) {
      names.push_back(view.name);
      corners.push_back(view.corners);
      if (!config().placement_file.empty()) placements.push_back(view.placement);
    }
    const CameraCalibration c =
        CalibrateFromCorners(names, corners, picture.cols, picture.rows, board, placements);
    outcome = Outcome{};
    answer_.ieparam2 = RmsValue(c.rms);
    if (c.code != kSuccess) {
      outcome.Fail(c.code, c.reason);
    } else {
      std::string error;
      if (!WriteCameraModelFile(config().camera_out, c.model, &error)) {
        outcome.Fail(static_cast<int>(config().refuse), error);
      } else {
        report.AddMember("camera", CameraReport(c, config().camera_out, a), a);
      }
    }
    status = static_cast<uint16_t>(outcome.code);
    answer_.ieparam1 = static_cast<uint8_t>(std::min(c.views, 127));
    // The next request starts a new set.
    asked_ = 0;
    kept_.clear();
  } else {
    answer_.ieparam1 = static_cast<uint8_t>(std::min<std::size_t>(kept_.size(), 127));
  }
  answer_.ieparam3 = status;
  return outcome;
}

}  // namespace calc
