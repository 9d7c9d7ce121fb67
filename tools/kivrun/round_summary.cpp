#include "tools/kivrun/round_summary.h"

#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>

#include "msgs/topics.h"
#include "src/calicodes.h"
#include "tools/kivrun/json_values.h"

namespace kivrun {
namespace {

// Request values of the factory tool and the app, and the node's refusal.
constexpr uint16_t kReset = 0x1111;
constexpr uint16_t kClose = 0x2222;
constexpr uint16_t kLaserPowerCheck = 0x4444;
constexpr uint16_t kChessboard = 255;
constexpr uint16_t kDistanceCheck = 0x3333;
constexpr uint16_t kRefused = 316;
constexpr int kCutRefusedBase = 256;  // app acknowledge: 256 + the stripe cut's result

void Count(std::vector<std::pair<std::string, int>>& counts, const std::string& key) {
  for (auto& entry : counts) {
    if (entry.first == key) {
      ++entry.second;
      return;
    }
  }
  counts.emplace_back(key, 1);
}

std::string Counts(const std::vector<std::pair<std::string, int>>& counts) {
  std::string text;
  for (const auto& [key, count] : counts) {
    text += (text.empty() ? "" : ", ") + key + " " + std::to_string(count);
  }
  return text.empty() ? "none" : text;
}

int Total(const std::vector<std::pair<std::string, int>>& counts) {
  int total = 0;
  for (const auto& entry : counts) total += entry.second;
  return total;
}

const char* KindName(int kind, bool text) {
  switch (kind) {
    case kivplugcali::kKindCameraState:
      return "camera state";
    case kivplugcali::kKindDistance:
      return "distance";
    case kivplugcali::kKindIEparam:
      return "camera parameters";
    case kivplugcali::kKindPlaneCheck:
      return "plane and check";
    case kivplugcali::kKindLaserPowerCheck:
      return text ? "distance check" : "laser power check";
    case kivplugcali::kKindLaserPower:
      return "laser power";
    default:
      return "unknown kind";
  }
}

std::string Json(const rapidjson::Value& value) {
  rapidjson::StringBuffer buffer;
  rapidjson::Writer<rapidjson::StringBuffer> writer(buffer);
  value.Accept(writer);
  return buffer.GetString();
}

std::string List(const rapidjson::Value& fields, const char* name) {
  return fields.HasMember(name) ? Json(fields[name]) : "";
}

std::string Seconds(double seconds) {
  char text[32];
  std::snprintf(text, sizeof text, "%.2f s", seconds);
  return text;
}

}  // namespace

void RoundSummary::Sent(const std::string& topic) { Count(sent_, topic); }

void RoundSummary::Requested(uint16_t value, bool app) {
  app_ = app;
  if (value == kChessboard) {
    taking_ = "chessboard";
  } else if (value == kDistanceCheck) {
    taking_ = "distance check";
  } else if (value != 0 && value != kReset && value != kClose && value != kLaserPowerCheck) {
    taking_ = std::string(app ? "app" : "factory") + " distance " + std::to_string(value);
  }
}

void RoundSummary::Published(const std::string& topic, const rapidjson::Value& fields) {
  using namespace calitopics;
  if (topic == kCameraCaliRes && fields.HasMember("kind")) {
    const int kind = fields["kind"].GetInt();
    if (kind == kivplugcali::kKindLaserPowerCheck) {
      Count(requests_, topic + " laser power check");  // to the laser power node
    } else {
      Count(kind <= kivplugcali::kKindDistance ? replies_ : results_,
            topic + " " + KindName(kind, false));
    }
    const int distance = fields["distance"].GetInt();
    if (kind == kivplugcali::kKindDistance && distance != kRefused) {
      accepted_.push_back(static_cast<uint16_t>(distance));
    }
    if (kind == kivplugcali::kKindIEparam || kind == kivplugcali::kKindPlaneCheck) {
      final_result_ = "kind " + std::to_string(kind) + " on " + topic;
      if (kind == kivplugcali::kKindIEparam) {
        final_result_ += ": ieparam " + std::to_string(fields["ieparam1"].GetInt()) + ", " +
                         std::to_string(fields["ieparam2"].GetInt()) + ", " +
                         std::to_string(fields["ieparam3"].GetInt());
      } else {
        final_result_ += ": plane_result " + std::to_string(fields["plane_result"].GetInt()) +
                         ", check_result " + std::to_string(fields["check_result"].GetInt()) +
                         ", plane_data " + List(fields, "plane_data") + ", check_data " +
                         List(fields, "check_data");
      }
    }
  } else if (topic == kLaserState && fields.HasMember("text")) {
    const std::string text = fields["text"].GetString();
    const int kind = std::atoi(text.c_str());
    Count(kind <= kivplugcali::kKindDistance ? replies_ : results_,
          topic + " " + KindName(kind, true));
    if (kind == kivplugcali::kKindDistance) {
      const int value = std::atoi(text.c_str() + text.find(';') + 1);
      if (value == kRefused || value == kReset || value == kClose) {
        // not a distance
      } else if (value >= kCutRefusedBase) {
        cut_refused_.push_back(text);
      } else {
        accepted_.push_back(static_cast<uint16_t>(value));
      }
      // The acknowledge follows the stripe pictures it was about.
      for (auto& [path, versions] : versions_) {
        if (!versions.empty() && versions.back().reply.empty()) versions.back().reply = text;
      }
    } else if (kind != kivplugcali::kKindCameraState) {
      final_result_ = "\"" + text + "\" on " + topic;
    }
  } else if (topic == kLaserCalibrReq || topic == kCameraCaliCheck || topic == kCameraCaliIEParam ||
             topic == kDistanceStartCaculate) {
    Count(requests_, topic);
  }
}

void RoundSummary::Answered(const std::string& node, const std::string& action,
                            const rapidjson::Value& answer) {
  Count(answers_, action == "answer" ? node : node + " (" + action + ")");
  if (action == "answer" || !answer.IsObject()) return;
  // The failure code went into the answer's fields; the event names it too.
  std::string code;
  const auto code_member = answer.FindMember("code");
  if (code_member != answer.MemberEnd() && code_member->value.IsInt64()) {
    code = " with " + std::to_string(code_member->value.GetInt64());
  }
  const std::string head = node + (action == "refuse" ? " refused" : " failed") + code;
  const auto problems = answer.FindMember("problems");
  const auto reason = answer.FindMember("reason");
  if (problems != answer.MemberEnd() && problems->value.IsArray()) {
    for (const auto& problem : problems->value.GetArray()) {
      if (problem.IsString()) problems_.push_back(head + ": " + problem.GetString());
    }
  } else if (reason != answer.MemberEnd() && reason->value.IsString()) {
    problems_.push_back(head + ": " + reason->value.GetString());
  } else {
    problems_.push_back(head + ": the scenario asked for a failure");
  }
}

namespace {

// A number of the answer event, or NaN.
double Number(const rapidjson::Value& object, const char* key) {
  if (!object.IsObject()) return std::nan("");
  const auto it = object.FindMember(key);
  return it != object.MemberEnd() && it->value.IsNumber() ? it->value.GetDouble() : std::nan("");
}

std::string Text(const char* format, double a, double b = 0, double c = 0, double d = 0,
                 double e = 0, double f = 0, double g = 0, double h = 0) {
  char text[300];
  std::snprintf(text, sizeof text, format, a, b, c, d, e, f, g, h);
  return text;
}

// Why a computing node could not answer: its code and reason, or the
// pictures it refused.
std::string Failure(const rapidjson::Value& answer) {
  const rapidjson::Value& problems = MemberOrNull(answer, "problems");
  if (problems.IsArray() && !problems.Empty() && problems[0].IsString()) {
    return "refused: " + std::string(problems[0].GetString()) +
           (problems.Size() > 1 ? " (and " + std::to_string(problems.Size() - 1) + " more)" : "");
  }
  const rapidjson::Value& reason = MemberOrNull(answer, "reason");
  return "failed with code " + std::to_string(static_cast<int>(Number(answer, "code"))) + ": " +
         (reason.IsString() ? reason.GetString() : "");
}

}  // namespace

void RoundSummary::Computed(const std::string& node, const rapidjson::Value& answer) {
  const rapidjson::Value& board = MemberOrNull(answer, "board");
  if (node == "ieparam" && MemberOrNull(board, "found").IsFalse() &&
      MemberOrNull(board, "view").IsString()) {
    views_without_board_.push_back(MemberOrNull(board, "view").GetString());
  }
  std::vector<std::pair<std::string, std::string>> rows;
  const bool failed =
      MemberOrNull(answer, "problems").IsArray() || MemberOrNull(answer, "code").IsNumber();
  if (node == "plane") {
    for (const char* side : {"left", "right"}) {
      const rapidjson::Value& got = MemberOrNull(MemberOrNull(answer, "lasers"), side);
      const rapidjson::Value& truth = MemberOrNull(MemberOrNull(answer, "truth"), side);
      const rapidjson::Value& error = MemberOrNull(MemberOrNull(answer, "errors"), side);
      if (!MemberOrNull(got, "yaw").IsNumber()) continue;
      rows.emplace_back(
          std::string(side) + " laser plane",
          Text("yaw %.4f, roll %.4f deg, offset %.4f mm; true %.4f, %.4f deg, %.4f mm; error "
               "%.5f deg (normal), %+.4f mm (offset)",
               Number(got, "yaw"), Number(got, "roll"), Number(got, "offset_mm"),
               Number(truth, "yaw"), Number(truth, "roll"), Number(truth, "offset_mm"),
               Number(error, "normal_deg"), Number(error, "offset_mm")) +
              Text("; 1-sigma %.4f, %.4f deg, %.4f mm", Number(MemberOrNull(got, "sigma"), "yaw"),
                   Number(MemberOrNull(got, "sigma"), "roll"),
                   Number(MemberOrNull(got, "sigma"), "offset_mm")));
    }
    if (failed) rows.emplace_back("plane calibration", Failure(answer));
  } else if (node == "check") {
    const rapidjson::Value& residuals = MemberOrNull(answer, "residuals");
    if (failed) {
      rows.emplace_back("plane check", Failure(answer));
    } else {
      rows.emplace_back(
          "plane check",
          Text("passed: residuals left %.4f px RMS, %.4f px at worst, %.4f px aside; right "
               "%.4f px RMS, %.4f px at worst, %.4f px aside",
               Number(MemberOrNull(residuals, "left"), "rms_px"),
               Number(MemberOrNull(residuals, "left"), "worst_px"),
               Number(MemberOrNull(residuals, "left"), "bias_px"),
               Number(MemberOrNull(residuals, "right"), "rms_px"),
               Number(MemberOrNull(residuals, "right"), "worst_px"),
               Number(MemberOrNull(residuals, "right"), "bias_px")));
    }
  } else if (node == "distance") {
    const rapidjson::Value& walls = MemberOrNull(answer, "walls");
    const double left = Number(MemberOrNull(walls, "left"), "distance_mm");
    const double right = Number(MemberOrNull(walls, "right"), "distance_mm");
    const rapidjson::Value& planes = MemberOrNull(answer, "planes");
    const std::string with = planes.IsString() ? planes.GetString() : "no";
    if (!std::isnan(left) && !std::isnan(right)) {
      rows.emplace_back(
          "distance check",
          Text("%.4f mm (left %.4f, right %.4f) with the ", (left + right) / 2, left, right) +
              with + " planes; true " +
              Text("%.4f mm; error %+.4f mm", Number(MemberOrNull(answer, "truth"), "distance_mm"),
                   Number(MemberOrNull(answer, "errors"), "distance_mm")));
    }
    if (failed)
      rows.emplace_back(rows.empty() ? "distance check" : "distance check result", Failure(answer));
  } else if (node == "ieparam") {
    // The set's last answer: the camera it measured, beside the truth.
    const rapidjson::Value& camera = MemberOrNull(answer, "camera");
    const rapidjson::Value& truth = MemberOrNull(answer, "truth");
    const rapidjson::Value& sigma = MemberOrNull(answer, "sigma");
    if (camera.IsObject()) {
      rows.emplace_back(
          "camera",
          Text("fx %.2f, fy %.2f, cx %.2f, cy %.2f px, k1 %.4f, height %.3f cm, pitch %.3f deg",
               Number(camera, "fx"), Number(camera, "fy"), Number(camera, "cx"),
               Number(camera, "cy"), Number(camera, "k1"), Number(camera, "height_cm"),
               Number(camera, "pitch_deg")) +
              Text(" (from %.0f views, %.3f px RMS; 1-sigma fx %.2f, cx %.2f, cy %.2f px)",
                   Number(camera, "views"), Number(camera, "rms_px"), Number(sigma, "fx"),
                   Number(sigma, "cx"), Number(sigma, "cy")));
      rows.emplace_back(
          "camera, true",
          Text("fx %.2f, fy %.2f, cx %.2f, cy %.2f px, k1 %.4f, height %.3f cm, pitch %.3f deg",
               Number(truth, "fx"), Number(truth, "fy"), Number(truth, "cx"), Number(truth, "cy"),
               Number(truth, "k1"), Number(truth, "height_cm"), Number(truth, "pitch_deg")));
    }
    if (MemberOrNull(answer, "code").IsNumber())
      rows.emplace_back("camera calibration", Failure(answer));
  }
  for (auto& entry : computed_) {
    if (entry.first == node) {
      entry.second = std::move(rows);
      return;
    }
  }
  computed_.emplace_back(node, std::move(rows));
}

void RoundSummary::Written(const std::string& path, int64_t size, const std::string& hash) {
  ++picture_writes_;
  ReportPicture* picture = nullptr;
  for (auto& p : pictures_) {
    if (p.path == path) picture = &p;
  }
  if (picture == nullptr) {
    pictures_.emplace_back();
    picture = &pictures_.back();
    picture->path = path;
  }
  // The app's stripe pictures are the ones the stripe cut ran on (shown with
  // the cut drawn over them); its cut results go to the left and right
  // folders, numbered like the factory pictures.
  const std::string name = path.substr(path.rfind('/') + 1);
  const bool app_distance = app_ && taking_.rfind("app distance", 0) == 0;
  const bool folder =
      path.find("/left/") != std::string::npos || path.find("/right/") != std::string::npos;
  picture->app = app_distance && !folder;
  if (path.find("/left/") != std::string::npos || name[0] == 'L') {
    picture->side = ReportPicture::Side::kLeft;
  } else if (path.find("/right/") != std::string::npos || name[0] == 'R') {
    picture->side = ReportPicture::Side::kRight;
  }
  picture->label = app_distance && folder ? taking_ + ", cut picture" : taking_;
  picture->size = size;
  picture->hash = hash;
  ++picture->writes;
  if (keep_versions_ && (path == "/tmp/LL.bmp" || path == "/tmp/RR.bmp")) KeepVersion(*picture);
}

void RoundSummary::KeepVersion(const ReportPicture& picture) {
  std::vector<ReportPicture>& versions = versions_[picture.path];
  if (!versions.empty()) {
    ReportPicture& last = versions.back();
    if (last.hash == picture.hash && last.label == picture.label) {
      ++last.writes;
      return;
    }
  }
  if (static_cast<int>(versions.size()) >= kMaxVersions) {
    ++versions_not_kept_;
    return;
  }
  ReportPicture version = picture;
  version.writes = 1;
  version.version = static_cast<int>(versions.size()) + 1;
  // The file as it is now, just closed after the write: the next request
  // rewrites it.
  std::ifstream in(picture.path, std::ios::binary);
  std::error_code error;
  const std::uintmax_t size = std::filesystem::file_size(picture.path, error);
  if (in && !error) {
    version.bytes.resize(static_cast<std::size_t>(size));
    in.read(reinterpret_cast<char*>(version.bytes.data()), static_cast<std::streamsize>(size));
    version.bytes.resize(static_cast<std::size_t>(in.gcount()));
  }
  versions.push_back(std::move(version));
}

std::vector<ReportPicture> RoundSummary::ReportPictures() const {
  std::vector<ReportPicture> shown;
  for (const ReportPicture& picture : pictures_) {
    const auto kept = versions_.find(picture.path);
    if (kept == versions_.end() || kept->second.empty()) {
      shown.push_back(picture);
    } else {
      shown.insert(shown.end(), kept->second.begin(), kept->second.end());
    }
  }
  return shown;
}

std::vector<std::pair<std::string, std::string>> RoundSummary::Rows(int64_t simulated_us,
                                                                    double wall_seconds) const {
  std::vector<std::pair<std::string, std::string>> rows;
  std::string accepted;
  for (uint16_t d : accepted_) accepted += (accepted.empty() ? "" : " ") + std::to_string(d);
  rows.emplace_back("distances accepted",
                    accepted.empty() ? "none" : std::to_string(accepted_.size()) + ": " + accepted);
  if (!cut_refused_.empty()) {
    std::vector<std::pair<std::string, int>> refused;
    for (const auto& text : cut_refused_) Count(refused, "\"" + text + "\"");
    rows.emplace_back("stripe cuts refused",
                      std::to_string(cut_refused_.size()) + ": " + Counts(refused));
  }
  rows.emplace_back("pictures written", std::to_string(pictures_.size()) + " files, " +
                                            std::to_string(picture_writes_) + " writes");
  rows.emplace_back("requests to the node", std::to_string(Total(sent_)) + ": " + Counts(sent_));
  rows.emplace_back("requests to calculation nodes",
                    std::to_string(Total(requests_)) + ": " + Counts(requests_));
  rows.emplace_back("answers of calculation nodes",
                    std::to_string(Total(answers_)) + ": " + Counts(answers_));
  for (const auto& node : computed_) {
    for (const auto& row : node.second) rows.push_back(row);
  }
  rows.emplace_back("replies of the node",
                    std::to_string(Total(replies_)) + ": " + Counts(replies_));
  rows.emplace_back("results relayed", std::to_string(Total(results_)) + ": " + Counts(results_));
  rows.emplace_back("last result", final_result_.empty() ? "none" : final_result_);
  rows.emplace_back("simulated time", Seconds(static_cast<double>(simulated_us) / 1e6));
  rows.emplace_back("wall time", Seconds(wall_seconds));
  return rows;
}

}  // namespace kivrun
