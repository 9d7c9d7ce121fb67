// The node main thread of the kiv framework.
//
// Nodes are built, messages delivered and timer callbacks run on the thread
// whose id is kiv::main_thread_id. Publishing from any other thread is
// refused (see kiv_publisher.h). The host framework sets the id when a
// kiv::Host is made (platform/kiv/host.h).
#ifndef LASERCALI_FRAMEWORK_KIV_THREAD_H_
#define LASERCALI_FRAMEWORK_KIV_THREAD_H_

#include <thread>

namespace kiv {

extern std::thread::id main_thread_id;

}  // namespace kiv

#endif  // LASERCALI_FRAMEWORK_KIV_THREAD_H_
