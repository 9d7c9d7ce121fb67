#include "tools/calc/calc_node.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <stdexcept>

#include "tools/calc/answer_values.h"
#include "tools/calc/camera_model_file.h"
#include "tools/calc/picture_files.h"

namespace calc {
namespace {

// The name of the node of each kind that runs now; empty when none does.
std::string& Running(NodeKind kind) {
  static std::string running[4];
  return running[static_cast<int>(kind)];
}

}  // namespace

KindClaim::KindClaim(NodeKind kind, const std::string& name) : kind_(kind) {
  if (!Running(kind).empty()) {
    throw std::runtime_error(std::string(NodeId(kind)) + ": a " + NodeShortName(kind) +
                             " node already runs in this process (\"" + Running(kind) +
                             "\"); two would both answer every request");
  }
  Running(kind) = name.empty() ? " " : name;
}

KindClaim::~KindClaim() { Running(kind_).clear(); }

CalcNode::CalcNode(const rapidjson::Value& config, NodeKind kind)
    : KivNode(config),
      config_(ReadCalcConfig(kind, config)),
      claim_(kind, NodeName()),
      reports_(Advertise<CalcReportMsg>(calctopics::kCalcReport)) {}

CalcNode::~CalcNode() {
  for (int id : pending_) kiv::DelTimer(id);
}

void CalcNode::OnRequest() {
  auto id = std::make_shared<int>(0);
  *id = kiv::AddTimerWithName(
      [this, id] {
        // Run once, whatever the framework makes of a period of 0.
        pending_.erase(*id);
        kiv::DelTimer(*id);
        Answer();
      },
      config_.delay_us, 0, NodeName());
  pending_.insert(*id);
}

void CalcNode::Answer() {
  CalcReportMsg message;
  rapidjson::Document& report = message.report;
  report.SetObject();
  auto& a = report.GetAllocator();
  report.AddMember("node", rapidjson::StringRef(NodeShortName(config_.kind)), a);
  report.AddMember("action", "answer", a);

  rapidjson::Value problems(rapidjson::kArrayType);
  std::vector<cv::Mat> pictures;
  // Every file is looked at first; only when all look right are they decoded.
  auto note = [&](const std::string& path, const std::string& problem) {
    if (!problem.empty())
      problems.PushBack(rapidjson::Value((path + ": " + problem).c_str(), a), a);
  };
  for (const std::string& path : config_.pictures) note(path, PictureProblem(path));
  if (problems.Empty()) {
    for (const std::string& path : config_.pictures) {
      pictures.emplace_back();
      note(path, ReadPicture(path, &pictures.back()));
    }
  }
  if (!problems.Empty()) {
    report["action"] = "refuse";
    report.AddMember("problems", problems, a);
    Refuse(config_.refuse);
  } else {
    const Outcome outcome = Compute(pictures, report);
    if (outcome.code != kSuccess) {
      report["action"] = "fail";
      report.AddMember("code", outcome.code, a);
      report.AddMember("reason", rapidjson::Value(outcome.reason.c_str(), a), a);
    }
  }
  reports_.publishWithLine(&message, NodeName());
  Send();
}

bool CalcNode::CameraFor(CameraModel* model, Outcome* outcome) const {
  if (config_.has_camera) {
    *model = config_.camera;
    return true;
  }
  if (config_.camera_file.empty()) {
    outcome->Fail(kNoCamera,
                  "no camera model: the node was given none (\"camera\" or \"camera_file\")");
    return false;
  }
  CameraModel read;
  std::string error;
  if (!ReadCameraModelFile(config_.camera_file, &read, &error, {640, 480})) {
    outcome->Fail(kNoCamera, "no camera model: " + error);
    return false;
  }
  if (!read.pose_known) {
    outcome->Fail(kNoCamera, "no camera model: camera model " + config_.camera_file +
                                 " gives no pose on the robot (a camera_info file has none)");
    return false;
  }
  *model = read;
  return true;
}

void SentPlanes::Take(const LaserClibrMsg& answer) {
  if (answer.result != kSuccess) return;
  uint16_t values[9];
  std::memcpy(values, answer.plane_data, sizeof values);
  PlaneAngles left, right;
  DecodePlanes(values, &left, &right);
  planes_[0] = PlaneFromAngles(left);
  planes_[1] = PlaneFromAngles(right);
  valid_ = true;
}

std::string Figure(double x) {
  char text[40];
  std::snprintf(text, sizeof text, "%.1f", x);
  if (std::strtod(text, nullptr) == x) return text;
  for (int digits = 2; digits <= 17; ++digits) {
    std::snprintf(text, sizeof text, "%.*g", digits, x);
    if (std::strtod(text, nullptr) == x) break;
  }
  return text;
}

rapidjson::Value PlaneReport(const Plane& plane, rapidjson::Document::AllocatorType& a) {
  const PlaneAngles angles = AnglesOf(plane);
  rapidjson::Value v(rapidjson::kObjectType);
  rapidjson::Value normal(rapidjson::kArrayType);
  normal.PushBack(plane.normal.x, a).PushBack(plane.normal.y, a).PushBack(plane.normal.z, a);
  v.AddMember("normal", normal, a);
  v.AddMember("offset_cm", plane.offset, a);
  v.AddMember("yaw_deg", angles.yaw, a);
  v.AddMember("roll_deg", angles.roll, a);
  return v;
}

}  // namespace calc
