#include "platform/sandbox/node_tmp.h"

#include <cstring>
#include <string>

namespace sandbox {

namespace {

bool chosen = false;

}  // namespace

const char kNodeTmpHelp[] =
    "The node writes its pictures under /tmp (/tmp/left, /tmp/right, /tmp/pic,\n"
    "/tmp/LL.bmp, /tmp/RR.bmp). This program gives it an empty /tmp of its own\n"
    "(a private mount namespace), gone when the program ends, so the pictures on\n"
    "this machine stay as they are; where none can be had it refuses to run\n"
    "(exit code 6).\n"
    "  --machine-tmp   let the node write into the machine's /tmp instead, over\n"
    "                  the pictures there\n";

bool TakeMachineTmp(int* argc, char** argv) {
  bool found = false;
  int kept = 0;
  bool options = true;
  for (int i = 0; i < *argc; ++i) {
    if (options && i > 0 && std::strcmp(argv[i], "--") == 0) options = false;
    if (options && i > 0 && std::strcmp(argv[i], kMachineTmpOption) == 0) {
      found = true;
      continue;
    }
    argv[kept++] = argv[i];
  }
  if (kept < *argc) argv[kept] = nullptr;
  *argc = kept;
  return found;
}

bool EnterNodeTmp(const std::string& program, bool machine, PrivateTmp* tmp, std::ostream& err) {
  std::string reason;
  if (!machine && !tmp->Enter(&reason)) {
    err << program << ": no private /tmp for the node (" << reason << "); give "
        << kMachineTmpOption
        << " to let the node write into the machine's /tmp, over the pictures there\n";
    err.flush();
    return false;
  }
  chosen = true;
  return true;
}

bool NodeTmpChosen() { return chosen; }

}  // namespace sandbox
