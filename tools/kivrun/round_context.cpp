#include "tools/kivrun/round_context.h"

#include <ostream>

#include "platform/kiv/describe.h"

namespace kivrun {

RoundContext::RoundContext(const Options& round_options, std::ostream& log_stream,
                           std::ostream& errors)
    : options(round_options),
      log(log_stream),
      errors_(errors),
      echo_(round_options.fold_echo, [this](const std::string& line) {
        if (options.progress) {
          options.progress->Line(line);
        } else {
          *options.echo << line << '\n';
        }
      }) {}

void RoundContext::Console(const char* stream, const std::string& line) {
  Fields f;
  f.Str("stream", stream).Str("text", line);
  log.Write("console", f.value());
  if (options.echo) echo_.Add(line);
}

void RoundContext::Exception(const std::string& where, std::exception_ptr error) {
  const kiv::ExceptionInfo info = kiv::DescribeException(error);
  Fields f;
  f.Str("in", where).Str("type", info.type).Str("what", info.what);
  log.Write("exception", f.value());
}

void RoundContext::Show(const std::string& line) {
  echo_.Flush();
  options.progress->Line(line);
}

std::ostream& RoundContext::Errors() {
  echo_.Flush();
  if (options.progress) options.progress->Interrupt();
  return errors_;
}

void RoundContext::Teardown() {
  if (!node) return;
  Fields f;
  f.Str("name", node->NodeName());
  node.reset();
  log.Write("teardown", f.value());
}

double RoundContext::WallSeconds() const {
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - wall_start_).count();
}

}  // namespace kivrun
