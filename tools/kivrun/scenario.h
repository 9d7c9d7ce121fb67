// Scenarios: what kivrun plays against the node, read from a JSON file.
//
// A scenario names the node's configuration and a list of steps (see
// docs/kivrun.md). LoadScenario checks the whole file before anything runs:
// every error names the file and, inside "steps", the step number (from 1).
//
// A file is read only when it is a regular file of at most kMaxJsonFileBytes,
// and parsed only when its lists and objects nest at most kMaxJsonDepth deep
// (checked by a first pass that keeps no document), so nothing later walks or
// copies a deeper document. Event logs read for a replay get the same limits
// (ReadTextFile, ParseJsonText). Steps are kept compact: the JSON values a
// step carries are kept as their minified text and parsed when the step
// plays; numbers are parsed to the nearest double, so a kept value parses
// back to exactly the value it was made from.
#ifndef LASERCALI_TOOLS_KIVRUN_SCENARIO_H_
#define LASERCALI_TOOLS_KIVRUN_SCENARIO_H_

#include <rapidjson/document.h>

#include <cstdint>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

namespace kivrun {

struct ChessboardFolder;

class ScenarioError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// Limits of what kivrun reads (docs/kivrun.md).
inline constexpr int64_t kMaxJsonFileBytes = 16 * 1024 * 1024;  // scenario, configuration
inline constexpr int kMaxJsonDepth = 64;  // lists and objects inside each other

// Ranges of the time values and counts of a step (docs/kivrun.md).
inline constexpr int64_t kMaxAdvanceUs = 3600LL * 1000 * 1000;  // one hour of main loop time
inline constexpr int64_t kMaxDelayMs = 3600LL * 1000;           // a responder's delay: one hour
inline constexpr int64_t kMaxTicks = 1000000;    // a "ticks" step; "within_ticks"; "every_ticks"
inline constexpr int64_t kMaxRequests = 100000;  // "limit" of a repeat step
inline constexpr int64_t kMaxRepeatTicks = 1000000;  // every_ticks x limit of a repeat step

// A JSON value kept as its minified text: a few bytes instead of a document
// with its own allocator. Absent until set.
class JsonText {
 public:
  JsonText() = default;
  static JsonText Of(const rapidjson::Value& value);
  // `text` must be valid JSON (it comes from Of, or from a test).
  static JsonText FromText(std::string text);
  static JsonText EmptyObject() { return FromText("{}"); }

  bool present() const { return !text_.empty(); }
  explicit operator bool() const { return present(); }
  const std::string& text() const { return text_; }
  // The value as a document (null when absent).
  rapidjson::Document Parse() const;

 private:
  std::string text_;
};

// What a "repeat" or "wait" step waits for: a publication of the node on
// `topic` whose decoded fields include every member of `fields` (a list
// matches the leading elements of an array field). The member "text_prefix"
// (kTextPrefix) stands for a state text that begins with the given text; it
// never comes together with "text".
struct Awaited {
  std::string topic;
  JsonText fields;  // an object
  // The condition as a short text, for progress lines and errors.
  std::string Describe() const;
};

// How a simulated calculation node is to behave from now on.
struct ResponderSetting {
  // kCompute: the answer is worked out from the pictures (the plane, check
  // and distance nodes; docs/calibration.md).
  enum class Mode { kAnswer, kFail, kSilent, kCompute };
  std::string node;  // plane, check, ieparam, distance, laser_power
  Mode mode = Mode::kAnswer;
  JsonText answer;                 // fields of the answer (an object)
  int64_t code = 0;                // kFail: the failure code
  bool has_needs = false;          // "needs" given: replaces the default list
  std::vector<std::string> needs;  // pictures the node reads
  bool has_refuse = false;
  int64_t refuse = 0;        // failure code when a needed picture is missing or wrong
  int64_t delay_us = 10000;  // how long after the request the answer comes (1 ms .. kMaxDelayMs)
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
    kWait,
    // kivrun's own, never in a scenario file: after the chessboard views of
    // kivrun --pictures DIR, stops the round when they measured no camera.
    kCameraFromViews
  };
  int number = 0;
  Kind kind = Kind::kNote;
  std::string topic;   // kSend: the topic
  std::string record;  // kSend: record type; empty = the type the node subscribed with
  JsonText value;  // kSend: fields; kJson: the command (absent = null record); kCamera: settings
  int64_t amount =
      0;              // kAdvance: microseconds (0..kMaxAdvanceUs); kTicks: callbacks (0..kMaxTicks)
  bool flag = false;  // kTrace, kLogFrames
  std::string text;   // kNote; kRepeat, kWait: the label ("" = describe the condition)
  std::shared_ptr<Step> repeated;                     // kRepeat: the send or json step to repeat
  Awaited until;                                      // kRepeat, kWait
  int64_t every_ticks = 10;                           // kRepeat: ticks between two requests
  int64_t limit = 0;                                  // kRepeat: most requests; kWait: most ticks
  std::shared_ptr<const ResponderSetting> responder;  // kResponder
  std::shared_ptr<const ChessboardFolder> views;      // kCameraFromViews
};

// The member of an awaited state text that matches by its beginning.
inline constexpr char kTextPrefix[] = "text_prefix";

// A tick of the "repeat" and "wait" steps: one period of the node's frame
// timer, 10 ms of main loop time.
inline constexpr int64_t kTickUs = 10000;

// A node of the round besides the node under test.
struct OtherNode {
  std::string node_id;
  std::shared_ptr<rapidjson::Document> config;
};

struct Scenario {
  std::string path;
  std::string description;
  std::string node_id = "KivNodeLaserCali";
  std::shared_ptr<rapidjson::Document> config;  // null when the scenario names none
  // Plug-ins to load besides kivrun's (a file name alone, or a path: made
  // relative to the scenario's folder when it is read).
  std::vector<std::string> plugins;
  std::vector<OtherNode> nodes;  // built after the node under test, in order
  // The camera model file computing plane, check and distance nodes read
  // when the round has no computing camera parameter step (made relative to
  // the scenario's folder when it is read); "" for none.
  std::string camera_model;
  // The chessboard views of kivrun --pictures DIR the round measures the
  // camera from (its computing camera parameter node's board and
  // placements); null for none.
  std::shared_ptr<const ChessboardFolder> chessboard;
  std::vector<Step> steps;
};

// The parse flags of every JSON text kivrun reads: no recursion in the
// parser, strings must be valid UTF-8.
inline constexpr unsigned kJsonParseFlags =
    rapidjson::kParseIterativeFlag | rapidjson::kParseValidateEncodingFlag;

// Parses `size` bytes of JSON text into `*doc`, with kJsonParseFlags (or
// without the UTF-8 check when `check_utf8` is false), and returns the
// result as rapidjson's Parse would. Numbers are converted here, to the
// nearest double: an integer that fits 64 bits stays an integer, every
// other number goes through the C library's strtod, which rounds correctly,
// so a number kivrun writes into a log reads back the same. rapidjson's own
// conversion is not used: it gets numbers whose digits are all zero wrong
// when their exponent is large ("0e300" came out as a tiny non-zero value).
// A number beyond the range of a double is an error
// (kParseErrorNumberTooBig), as in rapidjson.
rapidjson::ParseResult ParseJson(rapidjson::Document* doc, const char* text, std::size_t size,
                                 bool check_utf8 = true);

// Reads a whole file that must be a regular file of at most
// kMaxJsonFileBytes; throws ScenarioError naming the file otherwise. `what`
// names the kind of file in the message ("a JSON file", "an event log").
std::string ReadTextFile(const std::string& path, const std::string& what = "a JSON file");

// Reads a JSON file; throws ScenarioError with the file name and what is
// wrong: not a regular file, too large, not UTF-8, nested too deep, or the
// line and column of a syntax error.
std::shared_ptr<rapidjson::Document> ReadJsonFile(const std::string& path);

// Parses JSON text with the same checks (nesting depth, UTF-8); `name`
// starts the error messages, which give the line and column, counting the
// text's first line as `first_line` (for one line of a longer file).
std::shared_ptr<rapidjson::Document> ParseJsonText(const std::string& text, const std::string& name,
                                                   int first_line = 1);

// A text for messages: control characters, quotes and backslashes escaped
// as in JSON (a NUL shows as \u0000), every other byte as it is.
std::string Printable(const std::string& text);

// A file a scenario names: absolute as it is, else relative to the
// scenario's folder.
std::string BesideScenario(const std::string& scenario, const std::string& file);

// The members "plugins" and "nodes" of the scenario file `path`, checked:
// plug-in files (a file name alone kept as it is, a path made relative to
// the scenario's folder) and the other nodes with their configurations
// (a "config_file" read beside the scenario). Throw ScenarioError naming the
// file and what is wrong.
std::vector<std::string> ReadPlugins(const rapidjson::Value& value, const std::string& path);
std::vector<OtherNode> ReadNodes(const rapidjson::Value& value, const std::string& path);

// Reads and checks a scenario file. A "config_file" is read relative to the
// scenario's folder.
Scenario LoadScenario(const std::string& path);

}  // namespace kivrun

#endif  // LASERCALI_TOOLS_KIVRUN_SCENARIO_H_
