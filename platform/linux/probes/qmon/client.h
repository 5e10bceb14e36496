// Probes as the service reads them, and what libqmon_infra.dll exports for that: C names, so that
// they can be looked up by name in a library that may not be there.
//
// qmond (tools/qmond), an optional package and a process of its own, runs the probe operations. It
// publishes their results in a file in memory (table_layout.h) that anybody who may reads; nobody
// asks it anything.
//
// The way of a result: qmond -> the operation's cell, as a whole (published_cell.h) -> a copy of it
// (table_view.h) -> this library (client.cpp) -> the service's calls (../service.cpp), which find
// this library's functions by name at each call, because the package may be installed or removed
// while the service runs.
//
// Ownership: qmond makes, fills and replaces the file. The library holds one of them open. The
// service holds nothing but its loads of the libraries.
//
// Threads: one thread calls these, but for the look-up itself, which any number may do between two
// calls of the others. Readers take no lock, wait for nobody and trust nothing: whatever becomes of
// the file, they get no signal and no answer that qmond did not publish. A table whose writer has
// shown no heartbeat for 4 s counts as none.
#pragma once

#include <cstdint>

#include "platform/probe_service.h"

extern "C" {

// Opens the table for reading, unless the one that is open is still the service's. 0 or an errno
// value.
int qmon_ot_shm_client_init() noexcept;

// The open table, or null; null also once qmond has put another in its place. Valid until the next
// open.
void* qmon_ot_shm_get_stat_tbl() noexcept;

// Copies the operation's entry, whole. False when `table` is null, or the operation is not running,
// or qmond is not; the first look-up after the table was asked for takes that answer's word for
// qmond.
bool qmon_ot_stat_look_up(std::uint32_t op_id, const void* table,
                          ot::qmon_stat_entry* ret) noexcept;
}
