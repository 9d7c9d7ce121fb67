#include "tools/calc/camera_model_file.h"

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <fstream>
#include <opencv2/core.hpp>
#include <vector>

#include "tools/calc/yaml_subset.h"

namespace calc {
namespace {

constexpr int kMaxPictureSide = 32767;

// Why a file is refused; caught in ParseCameraModel.
struct Refusal {
  std::string what;
};

[[noreturn]] void Refuse(const std::string& what) { throw Refusal{what}; }

const char* const kPoseKeys[6] = {"x_cm", "y_cm", "height_cm", "yaw_deg", "pitch_deg", "roll_deg"};

double* PoseMember(CameraPose* pose, int i) {
  double* members[6] = {&pose->x, &pose->y, &pose->height, &pose->yaw, &pose->pitch, &pose->roll};
  return members[i];
}

// A number of the file, named `what` in a refusal.
double Number(const cv::FileNode& node, const std::string& what) {
  if (!node.isInt() && !node.isReal()) Refuse(what + " is not a number");
  const double value = node.isInt() ? static_cast<double>(static_cast<int>(node)) : node.real();
  if (!std::isfinite(value)) Refuse(what + " is not a finite number");
  // A file may hold "-0.000"; minus zero does not survive OpenCV's writing
  // and reading again, so the model holds plain zero and a model written
  // reads back with the same bits.
  return value == 0 ? 0.0 : value;
}

cv::FileNode Member(const cv::FileNode& map, const std::string& key, bool required) {
  const cv::FileNode node = map[key];
  if (required && node.isNone()) Refuse("has no " + key);
  return node;
}

// A matrix: a map of `rows`, `cols`, `data` (and `dt`, a real type, when
// given). `shapes` lists the rows x cols it may have; the values come row
// by row.
std::vector<double> Matrix(const cv::FileNode& node, const std::string& key,
                           const std::vector<std::pair<int, int>>& shapes,
                           const std::string& expected) {
  if (!node.isMap()) Refuse(key + " is not a matrix (rows, cols, data)");
  const cv::FileNode rows = Member(node, "rows", false), cols = Member(node, "cols", false);
  const cv::FileNode data = Member(node, "data", false);
  if (!rows.isInt() || !cols.isInt() || !data.isSeq()) {
    Refuse(key + " is not a matrix: it needs whole numbers rows and cols and a list data");
  }
  const cv::FileNode dt = node["dt"];
  if (!dt.isNone() && !(dt.isString() && (dt.string() == "d" || dt.string() == "f"))) {
    Refuse(key + " does not hold real numbers (dt)");
  }
  const int r = static_cast<int>(rows), c = static_cast<int>(cols);
  bool fits = false;
  for (const auto& shape : shapes) fits = fits || (shape.first == r && shape.second == c);
  if (!fits) {
    Refuse(key + " is " + std::to_string(r) + " x " + std::to_string(c) + ", not " + expected);
  }
  if (data.size() != static_cast<std::size_t>(r) * static_cast<std::size_t>(c)) {
    Refuse(key + " is " + std::to_string(r) + " x " + std::to_string(c) + " but its data holds " +
           std::to_string(data.size()) + " values");
  }
  std::vector<double> values;
  for (int i = 0; i < r * c; ++i) {
    values.push_back(Number(data[i], key + " value " + std::to_string(i + 1)));
  }
  return values;
}

int PictureSide(const cv::FileNode& root, const std::string& key) {
  const cv::FileNode node = Member(root, key, true);
  if (!node.isInt()) Refuse(key + " is not a whole number");
  const int value = static_cast<int>(node);
  if (value < 1 || value > kMaxPictureSide) {
    Refuse(key + " " + std::to_string(value) + " is out of range (1 to " +
           std::to_string(kMaxPictureSide) + ")");
  }
  return value;
}

void ReadPose(const cv::FileNode& node, const std::string& key, bool sigma, CameraPose* pose) {
  if (!node.isMap()) Refuse(key + " is not a map of " + kPoseKeys[0] + " ... " + kPoseKeys[5]);
  for (int i = 0; i < 6; ++i) {
    const cv::FileNode member = node[kPoseKeys[i]];
    if (member.isNone()) Refuse(key + " has no " + kPoseKeys[i]);
    *PoseMember(pose, i) = Number(member, key + " " + kPoseKeys[i]);
    if (sigma && *PoseMember(pose, i) < 0) Refuse(key + " " + kPoseKeys[i] + " is negative");
  }
}

CameraModel ReadModel(const cv::FileNode& root, const CameraFileOptions& options) {
  if (!root.isMap()) Refuse("is not a map of camera values");
  CameraModel model;
  model.image_width = PictureSide(root, "image_width");
  model.image_height = PictureSide(root, "image_height");
  if (options.width > 0 &&
      (model.image_width != options.width || model.image_height != options.height)) {
    Refuse("is for " + std::to_string(model.image_width) + " x " +
           std::to_string(model.image_height) + " pictures, not " + std::to_string(options.width) +
           " x " + std::to_string(options.height));
  }
  const std::vector<double> k =
      Matrix(Member(root, "camera_matrix", true), "camera_matrix", {{3, 3}}, "3 x 3");
  if (k[1] != 0 || k[3] != 0 || k[6] != 0 || k[7] != 0 || k[8] != 1) {
    Refuse("camera_matrix is not fx 0 cx, 0 fy cy, 0 0 1 (skew or last row)");
  }
  model.intrinsics = {k[0], k[4], k[2], k[5]};
  if (!(k[0] > 0) || !(k[4] > 0)) Refuse("camera_matrix has a focal length not above 0");
  if (k[2] < 0 || k[2] > model.image_width || k[5] < 0 || k[5] > model.image_height) {
    Refuse("camera_matrix puts the principal point outside the picture");
  }
  const cv::FileNode kind = root["distortion_model"];
  if (!kind.isNone() && !(kind.isString() && kind.string() == "plumb_bob")) {
    Refuse("distortion_model is not plumb_bob (k1 k2 p1 p2 k3)");
  }
  std::vector<double> d =
      Matrix(Member(root, "distortion_coefficients", true), "distortion_coefficients",
             {{1, 5}, {5, 1}, {1, 4}, {4, 1}}, "5 values (k1 k2 p1 p2 k3) or 4 (k1 k2 p1 p2)");
  d.resize(5, 0.0);
  model.distortion = {d[0], d[1], d[2], d[3], d[4]};
  const cv::FileNode rectification = root["rectification_matrix"];
  if (!rectification.isNone()) Matrix(rectification, "rectification_matrix", {{3, 3}}, "3 x 3");
  const cv::FileNode projection = root["projection_matrix"];
  if (!projection.isNone()) Matrix(projection, "projection_matrix", {{3, 4}}, "3 x 4");

  const cv::FileNode pose = root["camera_pose"];
  model.pose_known = !pose.isNone();
  if (model.pose_known) ReadPose(pose, "camera_pose", false, &model.pose);
  const cv::FileNode pose_sigma = root["camera_pose_std_dev"];
  model.pose_sigma_known = !pose_sigma.isNone();
  if (model.pose_sigma_known) {
    ReadPose(pose_sigma, "camera_pose_std_dev", true, &model.pose_sigma);
  }
  const cv::FileNode lens_sigma = root["intrinsics_std_dev"];
  model.lens_sigma_known = !lens_sigma.isNone();
  if (model.lens_sigma_known) {
    const std::vector<double> s =
        Matrix(lens_sigma, "intrinsics_std_dev", {{1, 9}, {9, 1}}, "9 values");
    for (double value : s) {
      if (value < 0) Refuse("intrinsics_std_dev holds a negative value");
    }
    model.intrinsics_sigma = {s[0], s[1], s[2], s[3]};
    model.distortion_sigma = {s[4], s[5], s[6], s[7], s[8]};
  }
  return model;
}

// OpenCV's parse error, "(LINE): what", with the line counted in the file.
std::string ParseError(const cv::Exception& e, int added_lines) {
  const std::string& text = e.func;
  const std::size_t close = text.find("): ");
  if (text.size() > 1 && text[0] == '(' && close != std::string::npos) {
    const int line = std::atoi(text.substr(1, close - 1).c_str()) - added_lines;
    return "line " + std::to_string(line < 1 ? 1 : line) + ": " + text.substr(close + 3);
  }
  return e.err;
}

void WritePose(cv::FileStorage& fs, const char* key, const CameraPose& pose) {
  fs << key << "{";
  CameraPose copy = pose;
  for (int i = 0; i < 6; ++i) fs << kPoseKeys[i] << *PoseMember(&copy, i);
  fs << "}";
}

}  // namespace

std::string FormatCameraModel(const CameraModel& model) {
  cv::FileStorage fs(".yaml", cv::FileStorage::WRITE | cv::FileStorage::MEMORY);
  fs << "image_width" << model.image_width;
  fs << "image_height" << model.image_height;
  if (model.pose_known) WritePose(fs, "camera_pose", model.pose);
  if (model.pose_sigma_known) WritePose(fs, "camera_pose_std_dev", model.pose_sigma);
  if (model.lens_sigma_known) {
    const Intrinsics& k = model.intrinsics_sigma;
    const Distortion& d = model.distortion_sigma;
    fs << "intrinsics_std_dev"
       << cv::Mat(cv::Matx<double, 1, 9>(k.fx, k.fy, k.cx, k.cy, d.k1, d.k2, d.p1, d.p2, d.k3));
  }
  const Intrinsics& k = model.intrinsics;
  fs << "camera_matrix" << cv::Mat(cv::Matx33d(k.fx, 0, k.cx, 0, k.fy, k.cy, 0, 0, 1));
  const Distortion& d = model.distortion;
  fs << "distortion_coefficients" << cv::Mat(cv::Matx<double, 1, 5>(d.k1, d.k2, d.p1, d.p2, d.k3));
  return fs.releaseAndGetString();
}

bool ParseCameraModel(const std::string& text, const std::string& name, CameraModel* model,
                      std::string* error, const CameraFileOptions& options) {
  try {
    if (text.empty()) Refuse("is empty");
    if (text.size() > kMaxCameraModelFile) {
      Refuse("is larger than " + std::to_string(kMaxCameraModelFile) + " bytes");
    }
    if (text.find('\0') != std::string::npos) Refuse("holds a NUL byte: it is not text");
    std::string what;
    if (!CheckYamlSubset(text, &what)) Refuse("is not YAML this reader takes (" + what + ")");
    // OpenCV's reader wants the directive and the document's start.
    std::string yaml = text;
    int added_lines = 0;
    if (text.compare(0, 5, "%YAML") != 0) {
      const bool started = text.compare(0, 3, "---") == 0;
      yaml = (started ? "%YAML:1.0\n" : "%YAML:1.0\n---\n") + text;
      added_lines = started ? 1 : 2;
    }
    CameraModel read;
    try {
      cv::FileStorage fs(
          yaml, cv::FileStorage::READ | cv::FileStorage::MEMORY | cv::FileStorage::FORMAT_YAML);
      if (!fs.isOpened()) Refuse("cannot be read as YAML");
      read = ReadModel(fs.root(), options);
    } catch (const cv::Exception& e) {
      Refuse("is not YAML this reader takes (" + ParseError(e, added_lines) + ")");
    } catch (const std::exception& e) {
      Refuse(std::string("is not YAML this reader takes (") + e.what() + ")");
    }
    *model = read;
    return true;
  } catch (const Refusal& refusal) {
    *error = "camera model " + name + ": " + refusal.what;
    return false;
  }
}

bool ReadCameraModelFile(const std::string& path, CameraModel* model, std::string* error,
                         const CameraFileOptions& options) {
  std::ifstream in(path, std::ios::binary);
  if (!in) {
    *error = "camera model " + path + ": cannot be opened (missing?)";
    return false;
  }
  std::string text;
  char buffer[4096];
  while (in.read(buffer, sizeof buffer) || in.gcount() > 0) {
    text.append(buffer, static_cast<std::size_t>(in.gcount()));
    if (text.size() > kMaxCameraModelFile) break;  // ParseCameraModel says so
  }
  if (in.bad()) {
    *error = "camera model " + path + ": cannot be read";
    return false;
  }
  return ParseCameraModel(text, path, model, error, options);
}

bool WriteCameraModelFile(const std::string& path, const CameraModel& model, std::string* error) {
  const std::string part = path + ".part";
  {
    std::ofstream out(part, std::ios::binary | std::ios::trunc);
    const std::string text = FormatCameraModel(model);
    out.write(text.data(), static_cast<std::streamsize>(text.size()));
    out.close();
    if (!out) {
      std::remove(part.c_str());
      *error = "camera model " + path + ": cannot be written";
      return false;
    }
  }
  if (std::rename(part.c_str(), path.c_str()) != 0) {
    std::remove(part.c_str());
    *error = "camera model " + path + ": cannot be written (rename)";
    return false;
  }
  return true;
}

}  // namespace calc
