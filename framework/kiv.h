// Everything a kiv node compiles in.
#ifndef LASERCALI_FRAMEWORK_KIV_H_
#define LASERCALI_FRAMEWORK_KIV_H_

#include "framework/kiv_any.h"
#include "framework/kiv_factory.h"
#include "framework/kiv_json.h"
#include "framework/kiv_node.h"
#include "framework/kiv_publisher.h"
#include "framework/kiv_thread.h"
#include "framework/kiv_timer.h"
#include "framework/kiv_trace.h"

#endif  // LASERCALI_FRAMEWORK_KIV_H_
