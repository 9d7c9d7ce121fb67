// What code that reads files refuses them with, read as a program would
// from its working folder: RefusalInFolder runs `read` with `folder` as the
// working folder, puts the working folder back, and returns the what() of
// the exception `read` threw, or "" when it threw none. Messages name the
// files as the program names them (relative to where it runs). It changes
// the process's working folder while it runs: not for two threads at once.
#ifndef LASERCALI_TESTS_SUPPORT_REFUSAL_IN_FOLDER_H_
#define LASERCALI_TESTS_SUPPORT_REFUSAL_IN_FOLDER_H_

#include <exception>
#include <filesystem>
#include <string>

namespace testsupport {

template <typename Read>
std::string RefusalInFolder(const std::filesystem::path& folder, const Read& read) {
  const std::filesystem::path before = std::filesystem::current_path();
  std::filesystem::current_path(folder);
  std::string message;
  try {
    read();
  } catch (const std::exception& e) {
    message = e.what();
  }
  std::filesystem::current_path(before);
  return message;
}

}  // namespace testsupport

#endif  // LASERCALI_TESTS_SUPPORT_REFUSAL_IN_FOLDER_H_
