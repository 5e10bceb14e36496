// The kinds of track: one file and one row each. Whoever needs to know all kinds (`set` and its
// help, the JSON of tracks, the state of probes, the table of engines) walks the rows.
#pragma once

#include <functional>
#include <nlohmann/json_fwd.hpp>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "core/track_type.h"
#include "oper/records/track_records.h"
#include "tools/trackctl/command_line.h"
#include "tools/trackctl/configuration.h"

namespace ot::trackctl {

class metrics_text;

// Gives the items of the type part, from the values that were parsed. Throws what check functions
// throw.
using items_reader = std::function<std::vector<config_item>()>;

// Puts the members of a list into the order in which they are to be written.
using member_order = std::function<void(std::vector<std::string>& members)>;

// A service of the router that tracks of a kind need, as the running service reports it.
struct needed_service {
  std::string_view word;  // in the report
  const char* name = "";
  // What waits for it; they stand behind the number.
  const char* one_pending = "";
  const char* more_pending = "";
  // What is wrong with packets that it discards; null where none come.
  const char* discards = nullptr;
};

struct track_kind {
  const char* word;     // on the command line and in JSON
  track_type type;      // in records
  const char* folder;   // where its items lie below the track; ends in the type's number
  const char* summary;  // completes "follows ..."
  const char* arguments;
  const char* example;  // what stands behind "trackctl set "
  // As in wanted_type.
  bool recreate_on_change = false;
  bool only_from_nothing = false;
  // Adds the kind's own arguments to `app`; the reader is called after parsing.
  items_reader (*define)(command_line& app);
  // The words that `define` reads, of a track of this kind with these items. Nothing good for items
  // that no words make. `order`: null for that of the names.
  std::string (*write)(const track_items& items, std::string_view folder,
                       const member_order& order) = nullptr;
  // Of what only one track can or should follow: a text that tells one such object from another,
  // and why, with what would be right. Null where several tracks may follow one object.
  std::string (*exclusive)(const track_items& items) = nullptr;
  const char* only_one = "";
  bool sharable = false;  // by --shared
  // Looks at the other tracks before `track` is set; throws when they are in the way. `app` has
  // been parsed. Null: they cannot be.
  void (*check)(const std::string& track, const command_line& app) = nullptr;
  // What is taken but does not mean what it says, a text each. Null: there is no such thing.
  std::vector<std::string> (*notes)(const command_line& app) = nullptr;
  // JSON of what is followed; null for lists.
  nlohmann::ordered_json (*object)(const track_type_info& info) = nullptr;
  // Further members of that JSON, which the service has besides the record. Null: none.
  nlohmann::ordered_json (*live)(const std::string& track) = nullptr;
  // Whether a track that is not up has no result to go by yet; null where that cannot be.
  bool (*awaits_result)(const track_type_info& info) = nullptr;
  // Adds what can be measured of what a track follows; of all tracks of the kind, where the service
  // has more than the records, which is read at once and may throw. Null: nothing.
  void (*measure)(std::string_view track, const track_type_info& info,
                  metrics_text& into) = nullptr;
  void (*measure_all)(metrics_text& into) = nullptr;
  needed_service service = {};  // without a word for lists
};

// In the order in which the help lists them.
std::span<const std::reference_wrapper<const track_kind>> track_kinds() noexcept;

// The row of `word` or `type`, or null.
const track_kind* find_track_kind(std::string_view word) noexcept;
const track_kind* find_track_kind(track_type type) noexcept;

// The text or the number of an item; "" or 0 when it is not there or of another kind.
std::string item_text(const track_items& items, std::string_view path);
std::uint32_t item_number(const track_items& items, std::string_view path);
// The addresses of a tuple item, in network byte order; zeros as above.
std::pair<std::uint32_t, std::uint32_t> item_addresses(const track_items& items,
                                                       std::string_view path);

extern const track_kind interface_kind;
extern const track_kind route_kind;
extern const track_kind probe_kind;
extern const track_kind bfd_kind;
extern const track_kind and_kind;
extern const track_kind or_kind;
extern const track_kind weight_kind;
extern const track_kind percentage_kind;

}  // namespace ot::trackctl
