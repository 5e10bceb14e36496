// What libqmon_infra.dll exports: the service's way to the probe statistics table. C names, so that
// they can be looked up by name in a library that may not be there. One thread, but for the look-up
// itself, which any number may do between two calls of the others.
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
// or qmond is not.
bool qmon_ot_stat_look_up(std::uint32_t op_id, const void* table,
                          ot::qmon_stat_entry* ret) noexcept;
}
