// The calculation nodes the calibration node talks to, as a round sets them
// up: the plane, check, camera-parameter, distance and laser power nodes.
//
// A "responder" step sets one of them up (docs/kivrun.md, "Simulated
// calculation nodes"). Responders applies the step's defaults (the pictures
// a node reads, the refusal code), logs the "responder" event and, for a
// scripted setting, plays the node itself: it subscribes to the node's
// request topic the first time, as the real node would, and from then on
// takes every request published there. It does not answer from inside the
// request's publication: the answer is a one-shot timer on the main loop,
// `delay_us` later (one frame-timer period by default), named
// "kivrun/<node>". The setting in force when the request arrives decides the
// answer:
//
//   answer   the node's default fields, overlaid with the scenario's fields;
//   fail     the same with the failure code in the node's result field;
//   silent   nothing is sent (a "silent" event is logged).
//
// Before answering, a scripted node looks at the pictures it needs: each
// must be a 640 x 480 8-bit BMP file. If one is missing or different, the
// node refuses: it answers with the refusal code (default 2) in its result
// field and the event names every picture and what is wrong with it. The
// laser power node takes only type-5 records of "CAMERACALIRES". Every
// answer is logged as an "answer" event before it is published.
//
// A computing setting ("compute": the plane, check, distance and camera
// parameter nodes) is not played here: Responders hands it, with its
// defaults applied, to the ComputingNodes, which build a node of the
// calculation plug-in for it (calc_nodes.h), and the scripted node stands
// aside until a scripted setting comes again.
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

// What one calculation node is: its topics, records and result field.
struct ResponderKind {
  const char* node;                        // "plane", ...
  const char* listens;                     // request topic
  const char* request;                     // request record type
  const char* answers;                     // answer topic
  const char* answer;                      // answer record type
  std::vector<const char*> result_fields;  // where a failure code goes
  const char* defaults;                    // default answer fields, as JSON
};

// The five calculation nodes, in a fixed order.
const std::vector<ResponderKind>& ResponderKinds();

// Whether the node answers `request` (a record of its request type): the
// laser power node answers only the type-5 results, the others every request.
bool TakesRequest(const ResponderKind& kind, const void* request);

// Where computing settings go.
class ComputingNodes {
 public:
  virtual ~ComputingNodes() = default;
  // Sets up the computing node of `setting.node` (its defaults applied);
  // throws std::invalid_argument, naming what is wrong, when it cannot.
  virtual void Compute(const ResponderSetting& setting) = 0;
  // The node of `node` is scripted from now on.
  virtual void Retire(const std::string& node) = 0;
};

class Responders {
 public:
  // `delt_factory` numbers the plane node's default pictures.
  Responders(kiv::Host& host, EventLog& log, int delt_factory);
  Responders(const Responders&) = delete;
  Responders& operator=(const Responders&) = delete;

  // Where computing settings go; none: a computing setting is refused.
  void SetComputingNodes(ComputingNodes* computing) { computing_ = computing; }

  // Applies a setting from now on; subscribes a scripted node the first
  // time. Throws std::invalid_argument for an unknown node, answer fields
  // that do not fit the answer record, a computing setting for a node that
  // cannot compute, or one the computing nodes cannot set up.
  void Configure(const ResponderSetting& setting);

  // Called after each scripted answer is published: node name, action and
  // the "answer" event as logged.
  void SetOnAnswer(std::function<void(const std::string& node, const std::string& action,
                                      const rapidjson::Value& answer)>
                       hook) {
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
  ComputingNodes* computing_ = nullptr;
  std::map<std::string, Active> active_;
  std::function<void(const std::string&, const std::string&, const rapidjson::Value&)> on_answer_;
};

}  // namespace kivrun

#endif  // LASERCALI_TOOLS_KIVRUN_RESPONDERS_H_
