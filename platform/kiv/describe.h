// Names an exception for a log line: its type (demangled) and its text.
#ifndef LASERCALI_PLATFORM_KIV_DESCRIBE_H_
#define LASERCALI_PLATFORM_KIV_DESCRIBE_H_

#include <exception>
#include <string>

namespace kiv {

struct ExceptionInfo {
  std::string type;  // e.g. "std::runtime_error"; "unknown" when not a class type
  std::string what;  // what() of a std::exception, else empty
};

ExceptionInfo DescribeException(std::exception_ptr error);

}  // namespace kiv

#endif  // LASERCALI_PLATFORM_KIV_DESCRIBE_H_
