// The plug-in's version tags, from the version header the build writes
// (cmake/BuildTags.cmake): lasercali-<version>-<commit> and
// kiv-<version>-<commit>.
#include "framework/kiv_factory.h"
#include "lasercali_version.h"

static_assert(sizeof(LASERCALI_BUILD_COMMIT_TAG) - 1 == 29, "commit tag is 29 characters");
static_assert(sizeof(LASERCALI_FRAMEWORK_TAG) - 1 == 16, "framework tag is 16 characters");

namespace kiv {

const char kBuildCommitTag[30] = LASERCALI_BUILD_COMMIT_TAG;
const char kFrameworkTag[17] = LASERCALI_FRAMEWORK_TAG;

}  // namespace kiv
