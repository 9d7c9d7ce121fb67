// The /tmp a program of ours gives the calibration node it builds or drives.
//
// The node writes its pictures to fixed places under /tmp (/tmp/left,
// /tmp/right, /tmp/pic, /tmp/LL.bmp, /tmp/RR.bmp), where a robot, or a PC
// holding a robot's recorded session, keeps the pictures of a real
// calibration. So every program of ours that runs the node (kivrun, the
// benchmarks that build it) runs it in a private, empty /tmp (private_tmp.h)
// unless it is given --machine-tmp. Where no private /tmp can be had, the
// program refuses to run, saying why and naming --machine-tmp; it never
// falls back to the machine's /tmp on its own.
//
// A program without a command-line parser of its own takes the option out
// of argv with TakeMachineTmp; one with a parser reads --machine-tmp itself.
// Either then calls EnterNodeTmp before it starts any thread and before
// anything builds the node.
#ifndef LASERCALI_PLATFORM_SANDBOX_NODE_TMP_H_
#define LASERCALI_PLATFORM_SANDBOX_NODE_TMP_H_

#include <ostream>
#include <string>

#include "platform/sandbox/private_tmp.h"

namespace sandbox {

// The option that lets the node write into the machine's /tmp.
constexpr char kMachineTmpOption[] = "--machine-tmp";

// The exit code of a program that refused to run for want of a private /tmp.
constexpr int kNoPrivateTmpExit = 6;

// The option's help, for a program's --help: a paragraph on where the node's
// files go, then the option itself, indented by two blanks.
extern const char kNodeTmpHelp[];

// Takes every argument "--machine-tmp" out of argv, before a "--" that ends
// the options; *argc is lowered and the other arguments keep their order.
// True when there was one.
bool TakeMachineTmp(int* argc, char** argv);

// Unless `machine`, enters `tmp`. When that cannot be had, writes
//   PROGRAM: no private /tmp for the node (REASON); give --machine-tmp to let
//   the node write into the machine's /tmp, over the pictures there
// to `err` and returns false: the program must stop (kNoPrivateTmpExit).
// After true, NodeTmpChosen() is true for the rest of the process.
bool EnterNodeTmp(const std::string& program, bool machine, PrivateTmp* tmp, std::ostream& err);

// Whether EnterNodeTmp has returned true in this process: the node may be
// built. Support code that builds the node checks it, so that a program
// cannot forget to choose.
bool NodeTmpChosen();

}  // namespace sandbox

#endif  // LASERCALI_PLATFORM_SANDBOX_NODE_TMP_H_
