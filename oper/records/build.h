// Operational records from tracks: filling one, and building chains from the track table.
#pragma once

#include <cstdint>

#include "core/track_type.h"
#include "oper/records/track_records.h"

namespace ot {

struct ot_track;

// Each fills a zeroed record. 0, or 12 when a part of it could not be allocated; the parts that
// were stay linked to the record and are freed with it. Main thread.
int ot_fill_track_info(const ot_track& track, track_info__& record) noexcept;
int ot_fill_track_info_brief(const ot_track& track, track_info_brief__& record) noexcept;

// Adds the interfaces whose configuration names the track, under its whole name.
int ot_fill_intf_tracking_info(const ot_track& track, track_info__& record) noexcept;

// How many records a page of the detailed listing has.
inline constexpr std::uint32_t track_page = 100;

// Each returns the head of a chain in table order, null when no track qualifies or there is no
// memory (traced). The caller frees it with the routine below. Main thread; uses the table's
// cursor.
track_info__* ot_get_track_by_name(const char* name) noexcept;
track_info__* ot_get_tracks_by_type(track_type type) noexcept;
// At most one page: the tracks after the one named `start_after` ("" = from the first; none when
// there is no track of exactly that name). `ret_more` is 1 when there are more, else 0.
track_info__* ot_get_tracks(const char* start_after, std::uint32_t* ret_more) noexcept;

track_info_brief__* ot_get_track_by_name_brief(const char* name) noexcept;
track_info_brief__* ot_get_tracks_by_type_brief(track_type type) noexcept;
track_info_brief__* ot_get_tracks_brief() noexcept;

// Free every record of the chain with all that is linked to it. Null is fine.
void ot_free_tracks(track_info__* head) noexcept;
void ot_free_tracks(track_info_brief__* head) noexcept;

// The whole name of the track that an element of such a chain is about; the record's own field
// holds its first 32 characters.
const track_name& built_record_name(const track_info__& record) noexcept;
const track_name& built_record_name(const track_info_brief__& record) noexcept;

}  // namespace ot
