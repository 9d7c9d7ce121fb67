#include "tools/report_page/plane_points.h"

#include <cmath>
#include <cstdio>
#include <filesystem>
#include <opencv2/core.hpp>

#include "tools/calc/laser_calibration.h"
#include "tools/report_page/page_pictures.h"

namespace reportpage {

namespace {

calc::Vec3 Cross(calc::Vec3 a, calc::Vec3 b) {
  return {a.y * b.z - a.z * b.y, a.z * b.x - a.x * b.z, a.x * b.y - a.y * b.x};
}

calc::Vec3 Unit(calc::Vec3 a) { return (1 / std::sqrt(calc::Dot(a, a))) * a; }

// The laser and distance of a plane picture, as the plane node tells them:
// .../left/N.bmp or .../right/N.bmp with N = distance x 100 + offset.
bool LaserAndDistance(const std::string& path, std::string* side, int* distance) {
  const std::filesystem::path p(path);
  const std::string folder = p.parent_path().filename().string();
  const std::string stem = p.stem().string();
  if ((folder != "left" && folder != "right") || p.extension() != ".bmp" || stem.empty() ||
      stem.size() > 9 || stem.find_first_not_of("0123456789") != std::string::npos) {
    return false;
  }
  const long number = std::stol(stem);
  if (number < 100) return false;
  *side = folder;
  *distance = static_cast<int>(number / 100);
  return true;
}

double Round(double x, double unit) { return std::round(x / unit) * unit; }

std::string Words(double yaw, double roll, double offset_mm) {
  char text[128];
  // + 0.0 makes a negative zero positive: "0.0000", never "-0.0000".
  std::snprintf(text, sizeof text, "yaw %.4f°, roll %.4f°, offset %.4f mm", yaw + 0.0, roll + 0.0,
                offset_mm + 0.0);
  return text;
}

const rapidjson::Value* Logged(const RoundLog& log, const std::string& side) {
  const auto plane = log.answers.FindMember("plane");
  if (plane == log.answers.MemberEnd() || !plane->value.IsObject()) return nullptr;
  const auto lasers = plane->value.FindMember("lasers");
  if (lasers == plane->value.MemberEnd() || !lasers->value.IsObject()) return nullptr;
  const auto laser = lasers->value.FindMember(side.c_str());
  if (laser == lasers->value.MemberEnd() || !laser->value.IsObject()) return nullptr;
  for (const char* member : {"yaw", "roll", "offset_mm"}) {
    if (!laser->value.HasMember(member) || !laser->value[member].IsNumber()) return nullptr;
  }
  return &laser->value;
}

struct Read {
  std::string path;
  int distance = 0;
  cv::Mat picture;
};

void Measure(const calc::CameraGeometry& geometry, const RoundLog& log,
             const std::vector<Read>& pictures, LaserPoints* laser) {
  std::vector<calc::StripePicture> stripes;
  for (const Read& r : pictures) {
    calc::StripePicture s;
    s.name = r.path;
    s.picture = {r.picture.data, r.picture.cols, r.picture.rows,
                 static_cast<int>(r.picture.step[0])};
    s.target = {static_cast<double>(r.distance), log.wall_height};
    stripes.push_back(s);
  }
  const calc::LaserFit fit = calc::CalibrateLaser(geometry, stripes);
  if (fit.code != calc::kSuccess) {
    laser->problem = "the plane node's steps fail on these pictures: " + fit.reason;
    return;
  }
  const calc::Plane& plane = fit.fit.plane;
  laser->plane = calc::AnglesOf(plane);
  laser->rms_um = fit.fit.rms * 1e4;
  laser->points = fit.points;
  if (const rapidjson::Value* logged = Logged(log, laser->side)) {
    const double yaw = (*logged)["yaw"].GetDouble(), roll = (*logged)["roll"].GetDouble();
    const double offset = (*logged)["offset_mm"].GetDouble();
    laser->logged = Words(yaw, roll, offset);
    // The log rounds to 0.0001: the same plane rounds to the same text.
    laser->matches_log = Words(Round(laser->plane.yaw, 1e-4), Round(laser->plane.roll, 1e-4),
                               Round(laser->plane.offset * 10, 1e-4)) == laser->logged;
  }
  // The plane's own axes: along it, level and forward; up it.
  const calc::Vec3 along = Unit(Cross(plane.normal, {0, 0, 1}));
  const calc::Vec3 up = Cross(along, plane.normal);
  const calc::Vec3 origin = plane.offset * plane.normal;
  for (const calc::StripePicture& s : stripes) {
    DistancePoints d;
    d.distance = static_cast<int>(s.target.distance);
    d.picture = s.name;
    for (const calc::TargetPoint& p : calc::LocateStripe(geometry, s).points) {
      // Tenths of a µm and of a mm: finer than the plots show.
      d.row.push_back(static_cast<int>(std::lround(p.pixel.v)));
      d.residual_um.push_back(Round((calc::Dot(plane.normal, p.point) - plane.offset) * 1e4, 0.1));
      d.along_mm.push_back(Round(calc::Dot(p.point - origin, along) * 10, 0.1));
      d.height_mm.push_back(Round(calc::Dot(p.point - origin, up) * 10, 0.1));
    }
    laser->distances.push_back(std::move(d));
  }
}

// Whether the camera and the wall lie in the simulator's ranges
// (docs/camera-sim.md): a log whose settings say otherwise did not come from
// a round the simulator took part in, and the plane node's steps are not
// made for it.
bool InRange(const RoundLog& log) {
  const calc::Camera& c = log.camera;
  auto within = [](double v, double low, double high) { return v > low && v <= high; };
  return within(c.fx, 0, 100000) && within(c.fy, 0, 100000) && std::fabs(c.cx) <= 10000 &&
         std::fabs(c.cy) <= 10000 && within(c.height, 0, 1000) && std::fabs(c.pitch) < 80 &&
         within(log.wall_height, 0, 10000);
}

}  // namespace

std::vector<LaserPoints> RecomputePlanePoints(const RoundLog& log) {
  std::vector<LaserPoints> lasers;
  if (log.state != RoundLog::State::kRead || log.plane_answer_t < 0) return lasers;
  // Only a computing plane node's answer has planes fitted to pictures.
  const auto plane = log.answers.FindMember("plane");
  if (plane == log.answers.MemberEnd() || !plane->value.HasMember("lasers")) return lasers;
  const calc::CameraGeometry geometry(log.camera);
  for (const char* side : {"left", "right"}) {
    LaserPoints laser;
    laser.side = side;
    if (!InRange(log)) {
      laser.problem = "the camera the log's settings describe lies outside the simulator's ranges";
      lasers.push_back(std::move(laser));
      continue;
    }
    std::vector<Read> pictures;
    for (const std::string& path : log.plane_needs) {
      std::string its_side;
      Read r;
      if (!LaserAndDistance(path, &its_side, &r.distance) || its_side != side) continue;
      r.path = path;
      const auto written = log.last_write.find(path);
      if (written != log.last_write.end() && written->second > log.plane_answer_t) {
        laser.notes.push_back(path + " was written again after the plane node read it: left out");
        continue;
      }
      std::vector<unsigned char> bytes;
      std::string problem = ReadPictureFile(path, &bytes);
      if (problem.empty()) problem = DecodePicture(bytes, &r.picture);
      if (problem.empty() && r.picture.type() != CV_8UC1) problem = "not an 8-bit gray picture";
      if (!problem.empty()) {
        laser.notes.push_back(path + ": " + problem + ": left out");
        continue;
      }
      pictures.push_back(std::move(r));
    }
    if (pictures.empty()) {
      laser.problem = "none of the pictures the plane node read can be read now";
    } else {
      Measure(geometry, log, pictures, &laser);
    }
    lasers.push_back(std::move(laser));
  }
  return lasers;
}

}  // namespace reportpage
