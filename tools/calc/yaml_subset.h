// The YAML that camera model files are written in, checked before OpenCV's
// parser sees a text.
//
// OpenCV 4.6's FileStorage parser is not safe on text it does not expect:
// an empty key (": 1" after an indentation, "{a: 1, : 2}") makes it walk
// back past the key's start, reading before it, and throw
// std::length_error; a document start with text after it on its line
// ("---a:1" followed by a line such as "b1 -") sends it into an endless
// loop. Camera files need little of YAML, so CheckYamlSubset lets through
// only that little, line by line:
//
// - at most one directive ("%YAML:1.0", "%YAML 1.2"), first, and at most
//   one "---" on a line of its own, before the first key;
// - "key: value" lines: a key of letters, digits and '_' (not starting
//   with a digit), given once in its map; the value a plain scalar (letters,
//   digits, "_.+-/" and single blanks between them, not starting "- "), a
//   double-quoted text without '"' or '\' inside, a list of plain scalars
//   in "[ ]" (which may go on over more lines, indented deeper than its key),
//   or nothing or "!!opencv-matrix", when lines indented deeper follow with
//   the members of a map;
// - a map's keys at one indentation, the top one at none;
// - comments ('#' at a line's start or after a blank, outside quotes),
//   blank lines, "\r\n" line ends;
// - no control characters, no tabs, bytes above 127 only in comments and
//   quoted texts, and no whole number of more than nine digits (the parser
//   reads whole numbers into an int and wraps them round silently).
//
// Anything else is refused with the line and what is wrong.
#ifndef LASERCALI_TOOLS_CALC_YAML_SUBSET_H_
#define LASERCALI_TOOLS_CALC_YAML_SUBSET_H_

#include <string>

namespace calc {

// True when `text` keeps to the subset; otherwise false and `*what` says
// why, starting with "line N: ".
bool CheckYamlSubset(const std::string& text, std::string* what);

}  // namespace calc

#endif  // LASERCALI_TOOLS_CALC_YAML_SUBSET_H_
