// What a test sees of a program it ran: exit status, standard output, and
// standard error as lines; and the two file helpers that gather them.
#ifndef LASERCALI_TESTS_SUPPORT_PROGRAM_RUN_H_
#define LASERCALI_TESTS_SUPPORT_PROGRAM_RUN_H_

#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

namespace testsupport {

struct ProgramRun {
  int status = -1;
  std::string out;
  std::vector<std::string> err;  // lines
};

// The whole file, bytes as they are; empty when it cannot be read.
inline std::string ReadFile(const std::filesystem::path& path) {
  std::ifstream in(path, std::ios::binary);
  std::ostringstream text;
  text << in.rdbuf();
  return text.str();
}

inline std::vector<std::string> Lines(const std::string& text) {
  std::vector<std::string> lines;
  std::istringstream in(text);
  for (std::string line; std::getline(in, line);) lines.push_back(line);
  return lines;
}

}  // namespace testsupport

#endif  // LASERCALI_TESTS_SUPPORT_PROGRAM_RUN_H_
