// The interfaces that name a track. One walk over the interfaces' configuration serves every track
// until the next commit: it leaves an index sorted by track, so that listing all tracks reads the
// configuration once. When there is no memory for the index, or the configuration is larger than it
// may become, each question is a walk of its own.

#include "oper/records/tracking_interfaces.h"

#include <algorithm>
#include <cstdint>
#include <new>
#include <string>
#include <vector>

#include "core/debug.h"
#include "platform/fixed_text.h"
#include "platform/ledger.h"
#include "platform/ledger_status.h"

namespace ot {
namespace {

constexpr const char* interfaces_path = "cfg/if/act/";
constexpr const char* traced_as = "ot_fill_intf_tracking_info";

constexpr std::size_t most_rows = 16384;
constexpr std::size_t most_text = std::size_t{1} << 20;

struct mention {
  std::string_view interface;
  std::string_view track;
};

// False when the item does not name a track.
bool read_mention(std::string_view path, const ledger_value& value, mention* ret) noexcept {
  const std::string_view root = interfaces_path;
  if (!path.starts_with(root) || !path.ends_with("/track_name")) {
    return false;
  }
  path.remove_prefix(root.size());
  const std::size_t end = path.find('/');
  if (!path.substr(end + 1).starts_with("service-")) {
    return false;
  }
  if (end == 0) {
    OT_TRACE_ERROR("(%s) failed to get interface for item %.*s", traced_as,
                   static_cast<int>(path.size()), path.data());
    return false;
  }
  if (value.kind != ledger_kind::text) {
    OT_TRACE_ERROR("(%s) invalid datatype", traced_as);
    return false;
  }
  *ret = {path.substr(0, end), value.as_text()};
  return true;
}

// 0, or 12; a ledger that cannot be read is traced.
template <typename Visit>
int walk_mentions(Visit&& visit) noexcept {
  ledger_conn* connection = ledger_get_default_conn();
  const auto on_item = [](void* context, std::string_view path, const ledger_value& value) {
    mention found;
    return !read_mention(path, value, &found) || (*static_cast<Visit*>(context))(found);
  };
  const int status = connection == nullptr
                         ? ledger_unreachable
                         : ledger_item_walk(connection, interfaces_path, on_item, &visit);
  if (status != status_ok && status != no_memory) {
    OT_TRACE_ERROR("(%s) : ledger path not found for service", traced_as);
    return status_ok;
  }
  return status;
}

class mention_index {
 public:
  // Brings the index up to date. False when it cannot be had; then it is empty.
  bool refresh() noexcept {
    const std::uint64_t generation = ledger_config_generation();
    if (state_ == state::none || generation != generation_) {
      forget();
      state_ = build();
      generation_ = generation;
    }
    return state_ == state::ready;
  }

  void forget() noexcept {
    std::vector<row>().swap(rows_);  // an assignment may keep the memory
    std::string().swap(text_);
    state_ = state::none;
  }

  int each(std::string_view track, tracking_interface_visit visit, void* context) const noexcept {
    const auto less = [this](const row& a, std::string_view b) { return text_at(a.track) < b; };
    std::string_view last;
    for (auto at = std::lower_bound(rows_.begin(), rows_.end(), track, less);
         at != rows_.end() && text_at(at->track) == track; ++at) {
      const std::string_view interface = text_at(at->interface);
      const int status = interface == last ? status_ok : visit(context, interface);
      if (status != status_ok) {
        return status;
      }
      last = interface;
    }
    return status_ok;
  }

 private:
  enum class state : std::uint8_t { none, ready, too_large };

  struct row {  // offsets of terminated texts
    std::uint32_t interface;
    std::uint32_t track;
  };

  [[nodiscard]] std::string_view text_at(std::uint32_t offset) const noexcept {
    return text_.c_str() + offset;
  }

  std::uint32_t keep(std::string_view text) {
    const auto offset = static_cast<std::uint32_t>(text_.size());
    text_.append(text);
    text_.push_back('\0');
    return offset;
  }

  state build() noexcept {
    state result = state::ready;
    const int status = walk_mentions([&](const mention& found) noexcept {
      result = add(found);
      return result == state::ready;
    });
    if (status != status_ok || result != state::ready) {
      forget();
      return status != status_ok ? state::none : result;
    }
    // Texts were kept in path order, which stays the order among a track's interfaces.
    std::sort(rows_.begin(), rows_.end(), [this](const row& a, const row& b) {
      const int order = text_at(a.track).compare(text_at(b.track));
      return order != 0 ? order < 0 : a.interface < b.interface;
    });
    return state::ready;
  }

  state add(const mention& found) noexcept {
    if (rows_.size() == most_rows ||
        text_.size() + found.interface.size() + found.track.size() > most_text) {
      return state::too_large;
    }
    try {
      const std::uint32_t interface = keep(found.interface);
      rows_.push_back({interface, keep(found.track)});
    } catch (const std::bad_alloc&) {
      return state::none;
    }
    return state::ready;
  }

  state state_ = state::none;
  std::uint64_t generation_ = 0;
  std::vector<row> rows_;
  std::string text_;
};

mention_index& the_index() noexcept {
  static mention_index index;
  return index;
}

int visit_by_walking(std::string_view track, tracking_interface_visit visit,
                     void* context) noexcept {
  fixed_text<512> last;  // a path's element is shorter
  int result = status_ok;
  const int status = walk_mentions([&](const mention& found) noexcept {
    if (found.track == track && !(last == found.interface)) {
      result = visit(context, found.interface);
      last.assign(found.interface);
    }
    return result == status_ok;
  });
  return status != status_ok ? status : result;
}

}  // namespace

int visit_tracking_interfaces(std::string_view track, tracking_interface_visit visit,
                              void* context) noexcept {
  mention_index& index = the_index();
  return index.refresh() ? index.each(track, visit, context)
                         : visit_by_walking(track, visit, context);
}

void forget_tracking_interfaces() noexcept {
  the_index().forget();
}

}  // namespace ot
