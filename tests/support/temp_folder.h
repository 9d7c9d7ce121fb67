// A folder of its own for a test, removed with everything in it when the
// object goes. Made under /tmp, which every test binary has to itself
// (private_tmp_main.cpp).
#ifndef LASERCALI_TESTS_SUPPORT_TEMP_FOLDER_H_
#define LASERCALI_TESTS_SUPPORT_TEMP_FOLDER_H_

#include <stdlib.h>

#include <filesystem>
#include <string>

namespace testsupport {

class TempFolder {
 public:
  TempFolder() {
    char pattern[] = "/tmp/test_folder.XXXXXX";
    const char* made = mkdtemp(pattern);
    path_ = made ? made : "";
  }
  ~TempFolder() {
    std::error_code ignored;
    if (!path_.empty()) std::filesystem::remove_all(path_, ignored);
  }
  TempFolder(const TempFolder&) = delete;
  TempFolder& operator=(const TempFolder&) = delete;

  const std::string& path() const { return path_; }
  std::string File(const std::string& name) const { return path_ + "/" + name; }
  // Makes the folder `name` inside (and its parents); its path.
  std::string Folder(const std::string& name) const {
    std::filesystem::create_directories(File(name));
    return File(name);
  }

 private:
  std::string path_;
};

}  // namespace testsupport

#endif  // LASERCALI_TESTS_SUPPORT_TEMP_FOLDER_H_
