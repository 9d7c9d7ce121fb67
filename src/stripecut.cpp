// The laser stripe cut of app pictures.
#include "src/caligetpic.h"

namespace kivplugcali {

// Placeholder until the stripe cut lands: refuses every picture.
unsigned char KivNode_caligetpic::pic_carveup(int /*mode*/) { return 2; }

}  // namespace kivplugcali
