#include "tools/kivrun/round_folder.h"

#include <filesystem>
#include <fstream>
#include <set>
#include <system_error>

#include "tools/kivrun/runner.h"

namespace kivrun {
namespace {

namespace fs = std::filesystem;

constexpr int kMostFolders = 99;

std::string Joined(const std::string& parent, const std::string& name) {
  return parent.empty() ? name : (fs::path(parent) / name).string();
}

}  // namespace

// An event log of kivrun's begins with an object whose first members are
// "t" and "event".
bool IsEventLogFile(const std::string& path) {
  std::error_code error;
  if (!fs::is_regular_file(fs::symlink_status(path, error))) return false;
  std::ifstream in(path, std::ios::binary);
  std::string line;
  if (!std::getline(in, line)) return false;
  const std::string start = "{\"t\":";
  return line.compare(0, start.size(), start) == 0 &&
         line.find(",\"event\":\"") != std::string::npos;
}

std::string RoundFolderStem(const std::string& scenario_path) {
  const std::string stem = fs::path(scenario_path).stem().string();
  return stem.empty() || stem == "." || stem == ".." ? "kivrun-round" : stem;
}

bool IsRoundFolder(const std::string& path) {
  std::error_code error;
  if (!fs::is_directory(fs::symlink_status(path, error))) return false;
  const std::set<std::string> files = {kRoundLog, kRoundPage, "report.md", "pictures.png"};
  bool empty = true;
  bool log = false;
  fs::directory_iterator entries(path, error);
  if (error) return false;
  for (const fs::directory_entry& entry : entries) {
    empty = false;
    const std::string name = entry.path().filename().string();
    const fs::file_status status = entry.symlink_status(error);
    if (name == kRoundPictures && fs::is_directory(status)) continue;
    if (files.count(name) == 0 || !fs::is_regular_file(status)) return false;
    if (name == kRoundLog) log = IsEventLogFile(entry.path().string());
    if (name == kRoundLog && !log) return false;
  }
  return empty || log;
}

bool ChooseRoundFolder(const std::string& scenario_path, const std::string& parent,
                       RoundFolder* folder, std::string* reason) {
  const std::string stem = RoundFolderStem(scenario_path);
  for (int number = 1; number <= kMostFolders; ++number) {
    const std::string name = number == 1 ? stem : stem + "-" + std::to_string(number);
    const std::string path = Joined(parent, name);
    std::error_code error;
    const bool there = fs::exists(fs::symlink_status(path, error));
    if (there && !IsRoundFolder(path)) continue;
    folder->path = path;
    folder->earlier_round = there && !fs::is_empty(path, error);
    folder->note.clear();
    if (number > 1) {
      folder->note = Joined(parent, stem) + "/ holds files that are not a round kivrun wrote; " +
                     "they stay as they are and this round goes to " + path + "/";
    }
    return true;
  }
  *reason = "no folder for the round: " + Joined(parent, stem) + "/ and " +
            Joined(parent, stem + "-2") + "/ to " + Joined(parent, stem + "-99") +
            "/ all hold files that are not a round kivrun wrote; name one with --report DIR";
  return false;
}

bool PrepareRoundFolder(const RoundFolder& folder, std::string* reason) {
  std::error_code error;
  fs::create_directory(folder.path, error);
  if (error) {
    *reason = "cannot make the folder " + folder.path + ": " + error.message();
    return false;
  }
  const fs::path pictures = fs::path(folder.path) / kRoundPictures;
  if (folder.earlier_round && fs::is_directory(fs::symlink_status(pictures, error))) {
    fs::remove_all(pictures, error);
    if (error) {
      *reason = "cannot remove the earlier round's " + pictures.string() + ": " + error.message();
      return false;
    }
  }
  return true;
}

constexpr char kPipeHint[] = " (piped, or with --log -, the event log goes to standard output)";

int SetUpTerminalRound(const std::string& scenario_path, bool machine_tmp, Options* options,
                       std::string* pictures_out, std::ostream& err) {
  std::error_code error;
  if (!options->report_dir.empty()) {
    const std::string log = Joined(options->report_dir, kRoundLog);
    if (fs::exists(fs::symlink_status(log, error)) && !IsEventLogFile(log)) {
      err << "kivrun: " << log << " is not an event log of kivrun's, so the round does not write "
          << "over it; name the log with --log FILE (or --log - for standard output)\n";
      return kUsageError;
    }
    fs::create_directory(options->report_dir, error);
    if (error) {
      err << "kivrun: cannot write the folder " << options->report_dir << ": " << error.message()
          << "\n";
      return kUsageError;
    }
    err << "kivrun: writing the round into " << options->report_dir << "/" << kPipeHint << "\n";
    return kOk;
  }
  RoundFolder folder;
  std::string reason;
  if (!ChooseRoundFolder(scenario_path, "", &folder, &reason) ||
      !PrepareRoundFolder(folder, &reason)) {
    err << "kivrun: " << reason << "\n";
    return kUsageError;
  }
  if (!folder.note.empty()) err << "kivrun: " << folder.note << "\n";
  err << "kivrun: writing the round into " << folder.path << "/"
      << (folder.earlier_round ? ", in place of the round written there before" : "")
      << kPipeHint << "\n";
  options->report_dir = folder.path;
  options->report_name = folder.path;
  if (pictures_out->empty() && !machine_tmp) *pictures_out = Joined(folder.path, kRoundPictures);
  return kOk;
}

void SayWhereTheRoundIs(const std::string& folder, std::ostream& out) {
  const auto there = [&](const std::string& name) {
    std::error_code error;
    return fs::exists(fs::path(folder) / name, error);
  };
  if (there(kRoundPage)) {
    out << "== the round's page, to open in a browser: " << Joined(folder, kRoundPage) << "\n";
  }
  out << "   event log: " << Joined(folder, kRoundLog);
  if (there("report.md")) out << "; picture report: " << Joined(folder, "report.md");
  if (there("pictures.png")) out << ", " << Joined(folder, "pictures.png");
  out << "\n";
}

}  // namespace kivrun
