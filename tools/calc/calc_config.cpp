#include "tools/calc/calc_config.h"

#include <sys/stat.h>

#include <cmath>
#include <cstdio>
#include <fstream>
#include <limits>
#include <set>
#include <sstream>

#include "msgs/calcmsgs.h"
#include "tools/calc/camera_calibration.h"
#include "tools/calc/camera_model_file.h"
#include "tools/calc/picture_files.h"

namespace calc {
namespace {

constexpr int64_t kMaxDelayMs = 3600000;  // one hour
constexpr std::size_t kMaxPictures = 1000;

// The members each node takes.
const std::set<std::string>& Members(NodeKind kind) {
  static const std::set<std::string> plane = {
      "name",           "delay_ms",   "refuse",      "pictures",     "camera",
      "wall_height_cm", "delt",       "left_folder", "right_folder", "distances",
      "min_points",     "max_rms_mm", "camera_file"};
  static const std::set<std::string> check = {
      "name",           "delay_ms",     "refuse",      "pictures",     "camera",
      "wall_height_cm", "delt",         "left_folder", "right_folder", "distances",
      "max_rms_px",     "max_worst_px", "camera_file", "max_bias_px"};
  static const std::set<std::string> distance = {"name",         "delay_ms",        "refuse",
                                                 "pictures",     "camera",          "pic_folder",
                                                 "max_apart_mm", "fallback_planes", "camera_file"};
  static const std::set<std::string> camera_param = {"name",     "delay_ms",   "refuse",
                                                     "pictures", "pic_folder", "board",
                                                     "views",    "camera_out", "placement_file"};
  switch (kind) {
    case NodeKind::kPlane:
      return plane;
    case NodeKind::kCheck:
      return check;
    case NodeKind::kDistance:
      return distance;
    case NodeKind::kCameraParam:
      break;
  }
  return camera_param;
}

std::string Shown(double x) {
  std::ostringstream text;
  text.precision(17);
  text << x;
  return text.str();
}

// A value as a message shows it: a number or a string as it is, anything
// else by its type.
std::string Shown(const rapidjson::Value& v) {
  if (v.IsInt64()) return std::to_string(v.GetInt64());
  if (v.IsUint64()) return std::to_string(v.GetUint64());
  if (v.IsNumber()) return Shown(v.GetDouble());
  if (v.IsString()) return "\"" + std::string(v.GetString(), v.GetStringLength()) + "\"";
  if (v.IsObject()) return "an object";
  if (v.IsArray()) return "a list";
  if (v.IsBool()) return v.GetBool() ? "true" : "false";
  return "null";
}

bool IsFolder(const std::string& path) {
  struct stat s = {};
  return stat(path.c_str(), &s) == 0 && S_ISDIR(s.st_mode);
}

std::string FolderOf(const std::string& path) {
  const std::size_t slash = path.rfind('/');
  if (slash == std::string::npos) return ".";
  return slash == 0 ? "/" : path.substr(0, slash);
}

// Reads one node's configuration, member by member.
class Reader {
 public:
  Reader(NodeKind kind, const rapidjson::Value& config) : kind_(kind), config_(config) {}

  [[noreturn]] void Fail(const std::string& what) const {
    throw CalcConfigError(std::string(NodeId(kind_)) + ": " + what);
  }
  const rapidjson::Value* Find(const char* key) const {
    const auto it = config_.FindMember(key);
    return it == config_.MemberEnd() ? nullptr : &it->value;
  }
  int64_t Whole(const char* key, const rapidjson::Value& v, int64_t low, int64_t high) const {
    if (!v.IsInt64() || v.GetInt64() < low || v.GetInt64() > high) {
      Fail("\"" + std::string(key) + "\" needs a whole number from " + std::to_string(low) +
           " to " + std::to_string(high) + ", not " + Shown(v));
    }
    return v.GetInt64();
  }
  int64_t Whole(const char* key, int64_t fallback, int64_t low, int64_t high) const {
    const rapidjson::Value* v = Find(key);
    return v ? Whole(key, *v, low, high) : fallback;
  }
  // A number above `low` (or from it, when `from` is true) up to `high`.
  double Number(const std::string& key, const rapidjson::Value& v, double low, double high,
                bool from = false) const {
    if (!v.IsNumber() || (from ? v.GetDouble() < low : v.GetDouble() <= low) ||
        v.GetDouble() > high) {
      Fail("\"" + key + "\" needs a number " + (from ? "from " : "above ") + Shown(low) +
           (from ? " to " : " up to ") + Shown(high) + ", not " + Shown(v));
    }
    return v.GetDouble();
  }
  double Number(const char* key, double fallback, double low, double high) const {
    const rapidjson::Value* v = Find(key);
    return v ? Number(key, *v, low, high) : fallback;
  }
  std::string Text(const char* key, const std::string& fallback) const {
    const rapidjson::Value* v = Find(key);
    if (v == nullptr) return fallback;
    if (!v->IsString() || v->GetStringLength() == 0) {
      Fail("\"" + std::string(key) + "\" needs a text that is not empty, not " + Shown(*v));
    }
    return std::string(v->GetString(), v->GetStringLength());
  }
  std::string Folder(const char* key, const std::string& fallback) const {
    const std::string folder = Text(key, fallback);
    if (!IsFolder(folder)) Fail("\"" + std::string(key) + "\": " + folder + " is not a folder");
    return folder;
  }

  void CheckMembers() const {
    if (!config_.IsObject()) Fail("the configuration needs to be an object, not " + Shown(config_));
    const std::set<std::string>& known = Members(kind_);
    for (const auto& member : config_.GetObject()) {
      const std::string name(member.name.GetString(), member.name.GetStringLength());
      if (known.count(name) == 0) {
        std::string list;
        for (const std::string& k : known) list += (list.empty() ? "" : ", ") + k;
        Fail("unknown member \"" + name + "\" (it takes " + list + ")");
      }
    }
    if (const rapidjson::Value* name = Find("name"); name && !name->IsString()) {
      Fail("\"name\" needs a text, not " + Shown(*name));
    }
  }

  void ReadCamera(CalcConfig* config) const;
  std::vector<std::string> ReadPictures() const;
  void ReadFallback(CalcConfig* config) const;
  BoardGeometry ReadBoard() const;
  NodeKind kind() const { return kind_; }

 private:
  Camera CameraFrom(const rapidjson::Value& v, const std::string& where) const;

  NodeKind kind_;
  const rapidjson::Value& config_;
};

Camera Reader::CameraFrom(const rapidjson::Value& v, const std::string& where) const {
  if (!v.IsObject()) Fail(where + " needs an object, not " + Shown(v));
  struct Part {
    const char* key;
    double* value;
    double low, high;
    bool from;
  };
  Camera camera;
  const Part parts[] = {{"fx", &camera.fx, 0, 1e6, false},
                        {"fy", &camera.fy, 0, 1e6, false},
                        {"cx", &camera.cx, -1e6, 1e6, true},
                        {"cy", &camera.cy, -1e6, 1e6, true},
                        {"height_cm", &camera.height, 0, 1e6, false},
                        {"pitch_deg", &camera.pitch, -89.999, 89.999, true}};
  std::set<std::string> known;
  for (const Part& part : parts) {
    known.insert(part.key);
    const auto it = v.FindMember(part.key);
    if (it == v.MemberEnd()) Fail(where + " needs \"" + part.key + "\"");
    *part.value = Number(where.substr(1, where.size() - 2) + "." + part.key, it->value, part.low,
                         part.high, part.from);
  }
  for (const auto& member : v.GetObject()) {
    const std::string name(member.name.GetString(), member.name.GetStringLength());
    if (known.count(name) == 0) {
      Fail(where + ": unknown member \"" + name + "\" (fx, fy, cx, cy, height_cm, pitch_deg)");
    }
  }
  return camera;
}

void Reader::ReadCamera(CalcConfig* config) const {
  const rapidjson::Value* file = Find("camera_file");
  const rapidjson::Value* v = Find("camera");
  if (file != nullptr) {
    if (v != nullptr) Fail("give \"camera\" or \"camera_file\", not both");
    config->camera_file = Text("camera_file", "");
    if (config->camera_file.empty()) Fail("\"camera_file\" needs a file name");
    return;
  }
  if (v == nullptr) return;  // every request fails with kNoCamera
  config->has_camera = true;
  if (!v->IsString()) {
    config->camera = ModelOf(CameraFrom(*v, "\"camera\""));
    return;
  }
  const std::string path(v->GetString(), v->GetStringLength());
  struct stat s = {};
  if (path.empty() || stat(path.c_str(), &s) != 0) {
    Fail("\"camera\": the camera model file '" + path + "' is missing");
  }
  if (!S_ISREG(s.st_mode) || s.st_size > kMaxCameraFileBytes) {
    Fail("\"camera\": '" + path + "' is not a camera model file (a regular file of at most " +
         std::to_string(kMaxCameraFileBytes) + " bytes)");
  }
  std::ifstream in(path, std::ios::binary);
  std::string text((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
  const std::size_t first = text.find_first_not_of(" \t\r\n");
  if (first == std::string::npos || text[first] != '{') {
    // A camera model file: OpenCV FileStorage or ROS camera_info YAML.
    std::string error;
    if (!ParseCameraModel(text, path, &config->camera, &error, {640, 480})) {
      Fail("\"camera\": " + error);
    }
    if (!config->camera.pose_known) {
      Fail("\"camera\": camera model " + path +
           " gives no pose on the robot (a camera_info file has none)");
    }
    return;
  }
  rapidjson::Document doc;
  doc.Parse<rapidjson::kParseIterativeFlag | rapidjson::kParseValidateEncodingFlag |
            rapidjson::kParseFullPrecisionFlag>(text.c_str(), text.size());
  if (doc.HasParseError()) {
    Fail("\"camera\": '" + path + "' is not JSON (at byte " + std::to_string(doc.GetErrorOffset()) +
         ")");
  }
  config->camera = ModelOf(CameraFrom(doc, "\"camera\" ('" + path + "')"));
}

std::vector<std::string> Reader::ReadPictures() const {
  const bool stripes = kind_ == NodeKind::kPlane || kind_ == NodeKind::kCheck;
  const rapidjson::Value* list = Find("pictures");
  std::vector<std::string> pictures;
  if (list == nullptr) {
    if (stripes) {
      const rapidjson::Value* delt = Find("delt");
      if (delt == nullptr) {
        Fail(
            "give \"pictures\", or \"delt\" (the calibration node's delt_factory or delt_app) "
            "for the pictures in \"left_folder\" and \"right_folder\"");
      }
      const int64_t d = Whole("delt", *delt, 0, 99);
      std::vector<int> distances = {5, 10, 15, 20, 25, 30, 35, 40, 45};
      if (const rapidjson::Value* given = Find("distances")) {
        if (!given->IsArray() || given->Empty() || given->Size() > kMaxPictures / 2) {
          Fail("\"distances\" needs a list of 1 to 500 distances, not " + Shown(*given));
        }
        distances.clear();
        for (const auto& item : given->GetArray()) {
          distances.push_back(static_cast<int>(Whole("distances", item, 1, 600)));
        }
      }
      const std::string left = Folder("left_folder", "/tmp/left");
      const std::string right = Folder("right_folder", "/tmp/right");
      return FactoryPictures(left, right, static_cast<int>(d), distances);
    }
    const std::string pic = Folder("pic_folder", "/tmp/pic");
    if (kind_ == NodeKind::kDistance) return {pic + "/dis_left.bmp", pic + "/dis_right.bmp"};
    return {pic + "/chessboard.bmp"};
  }
  for (const char* folder_key :
       {"delt", "distances", "left_folder", "right_folder", "pic_folder"}) {
    if (Find(folder_key)) {
      Fail("give \"pictures\" or \"" + std::string(folder_key) + "\", not both");
    }
  }
  if (!list->IsArray() || list->Empty() || list->Size() > kMaxPictures) {
    Fail("\"pictures\" needs a list of 1 to " + std::to_string(kMaxPictures) +
         " picture files, not " + Shown(*list));
  }
  bool sides[2] = {false, false};
  for (rapidjson::SizeType i = 0; i < list->Size(); ++i) {
    const rapidjson::Value& item = (*list)[i];
    const std::string where = "\"pictures\"[" + std::to_string(i) + "]";
    if (!item.IsString() || item.GetStringLength() == 0) {
      Fail(where + " needs a file name, not " + Shown(item));
    }
    const std::string path(item.GetString(), item.GetStringLength());
    bool left = false;
    int distance = 0;
    if (stripes && !StripePictureOf(path, &left, &distance)) {
      Fail(where + ": cannot tell the laser and the distance of \"" + path +
           "\": the node reads .../left/N.bmp and .../right/N.bmp, N = distance x 100 + offset");
    }
    if (!IsFolder(FolderOf(path))) Fail(where + ": " + FolderOf(path) + " is not a folder");
    sides[left ? 0 : 1] = true;
    pictures.push_back(path);
  }
  if (stripes && (!sides[0] || !sides[1])) {
    Fail(std::string("\"pictures\" needs pictures of both lasers (none of the ") +
         (sides[0] ? "right" : "left") + " laser's)");
  }
  if (kind_ == NodeKind::kDistance && pictures.size() != 2) {
    Fail("\"pictures\" needs two pictures, the left laser's and then the right laser's (it has " +
         std::to_string(pictures.size()) + ")");
  }
  if (kind_ == NodeKind::kCameraParam && pictures.size() != 1) {
    Fail("\"pictures\" needs one picture, the chessboard's (it has " +
         std::to_string(pictures.size()) + ")");
  }
  return pictures;
}

void Reader::ReadFallback(CalcConfig* config) const {
  const rapidjson::Value* v = Find("fallback_planes");
  if (v == nullptr) return;
  if (!v->IsObject() || v->MemberCount() != 2 || !v->HasMember("left") || !v->HasMember("right")) {
    Fail("\"fallback_planes\" needs an object with \"left\" and \"right\", not " + Shown(*v));
  }
  const char* sides[2] = {"left", "right"};
  for (int side = 0; side < 2; ++side) {
    const rapidjson::Value& plane = (*v)[sides[side]];
    const std::string where = std::string("fallback_planes.") + sides[side];
    if (!plane.IsObject() || plane.MemberCount() != 2 || !plane.HasMember("normal") ||
        !plane.HasMember("offset_cm") || !plane["normal"].IsArray() ||
        plane["normal"].Size() != 3) {
      Fail("\"" + where + "\" needs {\"normal\": [x, y, z], \"offset_cm\": d}, not " +
           Shown(plane));
    }
    const rapidjson::Value& n = plane["normal"];
    Vec3 normal{Number(where + ".normal", n[0], -1, 1, true),
                Number(where + ".normal", n[1], -1, 1, true),
                Number(where + ".normal", n[2], -1, 1, true)};
    if (std::fabs(std::sqrt(Dot(normal, normal)) - 1) > 1e-6) {
      Fail("\"" + where + ".normal\" needs a unit vector");
    }
    config->fallback[side] = {normal,
                              Number(where + ".offset_cm", plane["offset_cm"], -1000, 1000, true)};
  }
  config->has_fallback = true;
}

BoardGeometry Reader::ReadBoard() const {
  BoardGeometry board{9, 6, 2.5, 2.5};
  const rapidjson::Value* v = Find("board");
  if (v == nullptr) return board;
  if (!v->IsObject() || !v->HasMember("columns") || !v->HasMember("rows")) {
    Fail(
        "\"board\" needs {\"columns\": C, \"rows\": R} (inner corners), and may give "
        "\"square_cm\" and \"margin_cm\", not " +
        Shown(*v));
  }
  for (const auto& m : v->GetObject()) {
    const std::string key(m.name.GetString(), m.name.GetStringLength());
    if (key != "columns" && key != "rows" && key != "square_cm" && key != "margin_cm") {
      Fail("\"board\": unknown member \"" + key +
           "\" (it takes columns, rows, square_cm, "
           "margin_cm)");
    }
  }
  board.columns = static_cast<int>(Whole("board.columns", (*v)["columns"], 2, 100));
  board.rows = static_cast<int>(Whole("board.rows", (*v)["rows"], 2, 100));
  if (v->HasMember("square_cm"))
    board.square = Number("board.square_cm", (*v)["square_cm"], 0.01, 100);
  if (v->HasMember("margin_cm"))
    board.margin = Number("board.margin_cm", (*v)["margin_cm"], 0, 100);
  const std::string problem = BoardProblem(board);
  if (!problem.empty()) Fail("\"board\": " + problem);
  return board;
}

}  // namespace

const char* NodeId(NodeKind kind) { return calctopics::kCalcNodes[static_cast<int>(kind)].id; }

const char* NodeShortName(NodeKind kind) {
  return calctopics::kCalcNodes[static_cast<int>(kind)].node;
}

CalcConfig ReadCalcConfig(NodeKind kind, const rapidjson::Value& json) {
  const Reader reader(kind, json);
  reader.CheckMembers();
  CalcConfig config;
  config.kind = kind;
  config.delay_us = reader.Whole("delay_ms", 10, 1, kMaxDelayMs) * 1000;
  // The failure code goes where the answer carries its result: the plane
  // node's 32-bit "result", the others' 8-bit result fields.
  if (kind == NodeKind::kPlane) {
    config.refuse = reader.Whole("refuse", kPictureRefused, std::numeric_limits<int32_t>::min(),
                                 std::numeric_limits<int32_t>::max());
  } else {
    config.refuse = reader.Whole("refuse", kPictureRefused, 0, 255);
  }
  if (kind != NodeKind::kCameraParam) reader.ReadCamera(&config);
  if (kind == NodeKind::kPlane || kind == NodeKind::kCheck) {
    const rapidjson::Value* wall = reader.Find("wall_height_cm");
    if (wall == nullptr)
      reader.Fail("\"wall_height_cm\" is missing: the height of the target's wall");
    config.wall_height = reader.Number("wall_height_cm", *wall, 0, 10000);
  }
  config.pictures = reader.ReadPictures();
  switch (kind) {
    case NodeKind::kPlane:
      config.calibration.min_points =
          static_cast<int>(reader.Whole("min_points", config.calibration.min_points, 3, 1000000));
      if (const rapidjson::Value* v = reader.Find("max_rms_mm")) {
        config.calibration.max_rms = reader.Number("max_rms_mm", *v, 0, 1000) / 10;
      }
      break;
    case NodeKind::kCheck:
      config.max_bias_px = reader.Number("max_bias_px", config.max_bias_px, 0, 1000);
      config.max_rms_px = reader.Number("max_rms_px", config.max_rms_px, 0, 1000);
      config.max_worst_px = reader.Number("max_worst_px", config.max_worst_px, 0, 1000);
      break;
    case NodeKind::kDistance:
      if (const rapidjson::Value* v = reader.Find("max_apart_mm")) {
        config.max_apart = reader.Number("max_apart_mm", *v, 0, 10000) / 10;
      }
      reader.ReadFallback(&config);
      break;
    case NodeKind::kCameraParam:
      config.board = reader.ReadBoard();
      config.views = static_cast<int>(reader.Whole("views", config.views, kMinViews, 100));
      config.camera_out = reader.Text("camera_out", FolderOf(config.pictures[0]) + "/camera.yaml");
      if (config.camera_out.empty() || !IsFolder(FolderOf(config.camera_out))) {
        reader.Fail("\"camera_out\": the folder of \"" + config.camera_out + "\" is not there");
      }
      config.placement_file = reader.Text("placement_file", "");
      break;
  }
  return config;
}

}  // namespace calc
