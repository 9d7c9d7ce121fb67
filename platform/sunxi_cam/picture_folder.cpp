#include "platform/sunxi_cam/picture_folder.h"

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <stdexcept>
#include <vector>

#include "platform/sunxi_cam/sim_state.h"

namespace sunxi_cam::sim {
namespace {

namespace fs = std::filesystem;

const char* const kSides[] = {"left", "right", "other"};

// A distance as a folder name: "35", "12.5".
std::string DistanceName(double distance) {
  char text[32];
  std::snprintf(text, sizeof text, "%.10g", distance);
  return text;
}

bool IsFolder(const fs::path& path) {
  std::error_code error;
  return fs::is_directory(path, error);
}

bool IsFile(const fs::path& path) {
  std::error_code error;
  return fs::is_regular_file(path, error);
}

// Numbers N of the files DIR/<side>/<N>.bmp, N = distance x 100 + 0..99.
std::vector<long> Numbers(const fs::path& side, long distance) {
  std::vector<long> numbers;
  for (long n = distance * 100; n < distance * 100 + 100; ++n) {
    if (IsFile(side / (std::to_string(n) + ".bmp"))) numbers.push_back(n);
  }
  return numbers;
}

}  // namespace

PictureFolder::PictureFolder(const std::string& dir, int offset) : dir_(dir), offset_(offset) {
  const std::string where = "camera sim: pictures: '" + dir + "' ";
  if (offset < -1 || offset > 99) {
    throw std::invalid_argument("camera sim: picture_offset must be between 0 and 99");
  }
  if (!IsFolder(dir)) throw std::invalid_argument(where + "is not a folder");
  if (IsFolder(fs::path(dir) / "left") || IsFolder(fs::path(dir) / "right")) {
    layout_ = Layout::kNode;
    return;
  }
  std::error_code error;
  for (const auto& entry : fs::directory_iterator(dir, error)) {
    if (!entry.is_directory(error)) continue;
    char* end = nullptr;
    const std::string name = entry.path().filename().string();
    std::strtod(name.c_str(), &end);
    if (!name.empty() && *end == '\0') {
      layout_ = Layout::kByDistance;
      return;
    }
  }
  throw std::invalid_argument(where +
                              "holds neither a folder per distance (DIR/35/left.png) nor the "
                              "node's left/ and right/ folders (DIR/left/3560.bmp)");
}

std::string PictureFolder::Find(double distance, int slot, cv::Mat* picture) const {
  const auto key = std::make_pair(distance, slot);
  auto it = found_.find(key);
  if (it == found_.end()) {
    cv::Mat read;
    const std::string problem = Look(distance, slot, &read);
    it = found_.emplace(key, std::make_pair(read, problem)).first;
  }
  *picture = it->second.first;
  return it->second.second;
}

std::string PictureFolder::Look(double distance, int slot, cv::Mat* picture) const {
  const std::string side = kSides[slot];
  const std::string wanted =
      "no " + side + " picture for distance " + DistanceName(distance) + ": ";
  fs::path file;
  if (layout_ == Layout::kByDistance) {
    const fs::path folder = fs::path(dir_) / DistanceName(distance);
    const fs::path bmp = folder / (side + ".bmp");
    const fs::path png = folder / (side + ".png");
    if (IsFile(bmp)) {
      file = bmp;
    } else if (IsFile(png)) {
      file = png;
    } else {
      return wanted + "'" + bmp.string() + "' or '.png' is missing";
    }
  } else {
    if (slot == 2) return wanted + "the node's layout has pictures of the two lasers only";
    const fs::path folder = fs::path(dir_) / side;
    if (distance < 0 || distance > 600) return wanted + "the node's distances are 0 to 600";
    if (distance != std::floor(distance)) {
      // The node numbers its pictures by whole distances; a wall between
      // them is the distance check's, whose pictures it keeps in pic/.
      file = fs::path(dir_) / "pic" / ("dis_" + side + ".bmp");
      if (!IsFile(file)) {
        return wanted + "'" + file.string() +
               "' is missing (the node's numbered pictures are of whole distances)";
      }
    } else {
      const long whole = static_cast<long>(distance);
      if (offset_ >= 0) {
        file = folder / (std::to_string(whole * 100 + offset_) + ".bmp");
        if (!IsFile(file)) return wanted + "'" + file.string() + "' is missing";
      } else {
        const std::vector<long> numbers = Numbers(folder, whole);
        if (numbers.empty()) {
          return wanted + "'" + (folder / (std::to_string(whole * 100) + ".bmp")).string() +
                 "' to '" + std::to_string(whole * 100 + 99) + ".bmp' are missing";
        }
        if (numbers.size() > 1) {
          std::string list;
          for (long n : numbers) list += (list.empty() ? "" : ", ") + std::to_string(n) + ".bmp";
          return wanted + "'" + folder.string() + "' holds " + list +
                 "; say which with picture_offset (the node's delt_factory or delt_app)";
        }
        file = folder / (std::to_string(numbers.front()) + ".bmp");
      }
    }
  }
  try {
    *picture = LoadImageFile(file.string(), "pictures");
  } catch (const std::invalid_argument& refused) {
    const std::string text = refused.what();
    const std::string prefix = "camera sim: pictures: ";
    return text.rfind(prefix, 0) == 0 ? text.substr(prefix.size()) : text;
  }
  return "";
}

}  // namespace sunxi_cam::sim
