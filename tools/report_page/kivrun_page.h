// kivrun's round page: the picture report's input (tools/kivrun/report.h)
// made into the page's (round_page.h), with the event log the page looks
// for beside it: DIR/events.jsonl, which `kivrun --log DIR/events.jsonl
// --report DIR` writes and closes before the report.
#ifndef LASERCALI_TOOLS_REPORT_PAGE_KIVRUN_PAGE_H_
#define LASERCALI_TOOLS_REPORT_PAGE_KIVRUN_PAGE_H_

#include <string>

#include "tools/kivrun/report.h"
#include "tools/report_page/round_page.h"

namespace reportpage {

RoundPage FromReport(const std::string& dir, const kivrun::ReportInput& input);

// Writes DIR/report.html for the report in DIR; throws as WritePage does.
void WriteRoundPage(const std::string& dir, const kivrun::ReportInput& input);

}  // namespace reportpage

#endif  // LASERCALI_TOOLS_REPORT_PAGE_KIVRUN_PAGE_H_
