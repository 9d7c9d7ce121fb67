#include "tools/stripe_tool/findings.h"

#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

#include <sstream>

#include "tools/stripe_tool/overlay.h"

namespace stripetool {

namespace {

using kivplugcali::StripeCut;
using kivplugcali::StripeCutStop;

std::string Number(const std::optional<int>& value, const char* none) {
  return value ? std::to_string(*value) : std::string(none);
}

std::string CsvField(const std::string& text) {
  if (text.find_first_of(",\"\r\n") == std::string::npos) return text;
  std::string quoted = "\"";
  for (const char c : text) {
    if (c == '"') quoted += '"';
    quoted += c;
  }
  return quoted + "\"";
}

std::string Padded(const std::string& text, std::size_t width) {
  return text.size() >= width ? text : text + std::string(width - text.size(), ' ');
}

// An inspection of `image` with what is known before it is read.
Inspection Begun(const std::string& image, int mode, uint16_t distance, uint16_t delt) {
  Inspection inspection;
  inspection.image = image;
  inspection.mode = mode;
  inspection.distance = distance;
  inspection.delt = delt;
  return inspection;
}

}  // namespace

Inspection Describe(const StripeCut& cut, const std::string& image, int mode, uint16_t distance,
                    uint16_t delt, const std::string& node_folder) {
  Inspection inspection = Begun(image, mode, distance, delt);
  inspection.read = true;
  inspection.result = cut.result;
  if (cut.stop != StripeCutStop::kTwoStripes) {
    inspection.points = static_cast<int>(cut.points.size());
  }
  if (!cut.roles.empty()) {
    inspection.num2 = cut.num2;
    inspection.G = cut.G;
  }
  if (cut.cut_found) inspection.cut_line = cut.cut_line;
  inspection.slope_checks = static_cast<int>(cut.checks.size());
  for (const auto& check : cut.checks) inspection.steep_checks += check.k1 > 3 ? 1 : 0;
  for (const auto role : cut.roles) {
    inspection.stray_points += role == kivplugcali::StripePointRole::kStray ? 1 : 0;
  }

  switch (cut.stop) {
    case StripeCutStop::kCut:
      inspection.outcome = "cut";
      break;
    case StripeCutStop::kTwoStripes:
      inspection.outcome = "two_stripes";
      inspection.two_stripe_row = cut.two_stripe_row;
      inspection.first_peak = cut.first_peak_col;
      inspection.second_peak = cut.second_peak_col;
      break;
    case StripeCutStop::kTooFewPoints:
      inspection.outcome = "too_few_points";
      break;
    case StripeCutStop::kNoCutLine:
      inspection.outcome = "no_cut_line";
      break;
    case StripeCutStop::kCutRefused:
      inspection.outcome = "cut_refused";
      break;
  }
  inspection.words = stripeinspect::DescribeCut(cut);

  if (cut.result == 0) {
    char name[128];
    kivplugcali::FormatStripeCutFile(name, sizeof(name), node_folder, distance, delt);
    inspection.file = name;
  }
  return inspection;
}

Inspection Unreadable(const std::string& image, int mode, uint16_t distance, uint16_t delt,
                      const std::string& error) {
  Inspection inspection = Begun(image, mode, distance, delt);
  inspection.error = error;
  return inspection;
}

std::string VerdictKey(calc::StripeVerdict verdict) {
  switch (verdict) {
    case calc::StripeVerdict::kUsable:
      return "usable";
    case calc::StripeVerdict::kNoStripe:
      return "no_stripe";
    case calc::StripeVerdict::kSaturated:
      return "saturated";
    case calc::StripeVerdict::kTooBlurred:
      return "too_blurred";
  }
  return "usable";
}

void JudgeForCalibration(const uint8_t* pixels, int width, int height, int stride,
                         Inspection* inspection) {
  const calc::StripeJudgement judgement =
      calc::JudgeStripe(calc::FindRidgeCentres(pixels, width, height, stride));
  inspection->calibration = VerdictKey(judgement.verdict);
  inspection->calibration_reason =
      judgement.verdict == calc::StripeVerdict::kUsable ? "" : judgement.reason;
}

std::string SideName(int mode) { return mode == kivplugcali::kStripeWalkLeft ? "left" : "right"; }

std::string ScanFile(const Inspection& inspection) {
  return kivplugcali::StripeScanFile(inspection.mode);
}

std::string TextReport(const Inspection& inspection) {
  std::ostringstream text;
  text << "picture      " << inspection.image << " (" << SideName(inspection.mode)
       << " laser, mode " << inspection.mode << ")\n"
       << "outcome      " << inspection.words << "\n"
       << "result       " << inspection.result << "\n"
       << "points       " << Number(inspection.points, "-") << "\n"
       << "num2         " << Number(inspection.num2, "-") << "\n"
       << "G            " << Number(inspection.G, "-") << "\n"
       << "cut line     " << Number(inspection.cut_line, "-") << "\n"
       << "slope checks " << inspection.slope_checks << " (" << inspection.steep_checks
       << " steep), stray points " << inspection.stray_points << "\n"
       << "scan file    " << ScanFile(inspection) << "\n"
       << "file         " << (inspection.file ? *inspection.file : std::string("none (not cut)"))
       << "\n";
  if (!inspection.calibration.empty()) {
    text << "calibration  "
         << (inspection.calibration_reason.empty()
                 ? std::string("usable")
                 : "would spoil a calibration: " + inspection.calibration_reason)
         << "\n";
  }
  return text.str();
}

std::string JsonLine(const Inspection& inspection) {
  rapidjson::StringBuffer buffer;
  rapidjson::Writer<rapidjson::StringBuffer> json(buffer);
  auto optional_int = [&json](const char* key, const std::optional<int>& value) {
    json.Key(key);
    if (value) {
      json.Int(*value);
    } else {
      json.Null();
    }
  };
  const bool read = inspection.read;
  json.StartObject();
  json.Key("image");
  json.String(inspection.image.c_str(), static_cast<rapidjson::SizeType>(inspection.image.size()));
  json.Key("side");
  json.String(SideName(inspection.mode).c_str());
  json.Key("mode");
  json.Int(inspection.mode);
  json.Key("distance");
  json.Uint(inspection.distance);
  json.Key("delt");
  json.Uint(inspection.delt);
  json.Key("result");
  if (read) {
    json.Int(inspection.result);
  } else {
    json.Null();
  }
  json.Key("outcome");
  json.String(inspection.outcome.c_str());
  json.Key("description");
  const std::string& description = read ? inspection.words : inspection.error;
  json.String(description.c_str(), static_cast<rapidjson::SizeType>(description.size()));
  optional_int("points", inspection.points);
  optional_int("num2", inspection.num2);
  optional_int("G", inspection.G);
  optional_int("cut_line", inspection.cut_line);
  optional_int("two_stripe_row", inspection.two_stripe_row);
  json.Key("two_stripe_peaks");
  if (inspection.two_stripe_row) {
    json.StartArray();
    json.Int(inspection.first_peak);
    json.Int(inspection.second_peak);
    json.EndArray();
  } else {
    json.Null();
  }
  optional_int("slope_checks", read ? std::optional<int>(inspection.slope_checks) : std::nullopt);
  optional_int("steep_checks", read ? std::optional<int>(inspection.steep_checks) : std::nullopt);
  optional_int("stray_points", read ? std::optional<int>(inspection.stray_points) : std::nullopt);
  json.Key("scan_file");
  json.String(ScanFile(inspection).c_str());
  json.Key("file");
  if (inspection.file) {
    json.String(inspection.file->c_str());
  } else {
    json.Null();
  }
  json.Key("calibration");
  if (inspection.calibration.empty()) {
    json.Null();
  } else {
    json.String(inspection.calibration.c_str());
  }
  json.Key("calibration_reason");
  if (inspection.calibration_reason.empty()) {
    json.Null();
  } else {
    json.String(inspection.calibration_reason.c_str());
  }
  json.EndObject();
  return std::string(buffer.GetString(), buffer.GetSize()) + "\n";
}

std::string CsvHeader() {
  return "image,side,mode,distance,delt,result,outcome,description,points,num2,G,cut_line,"
         "two_stripe_row,two_stripe_first_peak,two_stripe_second_peak,slope_checks,steep_checks,"
         "stray_points,scan_file,file,calibration,calibration_reason\n";
}

std::string CsvRow(const Inspection& inspection) {
  const bool read = inspection.read;
  const bool two = inspection.two_stripe_row.has_value();
  const std::vector<std::string> fields = {
      CsvField(inspection.image),
      SideName(inspection.mode),
      std::to_string(inspection.mode),
      std::to_string(inspection.distance),
      std::to_string(inspection.delt),
      read ? std::to_string(inspection.result) : "",
      inspection.outcome,
      CsvField(read ? inspection.words : inspection.error),
      Number(inspection.points, ""),
      Number(inspection.num2, ""),
      Number(inspection.G, ""),
      Number(inspection.cut_line, ""),
      Number(inspection.two_stripe_row, ""),
      two ? std::to_string(inspection.first_peak) : "",
      two ? std::to_string(inspection.second_peak) : "",
      read ? std::to_string(inspection.slope_checks) : "",
      read ? std::to_string(inspection.steep_checks) : "",
      read ? std::to_string(inspection.stray_points) : "",
      ScanFile(inspection),
      inspection.file ? CsvField(*inspection.file) : "",
      inspection.calibration,
      CsvField(inspection.calibration_reason),
  };
  std::string row;
  for (std::size_t i = 0; i < fields.size(); ++i) {
    if (i > 0) row += ',';
    row += fields[i];
  }
  return row + "\n";
}

std::string ListLine(const Inspection& inspection, std::size_t path_width) {
  return Padded(inspection.image, path_width) + "  " + Padded(SideName(inspection.mode), 5) + "  " +
         (inspection.read ? inspection.words : "unreadable: " + inspection.error) +
         (inspection.calibration_reason.empty()
              ? ""
              : "; would spoil a calibration: " + inspection.calibration_reason) +
         "\n";
}

std::string ListHeader(std::size_t path_width) {
  return Padded("picture", path_width) + "  laser  outcome\n";
}

void Tally::Add(const Inspection& inspection) {
  ++pictures_;
  if (!inspection.read) {
    unread_.push_back(inspection.error);
    return;
  }
  const std::string& outcome = inspection.outcome;
  cut_ += outcome == "cut" ? 1 : 0;
  two_stripes_ += outcome == "two_stripes" ? 1 : 0;
  too_few_points_ += outcome == "too_few_points" ? 1 : 0;
  no_cut_line_ += outcome == "no_cut_line" ? 1 : 0;
  cut_refused_ += outcome == "cut_refused" ? 1 : 0;
  if (inspection.result != 0) refused_.push_back(ListLine(inspection, path_width_));
  if (!inspection.calibration_reason.empty()) {
    spoiling_.push_back(Padded(inspection.image, path_width_) + "  " +
                        Padded(SideName(inspection.mode), 5) + "  " +
                        inspection.calibration_reason + "\n");
  }
}

std::string Tally::Text() const {
  std::ostringstream text;
  text << "\n"
       << pictures_ << (pictures_ == 1 ? " picture: " : " pictures: ") << cut_ << " cut, "
       << refused_.size() << " refused, " << unread_.size() << " unreadable\n";
  const std::pair<const char*, std::size_t> rows[] = {
      {"cut", cut_},
      {"two stripes", two_stripes_},
      {"too few points", too_few_points_},
      {"no cut line", no_cut_line_},
      {"cut line refused", cut_refused_},
      {"unreadable", unread_.size()},
  };
  text << "outcome           pictures\n";
  for (const auto& [name, count] : rows) {
    const std::string number = std::to_string(count);
    text << Padded(name, 18) << std::string(number.size() < 8 ? 8 - number.size() : 0, ' ')
         << number << "\n";
  }
  if (!refused_.empty()) {
    text << "\nrefused (" << refused_.size() << "):\n";
    for (const std::string& line : refused_) text << "  " << line;
  }
  if (!spoiling_.empty()) {
    text << "\nwould spoil a calibration (" << spoiling_.size() << "):\n";
    for (const std::string& line : spoiling_) text << "  " << line;
  }
  if (!unread_.empty()) {
    text << "\nunreadable (" << unread_.size() << "):\n";
    for (const std::string& message : unread_) text << "  " << message << "\n";
  }
  if (passed_over_ > 0) {
    text << "\npassed over in the folders: " << passed_over_
         << (passed_over_ == 1 ? " file" : " files") << " not named .bmp or .png\n";
  }
  return text.str();
}

}  // namespace stripetool
