#include "tools/calc/yaml_subset.h"

#include <cctype>
#include <string>
#include <vector>

namespace calc {
namespace {

struct Refusal {
  std::string what;
};

bool IsKeyStart(char c) { return std::isalpha(static_cast<unsigned char>(c)) || c == '_'; }
bool IsKeyChar(char c) { return std::isalnum(static_cast<unsigned char>(c)) || c == '_'; }
bool IsScalarChar(char c) {
  return std::isalnum(static_cast<unsigned char>(c)) || c == '_' || c == '.' || c == '+' ||
         c == '-' || c == '/';
}

class Checker {
 public:
  void Line(const std::string& raw) {
    ++line_;
    const std::string content = Content(raw);
    if (content.empty()) return;
    if (list_open_) return ListLine(content);
    if (content[0] == '%') return Directive(content);
    if (content == "---") {
      if (started_ || keys_seen_) Refuse("\"---\" other than once, before the first key");
      started_ = true;
      return;
    }
    KeyLine(content);
  }

  // The text ends: a list or a map still open was cut short.
  void End() {
    line_ = open_line_;
    if (list_open_) Refuse("the list of " + open_key_ + " is not closed (is the file cut short?)");
    if (block_open_) Refuse(open_key_ + " has no value (is the file cut short?)");
  }

  [[noreturn]] void Refuse(const std::string& what) const {
    throw Refusal{"line " + std::to_string(line_) + ": " + what};
  }

 private:
  struct Level {
    std::size_t indent;
    std::vector<std::string> keys;
  };

  // The line without its comment, "\r" and trailing blanks; refuses
  // control characters and, outside comments and quotes, bytes above 127.
  std::string Content(const std::string& raw) {
    std::size_t size = raw.size();
    if (size > 0 && raw[size - 1] == '\r') --size;
    bool quoted = false;
    std::size_t end = size;
    for (std::size_t i = 0; i < size; ++i) {
      const unsigned char c = static_cast<unsigned char>(raw[i]);
      if (c < 0x20 || c == 0x7f) Refuse("a control character or tab");
      if (end < size) continue;  // in the comment
      if (c == '"') quoted = !quoted;
      if (!quoted && c == '#' && (i == 0 || raw[i - 1] == ' ')) {
        end = i;
        continue;
      }
      if (c >= 0x80 && !quoted) Refuse("a byte above 127 outside a comment or quotes");
    }
    while (end > 0 && raw[end - 1] == ' ') --end;
    return raw.substr(0, end);
  }

  void Directive(const std::string& content) {
    if (started_ || keys_seen_ || directive_) Refuse("a directive other than first");
    bool version = content.size() > 6 && content.compare(0, 5, "%YAML") == 0 &&
                   (content[5] == ':' || content[5] == ' ');
    for (std::size_t i = 6; version && i < content.size(); ++i) {
      version = std::isdigit(static_cast<unsigned char>(content[i])) || content[i] == '.';
    }
    if (!version) Refuse("a directive other than %YAML and its version");
    directive_ = true;
  }

  void KeyLine(const std::string& content) {
    const std::size_t indent = content.find_first_not_of(' ');
    std::size_t i = indent;
    if (!IsKeyStart(content[i])) Refuse("not a \"key: value\" line");
    while (i < content.size() && IsKeyChar(content[i])) ++i;
    const std::string key = content.substr(indent, i - indent);
    if (i >= content.size() || content[i] != ':') Refuse("not a \"key: value\" line");
    ++i;
    if (i < content.size() && content[i] != ' ') Refuse("no blank after the ':' of " + key);
    Place(indent, key);
    keys_seen_ = true;
    while (i < content.size() && content[i] == ' ') ++i;
    const std::string value = content.substr(i);
    open_line_ = line_;
    if (value.empty() || value == "!!opencv-matrix") {
      block_open_ = true;
      open_key_ = key;
    } else if (value[0] == '[') {
      open_key_ = key;
      list_indent_ = indent;
      list_open_ = true;
      expect_ = kValueOrClose;
      ListItems(value.substr(1));
    } else if (value[0] == '"') {
      const std::size_t close = value.find('"', 1);
      if (close != value.size() - 1 || value.find('\\') != std::string::npos) {
        Refuse("the quoted value of " + key + " is not one text without '\"' or '\\' in it");
      }
    } else {
      Scalar(value, true);
    }
  }

  // Enters `key` at `indent` into the maps open.
  void Place(std::size_t indent, const std::string& key) {
    if (block_open_) {
      if (indent <= levels_.back().indent) Refuse(open_key_ + " has no value");
      levels_.push_back({indent, {}});
      block_open_ = false;
    } else if (levels_.empty()) {
      if (indent != 0) Refuse("the top keys are indented");
      levels_.push_back({0, {}});
    } else {
      while (levels_.size() > 1 && indent < levels_.back().indent) levels_.pop_back();
      if (indent != levels_.back().indent) Refuse("the indentation of " + key + " matches no map");
    }
    for (const std::string& seen : levels_.back().keys) {
      if (seen == key) Refuse(key + " is given twice");
    }
    levels_.back().keys.push_back(key);
  }

  void ListLine(const std::string& content) {
    const std::size_t indent = content.find_first_not_of(' ');
    if (indent <= list_indent_) Refuse("the list of " + open_key_ + " is not closed");
    ListItems(content.substr(indent));
  }

  // Items of a list up to its "]", which closes it; the list may go on at
  // the next line after a value or a ','.
  void ListItems(const std::string& text) {
    std::size_t i = 0;
    while (i < text.size()) {
      if (text[i] == ' ') {
        ++i;
      } else if (expect_ == kCommaOrClose && text[i] == ',') {
        expect_ = kValue;
        ++i;
      } else if (expect_ != kValue && text[i] == ']') {
        if (i + 1 != text.size()) Refuse("something follows the list of " + open_key_);
        list_open_ = false;
        return;
      } else if (expect_ != kCommaOrClose && IsScalarChar(text[i])) {
        const std::size_t start = i;
        while (i < text.size() && IsScalarChar(text[i])) ++i;
        Scalar(text.substr(start, i - start), false);
        expect_ = kCommaOrClose;
      } else {
        Refuse("the list of " + open_key_ + " is not values separated by ','");
      }
    }
  }

  // A plain scalar; `blanks` lets single blanks stand between its words.
  void Scalar(const std::string& s, bool blanks) {
    if (s.compare(0, 2, "- ") == 0) Refuse("a value starting \"- \"");
    for (std::size_t i = 0; i < s.size(); ++i) {
      const bool blank = blanks && s[i] == ' ' && i > 0 && s[i - 1] != ' ';
      if (!IsScalarChar(s[i]) && !blank)
        Refuse("a value with a character this reader does not take");
    }
    WholeNumber(s);
  }

  void WholeNumber(std::string token) {
    if (!token.empty() && (token[0] == '+' || token[0] == '-')) token.erase(0, 1);
    const bool hex = token.size() > 2 && token[0] == '0' && (token[1] == 'x' || token[1] == 'X');
    std::string digits = hex ? token.substr(2) : token;
    if (digits.empty()) return;
    for (char d : digits) {
      const unsigned char u = static_cast<unsigned char>(d);
      if (hex ? !std::isxdigit(u) : !std::isdigit(u)) return;
    }
    digits.erase(0, std::min(digits.find_first_not_of('0'), digits.size()));
    if (digits.size() > (hex ? 7u : 9u)) {
      Refuse("the whole number " + token + " is too large (at most nine digits)");
    }
  }

  int line_ = 0;
  int open_line_ = 0;  // the line of the last key
  bool directive_ = false, started_ = false, keys_seen_ = false;
  std::vector<Level> levels_;
  bool block_open_ = false;
  std::string open_key_;
  bool list_open_ = false;
  std::size_t list_indent_ = 0;
  enum Expect { kValueOrClose, kValue, kCommaOrClose } expect_ = kValueOrClose;
};

}  // namespace

bool CheckYamlSubset(const std::string& text, std::string* what) {
  Checker checker;
  try {
    std::size_t start = 0;
    while (start <= text.size()) {
      std::size_t end = text.find('\n', start);
      if (end == std::string::npos) end = text.size();
      checker.Line(text.substr(start, end - start));
      start = end + 1;
    }
    checker.End();
    return true;
  } catch (const Refusal& refusal) {
    *what = refusal.what;
    return false;
  }
}

}  // namespace calc
