// The builders. All six are one walk over the track table; they differ in the kind of record, in
// where the walk starts, in which tracks it takes and in how many.

#include "oper/records/build.h"

#include <cstddef>
#include <cstring>
#include <type_traits>

#include "core/debug.h"
#include "core/track.h"
#include "platform/status.h"

namespace ot {
namespace {

struct detailed {
  using record = track_info__;
  static constexpr const brec_descriptor& descriptor = track_info___brec;
  static constexpr auto fill = ot_fill_track_info;
  static constexpr const char* noun = "track_info";
};

struct brief {
  using record = track_info_brief__;
  static constexpr const brec_descriptor& descriptor = track_info_brief___brec;
  static constexpr auto fill = ot_fill_track_info_brief;
  static constexpr const char* noun = "track_info_brief__";
};

// An element of a chain as the builders allocate it: the record comes first, so that its address is
// the element's and freeing the record frees it all.
template <typename Record>
struct built_record {
  Record record;
  track_name name;
};

template <typename Record>
const track_name& name_behind(const Record& record) noexcept {
  static_assert(std::is_standard_layout_v<built_record<Record>>);
  return reinterpret_cast<const built_record<Record>*>(&record)->name;
}

// A filled record of its own, or null.
template <typename View>
typename View::record* build(const char* who, const ot_track& track) noexcept {
  auto* built = brec_alloc<built_record<typename View::record>>();
  if (built == nullptr) {
    OT_TRACE_ERROR("(%s) : Failed to alloc memory for %s", who, View::noun);
    return nullptr;
  }
  built->name = track.name;
  if (View::fill(track, built->record) != status_ok) {
    brec_free(View::descriptor, built);
    return nullptr;
  }
  return &built->record;
}

constexpr std::uint32_t all_of_them = UINT32_MAX;

// Records of the tracks that `takes` says, from `track` on, where the table's cursor is. After
// `most` of them `track` is left on the next track, or null.
template <typename View, typename Takes>
typename View::record* build_chain(const char* who, const ot_track** track, std::uint32_t most,
                                   Takes&& takes) noexcept {
  typename View::record* head = nullptr;
  typename View::record** end = &head;
  for (; *track != nullptr && most > 0; *track = hash_db_next_data<ot_track>(tracks_table)) {
    if (!takes(**track)) {
      continue;
    }
    *end = build<View>(who, **track);
    if (*end == nullptr) {
      brec_free(View::descriptor, head);
      return nullptr;
    }
    end = &(*end)->next;
    --most;
  }
  return head;
}

template <typename View>
typename View::record* build_by_name(const char* who, const char* name) noexcept {
  OT_TRACE_DETAIL("Entering (%s) : ", who);
  const ot_track* track = hash_db_get_track_item(name);
  return track == nullptr ? nullptr : build<View>(who, *track);
}

template <typename View>
typename View::record* build_by_type(const char* who, track_type type) noexcept {
  OT_TRACE_DETAIL("Entering (%s) : ", who);
  const ot_track* track = hash_db_first_data<ot_track>(tracks_table);
  return build_chain<View>(who, &track, all_of_them,
                           [type](const ot_track& candidate) { return candidate.type == type; });
}

bool take_any(const ot_track&) noexcept {
  return true;
}

// The track behind the one of that name, with the cursor on it; the first one for "".
const ot_track* track_after(const char* name) noexcept {
  const ot_track* track = hash_db_first_data<ot_track>(tracks_table);
  if (name[0] == '\0') {
    return track;
  }
  while (track != nullptr && std::strncmp(track->name.c_str(), name, track_name::capacity) != 0) {
    track = hash_db_next_data<ot_track>(tracks_table);
  }
  return track == nullptr ? nullptr : hash_db_next_data<ot_track>(tracks_table);
}

}  // namespace

track_info__* ot_get_track_by_name(const char* name) noexcept {
  return build_by_name<detailed>(__func__, name);
}

track_info_brief__* ot_get_track_by_name_brief(const char* name) noexcept {
  return build_by_name<brief>(__func__, name);
}

track_info__* ot_get_tracks_by_type(track_type type) noexcept {
  return build_by_type<detailed>(__func__, type);
}

track_info_brief__* ot_get_tracks_by_type_brief(track_type type) noexcept {
  return build_by_type<brief>(__func__, type);
}

track_info__* ot_get_tracks(const char* start_after, std::uint32_t* ret_more) noexcept {
  OT_TRACE_ENTRY();
  const ot_track* track = track_after(start_after);
  track_info__* head = build_chain<detailed>(__func__, &track, track_page, take_any);
  *ret_more = head != nullptr && track != nullptr ? 1 : 0;
  return head;
}

track_info_brief__* ot_get_tracks_brief() noexcept {
  OT_TRACE_ENTRY();
  const ot_track* track = hash_db_first_data<ot_track>(tracks_table);
  return build_chain<brief>(__func__, &track, all_of_them, take_any);
}

void ot_free_tracks(track_info__* head) noexcept {
  brec_free(track_info___brec, head);
}
void ot_free_tracks(track_info_brief__* head) noexcept {
  brec_free(track_info_brief___brec, head);
}

const track_name& built_record_name(const track_info__& record) noexcept {
  return name_behind(record);
}
const track_name& built_record_name(const track_info_brief__& record) noexcept {
  return name_behind(record);
}

}  // namespace ot
