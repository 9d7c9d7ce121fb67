#include <chrono>
#include <ostream>

#include "framework/kiv_trace.h"

namespace kiv {
namespace {
KivProcTimeRec g_recorder;
}  // namespace

KivProcTimeRec* KivProcTimeRec::m_pInstance = &g_recorder;

void PrintProcessInfoBefore(const std::string& who, const std::string& topic) {
  KivProcTimeRec& rec = *KivProcTimeRec::m_pInstance;
  if (!rec.m_bEnable || rec.m_pOutput == nullptr) return;
  rec.m_deliveries.push_back({who, topic, std::chrono::steady_clock::now()});
}

void PrintProcessInfoAfter() {
  KivProcTimeRec& rec = *KivProcTimeRec::m_pInstance;
  if (!rec.m_bEnable || rec.m_pOutput == nullptr || rec.m_deliveries.empty()) return;
  const KivProcTimeRec::Delivery done = rec.m_deliveries.back();
  rec.m_deliveries.pop_back();
  const auto us = std::chrono::duration_cast<std::chrono::microseconds>(
                      std::chrono::steady_clock::now() - done.start)
                      .count();
  const std::string& tag = rec.m_publishInfo.empty() ? std::string() : rec.m_publishInfo.back();
  *rec.m_pOutput << "PTime " << tag << ' ' << done.topic << " -> " << done.who << ' ' << us
                 << " us\n";
}

}  // namespace kiv
