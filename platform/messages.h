// errmsg_: system messages for the operator's log.
#pragma once

#include <cstdint>
#include <span>

namespace ot {

// One row of a message catalogue. Facility and group are the texts that open every message:
// "OT-SERVICES-6-TRACK_INFO: ...".
struct errmsg_record {
  const char* facility;
  const char* group;
  const char* name;
  const char* format;      // printf format of the text
  std::uint32_t severity;  // 0 emergency ... 7 debug, as syslog counts
  std::uint32_t number;
  std::uint32_t limit_words[3];  // non-zero: the platform may hold repeats back
  std::uint32_t* limit_state;    // state word for that, or null
};

// Emits a message with `severity`; the arguments are those of the record's format. Does not
// allocate; texts over 1,000 characters are cut. Messages leave in the order of the calls, at the
// latest when the running handler has returned. Any thread.
void errmsg_log(const errmsg_record* record, std::uint32_t severity, ...) noexcept;

// What a log that has fields keeps of a message beside its text.
struct errmsg_field {
  const char* name;   // of A-Z and _
  const char* value;  // a control character becomes '?'
};

// The same with fields, of at most 192 characters in all; those that do not fit are left out.
void errmsg_log_fields(const errmsg_record* record, std::uint32_t severity,
                       std::span<const errmsg_field> fields, ...) noexcept;

// How many lines, traces too, did not reach where they should since the process started, because
// nobody read there; one that two readers missed counts twice. Any thread.
[[nodiscard]] std::uint64_t errmsg_dropped() noexcept;

}  // namespace ot
