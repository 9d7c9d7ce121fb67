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
  } else if (action == "fail") {
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
    Figure normal;
    normal.group = group;
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
  for (const char* side : {"left", "right"}) {
    const rapidjson::Value& r = Member(residuals, side);
    const auto rms = Number(r, "rms_px"), worst = Number(r, "worst_px");
    if (!rms || !worst) continue;
    Figure f;
    f.group = "plane check";
    f.what = std::string(side) + " laser residuals";
    f.computed = Fixed(*rms, 4) + " px RMS, " + Fixed(*worst, 4) + " px at worst";
    if (const auto points = Number(r, "points"))
      f.scatter = "over " + Fixed(*points, 0) + " points";
    f.rule = "the check node: RMS at most 0.2 px and the largest at most 1.0 px";
    f.verdict = *rms <= 0.2 && *worst <= 1.0 ? "pass" : "fail";
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
  return figures;
}

}  // namespace reportpage
