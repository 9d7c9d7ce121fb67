// kivrun's event log: JSON Lines, one event per line, in the order things
// happened.
//
// Every event is an object whose first two members are "t" (the main
// loop's clock in microseconds) and "event" (its kind); the members after
// them depend on the kind (docs/kivrun.md lists them). ConsoleTap turns
// everything written to std::cout or std::cerr into "console" events, one
// per completed line, so console lines and publications interleave exactly
// as they happened.
//
// The log is always valid UTF-8 and loses nothing. A string that is valid
// UTF-8 is written as it is. In a string that is not, each byte that does
// not belong to a well-formed UTF-8 sequence is written as U+FFFD, and the
// event gets a last member "bytes_hex": an object whose keys are the JSON
// Pointers (RFC 6901) of those strings within the event and whose values
// are the strings' exact bytes in hexadecimal. A member name that is not
// valid UTF-8 is treated the same way; its key is "name:" and the pointer
// of the member (as written).
#ifndef LASERCALI_TOOLS_KIVRUN_EVENT_LOG_H_
#define LASERCALI_TOOLS_KIVRUN_EVENT_LOG_H_

#include <rapidjson/document.h>

#include <cstdint>
#include <functional>
#include <ostream>
#include <streambuf>
#include <string>

namespace kivrun {

class EventLog {
 public:
  // The member that carries the exact bytes of strings that are not UTF-8.
  static constexpr char kBytesHex[] = "bytes_hex";

  explicit EventLog(std::ostream& out) : out_(out) {}

  // The clock stamped into "t".
  void SetClock(std::function<int64_t()> now) { now_ = std::move(now); }
  // Called before each event is written (not for events it writes itself).
  void SetBeforeWrite(std::function<void()> hook) { before_ = std::move(hook); }
  // Called with each event's line (without its line end) once it is written.
  void SetAfterWrite(std::function<void(const std::string& line)> hook) {
    after_ = std::move(hook);
  }

  // Writes one event: "t", "event": kind, then the members of `fields` (an
  // object) in order.
  void Write(const char* kind, const rapidjson::Value& fields);
  // The same for an event with no further members.
  void Write(const char* kind);

  void Flush() { out_.flush(); }
  uint64_t count() const { return count_; }

 private:
  std::ostream& out_;
  std::function<int64_t()> now_;
  std::function<void()> before_;
  std::function<void(const std::string&)> after_;
  bool in_hook_ = false;
  uint64_t count_ = 0;
};

// Builds the members of one event.
class Fields {
 public:
  Fields() : doc_(rapidjson::kObjectType) {}
  Fields& Str(const char* key, const std::string& value);
  Fields& Int(const char* key, int64_t value);
  Fields& Bool(const char* key, bool value);
  // A deep copy of `value`.
  Fields& Json(const char* key, const rapidjson::Value& value);
  rapidjson::Document::AllocatorType& allocator() { return doc_.GetAllocator(); }
  rapidjson::Value& value() { return doc_; }

 private:
  rapidjson::Document doc_;
};

// Puts the exact bytes "bytes_hex" gives back into the strings of `event`
// they belong to (member names too), and removes it: the event as it was
// before it was written. Throws std::invalid_argument naming what is wrong
// when "bytes_hex" is not an object of JSON Pointers to strings of the
// event and their bytes in hexadecimal.
void RestoreBytes(rapidjson::Document& event);

// Redirects a standard stream into line events while alive.
class ConsoleTap : public std::streambuf {
 public:
  using Sink = std::function<void(const std::string& line)>;
  ConsoleTap(std::ostream& stream, Sink sink);
  ~ConsoleTap() override;
  ConsoleTap(const ConsoleTap&) = delete;
  ConsoleTap& operator=(const ConsoleTap&) = delete;

  // Emits a pending partial line, if any.
  void FlushPartial();
  // The stream's own buffer, for writing around the tap.
  std::streambuf* original() const { return original_; }

 protected:
  int_type overflow(int_type c) override;
  std::streamsize xsputn(const char* s, std::streamsize n) override;

 private:
  std::ostream& stream_;
  std::streambuf* original_;
  Sink sink_;
  std::string line_;
};

}  // namespace kivrun

#endif  // LASERCALI_TOOLS_KIVRUN_EVENT_LOG_H_
