// What every calculation node of liblasercalc.so does around its
// calculation.
//
// A CalcNode is built from its configuration (calc_config.h) and takes the
// requests of one topic. It answers each request one configured delay
// later, from a one-shot timer named after the node: never from inside the
// request's publication, so the node that asked sees its answer come on a
// later turn of the main loop, as from a node in another process. To
// answer, it reads its pictures; when one is missing, is not a 640 x 480
// 8-bit BMP file or cannot be decoded, it refuses: the answer carries the
// configured refusal code and the report names every such picture.
// Otherwise the node's own Compute() works the answer out.
//
// The plane, check and distance nodes compute through a camera model
// (CameraFor): without one every request fails with kNoCamera.
//
// Right before each answer the node publishes its report on
// "LASERCALC_REPORT" (msgs/calcmsgs.h): "node" (its short name), "action"
// ("answer", "fail" or "refuse"), "problems" (a refusal), what Compute()
// added, and "code" and "reason" when it failed. Both go out with the
// node's name as their trace tag.
//
// Only one node of each kind may live in a process at a time: two would
// both answer every request of their topic. A second is refused when it is
// built, naming the one that runs. Destroying a node stops its pending
// answers.
#ifndef LASERCALI_TOOLS_CALC_CALC_NODE_H_
#define LASERCALI_TOOLS_CALC_CALC_NODE_H_

#include <rapidjson/document.h>

#include <memory>
#include <opencv2/core.hpp>
#include <set>
#include <string>
#include <vector>

#include "framework/kiv.h"
#include "msgs/calcmsgs.h"
#include "msgs/calimsgs.h"
#include "tools/calc/calc_config.h"
#include "tools/calc/plane_fit.h"

namespace calc {

// How a calculation came out: kSuccess, or a failure code and its reason.
struct Outcome {
  int code = kSuccess;
  std::string reason;
  // Keeps the first failure only.
  void Fail(int failure, const std::string& why) {
    if (code != kSuccess) return;
    code = failure;
    reason = why;
  }
};

// Holds the node's kind for as long as the node lives (see above).
class KindClaim {
 public:
  KindClaim(NodeKind kind, const std::string& name);
  ~KindClaim();
  KindClaim(const KindClaim&) = delete;
  KindClaim& operator=(const KindClaim&) = delete;

 private:
  NodeKind kind_;
};

class CalcNode : public kiv::KivNode {
 public:
  ~CalcNode() override;

 protected:
  // Reads the configuration; throws CalcConfigError, or std::runtime_error
  // when a node of the same kind already runs.
  CalcNode(const rapidjson::Value& config, NodeKind kind);

  const CalcConfig& config() const { return config_; }
  // Answers every record on `topic` (queue depth 10).
  template <typename Request>
  void TakeRequests(const std::string& topic) {
    Subscribe<Request>(
        topic, [this](Request*) { OnRequest(); }, 10);
  }

  // The camera model to compute with (plane, check, distance): the
  // configured one, or the configured camera file, read now so that a model
  // written after the node was built (by a camera parameter node) is used.
  // False, with `outcome` failed with kNoCamera and why, when there is none.
  bool CameraFor(CameraModel* model, Outcome* outcome) const;

  // Works the answer out from the decoded pictures (in the configured
  // order) into the node's answer record, adds what it found to `report`
  // and says how it came out.
  virtual Outcome Compute(const std::vector<cv::Mat>& pictures, rapidjson::Document& report) = 0;
  // Makes the node's answer record a refusal with `code`.
  virtual void Refuse(int64_t code) = 0;
  // Publishes the node's answer record.
  virtual void Send() = 0;

 private:
  void OnRequest();
  void Answer();

  CalcConfig config_;
  KindClaim claim_;
  kiv::Publisher<CalcReportMsg> reports_;
  std::set<int> pending_;  // the timers of the answers to come
};

// The laser planes a plane node last sent with success on
// "LASER_CALIBR_REQRES" (decoded from its nine values).
class SentPlanes {
 public:
  // Takes the planes of an answer whose result is 1.
  void Take(const LaserClibrMsg& answer);
  bool valid() const { return valid_; }
  const Plane& operator[](int side) const { return planes_[side]; }

 private:
  bool valid_ = false;
  Plane planes_[2];
};

// A plane's figures for a report: its unit "normal", "offset_cm", and the
// "yaw_deg" and "roll_deg" of calc::AnglesOf.
rapidjson::Value PlaneReport(const Plane& plane, rapidjson::Document::AllocatorType& a);

// A threshold as messages show it: one decimal when that says it exactly
// ("2.0", "0.2"), else as many as it takes ("0.25").
std::string Figure(double x);

// The two lasers, in the order of the answer values.
inline constexpr const char* kSides[2] = {"left", "right"};

}  // namespace calc

#endif  // LASERCALI_TOOLS_CALC_CALC_NODE_H_
