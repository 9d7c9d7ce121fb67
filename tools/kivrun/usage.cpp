#include "tools/kivrun/usage.h"

namespace kivrun {

const char kUsage[] = R"usage(usage: kivrun [OPTIONS] [SCENARIO.json]
       kivrun [OPTIONS] --replay OLD.jsonl

Loads node plug-ins into a host framework (the calibration node's, others
with --plugin and those the scenario names), builds the node under test
from its JSON configuration and the scenario's other nodes from theirs,
plays the scenario's steps against it on a virtual clock and writes an
event log: JSON Lines, one event per line, in the order things happened
(console lines, publications with their trace tags and fields, inputs
sent, JSON replies, timers, the calculation nodes' answers, exceptions).

Without a scenario, kivrun builds the node from --config, shows its
start-up and tears it down.

With --replay, kivrun plays the inputs recorded in an event log against
the plug-in instead (configuration, sends, JSON commands, clock steps,
camera settings, the calculation nodes' answers), writes the new log and
compares it with the old one event by event; the first difference is
shown with the events before it.

options:
  --config FILE       node configuration (JSON object); replaces the
                      scenario's "config" / "config_file"
  --plugin PATH       a node plug-in to load; again for more (default: the
                      calibration plug-in installed with kivrun, or in a
                      build folder the one built with it)
  --log FILE          write the event log to FILE; "--log -" writes it to
                      standard output (default: see "On a terminal" below)
  --replay OLD.jsonl  play the inputs recorded in the event log OLD.jsonl
                      and compare the new log with it (exit code 5 when
                      they differ); no scenario, --config, --realtime
                      or --pictures (a round played on pictures replays
                      on the folder it recorded)
  --echo              also print the node's console lines on standard
                      error; a run of the same line comes as one line
                      with a count: "[STB] return_res success cc  (x10)"
  --echo=raw          the same, every line as it comes
  --trace-times FILE  write the framework's time per delivery to FILE
  --progress          show a line per finished "repeat" or "wait" step and,
                      at the end, a summary of the round (on standard error)
  --realtime          run the main loop on the wall clock: the 10 ms frame
                      timer ticks every 10 ms of real time; on a terminal a
                      progress bar is drawn (and --progress is implied)
  --report DIR        write the round's page and picture report into DIR:
                      report.html (the round as one page, to open in a
                      browser; it reads the log from DIR/events.jsonl),
                      pictures.png (every picture the round wrote) and
                      report.md
  --private-tmp       run the node against an empty /tmp of its own (a
                      private mount namespace), so the pictures on this
                      machine stay as they are; the node's pictures are
                      gone at the end unless --pictures-out keeps them.
                      This is the default
  --machine-tmp       let the node write into the machine's /tmp instead
                      (/tmp/left, /tmp/right, /tmp/pic, /tmp/LL.bmp,
                      /tmp/RR.bmp), over the pictures there
  --pictures-out DIR  copy every file the node wrote into its private /tmp
                      to DIR at the end, with the same relative paths
                      (DIR/left/560.bmp, DIR/LL.bmp, ...)
  --pictures DIR      the camera shows the recorded pictures of the folder
                      DIR instead of the simulated scene, chosen by distance
                      and laser: DIR/<distance>/left.png and right.png, or
                      the node's own DIR/left/<N>.bmp and DIR/right/<N>.bmp
                      (docs/camera-sim.md); the camera setting
                      {"pictures": DIR} before the first step. The
                      planes are worked out through DIR/camera.yaml
                      when DIR holds one; else, when DIR/chessboard holds
                      views (*.png, *.bmp) and board.json, the round
                      starts with the chessboard step: each view shown
                      for one chessboard request, and the camera
                      parameter node measures the camera from them;
                      else through the scenario's camera, with a note.
                      Neither, when the scenario names no camera: exit 7
  -h, --help          show this text
  --version           show the version and the node's version tags

On a terminal (standard output is one) a scenario run with no --log shows
the round instead of its log: the progress and the summary (as --progress),
and at the end where the event log and the round's page were written. They
go into the --report folder when one is given, else into a folder named
after the scenario in the working folder (factory_compute_round/ for
factory_compute_round.json): events.jsonl, report.html, report.md,
pictures.png and the node's pictures in pictures/. A folder of that name
that holds anything but an earlier round of kivrun's is left as it is and
the round goes to NAME-2/ (then NAME-3/, ...), saying so. Piped or
redirected, or with "--log -", the event log goes to standard output as
before; with --log FILE it goes to FILE and nothing else changes. --replay
and a run with --config alone write their log to standard output on a
terminal too.

A value follows its option as "--log FILE" or "--log=FILE". A long option
may be shortened to any prefix that names only it ("--con" for --config);
"--" ends the options.

exit codes: 0 the scenario ran to its end; 1 the scenario is wrong (the
message names the file and the step), or a plug-in could not be loaded
(the message names the file); 2 bad command line, or the log, the trace,
standard output, the report or the pictures could not be written; 3 a
node could not be built; 4 a "repeat" or "wait" step did not get its answer
within its limit (the message says what came instead); 5 --replay: the
new log differs from the old one (the first difference is shown); 6
no private /tmp could be had for the node (the message says why;
--machine-tmp runs without one); 7 --pictures DIR gives the round no
camera: its chessboard folder cannot be used (the message names the file
and what is wrong), its views measured none (each view left out is
named), or it holds neither camera.yaml nor chessboard views and the
scenario names no camera. A replay that gives the same log exits
with 0, whatever the recorded round's own exit code was; an old log that
cannot be replayed (not an event log, damaged, cut short) gives 1, naming
its file and line.

The scenario format and the event log are described in docs/kivrun.md.
)usage";

}  // namespace kivrun
