// The --version text of the host tools: the project's version, then the
// build commit and framework tags that a node built from the same source
// registers (docs/versions.md).
#ifndef LASERCALI_TOOLS_VERSION_H_
#define LASERCALI_TOOLS_VERSION_H_

#include <ostream>

#include "lasercali_version.h"

namespace toolcli {

inline void PrintVersion(std::ostream& out, const char* program) {
  out << program << " " << LASERCALI_VERSION << "\n"
      << "build commit tag " << LASERCALI_BUILD_COMMIT_TAG << ", framework tag "
      << LASERCALI_FRAMEWORK_TAG << "\n";
}

}  // namespace toolcli

#endif  // LASERCALI_TOOLS_VERSION_H_
