// The command line of the host tools (kivrun, stripe-inspect): long options
// read with getopt_long, and one way to report a bad command line.
//
// Every option that takes a value takes it as "--opt=value" or "--opt value";
// an unambiguous prefix of a long option stands for it; "--" ends the
// options. getopt's own messages are switched off: a bad command line throws
// UsageError with one of these messages, which ReportUsageError prints as
//
//   PROGRAM: MESSAGE
//   Try 'PROGRAM --help' for usage.
//
//   unknown option --frobnicate          (or -x)
//   ambiguous option --re (--realtime or --report)
//   --log needs a file                   (no value after it)
//   --log needs a file, not ''           (an empty value; see BadValue)
//   --echo takes no value                (--echo=x)
#ifndef LASERCALI_TOOLS_COMMAND_LINE_H_
#define LASERCALI_TOOLS_COMMAND_LINE_H_

#include <getopt.h>

#include <cstring>
#include <ostream>
#include <stdexcept>
#include <string>
#include <vector>

namespace toolcli {

// A bad command line; what() is the message without the program's name.
struct UsageError : std::runtime_error {
  using std::runtime_error::runtime_error;
};

// One option of a tool. `id` is what CommandLine::Next hands back for it: the
// short name's character when it has one, otherwise a value above 255.
struct Option {
  const char* name;        // long name, without "--"
  char short_name;         // 0 when there is none
  const char* value_name;  // what the value is, for messages ("a file"); nullptr: takes none
  int id;
};

// Writes the message of a bad command line, as every tool shows it.
inline void ReportUsageError(std::ostream& err, const std::string& program,
                             const std::string& message) {
  err << program << ": " << message << "\n"
      << "Try '" << program << " --help' for usage.\n";
}

// Reads argv option by option, in the order given. Operands (arguments that
// are not options) are collected in order, wherever they stand. getopt_long
// keeps its state in globals: the first Next of each CommandLine starts it
// afresh (optind = 0, which also drops what was left of a half-read cluster
// of short options), so command lines may be read one after another in one
// process, each from its start, but not two at once.
class CommandLine {
 public:
  CommandLine(int argc, char** argv, std::vector<Option> options)
      : argc_(argc), argv_(argv), options_(std::move(options)) {
    // "-": operands come back in order as option 1, so no reordering of argv
    // is needed (nor affected by POSIXLY_CORRECT); ":": a missing value is
    // told apart from an unknown option.
    short_options_ = "-:";
    for (const Option& option : options_) {
      longopts_.push_back(
          {option.name, option.value_name ? required_argument : no_argument, nullptr, option.id});
      if (option.short_name != 0) {
        short_options_ += option.short_name;
        if (option.value_name) short_options_ += ':';
      }
    }
    longopts_.push_back({nullptr, 0, nullptr, 0});
  }

  // The next option: returns true and sets `id` and `value` (empty for an
  // option without one), or false when the options are done. Throws
  // UsageError for a bad option, a missing value or an empty one.
  bool Next(int* id, std::string* value) {
    opterr = 0;
    for (;;) {
      if (first_) {
        optind = 0;  // start afresh, whatever ran before
        first_ = false;
      }
      const int c = getopt_long(argc_, argv_, short_options_.c_str(), longopts_.data(), nullptr);
      if (c == -1) {
        for (int i = optind; i < argc_; ++i) operands_.emplace_back(argv_[i]);
        return false;
      }
      if (c == 1) {
        operands_.emplace_back(optarg);
        continue;
      }
      if (c == ':') throw UsageError(Dashed(optopt) + " needs " + Find(optopt)->value_name);
      if (c == '?') throw UsageError(Problem());
      const Option* option = Find(c);
      if (!option) throw UsageError(std::string("unknown option -") + static_cast<char>(c));
      *id = c;
      value->clear();
      if (option->value_name) {
        *value = optarg;
        if (value->empty()) throw UsageError(BadValue(c, *value));
      }
      return true;
    }
  }

  // The operands, in order; complete once Next has returned false.
  const std::vector<std::string>& Operands() const { return operands_; }

  // The message for a value the option cannot take:
  // "--distance needs a whole number from 0 to 65535, not '1e2'".
  std::string BadValue(int id, const std::string& text) const {
    return Dashed(id) + " needs " + Find(id)->value_name + ", not '" + text + "'";
  }

 private:
  const Option* Find(int id) const {
    for (const Option& option : options_) {
      if (option.id == id) return &option;
    }
    return nullptr;
  }

  // The option as the usage names it: "--log", or "-x" for an unknown one.
  std::string Dashed(int id) const {
    const Option* option = Find(id);
    if (option) return std::string("--") + option->name;
    return std::string("-") + static_cast<char>(id);
  }

  // What getopt_long refused ('?'): an unknown short option, a value given
  // to an option that takes none, or a long option that is unknown or
  // ambiguous (getopt_long tells these two apart only in its own messages).
  std::string Problem() const {
    const std::string arg = optind > 0 && optind <= argc_ ? argv_[optind - 1] : "";
    const bool long_form = arg.compare(0, 2, "--") == 0;
    if (optopt != 0) {
      const Option* option = Find(optopt);
      if (long_form && option && !option->value_name) {
        return Dashed(optopt) + " takes no value";
      }
      return std::string("unknown option -") + static_cast<char>(optopt);
    }
    const std::string name = arg.substr(0, arg.find('='));
    if (name.size() <= 2) return "unknown option " + arg;
    std::vector<std::string> candidates;
    for (const Option& option : options_) {
      if (std::strncmp(option.name, name.c_str() + 2, name.size() - 2) == 0) {
        candidates.push_back(std::string("--") + option.name);
      }
    }
    if (candidates.size() < 2) return "unknown option " + name;
    std::string list;
    for (std::size_t i = 0; i < candidates.size(); ++i) {
      if (i > 0) list += i + 1 == candidates.size() ? " or " : ", ";
      list += candidates[i];
    }
    return "ambiguous option " + name + " (" + list + ")";
  }

  int argc_;
  char** argv_;
  std::vector<Option> options_;
  std::vector<struct option> longopts_;
  std::string short_options_;
  std::vector<std::string> operands_;
  bool first_ = true;
};

}  // namespace toolcli

#endif  // LASERCALI_TOOLS_COMMAND_LINE_H_
