// kivrun's --help text: the command line, every option, what happens on a
// terminal and piped, and the exit codes. The manual page is made from it.
#ifndef LASERCALI_TOOLS_KIVRUN_USAGE_H_
#define LASERCALI_TOOLS_KIVRUN_USAGE_H_

namespace kivrun {

extern const char kUsage[];

}  // namespace kivrun

#endif  // LASERCALI_TOOLS_KIVRUN_USAGE_H_
