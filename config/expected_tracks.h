// The tracks that verifiers see while a commit of several stages is verified: those there are, as
// the accepted stages will change them. Nothing of it is made yet. Main thread.
#pragma once

#include <cstdint>

#include "core/track.h"
#include "platform/ledger_config.h"

namespace ot {

struct expected_track {
  bool present = false;
  std::uint32_t configured_type = 0;
  // Whether it still follows what it follows now, and the probe operation that it will follow (0:
  // none).
  bool keeps_object = true;
  std::int32_t operation = 0;
};

// The track of that name as it will be; null when no accepted stage touches it. Valid until the
// next of these calls.
const expected_track* find_expected_track(const char* name) noexcept;

// How many tracks there will be.
std::uint32_t expected_track_count() noexcept;

// Whether an accepted stage makes a track follow that probe operation.
bool expects_operation(std::int32_t operation) noexcept;

// For rows: what the change of an existence item, of a delay, of an item below a type, and of a
// probe's operation will lead to. 0 or 12.
int expect_existence(const ledger_change& change);
int expect_record(const ledger_change& change);
int expect_type(const ledger_change& change);
int expect_operation(const ledger_change& change);

// The commit is decided: verifiers see the tracks that there are.
void forget_expected_tracks() noexcept;

}  // namespace ot
