// What the page takes from the round's event log (docs/kivrun.md, "The event
// log"): the timeline, the calculation nodes' last answers and what the plane
// node worked from.
//
// ReadRoundLog reads the log line by line. It takes the log for the round's
// own only when its last event is "end" with the round's exit code and,
// for every picture of the round, the log's last write of that path has
// the picture's hash; otherwise the state says what is wrong (no log, a line
// that is not an event, a log cut short, another round's log) and nothing
// else is filled in. A log larger than kMaxLogBytes is not read.
//
// The timeline holds the events a person follows a round by, each in a lane:
// requests to the node (sends and JSON commands), the node's replies,
// pictures written, requests to the calculation nodes, their answers, and
// the round's own events (notes, awaited answers that came, errors and
// exceptions). The camera the computing nodes used is the simulator's as
// the log's camera settings left it when the plane node answered: the
// defaults of docs/camera-sim.md, reset and changed by each `scene.camera`
// and `scene.wall_height` in order.
#ifndef LASERCALI_TOOLS_REPORT_PAGE_ROUND_LOG_H_
#define LASERCALI_TOOLS_REPORT_PAGE_ROUND_LOG_H_

#include <rapidjson/document.h>

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "tools/calc/geometry.h"
#include "tools/report_page/round_page.h"

namespace reportpage {

inline constexpr std::uintmax_t kMaxLogBytes = 256 * 1024 * 1024;

enum Lane : int { kToNode, kFromNode, kPictures, kToCalculation, kFromCalculation, kRound };
inline constexpr const char* kLaneNames[] = {
    "requests to the node",          "the node's replies", "pictures written",
    "requests to calculation nodes", "their answers",      "the round"};

struct TimelineEvent {
  int64_t t = 0;  // µs on the round's clock
  int lane = kRound;
  std::string text;
};

struct RoundLog {
  enum class State { kNone, kRead, kDamaged, kOtherRound, kTooLarge };
  State state = State::kNone;
  std::string note;  // for the page: what is wrong with the log, or where it is
  int events = 0;
  std::vector<TimelineEvent> timeline;
  // The last "answer" event of each calculation node ("plane", "check",
  // "distance", "ieparam", "laser_power"), as logged.
  rapidjson::Document answers{rapidjson::kObjectType};
  // The plane node's last answer: the pictures it read, when, and the camera
  // and wall height then.
  int64_t plane_answer_t = -1;
  std::vector<std::string> plane_needs;
  calc::Camera camera;
  double wall_height = 200;
  std::map<std::string, int64_t> last_write;  // path: when it was last written
};

RoundLog ReadRoundLog(const std::string& path, const RoundPage& round);

// The member `name` of `object`, or a null value when `object` is no object
// or has no such member.
const rapidjson::Value& Member(const rapidjson::Value& object, const char* name);

// A JSON value as compact text, cut to `limit` bytes with "..." after.
std::string Compact(const rapidjson::Value& value, std::size_t limit = 240);

}  // namespace reportpage

#endif  // LASERCALI_TOOLS_REPORT_PAGE_ROUND_LOG_H_
