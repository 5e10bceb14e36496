// The configuration of a track as trackctl holds it: the items below the track's path, the ways to
// make one, and how they are read from the ledger and committed to it.
#pragma once

#include <cstdint>
#include <functional>
#include <initializer_list>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "platform/ledger.h"
#include "platform/ledger_commit.h"

namespace ot::trackctl {

struct item_value {
  ledger_kind kind = ledger_kind::u32;
  std::vector<std::byte> bytes;
  bool operator==(const item_value&) const = default;
};

// One item; the path is relative to the track's, for example "delay_up".
struct config_item {
  std::string path;
  item_value value;
};

// A track's items as the ledger has them, by relative path. Empty: the track is not configured.
using track_items = std::map<std::string, item_value, std::less<>>;

item_value u32_value(std::uint32_t number);  // four bytes in host order
item_value text_value(std::string_view text);
// One or two addresses in network byte order.
item_value tuple_value(std::initializer_list<std::uint32_t> addresses);

// Absolute paths of the configuration.
inline constexpr std::string_view tracks_root = "/cfg/gl/object_tracking/track/";
std::string track_path(std::string_view track);  // ends in '/'

// The items every track can have beside those of its type.
inline constexpr std::string_view existence_item = "a";
inline constexpr std::string_view delay_up_item = "delay_up";
inline constexpr std::string_view delay_down_item = "delay_down";
inline constexpr std::string_view type_prefix = "type/";

// A bound ledger connection, unbound at the end.
class ledger_connection {
 public:
  // Throws when the binding fails; `path` ends in '/'.
  explicit ledger_connection(const std::string& path);
  ~ledger_connection();
  ledger_connection(const ledger_connection&) = delete;
  ledger_connection& operator=(const ledger_connection&) = delete;

  [[nodiscard]] ledger_conn* get() const noexcept { return connection_; }

 private:
  ledger_conn* connection_ = nullptr;
};

// The items of `track`; empty when it is not configured.
track_items read_track(const std::string& track);

// The same, throwing when the track is not configured.
track_items read_existing_track(const std::string& track);

// Those of every track that is configured, by name.
using configured_tracks = std::map<std::string, track_items, std::less<>>;
configured_tracks read_tracks();

// The same as one commit has left it: reading takes several requests, between which others may
// change it, and is begun anew then. Throws when there is no end of that.
configured_tracks read_configuration();

using commit = std::vector<ledger_proposal>;

// Reads what is configured and works out the changes.
using commit_plan = std::function<commit()>;

// Sends what `plan` returns as one commit; nothing when that is empty. When somebody else changes
// the configuration between the plan's reading and the commit, nothing is done and `plan` is asked
// again. Throws with every refusal in the text; `what` says what was tried.
void change_configuration(const std::string& what, const commit_plan& plan);

}  // namespace ot::trackctl
