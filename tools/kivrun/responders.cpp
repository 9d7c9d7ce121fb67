#include "tools/kivrun/responders.h"

#include <cstdint>
#include <stdexcept>

#include "msgs/calimsgs.h"
#include "msgs/topics.h"
#include "tools/calc/picture_files.h"
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

// The answer fields that carry a failure code.
rapidjson::Document FailFields(const ResponderKind& kind, int64_t code) {
  rapidjson::Document fail(rapidjson::kObjectType);
  for (const char* field : kind.result_fields) {
    fail.AddMember(rapidjson::StringRef(field), rapidjson::Value(code), fail.GetAllocator());
  }
  return fail;
}

std::vector<std::string> DefaultNeeds(const std::string& node, int delt_factory, bool computes) {
  if (node == "plane" || (node == "check" && computes)) {
    return calc::FactoryPlanePictures(delt_factory);
  }
  if (node == "ieparam") return {"/tmp/pic/chessboard.bmp"};
  if (node == "distance") return {"/tmp/pic/dis_left.bmp", "/tmp/pic/dis_right.bmp"};
  return {};
}

bool Computes(const std::string& node) {
  return node == "plane" || node == "check" || node == "distance" || node == "ieparam";
}

}  // namespace

bool TakesRequest(const ResponderKind& kind, const void* request) {
  return kind.node != std::string("laser_power") ||
         static_cast<const kiv_camera_calires_msg*>(request)->kind == kLaserPowerCheckKind;
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
  if (computes && (!Computes(kind->node) || computing_ == nullptr)) {
    throw std::invalid_argument("the " + setting.node +
                                " node does not compute (the plane, check, distance and ieparam "
                                "nodes do)");
  }
  auto applied = std::make_shared<ResponderSetting>(setting);
  if (!applied->has_needs) applied->needs = DefaultNeeds(setting.node, delt_factory_, computes);
  if (!applied->has_refuse) applied->refuse = kDefaultRefusal;

  // Check the answer now, so a bad field stops the scenario at this step.
  const RecordLayout* answer = FindRecord(kind->answer);
  std::shared_ptr<void> scratch = answer->make();
  const rapidjson::Document answer_fields = applied->answer.Parse();
  EncodeFields(*answer, answer_fields, scratch.get());
  EncodeFields(*answer, FailFields(*kind, applied->code), scratch.get());
  EncodeFields(*answer, FailFields(*kind, applied->refuse), scratch.get());
  if (computes) {
    computing_->Compute(*applied);
  } else if (computing_ != nullptr) {
    computing_->Retire(kind->node);
  }

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
  if (computes) return;  // the computing node takes the requests
  active_[kind->node] = Active{kind, applied};
  const std::string node = kind->node;
  FindRecord(kind->request)->watch(host_, node, kind->listens, [this, node](const void* request) {
    OnRequest(active_.at(node), request);
  });
}

void Responders::OnRequest(Active& active, const void* request) {
  const ResponderKind& kind = *active.kind;
  std::shared_ptr<const ResponderSetting> setting = active.setting;
  // A computing node answers for itself.
  if (!TakesRequest(kind, request) || setting->mode == ResponderSetting::Mode::kCompute) return;
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
    const std::string problem = calc::PictureProblem(path);
    if (!problem.empty()) {
      problems.PushBack(rapidjson::Value((path + ": " + problem).c_str(), f.allocator()),
                        f.allocator());
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
  f.Str("record", layout.name);
  rapidjson::Value fields(rapidjson::kObjectType);
  DecodeFields(layout, record.get(), fields, f.allocator());
  f.value().AddMember("fields", fields, f.allocator());
  if (!problems.Empty()) f.value().AddMember("problems", problems, f.allocator());
  log_.Write("answer", f.value());
  // The calibration node subscribes to every answer topic when it is built,
  // so the topic exists.
  layout.publish(host_.FindTopic(kind.answers), kind.answers, record.get(),
                 std::string("kivrun/") + kind.node);
  if (on_answer_) on_answer_(kind.node, action, f.value());
}

}  // namespace kivrun
