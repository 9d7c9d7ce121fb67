// Comparing a replay's log with the recorded one, line by line (replay.h).
#include <string>
#include <utility>

#include "tools/kivrun/replay.h"

namespace kivrun {

void LogComparison::Add(const std::string& line) {
  ++count_;
  // The version tags the replay's node registered.
  if (line.find("\"event\":\"version\"") != std::string::npos) {
    const rapidjson::Document event = ParseRecorded(line);
    for (auto [key, tag] : {std::pair<const char*, std::string*>{"commit", &commit_tag_},
                            {"framework", &framework_tag_}}) {
      if (!event.IsObject()) break;
      const auto it = event.FindMember(key);
      if (it != event.MemberEnd() && it->value.IsString()) {
        *tag = std::string(it->value.GetString(), it->value.GetStringLength());
      }
    }
  }
  if (differs_at_ != 0) return;
  if (count_ > old_.lines.size() || ComparedEvent(line) != old_.compared[count_ - 1]) {
    differs_at_ = count_;
    new_line_ = line;
  }
}

std::size_t LogComparison::FirstDifference() const {
  if (differs_at_ != 0) return differs_at_;
  return count_ < old_.lines.size() ? count_ + 1 : 0;
}

std::string LogComparison::Report(const std::string& replay, std::size_t context) const {
  const std::size_t at = FirstDifference();
  if (at == 0) return "";
  const std::size_t width = std::to_string(at).size();
  auto number = [width](std::size_t n) {
    std::string text = std::to_string(n);
    return std::string(width - text.size(), ' ') + text;
  };
  std::string out = "the replay differs from " + old_.path + " at line " + std::to_string(at) +
                    " (- recorded, + replayed):\n";
  for (std::size_t n = at > context ? at - context : 1; n < at; ++n) {
    out += "    " + number(n) + "  " + old_.lines[n - 1] + "\n";
  }
  out += "  - " + number(at) + "  " +
         (at <= old_.lines.size()
              ? old_.lines[at - 1]
              : "(" + old_.path + " ends after line " + std::to_string(old_.lines.size()) + ")") +
         "\n";
  out += "  + " + number(at) + "  " +
         (differs_at_ == at ? new_line_
                            : "(the replay's log ends after line " + std::to_string(count_) + ")") +
         "\n";
  out += "  the events before line " + std::to_string(at) +
         " are the same in both; the replay's "
         "log is " +
         replay + "\n";
  return out;
}

}  // namespace kivrun
