// Splitting the CSV lines the tools write, for tests that check their fields.
#ifndef LASERCALI_TESTS_SUPPORT_CSV_FIELDS_H_
#define LASERCALI_TESTS_SUPPORT_CSV_FIELDS_H_

#include <cstddef>
#include <string>
#include <vector>

namespace testsupport {

// The fields of one CSV line, split at its commas; a trailing newline is not
// part of the last field. For rows without quoted fields.
inline std::vector<std::string> CsvFields(std::string line) {
  std::vector<std::string> fields;
  if (!line.empty() && line.back() == '\n') line.pop_back();
  std::size_t start = 0;
  for (;;) {
    const std::size_t comma = line.find(',', start);
    fields.push_back(line.substr(start, comma - start));
    if (comma == std::string::npos) return fields;
    start = comma + 1;
  }
}

}  // namespace testsupport

#endif  // LASERCALI_TESTS_SUPPORT_CSV_FIELDS_H_
