#include "tools/stripe_tool/picture_list.h"

#include <algorithm>
#include <cctype>
#include <filesystem>
#include <system_error>

#include "src/stripecut.h"

namespace stripetool {

namespace {

namespace fs = std::filesystem;

bool IsDigit(char c) { return c >= '0' && c <= '9'; }
bool IsWordChar(char c) { return IsDigit(c) || (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z'); }

std::string Lower(std::string text) {
  for (char& c : text) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  return text;
}

// A file name a folder's picture has: ending in .bmp or .png, in any case.
bool PictureName(const std::string& name) {
  if (name.size() < 4) return false;
  const std::string end = Lower(name.substr(name.size() - 4));
  return end == ".bmp" || end == ".png";
}

// Adds the pictures below `folder` to the list, in order, or a problem entry
// for a folder that cannot be read.
void Walk(const fs::path& folder, PictureList* list) {
  std::error_code error;
  fs::directory_iterator it(folder, error);
  std::vector<std::string> names;
  const fs::directory_iterator end;
  while (!error && it != end) {
    names.push_back(it->path().filename().string());
    it.increment(error);
  }
  if (error) {
    list->entries.push_back(
        {folder.string(), "cannot read the folder '" + folder.string() + "': " + error.message()});
    return;
  }
  std::sort(names.begin(), names.end(), NameLess);
  for (const std::string& name : names) {
    const fs::path path = folder / name;
    const fs::file_status link = fs::symlink_status(path, error);
    const fs::file_status target = fs::status(path, error);
    if (fs::is_directory(target)) {
      // A link to a folder is not followed: it could lead back up.
      if (!fs::is_symlink(link)) Walk(path, list);
      continue;
    }
    if (!PictureName(name)) {
      ++list->passed_over;
      continue;
    }
    if (fs::is_regular_file(target) || !fs::exists(target)) {
      // A link to nothing is listed: reading it says so.
      list->entries.push_back({path.string(), ""});
    } else {
      list->entries.push_back({path.string(), "'" + path.string() + "' is not a file"});
    }
  }
}

}  // namespace

bool IsFolder(const std::string& path) {
  std::error_code error;
  return fs::is_directory(path, error);
}

PictureList ListPictures(const std::vector<std::string>& operands) {
  PictureList list;
  for (const std::string& operand : operands) {
    if (!IsFolder(operand)) {
      list.entries.push_back({operand, ""});
      continue;
    }
    const std::size_t before = list.entries.size();
    Walk(operand, &list);
    if (list.entries.size() == before) {
      list.entries.push_back({operand, "the folder '" + operand + "' holds no .bmp or .png file"});
    }
  }
  return list;
}

bool NameLess(const std::string& a, const std::string& b) {
  std::size_t i = 0;
  std::size_t j = 0;
  while (i < a.size() && j < b.size()) {
    if (IsDigit(a[i]) && IsDigit(b[j])) {
      // Two numbers: without their leading zeros, the longer one is larger;
      // of two as long, the first digit that differs decides.
      std::size_t a_end = i;
      std::size_t b_end = j;
      while (a_end < a.size() && IsDigit(a[a_end])) ++a_end;
      while (b_end < b.size() && IsDigit(b[b_end])) ++b_end;
      std::size_t a_start = i;
      std::size_t b_start = j;
      while (a_start + 1 < a_end && a[a_start] == '0') ++a_start;
      while (b_start + 1 < b_end && b[b_start] == '0') ++b_start;
      const std::size_t a_len = a_end - a_start;
      const std::size_t b_len = b_end - b_start;
      if (a_len != b_len) return a_len < b_len;
      const int order = a.compare(a_start, a_len, b, b_start, b_len);
      if (order != 0) return order < 0;
      i = a_end;
      j = b_end;
      continue;
    }
    if (a[i] != b[j]) {
      return static_cast<unsigned char>(a[i]) < static_cast<unsigned char>(b[j]);
    }
    ++i;
    ++j;
  }
  if (i < a.size() || j < b.size()) return j < b.size();
  return a < b;  // equal values, written differently
}

std::optional<int> LaserInPath(const std::string& path) {
  std::error_code error;
  fs::path absolute = fs::absolute(path, error);
  const std::string text = error ? path : absolute.string();
  std::optional<int> laser;
  std::size_t i = 0;
  while (i < text.size()) {
    if (!IsWordChar(text[i])) {
      ++i;
      continue;
    }
    std::size_t end = i;
    while (end < text.size() && IsWordChar(text[end])) ++end;
    const std::string word = Lower(text.substr(i, end - i));
    if (word == "left" || word == "ll") laser = kivplugcali::kStripeWalkLeft;
    if (word == "right" || word == "rr") laser = kivplugcali::kStripeWalkRight;
    i = end;
  }
  return laser;
}

}  // namespace stripetool
