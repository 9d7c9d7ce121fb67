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

// What a "repeat" or "wait" step waits for: a publication of the node on
// `topic` whose decoded fields include every member of `fields` (a list
// matches the leading elements of an array field).
struct Awaited {
  std::string topic;
  std::shared_ptr<rapidjson::Document> fields;  // an object
  // The condition as a short text, for progress lines and errors.
  std::string Describe() const;
};

// How a simulated calculation node is to behave from now on.
struct ResponderSetting {
  enum class Mode { kAnswer, kFail, kSilent };
  std::string node;  // plane, check, ieparam, distance, laser_power
  Mode mode = Mode::kAnswer;
  std::shared_ptr<rapidjson::Document> answer;  // fields of the answer (an object)
  int64_t code = 0;                             // kFail: the failure code
  bool has_needs = false;                       // "needs" given: replaces the default list
  std::vector<std::string> needs;               // pictures the node reads
  bool has_refuse = false;
  int64_t refuse = 0;        // failure code when a needed picture is missing or wrong
  int64_t delay_us = 10000;  // how long after the request the answer comes
};

struct Step {
  enum class Kind {
    kSend,
    kJson,
    kAdvance,
    kTicks,
    kTrace,
    kTeardown,
    kNote,
    kCamera,
    kLogFrames,
    kResponder,
    kRepeat,
    kWait
  };
  int number = 0;
  Kind kind = Kind::kNote;
  std::string topic;   // kSend: the topic
  std::string record;  // kSend: record type; empty = the type the node subscribed with
  std::shared_ptr<rapidjson::Document>
      value;           // kSend: fields; kJson: the command (null = null record); kCamera: settings
  int64_t amount = 0;  // kAdvance: microseconds; kTicks: timer callbacks
  bool flag = false;   // kTrace, kLogFrames
  std::string text;    // kNote; kRepeat, kWait: the label ("" = describe the condition)
  std::shared_ptr<Step> repeated;  // kRepeat: the send or json step to repeat
  Awaited until;                   // kRepeat, kWait
  int64_t every_ticks = 10;        // kRepeat: ticks between two requests
  int64_t limit = 0;               // kRepeat: most requests; kWait: most ticks
  ResponderSetting responder;      // kResponder
};

// A tick of the "repeat" and "wait" steps: one period of the node's frame
// timer, 10 ms of main loop time.
inline constexpr int64_t kTickUs = 10000;

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
