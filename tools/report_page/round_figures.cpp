#include "tools/report_page/round_figures.h"

#include <cmath>
#include <cstdio>

namespace reportpage {

namespace {

std::optional<double> Number(const rapidjson::Value& object, const char* name) {
  const rapidjson::Value& v = Member(object, name);
  if (!v.IsNumber()) return std::nullopt;
  return v.GetDouble();
}

std::string Fixed(double value, int decimals, bool sign = false) {
  char text[64];
  std::snprintf(text, sizeof text, sign ? "%+.*f" : "%.*f", decimals, value);
  return text;
}

std::string Text(const rapidjson::Value& object, const char* name) {
  const rapidjson::Value& v = Member(object, name);
  return v.IsString() ? v.GetString() : "";
}

// The row of a node that computed nothing: it refused the pictures, failed
// on them, or answered with the failure the scenario gave it.
Figure Failure(const std::string& group, const rapidjson::Value& answer) {
  Figure f;
  f.group = group;
  f.what = "answer";
  const std::string action = Text(answer, "action");
  if (action == "refuse") {
    f.computed = "refused the pictures";
    const rapidjson::Value& problems = Member(answer, "problems");
    if (problems.IsArray() && !problems.Empty()) {
      f.computed += ": " + (problems[0].IsString() ? std::string(problems[0].GetString())
                                                   : Compact(problems[0]));
      if (problems.Size() > 1)
        f.computed += " and " + std::to_string(problems.Size() - 1) + " more";
    }
  } else if (action == "fail" && !Number(answer, "code")) {
    f.computed = "answered with the scenario's failure: " + Compact(Member(answer, "fields"));
  } else {
    const auto code = Number(answer, "code");
    f.computed = "failed" + (code ? ": code " + Fixed(*code, 0) : std::string()) +
                 (Text(answer, "reason").empty() ? "" : ": " + Text(answer, "reason"));
  }
  f.rule = "the node answers only what it could compute (docs/calibration.md, failure codes)";
  f.verdict = "fail";
  return f;
}

// Whether the node computed its answer, or failed to: a node answering with
// the scenario's fixed numbers computed nothing to show.
bool Computed(const rapidjson::Value& answer, const char* member) {
  return Member(answer, member).IsObject() || Member(answer, "code").IsNumber() ||
         Text(answer, "action") == "refuse" || Text(answer, "action") == "fail";
}

void PlaneFigures(const rapidjson::Value& answer, std::vector<Figure>* out) {
  for (const char* side : {"left", "right"}) {
    const std::string group = std::string(side) + " laser plane";
    const rapidjson::Value& got = Member(Member(answer, "lasers"), side);
    const rapidjson::Value& truth = Member(Member(answer, "truth"), side);
    const rapidjson::Value& error = Member(Member(answer, "errors"), side);
    const auto yaw = Number(got, "yaw"), roll = Number(got, "roll"),
               offset = Number(got, "offset_mm");
    if (!yaw || !roll || !offset) {
      out->push_back(Failure(group, Member(got, "code").IsNumber() ? got : answer));
      continue;
    }
    std::string scatter;
    if (const auto rms = Number(got, "rms_um")) {
      scatter = "fit RMS " + Fixed(*rms, 1) + " µm";
      if (const auto points = Number(got, "points"))
        scatter += " over " + Fixed(*points, 0) + " points";
      const auto floor = Number(got, "floor_points"), wall = Number(got, "wall_points");
      if (floor && wall)
        scatter += " (" + Fixed(*floor, 0) + " floor, " + Fixed(*wall, 0) + " wall)";
    }
    const rapidjson::Value& sigma = Member(got, "sigma");
    const auto sigma_yaw = Number(sigma, "yaw"), sigma_roll = Number(sigma, "roll"),
               sigma_offset = Number(sigma, "offset_mm");
    Figure normal;
    normal.group = group;
    if (sigma_yaw && sigma_roll) {
      normal.uncertainty =
          "±" + Fixed(*sigma_yaw, 4) + "° yaw, ±" + Fixed(*sigma_roll, 4) + "° roll";
    }
    normal.what = "normal (yaw, roll)";
    normal.computed = Fixed(*yaw, 4) + "°, " + Fixed(*roll, 4) + "°";
    if (const auto ty = Number(truth, "yaw"), tr = Number(truth, "roll"); ty && tr) {
      normal.truth = Fixed(*ty, 4) + "°, " + Fixed(*tr, 4) + "°";
    }
    normal.scatter = scatter;
    normal.rule = "accuracy goal: normal within " + Fixed(kGoalNormalDeg, 2) + "° of the truth";
    if (const auto e = Number(error, "normal_deg")) {
      normal.error = Fixed(*e, 5) + "° between the normals";
      normal.share_of_goal = std::fabs(*e) / kGoalNormalDeg;
      normal.verdict = std::fabs(*e) <= kGoalNormalDeg ? "pass" : "fail";
    }
    out->push_back(normal);

    Figure off;
    off.group = group;
    off.what = "offset";
    off.computed = Fixed(*offset, 4) + " mm";
    if (const auto t = Number(truth, "offset_mm")) off.truth = Fixed(*t, 4) + " mm";
    off.scatter = scatter;
    if (sigma_offset) off.uncertainty = "±" + Fixed(*sigma_offset, 4) + " mm";
    off.rule = "accuracy goal: within " + Fixed(kGoalOffsetMm, 1) + " mm of the truth";
    if (const auto e = Number(error, "offset_mm")) {
      off.error = Fixed(*e, 4, true) + " mm";
      off.share_of_goal = std::fabs(*e) / kGoalOffsetMm;
      off.verdict = std::fabs(*e) <= kGoalOffsetMm ? "pass" : "fail";
    }
    out->push_back(off);
  }
}

void CheckFigures(const rapidjson::Value& answer, std::vector<Figure>* out) {
  const rapidjson::Value& residuals = Member(answer, "residuals");
  if (!residuals.IsObject()) {
    out->push_back(Failure("plane check", answer));
    return;
  }
  // The node judges both lasers at once; its answer says how.
  const auto result = Number(Member(answer, "fields"), "check_result");
  for (const char* side : {"left", "right"}) {
    const rapidjson::Value& r = Member(residuals, side);
    const auto rms = Number(r, "rms_px"), worst = Number(r, "worst_px");
    if (!rms || !worst) continue;
    Figure f;
    f.group = "plane check";
    f.what = std::string(side) + " laser residuals";
    f.computed = Fixed(*rms, 4) + " px RMS, " + Fixed(*worst, 4) + " px at worst";
    if (const auto bias = Number(r, "bias_px")) f.computed += ", bias " + Fixed(*bias, 4) + " px";
    if (const auto points = Number(r, "points"))
      f.scatter = "over " + Fixed(*points, 0) + " points";
    f.rule =
        "the check node: no picture's floor or wall part more than max_bias_px (0.1 px) aside on "
        "average; RMS and worst judged only where configured";
    if (result) f.verdict = *result == 1 ? "pass" : "fail: code " + Fixed(*result, 0);
    out->push_back(f);
  }
}

void DistanceFigures(const rapidjson::Value& answer, std::vector<Figure>* out) {
  const rapidjson::Value& walls = Member(answer, "walls");
  const auto left = Number(Member(walls, "left"), "distance_mm");
  const auto right = Number(Member(walls, "right"), "distance_mm");
  if (!left || !right) {
    out->push_back(Failure("distance check", answer));
    return;
  }
  Figure f;
  f.group = "distance check";
  f.what = std::string("wall distance") +
           (Text(answer, "planes") == "true" ? " (with the true planes: none was sent)" : "");
  f.computed = Fixed((*left + *right) / 2, 4) + " mm (left " + Fixed(*left, 4) + ", right " +
               Fixed(*right, 4) + ")";
  if (const auto t = Number(Member(answer, "truth"), "distance_mm")) f.truth = Fixed(*t, 4) + " mm";
  for (const char* side : {"left", "right"}) {
    const rapidjson::Value& wall = Member(walls, side);
    const auto spread = Number(wall, "spread_um"), points = Number(wall, "wall_points");
    if (!spread || !points) continue;
    f.scatter += std::string(f.scatter.empty() ? "" : "; ") + side + ": spread " +
                 Fixed(*spread, 1) + " µm over " + Fixed(*points, 0) + " wall points";
  }
  f.rule = "the lasers' walls within 2 mm of each other; accuracy goal: within " +
           Fixed(kGoalDistanceMm, 1) + " mm of the truth";
  const bool agree = std::fabs(*left - *right) <= 2;
  if (const auto e = Number(Member(answer, "errors"), "distance_mm")) {
    f.error = Fixed(*e, 4, true) + " mm";
    f.share_of_goal = std::fabs(*e) / kGoalDistanceMm;
    f.verdict = agree && std::fabs(*e) <= kGoalDistanceMm ? "pass" : "fail";
  } else {
    f.verdict = agree ? "pass" : "fail";
  }
  out->push_back(f);
}

// The camera the camera parameter node measured from the chessboard views,
// value by value beside the simulator's camera, each error also in units of
// the node's own 1-sigma.
void CameraFigures(const rapidjson::Value& answer, std::vector<Figure>* out) {
  const rapidjson::Value& got = Member(answer, "camera");
  if (!got.IsObject()) {
    out->push_back(Failure("camera", answer));
    return;
  }
  const rapidjson::Value& truth = Member(answer, "truth");
  const rapidjson::Value& sigma = Member(answer, "sigma");
  const rapidjson::Value& error = Member(answer, "errors");
  std::string scatter;
  if (const auto rms = Number(got, "rms_px")) {
    scatter = "reprojection RMS " + Fixed(*rms, 3) + " px";
    if (const auto views = Number(got, "views")) scatter += " over " + Fixed(*views, 0) + " views";
  }
  const struct {
    const char* member;
    const char* what;
    const char* unit;
    int decimals;
  } values[] = {{"fx", "focal length fx", " px", 2},    {"fy", "focal length fy", " px", 2},
                {"cx", "principal point cx", " px", 2}, {"cy", "principal point cy", " px", 2},
                {"k1", "radial distortion k1", "", 4},  {"height_cm", "height", " cm", 3},
                {"pitch_deg", "pitch", "°", 3}};
  for (const auto& v : values) {
    const auto value = Number(got, v.member);
    if (!value) continue;
    Figure f;
    f.group = "camera";
    f.what = v.what;
    f.computed = Fixed(*value, v.decimals) + v.unit;
    if (const auto t = Number(truth, v.member)) f.truth = Fixed(*t, v.decimals) + v.unit;
    const auto s = Number(sigma, v.member);
    if (s) f.uncertainty = "±" + Fixed(*s, v.decimals + 1) + v.unit;
    if (const auto e = Number(error, v.member)) {
      f.error = Fixed(*e, v.decimals + 1, true) + v.unit;
      if (s && *s > 0) f.error += " (" + Fixed(std::fabs(*e) / *s, 1) + " σ)";
    }
    f.scatter = scatter;
    f.rule =
        "the camera parameter node: the corners within 1 px RMS of where the camera puts them, "
        "the boards reaching the picture's corners";
    f.verdict = "pass";
    out->push_back(f);
  }
}

}  // namespace

std::vector<Figure> RoundFigures(const RoundLog& log) {
  std::vector<Figure> figures;
  if (log.state != RoundLog::State::kRead) return figures;
  const rapidjson::Value& answers = log.answers;
  const rapidjson::Value& plane = Member(answers, "plane");
  if (Computed(plane, "lasers")) {
    if (Member(plane, "lasers").IsObject()) {
      PlaneFigures(plane, &figures);
    } else {
      figures.push_back(Failure("laser planes", plane));
    }
  }
  const rapidjson::Value& check = Member(answers, "check");
  if (Computed(check, "residuals")) CheckFigures(check, &figures);
  const rapidjson::Value& distance = Member(answers, "distance");
  if (Computed(distance, "walls")) DistanceFigures(distance, &figures);
  // Only the set's last answer calibrates; a view kept or refused on the
  // way is no figure.
  const rapidjson::Value& ieparam = Member(answers, "ieparam");
  if (Member(ieparam, "camera").IsObject() || Member(ieparam, "code").IsNumber()) {
    CameraFigures(ieparam, &figures);
  }
  return figures;
}

}  // namespace reportpage
