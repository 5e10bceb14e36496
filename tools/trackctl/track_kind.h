// The kinds of track that `trackctl set` knows. A new kind is one file with its `define` function
// and one row in track_kinds.cpp.
#pragma once

#include <CLI/CLI.hpp>
#include <functional>
#include <span>
#include <string_view>
#include <vector>

#include "tools/trackctl/config_items.h"

namespace ot::trackctl {

// Gives the items of the type part, from the values that were parsed. Throws what check functions
// throw.
using items_reader = std::function<std::vector<config_item>()>;

struct track_kind {
  const char* word;     // on the command line
  const char* folder;   // where its items lie below the track, with its type number
  const char* summary;  // completes "follows ..."
  const char* arguments;
  const char* example;  // what stands behind "trackctl set "
  bool recreate_on_change;
  // Adds the kind's own arguments to `app`; the reader is called after parsing.
  items_reader (*define)(CLI::App& app);
  bool only_from_nothing = false;  // as in wanted_type
};

std::span<const track_kind> track_kinds() noexcept;

// The row of `word`, or null.
const track_kind* find_track_kind(std::string_view word) noexcept;

// The define functions, each in its own file.
items_reader define_interface_kind(CLI::App& app);
items_reader define_route_kind(CLI::App& app);
items_reader define_probe_kind(CLI::App& app);
items_reader define_bfd_kind(CLI::App& app);
items_reader define_and_kind(CLI::App& app);
items_reader define_or_kind(CLI::App& app);
items_reader define_weight_kind(CLI::App& app);
items_reader define_percentage_kind(CLI::App& app);

}  // namespace ot::trackctl
