// A node of another team, built against the installed lasercali package: it
// takes the factory tool's calibration command on "CAMERACALI" and answers
// each with a distance record (kind 2) on "CAMERACALIRES" that carries the
// commanded value plus one.
#include "framework/kiv.h"
#include "msgs/calimsgs.h"
#include "msgs/topics.h"

namespace kiv {
const char kBuildCommitTag[30] = "echo-node-0.1.0-0000000000000";
const char kFrameworkTag[17] = "kiv-echo-0.1.0-0";
}  // namespace kiv

namespace {

class KivNodeEcho : public kiv::KivNode {
 public:
  explicit KivNodeEcho(const rapidjson::Value& config) : kiv::KivNode(config) {
    answers_ = Advertise<kiv_camera_calires_msg>(calitopics::kCameraCaliRes);
    Subscribe<kiv_camera_cali_msg>(
        calitopics::kCameraCali, [this](kiv_camera_cali_msg* command) { Answer(*command); },
        calitopics::kSubscribeDepth);
  }

 private:
  void Answer(const kiv_camera_cali_msg& command) {
    kiv_camera_calires_msg answer;
    answer.kind = 2;
    answer.distance = static_cast<uint16_t>(command.distance + 1);
    answers_.publishWithLine(&answer, "consumer/echo_node_30");
  }

  kiv::Publisher<kiv_camera_calires_msg> answers_;
};

}  // namespace

extern "C" __attribute__((visibility("default"))) void Kiv_RegisterNodesFromNodeV3(
    kiv::NodeRegistry& registry) {
  registry["KivNodeEcho"] = kiv::NodeFactory::getBuilderImpl<KivNodeEcho>();
}
