// Splitting the CSV lines the tools write, for tests that check their fields.
#ifndef LASERCALI_TESTS_SUPPORT_CSV_FIELDS_H_
#define LASERCALI_TESTS_SUPPORT_CSV_FIELDS_H_

#include <cstddef>
#include <string>
#include <vector>

namespace testsupport {

// The fields of one CSV line, split at its commas; a trailing newline is not
// part of the last field. A field in double quotes may hold commas, and a
// doubled quote in it stands for one.
inline std::vector<std::string> CsvFields(std::string line) {
  std::vector<std::string> fields(1);
  if (!line.empty() && line.back() == '\n') line.pop_back();
  bool quoted = false;
  for (std::size_t i = 0; i < line.size(); ++i) {
    const char c = line[i];
    if (quoted && c == '"' && i + 1 < line.size() && line[i + 1] == '"') {
      fields.back() += '"';
      ++i;
    } else if (c == '"') {
      quoted = !quoted;
    } else if (c == ',' && !quoted) {
      fields.emplace_back();
    } else {
      fields.back() += c;
    }
  }
  return fields;
}

}  // namespace testsupport

#endif  // LASERCALI_TESTS_SUPPORT_CSV_FIELDS_H_
