// A kind of track is one row: its type numbers, the table of its objects, its configuration, how a
// track lets go of its object, what its operational record says, how it is shown, and what it needs
// of the router. Whoever has to know all kinds walks the rows; nobody else names a kind.
//
// The row stands in the kind's own folder (sources/NAME/kind.cpp, or the list's file in lists/),
// and the one list of all rows in core/start/track_kinds.cpp. A program links exactly one such
// list. Rows are constants; functions that a kind does not need are null. Main thread.
#pragma once

#include <cstdint>
#include <span>

#include "core/connections.h"
#include "core/start_step.h"
#include "core/track_type.h"
#include "platform/fixed_text.h"

namespace ot {

struct ledger_registration;
struct ot_track;
struct track_info__;
struct track_info_brief__;
struct track_type_info;
struct printed_track;

using object_column = fixed_text<128>;

// Whether what all kinds have in common follows in the detailed view.
enum class rest_of_record : bool { left_out, printed };

// One type number of a kind, with the words by which the two views of "show track" know it.
struct track_kind_type {
  track_type type;
  const char* parameter;  // column of the table
  const char* subject;    // of the line that reports the state
};

struct track_kind {
  std::span<const track_kind_type> types;

  // --- Configuration ---
  // In the order of registration; paths from the configuration's root.
  std::span<const ledger_registration> leaves;
  // What a delay of 0 becomes, seconds.
  std::uint16_t least_delay = 0;

  // --- The life of a track ---
  // Lets the track go of its object before its record goes. 0, or an error that keeps the track.
  int (*detach)(ot_track& track) = nullptr;
  // Trace of a failed detach; gets the name of the deleting function and the error's text.
  const char* detach_failed = nullptr;
  // Frees what the track's object owns; reports nothing.
  void (*release_object)(ot_track& track) noexcept = nullptr;
  // Computes a list from its members. `done` becomes 1, or 0 when a member has to be computed
  // first. 0, or the publication's error.
  int (*calculate)(ot_track* track, std::uint32_t* done) = nullptr;

  // --- Operational data ---
  // The object in both kinds of records. Without this function a record's object is `none`.
  void (*fill_object)(const ot_track& track, track_type_info& info) noexcept = nullptr;
  // What only the detailed record has. 0 or 12.
  int (*fill_detail)(const ot_track& track, track_info__& record) noexcept = nullptr;
  // The key that lists the tracks of this kind alone, or null.
  const char* record_key = nullptr;

  // --- show ---
  object_column (*show_object)(const track_info_brief__& record) = nullptr;
  rest_of_record (*show_detail)(const printed_track& track) = nullptr;

  // --- The router's service that the kind needs, if any ---
  const service_of_tracks* service = nullptr;

  // --- Start ---
  // What needs nothing of the router, before the service publishes or serves anything; and the
  // connections to the router's services, before any configuration is applied.
  std::span<const start_step> tables = {};
  std::span<const start_step> connections = {};
};

// All kinds of tracks, in the order of their configuration leaves.
std::span<const track_kind* const> track_kinds() noexcept;

// The kind of a type, or null: a track without a type has none.
const track_kind* track_kind_of(track_type type) noexcept;

// The words of a type, or null.
const track_kind_type* track_kind_type_of(track_type type) noexcept;

}  // namespace ot
