// stripe-inspect's command line, read into Options.
//
// ParseArgs reads argv as the usage describes it (toolcli::CommandLine: long
// options, unambiguous prefixes, "--opt value" or "--opt=value", "--" ends
// the options, operands wherever they stand, kept in order). It returns
// nullopt when help is asked for, and Options with `version` set when the
// version is (both at once: whichever comes first). Otherwise it throws
// toolcli::UsageError with the message the tool shows after its name:
// --distance and --delt take plain decimal digits from 0 to 65535 and --jobs
// from 1 to 256 (no sign, blank, base prefix, fraction or exponent); --side
// takes left or right; at least one picture is needed; --csv and --json do
// not go together; --overlay and --out go with the report of one picture
// only, not with several pictures, a folder, --csv or --sheet.
//
// The only file system access is asking whether a lone picture is a folder
// (a folder makes a list). Each call reads its argv afresh, so it may be
// called any number of times in one process, one after another.
#ifndef LASERCALI_TOOLS_STRIPE_TOOL_STRIPE_OPTIONS_H_
#define LASERCALI_TOOLS_STRIPE_TOOL_STRIPE_OPTIONS_H_

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace stripetool {

struct Options {
  std::vector<std::string> pictures;  // files and folders, as given
  std::optional<int> mode;            // --side: kStripeWalkLeft or kStripeWalkRight
  uint16_t distance = 20;
  uint16_t delt = 0;
  std::string overlay;
  std::string out;
  std::string sheet;
  bool json = false;
  bool csv = false;
  bool gray = false;
  unsigned jobs = 0;  // 0: one per processor
  bool list = false;  // a list and its summary, not the report of one picture
  bool version = false;
};

// Returns nullopt when help was asked for; throws toolcli::UsageError.
std::optional<Options> ParseArgs(int argc, char** argv);

// The laser of a picture: --side, else the one its path names, else left.
int ModeOf(const Options& options, const std::string& path);

}  // namespace stripetool

#endif  // LASERCALI_TOOLS_STRIPE_TOOL_STRIPE_OPTIONS_H_
