// The interfaces that name a track. Their configuration may have many more items than there are
// tracks, so it is read once, when the service starts, into an index by track; from then on every
// commit's changes go into the index. When there is no memory for it, each question is a walk over
// the configuration, and the next one tries to read it again.

#include "oper/records/tracking_interfaces.h"

#include <array>
#include <cstddef>
#include <functional>
#include <new>
#include <set>
#include <string>

#include "core/debug.h"
#include "core/track_type.h"
#include "platform/fixed_text.h"
#include "platform/ledger.h"
#include "platform/ledger_interface_services.h"
#include "platform/ledger_status.h"

namespace ot {
namespace {

constexpr const char* interfaces_path = "cfg/if/act/";
constexpr const char* traced_as = "ot_fill_intf_tracking_info";

constexpr std::string_view service_prefix = "service-";

struct mention {
  std::string_view interface;
  std::string_view service;
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
  const std::string_view service = path.substr(end + 1, path.rfind('/') - end - 1);
  if (!service.starts_with(service_prefix)) {
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
  *ret = {path.substr(0, end), service, value.as_text()};
  return true;
}

// 0, 12, or ledger_unreachable after a trace when the ledger cannot be read.
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
    return ledger_unreachable;
  }
  return status;
}

class mention_index {
 public:
  // Reads the configuration unless that was done. 0, 12, or ledger_unreachable.
  int refresh() noexcept {
    if (!read_) {
      bool complete = true;
      const int status = walk_mentions([&](const mention& found) noexcept {
        complete = add(found);
        return complete;
      });
      read_ = status == status_ok && complete;
      if (!read_) {
        forget();
        return status == status_ok ? no_memory : status;
      }
    }
    return status_ok;
  }

  void forget() noexcept {
    rows_.clear();
    read_ = false;
  }

  // Before the configuration was read there is nothing to bring up to date.
  void change(const mention& old_one, const mention& new_one) noexcept {
    if (!read_) {
      return;
    }
    if (!remove(old_one) || !add(new_one)) {
      forget();
    }
  }

  int each(std::string_view track, tracking_interface_visit visit, void* context) const noexcept {
    if (!can_be_track(track)) {
      return status_ok;
    }
    std::array<char, track_name::capacity> prefix;
    prefix[track.copy(prefix.data(), prefix.size())] = '\0';
    const std::string_view wanted(prefix.data(), track.size() + 1);
    std::string_view last;
    for (auto at = rows_.lower_bound(wanted); at != rows_.end() && at->starts_with(wanted); ++at) {
      const std::string_view place = std::string_view(*at).substr(wanted.size());
      const std::string_view interface = place.substr(0, place.find('/'));
      const int status = interface == last ? status_ok : visit(context, interface);
      if (status != status_ok) {
        return status;
      }
      last = interface;
    }
    return status_ok;
  }

 private:
  // No other text is the name of a track, or it is no name at all.
  static bool can_be_track(std::string_view name) noexcept {
    return !name.empty() && name.size() < track_name::capacity &&
           name.find('\0') == std::string_view::npos;
  }

  // The track's interfaces stand together, in the order of their paths.
  static std::string row(const mention& from) {
    std::string text;
    text.reserve(from.track.size() + from.interface.size() + from.service.size() + 2);
    text.append(from.track).push_back('\0');
    return text.append(from.interface).append("/").append(from.service);
  }

  // Both are false without memory.
  bool add(const mention& added) noexcept {
    try {
      if (can_be_track(added.track)) {
        rows_.insert(row(added));
      }
      return true;
    } catch (const std::bad_alloc&) {
      return false;
    }
  }
  bool remove(const mention& removed) noexcept {
    try {
      if (can_be_track(removed.track)) {
        rows_.erase(row(removed));
      }
      return true;
    } catch (const std::bad_alloc&) {
      return false;
    }
  }

  std::set<std::string, std::less<>> rows_;
  bool read_ = false;
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

std::string_view text_of(const ledger_value* value) noexcept {
  return value == nullptr || value->kind != ledger_kind::text ? std::string_view{}
                                                              : value->as_text();
}

int note_change(const ledger_change& change) {
  const ledger_path_field* interface = change.field(0);
  const ledger_path_field* service = change.field(1);
  if (interface != nullptr && service != nullptr &&
      std::string_view(service->text).starts_with(service_prefix)) {
    the_index().change({interface->text, service->text, text_of(change.old_value)},
                       {interface->text, service->text, text_of(change.new_value)});
  }
  return status_ok;
}

}  // namespace

int read_tracking_interfaces() noexcept {
  ledger_follow_interface_services(note_change);
  (void)the_index().refresh();
  return status_ok;
}

int visit_tracking_interfaces(std::string_view track, tracking_interface_visit visit,
                              void* context) noexcept {
  mention_index& index = the_index();
  int status = index.refresh();
  if (status == status_ok) {
    return index.each(track, visit, context);
  }
  if (status == no_memory) {
    status = visit_by_walking(track, visit, context);
  }
  return status == ledger_unreachable ? status_ok : status;
}

void forget_tracking_interfaces() noexcept {
  the_index().forget();
}

}  // namespace ot
