// Where a round goes when kivrun runs on a terminal and no output is named.
//
// A person who types `kivrun SCENARIO.json` on a terminal wants to see the
// round, not hundreds of lines of its event log. kivrun then writes the log,
// the picture report, the round's page and the node's pictures into a folder
// named after the scenario in the working folder (factory_compute_round/ for
// scenarios/factory_compute_round.json) and shows the progress and summary.
//
// The folder is never one holding somebody else's files. ChooseRoundFolder
// takes <stem>/ when it is missing, empty, or holds a round kivrun wrote
// before (IsRoundFolder: an event log events.jsonl of kivrun's and nothing
// but what a round writes: report.html, report.md, pictures.png,
// pictures/); that earlier round is replaced. Otherwise it takes the first
// of <stem>-2/, <stem>-3/, ... up to <stem>-99/ that fits, and says why in
// `note`. PrepareRoundFolder makes the folder and removes an earlier
// round's pictures/, so the new round's pictures do not mix with the old.
#ifndef LASERCALI_TOOLS_KIVRUN_ROUND_FOLDER_H_
#define LASERCALI_TOOLS_KIVRUN_ROUND_FOLDER_H_

#include <ostream>
#include <string>

#include "tools/kivrun/runner.h"

namespace kivrun {

// The files and folders of a round's folder.
inline constexpr char kRoundLog[] = "events.jsonl";
inline constexpr char kRoundPage[] = "report.html";
inline constexpr char kRoundPictures[] = "pictures";

struct RoundFolder {
  std::string path;  // "<parent>/<name>", or "<name>" when parent is "" (the working folder)
  bool earlier_round = false;  // it holds a round kivrun wrote before, which is replaced
  std::string note;            // why another folder than <stem>/ was taken ("" when not)
};

// The folder's name for `scenario_path`: its file name without ".json" (or
// without its last extension); "kivrun-round" when nothing is left.
std::string RoundFolderStem(const std::string& scenario_path);

// True when `path` is a regular file whose first line is an event of
// kivrun's event log.
bool IsEventLogFile(const std::string& path);

// True when `path` is a folder that is empty or holds a round kivrun wrote
// (see above). False for anything else, and for a path that is not there.
bool IsRoundFolder(const std::string& path);

// Picks the folder for `scenario_path` under `parent` ("" for the working
// folder). False, with *reason, when <stem>/ and each of <stem>-2/ to
// <stem>-99/ hold files that are not a round's.
bool ChooseRoundFolder(const std::string& scenario_path, const std::string& parent,
                       RoundFolder* folder, std::string* reason);

// Makes the folder (not its parents) and removes an earlier round's
// pictures/. False, with *reason naming the path, when it cannot.
bool PrepareRoundFolder(const RoundFolder& folder, std::string* reason);

// A scenario run on a terminal with no --log: the log and the page go to
// the --report folder of `options` when it names one (made if missing; an
// events.jsonl there that is not kivrun's is refused), else to the folder
// ChooseRoundFolder picks, which becomes the report folder, with the node's
// pictures in its pictures/ (unless --pictures-out or --machine-tmp say
// otherwise). Says on `err` where the round goes. Returns kOk, or
// kUsageError after saying why.
int SetUpTerminalRound(const std::string& scenario_path, bool machine_tmp, Options* options,
                       std::string* pictures_out, std::ostream& err);

// After a terminal round: where its page, log and picture report are, of
// those that were written (the pictures' line comes before it).
void SayWhereTheRoundIs(const std::string& folder, std::ostream& out);

}  // namespace kivrun

#endif  // LASERCALI_TOOLS_KIVRUN_ROUND_FOLDER_H_
