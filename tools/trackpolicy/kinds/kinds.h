// The kinds of policies: one file and one row each, with its keys and what it does. Whoever needs
// to know all kinds walks the rows.
#pragma once

#include <functional>
#include <memory>
#include <span>
#include <string>
#include <string_view>

#include "tools/settings/keys.h"
#include "tools/trackpolicy/reaction.h"

namespace ot::trackpolicy {

using key_row = settings::key_row<policy>;

struct kind {
  kind_id id;
  std::string_view word;
  std::span<const key_row> keys;  // beside those that all policies have
  // What only several keys together can get wrong; null: nothing.
  void (*check)(const toml::table& table, const policy& of, settings::problem_list& problems);
  // `on` outlives the reaction.
  std::unique_ptr<reaction> (*make)(const policy& of, host& on);
  // What is done when the track becomes that, in words.
  std::string (*describe)(const policy& of, track_state state);
};

std::span<const std::reference_wrapper<const kind>> all_kinds() noexcept;
const kind& kind_of(kind_id id) noexcept;

extern const kind command_kind;
extern const kind file_kind;
extern const kind route_kind;
extern const kind link_kind;
extern const kind frr_kind;

}  // namespace ot::trackpolicy
