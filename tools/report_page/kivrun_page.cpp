#include "tools/report_page/kivrun_page.h"

#include <filesystem>

namespace reportpage {

RoundPage FromReport(const std::string& dir, const kivrun::ReportInput& input) {
  RoundPage round;
  round.scenario = input.scenario;
  round.description = input.description;
  round.exit_code = input.exit_code;
  round.summary = input.summary;
  round.problems = input.problems;
  round.versions_not_kept = input.versions_not_kept;
  for (const kivrun::ReportPicture& p : input.pictures) {
    PagePicture picture;
    picture.path = p.path;
    picture.label = p.label;
    picture.app = p.app;
    picture.side = p.side == kivrun::ReportPicture::Side::kLeft    ? Side::kLeft
                   : p.side == kivrun::ReportPicture::Side::kRight ? Side::kRight
                                                                   : Side::kUnknown;
    picture.size = p.size;
    picture.hash = p.hash;
    picture.writes = p.writes;
    picture.version = p.version;
    picture.bytes = p.bytes;
    picture.reply = p.reply;
    round.pictures.push_back(std::move(picture));
  }
  const std::filesystem::path log = std::filesystem::path(dir) / kEventLogFile;
  std::error_code error;
  if (std::filesystem::exists(log, error)) round.event_log = log.string();
  return round;
}

void WriteRoundPage(const std::string& dir, const kivrun::ReportInput& input) {
  WritePage(dir, FromReport(dir, input));
}

}  // namespace reportpage
