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
//   answer   the node's default fields, overlaid with the scenario's fields;
//   fail     the same with the failure code in the node's result field;
//   silent   nothing is sent (a "silent" event is logged);
//   compute  the plane, check and distance nodes work their answer out from
//            the pictures (tools/calc/, docs/calibration.md): the plane node
//            fits each laser's plane, the check node measures the stripes
//            against the planes the plane node last sent, the distance node
//            measures the wall with them (or with the scene's true planes
//            when none were sent). They take the camera model from the
//            camera simulator's truth, as a factory calculation node knows
//            its camera; never the laser planes.
//
// Before answering, a responder reads the pictures it needs: each must be a
// 640 x 480 8-bit BMP file. If one is missing or different, the node
// refuses: it answers with the refusal code (default 2) in its result field
// and the event names every picture and what is wrong with it. The laser
// power node takes only type-5 records of "CAMERACALIRES".
//
// Every answer is logged as an "answer" event before it is published; a
// computed one also carries what was computed and, beside it, the scene's
// truth and the errors (docs/kivrun.md).
#ifndef LASERCALI_TOOLS_KIVRUN_RESPONDERS_H_
#define LASERCALI_TOOLS_KIVRUN_RESPONDERS_H_

#include <rapidjson/document.h>

#include <functional>
#include <map>
#include <memory>
#include <opencv2/core.hpp>
#include <string>
#include <vector>

#include "platform/kiv/host.h"
#include "tools/calc/plane_fit.h"
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

// Whether the node answers `request` (a record of its request type): the
// laser power node answers only the type-5 results, the others every request.
bool TakesRequest(const ResponderKind& kind, const void* request);

// What is wrong with a picture file for a calculation node: "" when it is a
// 640 x 480 8-bit BMP file, else a short reason ("missing", "not a BMP
// file", "1280 x 480, not 640 x 480", "24-bit, not 8-bit").
std::string PictureProblem(const std::string& path);

// The pictures the plane node reads by default: the left and right factory
// pictures of the distances 5 to 45, numbered with `delt_factory`.
std::vector<std::string> FactoryPlanePictures(int delt_factory);

// What a computing plane or check node takes a picture path for: the laser
// (its folder is "left" or "right") and the wall's distance in cm (its name
// is a number n, n / 100 whole centimetres: n = d x 100 + delt with delt
// below 100). False when the path is not of that form.
bool StripePictureOf(const std::string& path, bool* left, int* distance);

class Responders {
 public:
  // `delt_factory` numbers the plane node's default pictures.
  Responders(kiv::Host& host, EventLog& log, int delt_factory);
  Responders(const Responders&) = delete;
  Responders& operator=(const Responders&) = delete;

  // Applies a setting from now on; subscribes the node the first time.
  // Throws std::invalid_argument for an unknown node, answer fields that
  // do not fit the answer record, a computing setting for a node that
  // cannot compute, or pictures a computing node cannot use.
  void Configure(const ResponderSetting& setting);

  // Called after each answer is published: node name, action and the
  // "answer" event as logged.
  void SetOnAnswer(std::function<void(const std::string& node, const std::string& action,
                                      const rapidjson::Value& answer)>
                       hook) {
    on_answer_ = std::move(hook);
  }
  // Called after each answer of a computing node, with its "answer" event:
  // what it computed beside the truth, or why it could not
  // (docs/calibration.md).
  void SetOnComputed(
      std::function<void(const std::string& node, const rapidjson::Value& answer)> hook) {
    on_computed_ = std::move(hook);
  }

 private:
  struct Active {
    const ResponderKind* kind;
    std::shared_ptr<const ResponderSetting> setting;
  };
  // The laser planes as the computing plane node last sent them.
  struct SentPlanes {
    bool valid = false;
    calc::Plane left, right;
  };
  void OnRequest(Active& active, const void* request);
  void Answer(const ResponderKind& kind, const ResponderSetting& setting);
  // Works out a computing node's answer into `record` (of the node's answer
  // type) from `pictures` (decoded, in the order of the setting's "needs")
  // and adds what it computed to the event `f`. Returns true on success.
  bool Compute(const ResponderKind& kind, const std::vector<std::string>& paths,
               const std::vector<cv::Mat>& pictures, void* record, Fields& f);

  kiv::Host& host_;
  EventLog& log_;
  int delt_factory_;
  std::map<std::string, Active> active_;
  SentPlanes sent_planes_;
  std::function<void(const std::string&, const std::string&, const rapidjson::Value&)> on_answer_;
  std::function<void(const std::string&, const rapidjson::Value&)> on_computed_;
};

}  // namespace kivrun

#endif  // LASERCALI_TOOLS_KIVRUN_RESPONDERS_H_
