// The verifiers that several configuration items share. Each returns 0 and accepts, or refuses with
// a code and its text; 22, with the verdict untouched, when the item's path lacks a field.
#pragma once

#include <cstdint>

#include "platform/ledger_config.h"

namespace ot {

// Lets the change pass; 0.
int accept(ledger_verdict& verdict) noexcept;
// Hands `code` and its text over as a refusal; returns `code`.
int refuse(int code, ledger_verdict& verdict) noexcept;
// The same with a text of the caller's.
int refuse_with_text(int code, const char* text, ledger_verdict& verdict) noexcept;

// Create, set, or both; a change that also deletes is not one.
bool creates_or_sets(const ledger_change& change) noexcept;

// Reports to the operator's log why a change was refused.
void report_configuration_error(int code) noexcept;

// 0 when no track of that name exists, or it has no type configured, or this one; else
// track_type_conflict.
int check_track_type(const char* name, std::uint32_t type_number) noexcept;

// The existence item: refuses beyond 1,500 tracks, then also a set of a track that exists.
int object_tracking_track_verify(const ledger_change& change, ledger_verdict& verdict);
// Accepts everything.
int object_tracking_default_verify(const ledger_change& change, ledger_verdict& verdict);
// Type items: refuse a type other than the track's.
int object_tracking_type_verify(const ledger_change& change, ledger_verdict& verdict);
int object_tracking_type_interface_verify(const ledger_change& change, ledger_verdict& verdict);

}  // namespace ot
