// The probe statistics table, version 1: the file "/run/qmond/statistics" below OT_ROOT, which
// qmond makes and fills and anybody who may read it maps. All numbers are in the machine's own byte
// order.
//
//   offset                              size               what
//   0                                   64                 table_header
//   64                                  slots x 128        statistics_cell, one a slot
//   64 + slots x 128                    slots x 256        description_cell, one a slot
//
// An operation's slot is found from `op_id & (slots - 1)` onwards, one after the other and round
// the end, until its id is met or a slot that is free; `slots` is a power of two and larger than
// the number of operations, so there is always a free one. The slot's two cells belong together.
//
// A table is never changed in size or meaning. qmond makes a new file and renames it over the old
// one, which it marks as closed: at every start, and when a reload needs more slots.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>

#include "platform/linux/probes/qmon/published_cell.h"

namespace ot {

inline constexpr const char* statistics_path = "/run/qmond/statistics";
inline constexpr std::uint32_t table_magic = 0x74736d71;  // "qmst"
inline constexpr std::uint32_t table_version = 1;
inline constexpr std::uint32_t operations_max = 65536;
inline constexpr std::uint32_t slots_max = 2 * operations_max;

// The writer renews its heartbeat every second; one that is older than this is dead or stuck, and
// what it published no longer counts.
inline constexpr std::uint64_t heartbeat_max_age_ms = 4000;

inline constexpr std::uint32_t table_open = 1;
inline constexpr std::uint32_t table_closed = 2;  // the writer ended or has made a newer table

struct table_header {
  std::uint32_t magic;
  std::uint32_t version;
  std::uint32_t slots;
  std::uint32_t writer_pid;
  std::atomic<std::uint32_t> state;  // table_open, table_closed; 0 while it is being made
  std::uint32_t reserved;
  std::atomic<std::uint64_t> heartbeat_ms;  // CLOCK_MONOTONIC
  std::uint32_t reserved_words[8];
};
static_assert(sizeof(table_header) == 64);
static_assert(std::atomic<std::uint64_t>::is_always_lock_free);

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
  statistics_words = 15,  // the rest is reserved, 0
};
inline constexpr std::size_t history_words = 3;

// The four bits of a result: 0 there was none, 1 to 8 success (by its round-trip time: at most 1,
// 3, 10, 30, 100, 300, 1000 ms, more), 15 failure.
inline constexpr std::uint32_t history_failure = 15;

// The words of a description cell: the interval in milliseconds, the timeout, two that are
// reserved, then the operation's kind and target as one text "kind target" that ends with a 0 byte.
enum description_word : std::size_t {
  word_interval_ms = 0,
  word_timeout_ms = 1,
  word_text = 4,
  description_words = 31,
};
inline constexpr std::size_t description_text_size = (description_words - word_text) * 4;

struct statistics_cell : published_cell<statistics_words> {
  std::uint32_t reserved;
};
struct description_cell : published_cell<description_words> {
  std::uint32_t reserved;
};
static_assert(sizeof(statistics_cell) == 128);
static_assert(sizeof(description_cell) == 256);

constexpr std::size_t statistics_offset() noexcept {
  return sizeof(table_header);
}
constexpr std::size_t description_offset(std::uint32_t slots) noexcept {
  return statistics_offset() + slots * sizeof(statistics_cell);
}
constexpr std::size_t table_size(std::uint32_t slots) noexcept {
  return description_offset(slots) + slots * sizeof(description_cell);
}

}  // namespace ot
