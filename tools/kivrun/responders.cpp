#include "tools/kivrun/responders.h"

#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <opencv2/imgcodecs.hpp>
#include <stdexcept>

#include "msgs/calimsgs.h"
#include "msgs/topics.h"
#include "platform/sunxi_cam/camera_sim.h"
#include "tools/calc/answer_values.h"
#include "tools/calc/distance.h"
#include "tools/calc/laser_calibration.h"
#include "tools/kivrun/records.h"

namespace kivrun {

const std::vector<ResponderKind>& ResponderKinds() {
  using namespace calitopics;
  static const std::vector<ResponderKind> kinds = {
      {"plane",
       kLaserCalibrReq,
       "LaserClibrMsg",
       kLaserCalibrReqRes,
       "LaserClibrMsg",
       {"result"},
       R"({"kind": 2, "result": 1})"},
      {"check",
       kCameraCaliCheck,
       "kiv_camera_calicheck_msg",
       kCameraCaliCheckRes,
       "kiv_camera_calires_msg",
       {"check_result"},
       R"({"kind": 4})"},
      {"ieparam",
       kCameraCaliIEParam,
       "CameraClibrIEParamMsg",
       kCameraCaliIEParamRes,
       "CameraClibrIEParamMsg",
       {"ieparam3"},
       "{}"},
      {"distance",
       kDistanceStartCaculate,
       "kiv_camera_distance_msg",
       kAppDistanceRes,
       "kiv_camera_distance_msg",
       {"status"},
       R"({"kind": 1})"},
      {"laser_power",
       kCameraCaliRes,
       "kiv_camera_calires_msg",
       kLaserPower,
       "kiv_laserpower_msg",
       {"power_a", "power_b"},
       "{}"},
  };
  return kinds;
}

namespace {

constexpr int64_t kDefaultRefusal = 2;
constexpr uint8_t kLaserPowerCheckKind = 5;

uint32_t Little32(const unsigned char* at) {
  return static_cast<uint32_t>(at[0]) | static_cast<uint32_t>(at[1]) << 8 |
         static_cast<uint32_t>(at[2]) << 16 | static_cast<uint32_t>(at[3]) << 24;
}

// The answer fields that carry a failure code.
rapidjson::Document FailFields(const ResponderKind& kind, int64_t code) {
  rapidjson::Document fail(rapidjson::kObjectType);
  for (const char* field : kind.result_fields) {
    fail.AddMember(rapidjson::StringRef(field), rapidjson::Value(code), fail.GetAllocator());
  }
  return fail;
}

std::vector<std::string> DefaultNeeds(const std::string& node, int delt_factory, bool computes) {
  if (node == "plane" || (node == "check" && computes)) return FactoryPlanePictures(delt_factory);
  if (node == "ieparam") return {"/tmp/pic/chessboard.bmp"};
  if (node == "distance") return {"/tmp/pic/dis_left.bmp", "/tmp/pic/dis_right.bmp"};
  return {};
}

bool Computes(const std::string& node) {
  return node == "plane" || node == "check" || node == "distance";
}

// What a computing node cannot do with its pictures; "" when it can.
std::string ComputingNeedsProblem(const std::string& node, const std::vector<std::string>& needs) {
  if (node == "distance") {
    if (needs.size() != 2) {
      return "a computing distance node reads two pictures, the left laser's and then the right "
             "laser's (it was given " +
             std::to_string(needs.size()) + ")";
    }
    return "";
  }
  bool sides[2] = {false, false};
  for (const std::string& path : needs) {
    bool left = false;
    int distance = 0;
    if (!StripePictureOf(path, &left, &distance)) {
      return "a computing " + node + " node cannot tell the laser and the distance of \"" + path +
             "\": it reads .../left/N.bmp and .../right/N.bmp, N = distance x 100 + offset";
    }
    sides[left ? 0 : 1] = true;
  }
  if (!sides[0] || !sides[1]) {
    return std::string("a computing ") + node +
           " node needs pictures of both lasers (none of the " + (sides[0] ? "right" : "left") +
           " laser's)";
  }
  return "";
}

// `x` rounded to `decimals` places, for the event log: the same text on
// every target.
double Rounded(double x, int decimals) {
  double scale = 1;
  for (int i = 0; i < decimals; ++i) scale *= 10;
  return static_cast<double>(
             calc::RoundedWithin(x * scale, -(int64_t{1} << 52), int64_t{1} << 52)) /
         scale;
}

calc::Camera CameraOf(const sunxi_cam::sim::CameraModel& m) {
  return {m.fx, m.fy, m.cx, m.cy, m.height, m.pitch};
}
calc::Plane PlaneOf(const sunxi_cam::sim::LaserPlane& p) { return {{p.nx, p.ny, p.nz}, p.offset}; }

const char* kSides[2] = {"left", "right"};

// A plane's angles and offset for the event log.
rapidjson::Value PlaneMembers(const calc::Plane& plane, rapidjson::Document::AllocatorType& a) {
  const calc::PlaneAngles angles = calc::AnglesOf(plane);
  rapidjson::Value v(rapidjson::kObjectType);
  v.AddMember("yaw", Rounded(angles.yaw, 4), a);
  v.AddMember("roll", Rounded(angles.roll, 4), a);
  v.AddMember("offset_mm", Rounded(angles.offset * 10, 4), a);
  return v;
}

calc::StripePicture PictureOf(const std::string& path, const cv::Mat& picture, double distance,
                              double wall_height) {
  calc::StripePicture p;
  p.name = path;
  p.picture = {picture.data, picture.cols, picture.rows, static_cast<int>(picture.step[0])};
  p.target = {distance, wall_height};
  return p;
}

}  // namespace

bool StripePictureOf(const std::string& path, bool* left, int* distance) {
  const std::size_t slash = path.rfind('/');
  if (slash == std::string::npos || slash == 0) return false;
  const std::size_t folder_start = path.rfind('/', slash - 1);
  const std::string folder =
      path.substr(folder_start == std::string::npos ? 0 : folder_start + 1,
                  slash - (folder_start == std::string::npos ? 0 : folder_start + 1));
  if (folder != "left" && folder != "right") return false;
  const std::string name = path.substr(slash + 1);
  if (name.size() < 5 || name.size() > 13 || name.compare(name.size() - 4, 4, ".bmp") != 0) {
    return false;
  }
  int64_t number = 0;
  for (std::size_t i = 0; i + 4 < name.size(); ++i) {
    if (name[i] < '0' || name[i] > '9') return false;
    number = number * 10 + (name[i] - '0');
  }
  if (number < 100) return false;
  *left = folder == "left";
  *distance = static_cast<int>(number / 100);
  return true;
}

bool TakesRequest(const ResponderKind& kind, const void* request) {
  return kind.node != std::string("laser_power") ||
         static_cast<const kiv_camera_calires_msg*>(request)->kind == kLaserPowerCheckKind;
}

std::string PictureProblem(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  if (!in) return "missing";
  unsigned char header[30] = {};
  in.read(reinterpret_cast<char*>(header), sizeof header);
  if (in.gcount() < static_cast<std::streamsize>(sizeof header) || header[0] != 'B' ||
      header[1] != 'M') {
    return "not a BMP file";
  }
  const int64_t width = static_cast<int32_t>(Little32(header + 18));
  int64_t height = static_cast<int32_t>(Little32(header + 22));
  if (height < 0) height = -height;  // a top-down picture (64 bits: -INT32_MIN fits)
  const int bits = header[28] | header[29] << 8;
  if (width != 640 || height != 480) {
    return std::to_string(width) + " x " + std::to_string(height) + ", not 640 x 480";
  }
  if (bits != 8) return std::to_string(bits) + "-bit, not 8-bit";
  return "";
}

std::vector<std::string> FactoryPlanePictures(int delt_factory) {
  std::vector<std::string> paths;
  for (const char* side : {"left", "right"}) {
    for (int d = 5; d <= 45; d += 5) {
      paths.push_back(std::string("/tmp/") + side + "/" + std::to_string(d * 100 + delt_factory) +
                      ".bmp");
    }
  }
  return paths;
}

Responders::Responders(kiv::Host& host, EventLog& log, int delt_factory)
    : host_(host), log_(log), delt_factory_(delt_factory) {}

void Responders::Configure(const ResponderSetting& setting) {
  const ResponderKind* kind = nullptr;
  std::string names;
  for (const ResponderKind& k : ResponderKinds()) {
    if (setting.node == k.node) kind = &k;
    names += (names.empty() ? "" : ", ") + std::string(k.node);
  }
  if (kind == nullptr) {
    throw std::invalid_argument("no simulated node \"" + setting.node + "\" (there are " + names +
                                ")");
  }
  const bool computes = setting.mode == ResponderSetting::Mode::kCompute;
  if (computes && !Computes(kind->node)) {
    throw std::invalid_argument("the " + setting.node +
                                " node does not compute (the plane, check and distance nodes do)");
  }
  auto applied = std::make_shared<ResponderSetting>(setting);
  if (!applied->has_needs) applied->needs = DefaultNeeds(setting.node, delt_factory_, computes);
  if (!applied->has_refuse) applied->refuse = kDefaultRefusal;
  if (computes) {
    const std::string problem = ComputingNeedsProblem(kind->node, applied->needs);
    if (!problem.empty()) throw std::invalid_argument(problem);
  }

  // Check the answer now, so a bad field stops the scenario at this step.
  const RecordLayout* answer = FindRecord(kind->answer);
  std::shared_ptr<void> scratch = answer->make();
  const rapidjson::Document answer_fields = applied->answer.Parse();
  EncodeFields(*answer, answer_fields, scratch.get());
  EncodeFields(*answer, FailFields(*kind, applied->code), scratch.get());
  EncodeFields(*answer, FailFields(*kind, applied->refuse), scratch.get());

  Fields f;
  f.Str("node", kind->node).Str("listens", kind->listens).Str("answers", kind->answers);
  f.Str("mode", applied->mode == ResponderSetting::Mode::kAnswer ? "answer"
                : applied->mode == ResponderSetting::Mode::kFail ? "fail"
                : computes                                       ? "compute"
                                                                 : "silent");
  if (applied->mode == ResponderSetting::Mode::kAnswer ||
      applied->mode == ResponderSetting::Mode::kFail) {
    f.Json("fields", answer_fields);
  }
  if (applied->mode == ResponderSetting::Mode::kFail) f.Int("code", applied->code);
  rapidjson::Value needs(rapidjson::kArrayType);
  for (const auto& path : applied->needs) {
    needs.PushBack(rapidjson::Value(path.c_str(), f.allocator()), f.allocator());
  }
  f.value().AddMember("needs", needs, f.allocator());
  f.Int("refuse", applied->refuse).Int("delay_us", applied->delay_us);
  log_.Write("responder", f.value());

  auto found = active_.find(kind->node);
  if (found != active_.end()) {
    found->second.setting = applied;
    return;
  }
  active_[kind->node] = Active{kind, applied};
  const std::string node = kind->node;
  FindRecord(kind->request)->watch(host_, node, kind->listens, [this, node](const void* request) {
    OnRequest(active_.at(node), request);
  });
}

void Responders::OnRequest(Active& active, const void* request) {
  const ResponderKind& kind = *active.kind;
  if (!TakesRequest(kind, request)) return;
  std::shared_ptr<const ResponderSetting> setting = active.setting;
  if (setting->mode == ResponderSetting::Mode::kSilent) {
    Fields f;
    f.Str("node", kind.node).Str("topic", kind.listens);
    log_.Write("silent", f.value());
    return;
  }
  host_.Loop().AddTimer([this, &kind, setting] { Answer(kind, *setting); }, setting->delay_us, 0,
                        std::string("kivrun/") + kind.node);
}

void Responders::Answer(const ResponderKind& kind, const ResponderSetting& setting) {
  const RecordLayout& layout = *FindRecord(kind.answer);
  std::shared_ptr<void> record = layout.make();
  rapidjson::Document defaults;
  defaults.Parse(kind.defaults);
  EncodeFields(layout, defaults, record.get());
  EncodeFields(layout, setting.answer.Parse(), record.get());

  Fields f;
  rapidjson::Value problems(rapidjson::kArrayType);
  for (const auto& path : setting.needs) {
    const std::string problem = PictureProblem(path);
    if (!problem.empty()) {
      problems.PushBack(rapidjson::Value((path + ": " + problem).c_str(), f.allocator()),
                        f.allocator());
    }
  }
  const bool computes = setting.mode == ResponderSetting::Mode::kCompute;
  std::vector<cv::Mat> pictures;
  if (computes && problems.Empty()) {
    for (const auto& path : setting.needs) {
      // The header says 640 x 480, 8 bits; the decoder must agree.
      cv::Mat picture = cv::imread(path, cv::IMREAD_UNCHANGED);
      if (picture.empty() || picture.type() != CV_8UC1 || picture.cols != sunxi_cam::sim::kWidth ||
          picture.rows != sunxi_cam::sim::kHeight) {
        problems.PushBack(
            rapidjson::Value((path + ": cannot be decoded as a 640 x 480 8-bit picture").c_str(),
                             f.allocator()),
            f.allocator());
      }
      pictures.push_back(picture);
    }
  }
  std::string action = setting.mode == ResponderSetting::Mode::kFail ? "fail" : "answer";
  int64_t code = setting.code;
  if (!problems.Empty()) {
    action = "refuse";
    code = setting.refuse;
  }
  if (action != "answer") EncodeFields(layout, FailFields(kind, code), record.get());

  f.Str("node", kind.node).Str("action", action).Str("topic", kind.answers);
  Fields computed;
  if (computes && problems.Empty() &&
      !Compute(kind, setting.needs, pictures, record.get(), computed)) {
    f.value()["action"].SetString("fail");
    action = "fail";
  }
  f.Str("record", layout.name);
  rapidjson::Value fields(rapidjson::kObjectType);
  DecodeFields(layout, record.get(), fields, f.allocator());
  f.value().AddMember("fields", fields, f.allocator());
  if (!problems.Empty()) f.value().AddMember("problems", problems, f.allocator());
  for (auto& member : computed.value().GetObject()) {
    f.value().AddMember(rapidjson::Value(member.name, f.allocator()),
                        rapidjson::Value(member.value, f.allocator()), f.allocator());
  }
  log_.Write("answer", f.value());
  // The calibration node subscribes to every answer topic when it is built,
  // so the topic exists.
  layout.publish(host_.FindTopic(kind.answers), kind.answers, record.get(),
                 std::string("kivrun/") + kind.node);
  if (on_answer_) on_answer_(kind.node, action, f.value());
  if (computes && on_computed_) on_computed_(kind.node, f.value());
}

bool Responders::Compute(const ResponderKind& kind, const std::vector<std::string>& paths,
                         const std::vector<cv::Mat>& pictures, void* record, Fields& f) {
  auto& a = f.allocator();
  const sunxi_cam::sim::SceneTruth truth = sunxi_cam::sim::Truth();
  const calc::CameraGeometry geometry(CameraOf(truth.camera));
  const calc::Plane true_planes[2] = {PlaneOf(truth.left), PlaneOf(truth.right)};
  int code = calc::kSuccess;
  std::string reason;
  auto fail = [&](int failure, const std::string& why) {
    if (code != calc::kSuccess) return;
    code = failure;
    reason = why;
  };

  // The pictures by laser, for the plane and check nodes.
  std::vector<calc::StripePicture> sides[2];
  if (std::string(kind.node) != "distance") {
    for (std::size_t i = 0; i < paths.size(); ++i) {
      bool left = false;
      int distance = 0;
      StripePictureOf(paths[i], &left, &distance);
      sides[left ? 0 : 1].push_back(PictureOf(paths[i], pictures[i], distance, truth.wall_height));
    }
  }

  if (std::string(kind.node) == "plane") {
    auto* answer = static_cast<LaserClibrMsg*>(record);
    calc::LaserFit fits[2];
    rapidjson::Value lasers(rapidjson::kObjectType), truths(rapidjson::kObjectType),
        errors(rapidjson::kObjectType);
    for (int side = 0; side < 2; ++side) {
      fits[side] = calc::CalibrateLaser(geometry, sides[side]);
      rapidjson::Value laser(rapidjson::kObjectType);
      if (fits[side].code != calc::kSuccess) {
        fail(fits[side].code, std::string(kSides[side]) + " laser: " + fits[side].reason);
        laser.AddMember("code", fits[side].code, a);
        laser.AddMember("reason", rapidjson::Value(fits[side].reason.c_str(), a), a);
      } else {
        const calc::Plane& plane = fits[side].fit.plane;
        laser = PlaneMembers(plane, a);
        laser.AddMember("points", fits[side].points, a);
        laser.AddMember("floor_points", fits[side].floor_points, a);
        laser.AddMember("wall_points", fits[side].wall_points, a);
        laser.AddMember("rms_um", Rounded(fits[side].fit.rms * 10000, 1), a);
        rapidjson::Value error(rapidjson::kObjectType);
        error.AddMember("normal_deg", Rounded(calc::AngleBetween(plane, true_planes[side]), 5), a);
        error.AddMember("offset_mm", Rounded((plane.offset - true_planes[side].offset) * 10, 4), a);
        errors.AddMember(rapidjson::StringRef(kSides[side]), error, a);
      }
      lasers.AddMember(rapidjson::StringRef(kSides[side]), laser, a);
      truths.AddMember(rapidjson::StringRef(kSides[side]), PlaneMembers(true_planes[side], a), a);
    }
    if (code == calc::kSuccess && calc::SidesSwapped(fits[0].fit.plane, fits[1].fit.plane)) {
      fail(calc::kSidesSwapped,
           "the left laser's plane lies right of the right laser's: the pictures of the two "
           "lasers are swapped");
    }
    uint16_t values[9] = {};
    if (code == calc::kSuccess) {
      calc::LaserPlaneValues sent[2];
      for (int side = 0; side < 2; ++side) {
        sent[side].angles = calc::AnglesOf(fits[side].fit.plane);
        sent[side].rms = fits[side].fit.rms;
      }
      if (!calc::EncodePlanes(sent[0], sent[1], fits[0].points + fits[1].points, values)) {
        fail(calc::kNotEncodable,
             "a plane lies outside what the nine values carry (yaw and roll within 32.767 "
             "degrees, offset within 327.67 mm)");
      }
    }
    std::memcpy(answer->plane_data, values, sizeof values);
    answer->result = code;
    if (code == calc::kSuccess) {
      calc::PlaneAngles left, right;
      calc::DecodePlanes(values, &left, &right);
      sent_planes_ = {true, calc::PlaneFromAngles(left), calc::PlaneFromAngles(right)};
    }
    f.value().AddMember("lasers", lasers, a);
    f.value().AddMember("truth", truths, a);
    f.value().AddMember("errors", errors, a);
  } else if (std::string(kind.node) == "check") {
    auto* answer = static_cast<kiv_camera_calires_msg*>(record);
    if (!sent_planes_.valid) {
      fail(calc::kNothingToCheck, "no planes to check: the computing plane node has sent none");
    }
    calc::Residuals residuals[2];
    rapidjson::Value measured(rapidjson::kObjectType), planes(rapidjson::kObjectType);
    for (int side = 0; side < 2 && sent_planes_.valid; ++side) {
      const calc::Plane& plane = side == 0 ? sent_planes_.left : sent_planes_.right;
      planes.AddMember(rapidjson::StringRef(kSides[side]), PlaneMembers(plane, a), a);
      residuals[side] = calc::CheckPlane(geometry, plane, sides[side]);
      const calc::Residuals& r = residuals[side];
      rapidjson::Value laser(rapidjson::kObjectType);
      if (r.code != calc::kSuccess) {
        fail(r.code, std::string(kSides[side]) + " laser: " + r.reason);
        laser.AddMember("code", r.code, a);
        laser.AddMember("reason", rapidjson::Value(r.reason.c_str(), a), a);
      } else {
        laser.AddMember("rms_px", Rounded(r.rms, 4), a);
        laser.AddMember("worst_px", Rounded(r.worst, 4), a);
        laser.AddMember("points", r.points, a);
      }
      measured.AddMember(rapidjson::StringRef(kSides[side]), laser, a);
    }
    if (code == calc::kSuccess) {
      calc::EncodeCheck(residuals[0].rms, residuals[0].worst, residuals[1].rms, residuals[1].worst,
                        answer->check_data);
      for (int side = 0; side < 2; ++side) {
        const calc::Residuals& r = residuals[side];
        if (!calc::PassesCheck(r)) {
          char text[200];
          std::snprintf(text, sizeof text,
                        "%s laser: residuals of %.3f px RMS and %.3f px at worst; at most %.1f "
                        "and %.1f px pass",
                        kSides[side], r.rms, r.worst, calc::kCheckMaxRms, calc::kCheckMaxWorst);
          fail(calc::kCheckFailed, text);
        }
      }
    }
    answer->check_result = static_cast<uint8_t>(code);
    if (sent_planes_.valid) f.value().AddMember("planes", planes, a);
    f.value().AddMember("residuals", measured, a);
  } else {
    auto* answer = static_cast<kiv_camera_distance_msg*>(record);
    const bool sent = sent_planes_.valid;
    const calc::Plane planes[2] = {sent ? sent_planes_.left : true_planes[0],
                                   sent ? sent_planes_.right : true_planes[1]};
    calc::WallMeasure walls[2];
    calc::WallValues values[2];
    rapidjson::Value measured(rapidjson::kObjectType);
    for (int side = 0; side < 2; ++side) {
      const calc::StripePicture picture = PictureOf(paths[side], pictures[side], 0, 0);
      walls[side] = calc::MeasureWall(geometry, planes[side], picture);
      const calc::WallMeasure& w = walls[side];
      rapidjson::Value laser(rapidjson::kObjectType);
      if (w.code != calc::kSuccess) {
        fail(w.code, std::string(kSides[side]) + " laser: " + w.reason);
        laser.AddMember("code", w.code, a);
        laser.AddMember("reason", rapidjson::Value(w.reason.c_str(), a), a);
      } else {
        laser.AddMember("distance_mm", Rounded(w.distance * 10, 4), a);
        laser.AddMember("spread_um", Rounded(w.spread * 10000, 1), a);
        laser.AddMember("tilt_um_per_cm", Rounded(w.tilt * 10000, 1), a);
        laser.AddMember("wall_points", w.wall_points, a);
        laser.AddMember("nearest_floor_mm", Rounded(w.nearest_floor * 10, 4), a);
        laser.AddMember("floor_rms_um", Rounded(w.floor_rms * 10000, 1), a);
        laser.AddMember("floor_points", w.floor_points, a);
      }
      measured.AddMember(rapidjson::StringRef(kSides[side]), laser, a);
      values[side] = {w.distance, w.spread, w.tilt, w.wall_points, w.nearest_floor, w.floor_rms};
    }
    if (code == calc::kSuccess) {
      calc::EncodeDistance(values[0], values[1], &answer->distance, answer->near_values,
                           answer->far_values);
      const double apart = std::fabs(walls[0].distance - walls[1].distance);
      if (apart > calc::kMaxDisagreement) {
        char text[160];
        std::snprintf(text, sizeof text,
                      "the lasers' walls lie %.2f mm apart; at most %.1f mm pass", apart * 10,
                      calc::kMaxDisagreement * 10);
        fail(calc::kLasersDisagree, text);
      }
    }
    answer->status = static_cast<uint8_t>(code == calc::kSuccess ? 0 : code);
    f.Str("planes", sent ? "sent" : "true");
    f.value().AddMember("walls", measured, a);
    rapidjson::Value truths(rapidjson::kObjectType);
    truths.AddMember("distance_mm", Rounded(truth.distance * 10, 4), a);
    f.value().AddMember("truth", truths, a);
    if (walls[0].code == calc::kSuccess && walls[1].code == calc::kSuccess) {
      rapidjson::Value errors(rapidjson::kObjectType);
      errors.AddMember(
          "distance_mm",
          Rounded(((walls[0].distance + walls[1].distance) / 2 - truth.distance) * 10, 4), a);
      f.value().AddMember("errors", errors, a);
    }
  }
  if (code != calc::kSuccess) f.Int("code", code).Str("reason", reason);
  return code == calc::kSuccess;
}

}  // namespace kivrun
