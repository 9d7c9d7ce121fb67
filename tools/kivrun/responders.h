// Simulated calculation nodes: the plane, check, camera-parameter, distance
// and laser power nodes the calibration node talks to.
//
// Each responder subscribes to its request topic the first time a scenario
// sets it up, as the real node would, and from then on takes every request
// published there. It does not answer from inside the request's
// publication: the answer is a one-shot timer on the main loop, `delay_us`
// later (one frame-timer period by default), named "kivrun/<node>". The
// setting in force when the request arrives decides the answer:
//
//   answer  the node's default fields, overlaid with the scenario's fields;
//   fail    the same with the failure code in the node's result field;
//   silent  nothing is sent (a "silent" event is logged).
//
// Before answering, a responder reads the pictures it needs: each must be a
// 640 x 480 8-bit BMP file. If one is missing or different, the node
// refuses: it answers with the refusal code (default 2) in its result field
// and the event names every picture and what is wrong with it. The laser
// power node takes only type-5 records of "CAMERACALIRES".
//
// Every answer is logged as an "answer" event before it is published.
#ifndef LASERCALI_TOOLS_KIVRUN_RESPONDERS_H_
#define LASERCALI_TOOLS_KIVRUN_RESPONDERS_H_

#include <rapidjson/document.h>

#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "platform/kiv/host.h"
#include "tools/kivrun/event_log.h"
#include "tools/kivrun/scenario.h"

namespace kivrun {

// What one simulated node is: its topics, records and result field.
struct ResponderKind {
  const char* node;                        // "plane", ...
  const char* listens;                     // request topic
  const char* request;                     // request record type
  const char* answers;                     // answer topic
  const char* answer;                      // answer record type
  std::vector<const char*> result_fields;  // where a failure code goes
  const char* defaults;                    // default answer fields, as JSON
};

// The five simulated nodes, in a fixed order.
const std::vector<ResponderKind>& ResponderKinds();

// What is wrong with a picture file for a calculation node: "" when it is a
// 640 x 480 8-bit BMP file, else a short reason ("missing", "not a BMP
// file", "1280 x 480, not 640 x 480", "24-bit, not 8-bit").
std::string PictureProblem(const std::string& path);

// The pictures the plane node reads by default: the left and right factory
// pictures of the distances 5 to 45, numbered with `delt_factory`.
std::vector<std::string> FactoryPlanePictures(int delt_factory);

class Responders {
 public:
  // `delt_factory` numbers the plane node's default pictures.
  Responders(kiv::Host& host, EventLog& log, int delt_factory);
  Responders(const Responders&) = delete;
  Responders& operator=(const Responders&) = delete;

  // Applies a setting from now on; subscribes the node the first time.
  // Throws std::invalid_argument for an unknown node or answer fields that
  // do not fit the answer record.
  void Configure(const ResponderSetting& setting);

  // Called after each answer is published (node name, action).
  void SetOnAnswer(std::function<void(const std::string& node, const std::string& action)> hook) {
    on_answer_ = std::move(hook);
  }

 private:
  struct Active {
    const ResponderKind* kind;
    std::shared_ptr<const ResponderSetting> setting;
  };
  void OnRequest(Active& active, const void* request);
  void Answer(const ResponderKind& kind, const ResponderSetting& setting);

  kiv::Host& host_;
  EventLog& log_;
  int delt_factory_;
  std::map<std::string, Active> active_;
  std::function<void(const std::string&, const std::string&)> on_answer_;
};

}  // namespace kivrun

#endif  // LASERCALI_TOOLS_KIVRUN_RESPONDERS_H_
