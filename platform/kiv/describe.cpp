#include "platform/kiv/describe.h"

#include <cxxabi.h>

#include <cstdlib>
#include <memory>
#include <typeinfo>

namespace kiv {
namespace {

std::string Demangle(const char* name) {
  int status = 0;
  std::unique_ptr<char, void (*)(void*)> text(abi::__cxa_demangle(name, nullptr, nullptr, &status),
                                              std::free);
  return status == 0 && text ? std::string(text.get()) : std::string(name);
}

}  // namespace

ExceptionInfo DescribeException(std::exception_ptr error) {
  ExceptionInfo info;
  if (!error) return info;
  try {
    std::rethrow_exception(error);
  } catch (const std::exception& e) {
    info.type = Demangle(typeid(e).name());
    info.what = e.what();
  } catch (...) {
    const std::type_info* type = abi::__cxa_current_exception_type();
    info.type = type ? Demangle(type->name()) : "unknown";
  }
  return info;
}

}  // namespace kiv
