// The probe statistics table, version 2: the file "/run/qmond/statistics" below OT_ROOT, which
// qmond makes and fills and anybody who may read it reads. All numbers are in the machine's own
// byte order.
//
//   offset                              size               what
//   0                                   64                 table_header
//   64                                  slots x 128        statistics_cell, one a slot
//   64 + slots x 128                    slots x 256        description_cell, one a slot
//
// An operation's slot is found from its home_slot() onwards, one after the other and round the end,
// until its id is met or a slot that is free, over search_max slots at most: an operation without
// room so near makes qmond change the salt. `slots` is a power of two and at least twice the number
// of operations. The slot's two cells belong together.
//
// A table is never changed in size or meaning. qmond makes a new file and renames it over the old
// one, which it marks as closed: at every start, when a reload needs more slots, and for a new
// salt. The first five words of the header mean the same in all versions.
#pragma once

#include <cstddef>
#include <cstdint>

#include "platform/linux/probes/qmon/published_cell.h"

namespace ot {

inline constexpr const char* statistics_path = "/run/qmond/statistics";
inline constexpr std::uint32_t table_magic = 0x74736d71;  // "qmst"
inline constexpr std::uint32_t table_version = 2;
inline constexpr std::uint32_t operations_max = 65536;
inline constexpr std::uint32_t slots_max = 2 * operations_max;

inline constexpr std::uint32_t search_max = 128;

// Where an operation's search begins: evenly spread, whatever ids the operations have.
constexpr std::uint32_t home_slot(std::uint32_t op_id, std::uint32_t salt,
                                  std::uint32_t slots) noexcept {
  std::uint32_t mixed = op_id + salt * 0x9e3779b9U;
  mixed = (mixed ^ mixed >> 16) * 0x7feb352dU;
  mixed = (mixed ^ mixed >> 15) * 0x846ca68bU;
  return (mixed ^ mixed >> 16) & (slots - 1);
}

// The writer renews its heartbeat every second; one that is older than this is dead or stuck, and
// what it published no longer counts. Nor does it when the heartbeat is in the future: both sides
// have the same clock.
inline constexpr std::uint64_t heartbeat_max_age_ms = 4000;

constexpr bool heartbeat_counts(std::uint64_t heartbeat_ms, std::uint64_t now_ms) noexcept {
  return heartbeat_ms <= now_ms && now_ms - heartbeat_ms < heartbeat_max_age_ms;
}

inline constexpr std::uint32_t table_open = 1;
inline constexpr std::uint32_t table_closed = 2;  // the writer ended or has made a newer table

struct table_header {
  std::uint32_t magic;
  std::uint32_t version;
  std::uint32_t slots;
  std::uint32_t writer_pid;
  std::uint32_t state;  // table_open, table_closed; 0 while it is being made
  std::uint32_t salt;
  std::uint64_t heartbeat_ms;  // CLOCK_MONOTONIC
  std::uint32_t reserved_words[8];
};
static_assert(sizeof(table_header) == 64);

enum class slot_use : std::uint32_t {
  free = 0,     // ends a search
  vacated = 1,  // had an operation; a search goes on
  running = 2,
};

// The words of a statistics cell.
enum statistics_word : std::size_t {
  word_op_id = 0,
  word_return_code = 1,       // 0 no result yet, 1 OK, 2 ... see qmon_retCodeToStr
  word_response_time = 2,     // round-trip time of the last success, milliseconds, rounded
  word_use = 3,               // slot_use
  word_response_time_us = 4,  // the same, microseconds
  word_results = 5,           // results so far, and how many of them were successes
  word_successes = 6,
  word_history = 7,  // three words: the last 24 results, four bits each, newest in the lowest bits
  word_last_code = 10,    // code of the latest result, before rise and fall counts
  word_changed_at = 11,   // wall-clock second of the last change of the return code
  statistics_words = 13,  // the rest is reserved, 0
};
inline constexpr std::size_t history_words = 3;

// The four bits of a result: 0 there was none, 1 to 8 success (by its round-trip time: at most 1,
// 3, 10, 30, 100, 300, 1000 ms, more), 15 failure.
inline constexpr std::uint32_t history_failure = 15;

// The words of a description cell. The text is "kind target" and ends with a 0 byte.
enum description_word : std::size_t {
  word_interval_ms = 0,
  word_timeout_ms = 1,
  word_text = 2,
  description_words = 29,
};
inline constexpr std::size_t description_text_size = (description_words - word_text) * 4;

struct statistics_cell : published_cell<statistics_words> {
  std::uint32_t reserved = 0;
};
struct description_cell : published_cell<description_words> {
  std::uint32_t reserved = 0;
};
static_assert(sizeof(statistics_cell) == 128);
static_assert(sizeof(description_cell) == 256);

constexpr std::size_t statistics_offset(std::size_t slot = 0) noexcept {
  return sizeof(table_header) + slot * sizeof(statistics_cell);
}
constexpr std::size_t description_offset(std::uint32_t slots, std::size_t slot = 0) noexcept {
  return statistics_offset(slots) + slot * sizeof(description_cell);
}
constexpr std::size_t table_size(std::uint32_t slots) noexcept {
  return description_offset(slots, slots);
}

}  // namespace ot
