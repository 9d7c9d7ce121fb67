// Scenarios: what kivrun plays against the node, read from a JSON file.
//
// A scenario names the node's configuration and a list of steps (see
// docs/kivrun.md). LoadScenario checks the whole file before anything runs:
// every error names the file and, inside "steps", the step number (from 1).
#ifndef LASERCALI_TOOLS_KIVRUN_SCENARIO_H_
#define LASERCALI_TOOLS_KIVRUN_SCENARIO_H_

#include <rapidjson/document.h>

#include <cstdint>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

namespace kivrun {

class ScenarioError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

struct Step {
  enum class Kind { kSend, kJson, kAdvance, kTicks, kTrace, kTeardown, kNote, kCamera, kLogFrames };
  int number = 0;
  Kind kind = Kind::kNote;
  std::string topic;        // kSend: the topic
  std::string record;       // kSend: record type; empty = the type the node subscribed with
  std::shared_ptr<rapidjson::Document> value;  // kSend: fields; kJson: the command (null = null record); kCamera: settings
  int64_t amount = 0;       // kAdvance: microseconds; kTicks: timer callbacks
  bool flag = false;        // kTrace, kLogFrames
  std::string text;         // kNote
};

struct Scenario {
  std::string path;
  std::string description;
  std::string node_id = "KivNodeLaserCali";
  std::shared_ptr<rapidjson::Document> config;  // null when the scenario names none
  std::vector<Step> steps;
};

// Reads a JSON file; throws ScenarioError with the file name and the line
// and column of a syntax error.
std::shared_ptr<rapidjson::Document> ReadJsonFile(const std::string& path);

// Reads and checks a scenario file. A "config_file" is read relative to the
// scenario's folder.
Scenario LoadScenario(const std::string& path);

}  // namespace kivrun

#endif  // LASERCALI_TOOLS_KIVRUN_SCENARIO_H_
