#include "tools/kivrun/answer_watch.h"

#include <memory>
#include <string>

#include "msgs/calcmsgs.h"
#include "platform/sunxi_cam/camera_sim.h"
#include "tools/calc/answer_values.h"
#include "tools/calc/plane_fit.h"
#include "tools/kivrun/json_values.h"
#include "tools/kivrun/records.h"

namespace kivrun {
namespace {

namespace sim = sunxi_cam::sim;
using Allocator = rapidjson::Document::AllocatorType;

const char* kSides[2] = {"left", "right"};

// `x` rounded to `decimals` places, for the event log: the same text on
// every target.
double Rounded(double x, int decimals) {
  double scale = 1;
  for (int i = 0; i < decimals; ++i) scale *= 10;
  return static_cast<double>(
             calc::RoundedWithin(x * scale, -(int64_t{1} << 52), int64_t{1} << 52)) /
         scale;
}

double Number(const rapidjson::Value& object, const char* key) {
  const rapidjson::Value& v = MemberOrNull(object, key);
  return v.IsNumber() ? v.GetDouble() : 0;
}

calc::Plane PlaneOf(const sim::LaserPlane& p) { return {{p.nx, p.ny, p.nz}, p.offset}; }

// A plane a report gives ("normal", "offset_cm").
calc::Plane ReportedPlane(const rapidjson::Value& v) {
  const rapidjson::Value& n = MemberOrNull(v, "normal");
  if (!n.IsArray() || n.Size() != 3) return {};
  return {{n[0].GetDouble(), n[1].GetDouble(), n[2].GetDouble()}, Number(v, "offset_cm")};
}

// A plane's angles and offset for the event log.
rapidjson::Value PlaneMembers(double yaw, double roll, double offset_cm, Allocator& a) {
  rapidjson::Value v(rapidjson::kObjectType);
  v.AddMember("yaw", Rounded(yaw, 4), a);
  v.AddMember("roll", Rounded(roll, 4), a);
  v.AddMember("offset_mm", Rounded(offset_cm * 10, 4), a);
  return v;
}
rapidjson::Value PlaneMembers(const calc::Plane& plane, Allocator& a) {
  const calc::PlaneAngles angles = calc::AnglesOf(plane);
  return PlaneMembers(angles.yaw, angles.roll, angles.offset, a);
}
rapidjson::Value ReportedPlaneMembers(const rapidjson::Value& v, Allocator& a) {
  return PlaneMembers(Number(v, "yaw_deg"), Number(v, "roll_deg"), Number(v, "offset_cm"), a);
}

// A laser's failure as the report gives it.
bool FailedLaser(const rapidjson::Value& laser, Allocator& a, rapidjson::Value* out) {
  if (!MemberOrNull(laser, "code").IsNumber()) return false;
  out->AddMember("code", rapidjson::Value(MemberOrNull(laser, "code"), a), a);
  out->AddMember("reason", rapidjson::Value(MemberOrNull(laser, "reason"), a), a);
  return true;
}

void AddPlane(const rapidjson::Value& report, const sim::SceneTruth& truth, Fields& f) {
  // A node that refused before it looked at a picture (no camera model, say)
  // reports no lasers: there is nothing to set beside the truth.
  if (!MemberOrNull(report, "lasers").IsObject()) return;
  auto& a = f.allocator();
  const calc::Plane true_planes[2] = {PlaneOf(truth.left), PlaneOf(truth.right)};
  rapidjson::Value lasers(rapidjson::kObjectType), truths(rapidjson::kObjectType),
      errors(rapidjson::kObjectType);
  for (int side = 0; side < 2; ++side) {
    const rapidjson::Value& got = MemberOrNull(MemberOrNull(report, "lasers"), kSides[side]);
    rapidjson::Value laser(rapidjson::kObjectType);
    if (!FailedLaser(got, a, &laser)) {
      laser = ReportedPlaneMembers(got, a);
      laser.AddMember("points", MemberOrNull(got, "points").GetInt(), a);
      laser.AddMember("floor_points", MemberOrNull(got, "floor_points").GetInt(), a);
      laser.AddMember("wall_points", MemberOrNull(got, "wall_points").GetInt(), a);
      laser.AddMember("rms_um", Rounded(Number(got, "rms_cm") * 10000, 1), a);
      laser.AddMember(
          "outliers",
          MemberOrNull(got, "outliers").IsInt() ? MemberOrNull(got, "outliers").GetInt() : 0, a);
      const rapidjson::Value& sigma = MemberOrNull(got, "sigma");
      rapidjson::Value sigmas(rapidjson::kObjectType);
      sigmas.AddMember("yaw", Rounded(Number(sigma, "yaw_deg"), 5), a);
      sigmas.AddMember("roll", Rounded(Number(sigma, "roll_deg"), 5), a);
      sigmas.AddMember("offset_mm", Rounded(Number(sigma, "offset_cm") * 10, 4), a);
      laser.AddMember("sigma", sigmas, a);
      const calc::Plane plane = ReportedPlane(got);
      rapidjson::Value error(rapidjson::kObjectType);
      error.AddMember("normal_deg", Rounded(calc::AngleBetween(plane, true_planes[side]), 5), a);
      error.AddMember("offset_mm", Rounded((plane.offset - true_planes[side].offset) * 10, 4), a);
      errors.AddMember(rapidjson::StringRef(kSides[side]), error, a);
    }
    lasers.AddMember(rapidjson::StringRef(kSides[side]), laser, a);
    truths.AddMember(rapidjson::StringRef(kSides[side]), PlaneMembers(true_planes[side], a), a);
  }
  f.value().AddMember("lasers", lasers, a);
  f.value().AddMember("truth", truths, a);
  f.value().AddMember("errors", errors, a);
}

void AddCheck(const rapidjson::Value& report, Fields& f) {
  auto& a = f.allocator();
  if (MemberOrNull(report, "planes").IsObject()) {
    rapidjson::Value planes(rapidjson::kObjectType);
    for (const char* side : kSides) {
      planes.AddMember(rapidjson::StringRef(side),
                       ReportedPlaneMembers(MemberOrNull(MemberOrNull(report, "planes"), side), a),
                       a);
    }
    f.value().AddMember("planes", planes, a);
  }
  rapidjson::Value measured(rapidjson::kObjectType);
  for (const char* side : kSides) {
    const rapidjson::Value& got = MemberOrNull(MemberOrNull(report, "residuals"), side);
    if (got.IsNull()) continue;
    rapidjson::Value laser(rapidjson::kObjectType);
    if (!FailedLaser(got, a, &laser)) {
      laser.AddMember("rms_px", Rounded(Number(got, "rms_px"), 4), a);
      laser.AddMember("worst_px", Rounded(Number(got, "worst_px"), 4), a);
      laser.AddMember("points", MemberOrNull(got, "points").GetInt(), a);
      laser.AddMember("bias_px", Rounded(Number(got, "bias_px"), 4), a);
    }
    measured.AddMember(rapidjson::StringRef(side), laser, a);
  }
  f.value().AddMember("residuals", measured, a);
}

void AddDistance(const rapidjson::Value& report, const sim::SceneTruth& truth, Fields& f) {
  auto& a = f.allocator();
  const std::string planes = MemberOrNull(report, "planes").IsString()
                                 ? MemberOrNull(report, "planes").GetString()
                                 : std::string("none");
  f.Str("planes", planes);
  const rapidjson::Value& walls = MemberOrNull(report, "walls");
  bool both = walls.IsObject();
  if (walls.IsObject()) {
    rapidjson::Value measured(rapidjson::kObjectType);
    for (const char* side : kSides) {
      const rapidjson::Value& w = MemberOrNull(walls, side);
      rapidjson::Value laser(rapidjson::kObjectType);
      if (FailedLaser(w, a, &laser)) {
        both = false;
      } else {
        laser.AddMember("distance_mm", Rounded(Number(w, "distance_cm") * 10, 4), a);
        laser.AddMember("spread_um", Rounded(Number(w, "spread_cm") * 10000, 1), a);
        laser.AddMember("tilt_um_per_cm", Rounded(Number(w, "tilt") * 10000, 1), a);
        laser.AddMember("wall_points", MemberOrNull(w, "wall_points").GetInt(), a);
        laser.AddMember("nearest_floor_mm", Rounded(Number(w, "nearest_floor_cm") * 10, 4), a);
        laser.AddMember("floor_rms_um", Rounded(Number(w, "floor_rms_cm") * 10000, 1), a);
        laser.AddMember("floor_points", MemberOrNull(w, "floor_points").GetInt(), a);
      }
      measured.AddMember(rapidjson::StringRef(side), laser, a);
    }
    f.value().AddMember("walls", measured, a);
  }
  rapidjson::Value truths(rapidjson::kObjectType);
  truths.AddMember("distance_mm", Rounded(truth.distance * 10, 4), a);
  f.value().AddMember("truth", truths, a);
  if (both) {
    const double measured = (Number(MemberOrNull(walls, "left"), "distance_cm") +
                             Number(MemberOrNull(walls, "right"), "distance_cm")) /
                            2;
    rapidjson::Value errors(rapidjson::kObjectType);
    errors.AddMember("distance_mm", Rounded((measured - truth.distance) * 10, 4), a);
    f.value().AddMember("errors", errors, a);
  }
}

void AddBoard(const rapidjson::Value& report, Fields& f) {
  const rapidjson::Value& board = MemberOrNull(report, "board");
  if (!board.IsObject()) return;
  auto& a = f.allocator();
  rapidjson::Value seen(rapidjson::kObjectType);
  for (const char* key : {"view", "columns", "rows", "found"}) {
    if (MemberOrNull(board, key).IsNull()) continue;
    seen.AddMember(rapidjson::StringRef(key), rapidjson::Value(MemberOrNull(board, key), a), a);
  }
  f.value().AddMember("board", seen, a);
  const rapidjson::Value& views = MemberOrNull(report, "views");
  if (views.IsObject()) f.value().AddMember("views", rapidjson::Value(views, a), a);
}

// The calibrated camera beside the simulator's: intrinsics, distortion,
// height and pitch, with each figure's 1-sigma and error.
void AddCamera(const rapidjson::Value& report, const sim::SceneTruth& truth, Fields& f) {
  const rapidjson::Value& camera = MemberOrNull(report, "camera");
  if (!camera.IsObject()) return;
  auto& a = f.allocator();
  const rapidjson::Value& sigma = MemberOrNull(camera, "sigma");
  const rapidjson::Value& pose = MemberOrNull(camera, "pose");
  const rapidjson::Value& pose_sigma = MemberOrNull(camera, "pose_sigma");
  auto sigma_at = [&](rapidjson::SizeType i) {
    return sigma.IsArray() && sigma.Size() > i && sigma[i].IsNumber() ? sigma[i].GetDouble() : 0;
  };
  const sim::CameraModel& t = truth.camera;
  struct Figure {
    const char* name;
    double value, sigma, truth;
    int decimals;
  };
  const Figure figures[] = {
      {"fx", Number(camera, "fx"), sigma_at(0), t.fx, 2},
      {"fy", Number(camera, "fy"), sigma_at(1), t.fy, 2},
      {"cx", Number(camera, "cx"), sigma_at(2), t.cx, 2},
      {"cy", Number(camera, "cy"), sigma_at(3), t.cy, 2},
      {"k1", 0, sigma_at(4), t.k1, 4},
      {"height_cm", Number(pose, "height_cm"), Number(pose_sigma, "height_cm"), t.height, 3},
      {"pitch_deg", Number(pose, "pitch_deg"), Number(pose_sigma, "pitch_deg"), t.pitch, 3}};
  rapidjson::Value got(rapidjson::kObjectType), sig(rapidjson::kObjectType),
      real(rapidjson::kObjectType), errors(rapidjson::kObjectType);
  const rapidjson::Value& distortion = MemberOrNull(camera, "distortion");
  for (Figure figure : figures) {
    if (std::string(figure.name) == "k1") {
      figure.value = distortion.IsArray() && !distortion.Empty() ? distortion[0].GetDouble() : 0;
    }
    if (!pose.IsObject() && std::string(figure.name).find('_') != std::string::npos) continue;
    const auto key = rapidjson::StringRef(figure.name);
    got.AddMember(key, Rounded(figure.value, figure.decimals), a);
    sig.AddMember(key, Rounded(figure.sigma, figure.decimals), a);
    real.AddMember(key, Rounded(figure.truth, figure.decimals), a);
    errors.AddMember(key, Rounded(figure.value - figure.truth, figure.decimals), a);
  }
  got.AddMember("rms_px", Rounded(Number(camera, "rms_px"), 3), a);
  got.AddMember("views", rapidjson::Value(MemberOrNull(camera, "views"), a), a);
  f.value().AddMember("camera", got, a);
  f.value().AddMember("sigma", sig, a);
  f.value().AddMember("truth", real, a);
  f.value().AddMember("errors", errors, a);
}

}  // namespace

void AddComputed(const rapidjson::Value& report, Fields& event) {
  const std::string node = MemberOrNull(report, "node").IsString()
                               ? MemberOrNull(report, "node").GetString()
                               : std::string();
  if (MemberOrNull(report, "action") != "refuse") {
    const sim::SceneTruth truth = sim::Truth();
    if (node == "plane") {
      AddPlane(report, truth, event);
    } else if (node == "check") {
      AddCheck(report, event);
    } else if (node == "distance") {
      AddDistance(report, truth, event);
    } else if (node == "ieparam") {
      AddBoard(report, event);
      AddCamera(report, truth, event);
    }
  }
  if (MemberOrNull(report, "code").IsNumber()) {
    event.Int("code", MemberOrNull(report, "code").GetInt64());
    event.Str("reason", MemberOrNull(report, "reason").IsString()
                            ? MemberOrNull(report, "reason").GetString()
                            : "");
  }
}

void AnswerWatch::Start() {
  round_.host.Subscribe<CalcReportMsg>(
      "kivrun", calctopics::kCalcReport, [this](CalcReportMsg* message) {
        const rapidjson::Value& node = MemberOrNull(message->report, "node");
        if (!node.IsString()) return;
        rapidjson::Document& kept = pending_[node.GetString()];
        kept.CopyFrom(message->report, kept.GetAllocator());
      });
  for (const ResponderKind& kind : ResponderKinds()) {
    const ResponderKind* k = &kind;
    FindRecord(kind.answer)
        ->watch(round_.host, "kivrun", kind.answers,
                [this, k](const void* record) { Answered(*k, record); });
  }
}

void AnswerWatch::Answered(const ResponderKind& kind, const void* record) {
  const auto pending = pending_.find(kind.node);
  if (pending == pending_.end()) return;
  const rapidjson::Document report = std::move(pending->second);
  pending_.erase(pending);
  const RecordLayout& layout = *FindRecord(kind.answer);
  const std::string action = MemberOrNull(report, "action").IsString()
                                 ? MemberOrNull(report, "action").GetString()
                                 : std::string("answer");
  Fields f;
  f.Str("node", kind.node).Str("action", action).Str("topic", kind.answers);
  f.Str("record", layout.name);
  rapidjson::Value fields(rapidjson::kObjectType);
  DecodeFields(layout, record, fields, f.allocator());
  f.value().AddMember("fields", fields, f.allocator());
  if (MemberOrNull(report, "problems").IsArray())
    f.Json("problems", MemberOrNull(report, "problems"));
  AddComputed(report, f);
  round_.log.Write("answer", f.value());
  round_.summary.Answered(kind.node, action, f.value());
  round_.summary.Computed(kind.node, f.value());
}

}  // namespace kivrun
