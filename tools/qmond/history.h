// The latest results of an operation as the table keeps them.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "platform/linux/probes/qmon/table_view.h"

namespace ot::qmond {

inline constexpr std::size_t history_shown = 20;

// The four bits of each, the oldest first, at most `history_shown`; see table_layout.h.
std::vector<std::uint32_t> history_levels(const statistics& result);

// One column a result: the higher the slower, and an x or a dot below for a failure.
std::string history_bar(const statistics& result, bool utf8);

}  // namespace ot::qmond
