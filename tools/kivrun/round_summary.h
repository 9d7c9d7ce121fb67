// What a calibration round came to, gathered from kivrun's events: the
// distances the node accepted, the pictures it wrote, the requests that went
// back and forth, the results it relayed and the last of them.
//
// The runner feeds it as things happen; Rows() gives the figures for the
// end-of-round summary and the report, Pictures() the written pictures with
// what was being taken when each was written (the last request value the
// factory tool or the app sent). The last answer of each computing
// calculation node adds rows: each laser's recovered and true plane and the
// errors, the check's residuals, the measured and the true wall distance.
#ifndef LASERCALI_TOOLS_KIVRUN_ROUND_SUMMARY_H_
#define LASERCALI_TOOLS_KIVRUN_ROUND_SUMMARY_H_

#include <rapidjson/document.h>

#include <cstdint>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "tools/kivrun/report.h"

namespace kivrun {

class RoundSummary {
 public:
  // The scenario sent a record on `topic`, or a JSON command (`topic` is
  // then "JSON command").
  void Sent(const std::string& topic);
  // The factory tool (app = false) or the app asked for `value`.
  void Requested(uint16_t value, bool app);
  // The node published `fields` (as the event log decodes them) on `topic`.
  void Published(const std::string& topic, const rapidjson::Value& fields);
  // A simulated node answered (action: answer, fail, refuse); `answer` is
  // its "answer" event. The problems it names (the pictures a refusing
  // node found missing or wrong, why a computing node failed) are kept for
  // Problems().
  void Answered(const std::string& node, const std::string& action, const rapidjson::Value& answer);
  // What the calculation nodes that refused or failed said, a line each, in
  // order: "plane refused with 2: /tmp/left/560.bmp: missing".
  const std::vector<std::string>& Problems() const { return problems_; }
  // A computing node answered; `answer` is its "answer" event
  // (docs/calibration.md).
  void Computed(const std::string& node, const rapidjson::Value& answer);
  // The chessboard views in which the camera parameter node found no board
  // ("view 05"), in order.
  const std::vector<std::string>& ViewsWithoutBoard() const { return views_without_board_; }
  // A picture file was written.
  void Written(const std::string& path, int64_t size, const std::string& hash);

  // The summary's rows, in order: figure, value.
  std::vector<std::pair<std::string, std::string>> Rows(int64_t simulated_us,
                                                        double wall_seconds) const;
  // The pictures, in the order they were first written.
  const std::vector<ReportPicture>& Pictures() const { return pictures_; }

  // From now on, keeps every version of /tmp/LL.bmp and /tmp/RR.bmp (the
  // pictures the stripe cut reads, rewritten at every app request): its
  // bytes, the request it was taken for and the node's acknowledge that
  // followed (the first, when it was written again). A version written
  // again unchanged for the same request counts as one more write of it. At most
  // kMaxVersions versions a picture are kept; later ones are counted only.
  void KeepVersions() { keep_versions_ = true; }
  static constexpr int kMaxVersions = 64;
  // The pictures for the report: Pictures(), with each kept picture
  // replaced by its versions, in order.
  std::vector<ReportPicture> ReportPictures() const;
  // Versions written after the first kMaxVersions of their picture.
  int VersionsNotKept() const { return versions_not_kept_; }

 private:
  std::vector<uint16_t> accepted_;                     // distances accepted, in order
  std::vector<std::string> cut_refused_;               // app acknowledges of a refused stripe cut
  std::vector<std::pair<std::string, int>> sent_;      // topic, count, first-sent order
  std::vector<std::pair<std::string, int>> requests_;  // the node's requests to calculation nodes
  std::vector<std::pair<std::string, int>> answers_;   // node/action, count
  std::vector<std::pair<std::string, int>> replies_;   // camera state and distance replies
  std::vector<std::pair<std::string, int>> results_;   // relayed results by topic and kind
  std::string final_result_;
  std::vector<std::pair<std::string, std::vector<std::pair<std::string, std::string>>>>
      computed_;  // node, its rows
  std::vector<ReportPicture> pictures_;
  std::vector<std::string> problems_;
  std::vector<std::string> views_without_board_;
  bool keep_versions_ = false;
  std::map<std::string, std::vector<ReportPicture>> versions_;  // by path
  int versions_not_kept_ = 0;
  void KeepVersion(const ReportPicture& picture);
  int picture_writes_ = 0;
  std::string taking_ = "before any request";  // label of pictures written now
  bool app_ = false;
};

}  // namespace kivrun

#endif  // LASERCALI_TOOLS_KIVRUN_ROUND_SUMMARY_H_
