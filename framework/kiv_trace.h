// The process-time trace of the kiv framework.
//
// KivProcTimeRec is a singleton reached through KivProcTimeRec::m_pInstance,
// which always points at the framework's one recorder. While its enabled
// flag is set, every publication pushes its trace tag onto the publish-info
// stack before delivery and pops it afterwards, so during a delivery the
// newest tag names the publishing call site. PrintProcessInfoBefore/After
// bracket each delivery to one subscriber; they measure and print only while
// the flag is set and an output stream has been given, so a publication
// costs a flag test when the trace is off.
//
// Trace tag: the source path without its extension, an underscore and the
// source line, e.g. "src/caligetpic_310".
#ifndef LASERCALI_FRAMEWORK_KIV_TRACE_H_
#define LASERCALI_FRAMEWORK_KIV_TRACE_H_

#include <chrono>
#include <deque>
#include <iosfwd>
#include <string>
#include <vector>

namespace kiv {

class KivProcTimeRec {
 public:
  // Switches the trace on or off. Kept first: the node's headers read it.
  bool m_bEnable = false;
  // Trace tags of the publications in progress, newest at the back.
  std::deque<std::string> m_publishInfo;

  // The framework's recorder; never null.
  static KivProcTimeRec* m_pInstance;

  // Where PrintProcessInfoAfter writes one line per delivery; null writes
  // nothing. Not owned.
  std::ostream* m_pOutput = nullptr;

  // Deliveries in progress (nested publications nest here too).
  struct Delivery {
    std::string who;
    std::string topic;
    std::chrono::steady_clock::time_point start;
  };
  std::vector<Delivery> m_deliveries;
};

// Marks the start of the delivery of a publication on `topic` to the
// subscriber `who`.
void PrintProcessInfoBefore(const std::string& who, const std::string& topic);
// Marks the end of the innermost delivery in progress and, when an output is
// set, writes "PTime <tag> <topic> -> <who> <microseconds> us".
void PrintProcessInfoAfter();

}  // namespace kiv

#endif  // LASERCALI_FRAMEWORK_KIV_TRACE_H_
