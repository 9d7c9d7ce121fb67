// libFuzzer target: a scenario file, from its bytes to loaded and checked
// steps.
//
// Input: the bytes of a scenario file. kivrun reads it as it reads any
// scenario (LoadScenario: a regular file of at most 16 MiB, nesting depth,
// UTF-8, then every member and step checked). The file either loads, or is
// refused with a ScenarioError whose message starts with the file's name
// (or the name of the configuration file it names);
// anything else (another exception, a crash, a sanitizer report) is a
// failure. Of a loaded scenario, every JSON value a step keeps as text is
// parsed back, as the step does when it plays: it must be whole JSON of the
// kind the step checked.
#include <cstddef>
#include <cstdint>
#include <string>

#include "tests/fuzz/fuzz_support.h"
#include "tools/kivrun/scenario.h"

namespace {

constexpr char kPath[] = "/tmp/scenario.json";

// Parses a kept value back; it must be an object where the step needs one.
void CheckKept(const kivrun::JsonText& text, bool object, int step) {
  if (!text.present()) return;
  const rapidjson::Document value = text.Parse();
  if (value.HasParseError() || (object && !value.IsObject())) {
    fuzzsupport::Fail("step " + std::to_string(step) +
                      " kept a value that does not parse back: " + text.text());
  }
}

void CheckStep(const kivrun::Step& step) {
  using Kind = kivrun::Step::Kind;
  switch (step.kind) {
    case Kind::kSend:
    case Kind::kCamera:
      CheckKept(step.value, true, step.number);
      break;
    case Kind::kJson:
      CheckKept(step.value, false, step.number);
      break;
    case Kind::kRepeat:
      if (!step.repeated) fuzzsupport::Fail("a repeat step without its step");
      CheckStep(*step.repeated);
      CheckKept(step.until.fields, true, step.number);
      break;
    case Kind::kWait:
      CheckKept(step.until.fields, true, step.number);
      break;
    case Kind::kResponder:
      if (!step.responder) fuzzsupport::Fail("a responder step without its setting");
      CheckKept(step.responder->answer, true, step.number);
      break;
    default:
      break;
  }
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  fuzzsupport::EnterPrivateTmp();
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
  fuzzsupport::WriteFile(kPath, data, size);
  try {
    const kivrun::Scenario scenario = kivrun::LoadScenario(kPath);
    for (const kivrun::Step& step : scenario.steps) CheckStep(step);
  } catch (const kivrun::ScenarioError& error) {
    // A refusal names the scenario, or the configuration file it names.
    const std::string message = error.what();
    // (Paths here are absolute: a configuration file is named from "/".)
    if (message.rfind(kPath, 0) != 0 && message.rfind('/', 0) != 0) {
      fuzzsupport::Fail("a refusal that does not name the file: " + message);
    }
  }
  return 0;
}
