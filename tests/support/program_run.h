// What a test sees of a program it ran: exit status, standard output, and
// standard error as lines; the two file helpers that gather them; and
// RunIn, which runs a shell command in a folder and gathers them.
#ifndef LASERCALI_TESTS_SUPPORT_PROGRAM_RUN_H_
#define LASERCALI_TESTS_SUPPORT_PROGRAM_RUN_H_

#include <sys/wait.h>

#include <cstdlib>
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

// Runs `command` with sh in `cwd`; its standard output and error go to
// out.txt and err.txt in `folder` (default: `cwd`), and are read back.
inline ProgramRun RunIn(const std::filesystem::path& cwd, const std::string& command,
                        const std::filesystem::path& folder = {}) {
  const std::filesystem::path files = folder.empty() ? cwd : folder;
  const std::string line = "cd '" + cwd.string() + "' && " + command + " >'" +
                           (files / "out.txt").string() + "' 2>'" + (files / "err.txt").string() +
                           "'";
  const int raw = std::system(line.c_str());
  ProgramRun run;
  run.status = WIFEXITED(raw) ? WEXITSTATUS(raw) : -1;
  run.out = ReadFile(files / "out.txt");
  run.err = Lines(ReadFile(files / "err.txt"));
  return run;
}

}  // namespace testsupport

#endif  // LASERCALI_TESTS_SUPPORT_PROGRAM_RUN_H_
