// Applying a route track's address and VRF, and the queue of what waits for the FIB connection.

#include <cstdio>
#include <cstring>
#include <new>

#include "platform/component_status.h"
#include "platform/ipv4.h"
#include "platform/path_tuple.h"
#include "sources/config_item.h"
#include "sources/route/fib.h"
#include "sources/route/table.h"
#include "sources/route/track.h"
#include "sources/waiting_queue.h"

namespace ot {
namespace {

constexpr const char* ip_apply_name = "object_tracking_type_route_ip_apply";
constexpr const char* vrf_apply_name = "object_tracking_type_route_vrf_apply";
constexpr const char* create_name = "object_tracking_type_route_create";

struct address {
  std::uint32_t prefix = 0;
  std::uint32_t mask = 0;

  bool operator==(const address&) const = default;
};

// A configured item: an address, or a VRF alone.
struct pending_route : lq_link {
  vrf_text vrf;  // empty for an address item
  track_name track;
  address ip;
  bool has_address = false;
};

waiting_queue<pending_route> waiting_routes;

int create(const char* who, const ledger_change& change, const char* vrf,
           const std::optional<address>& ip) {
  const address given = ip.value_or(address{});
  const int status = object_tracking_type_route_create(change.fields[0].text, vrf, given.prefix,
                                                       given.mask, ip.has_value());
  remember_type(change);
  return traced(who, create_name, status);
}

int create_or_queue(const char* who, const ledger_change& change, const char* vrf,
                    const std::optional<address>& ip) {
  if (ot_fib_connection_up != 0) {
    return create(who, change, vrf, ip);
  }
  const address given = ip.value_or(address{});
  return queue_pending_route(change.fields[0].text, vrf, given.prefix, given.mask, ip.has_value());
}

// --- What is stored
// ------------------------------------------------------------------------------- Address and VRF
// are two items of one route. When the stored configuration is applied they are taken together: the
// VRF alone, or the address in the default VRF, would be another object.

// Reads the track's other item, below the same type node. False when there is none.
bool read_stored(const ledger_change& change, const char* item, ledger_value& ret) noexcept {
  const ledger_path_field* type = change.field(1);
  ledger_conn* ledger = ledger_get_default_conn();
  if (type == nullptr || ledger == nullptr) {
    return false;
  }
  char path[160];
  std::snprintf(path, sizeof path, "cfg/gl/object_tracking/track/%s/type/route/%s/info/%s",
                change.fields[0].text, type->text, item);
  return ledger_item_get(ledger, path, &ret) == status_ok;
}

bool address_is_stored(const ledger_change& change) noexcept {
  ledger_value address;
  return read_stored(change, "ip_address", address);
}

// Empty when none is.
vrf_text stored_vrf(const ledger_change& change) noexcept {
  ledger_value vrf;
  return read_stored(change, "vrf", vrf) ? vrf_text{vrf.as_text()} : vrf_text{};
}

// --- The address ---------------------------------------------------------------------------------

using ip_item = item_change<address>;

std::optional<address> address_in(const ledger_value* value) noexcept {
  address ip;
  const bool present = value != nullptr &&
                       path_tuple_unpack(value->bytes(), "%N%N", &ip.prefix, &ip.mask) == status_ok;
  return present ? std::optional{ip} : std::nullopt;
}

int create_address(ip_item& item) {
  return create(ip_apply_name, item.change, nullptr, item.after);
}

int first_address(ip_item& item) {
  if (!item.after) {
    return status_ok;
  }
  // What is stored was verified once, unless somebody else wrote it: two such masks of one length
  // would share a registration.
  if (item.change.replayed && !ipv4_mask_is_contiguous(item.after->mask)) {
    return route_mask_not_contiguous;
  }
  const vrf_text vrf = item.change.replayed ? stored_vrf(item.change) : vrf_text{};
  return create_or_queue(ip_apply_name, item.change, vrf.empty() ? nullptr : vrf.c_str(),
                         item.after);
}

int remove_address(ip_item& item) {
  return item.before ? object_tracking_type_route_delete(item.track()) : status_ok;
}

int set_address(ip_item& item) {
  return replace_item(item, nullptr, remove_address, create_address);
}

constexpr item_row<ip_item> ip_row = {ip_apply_name, first_address, set_address, remove_address};

// --- The VRF -------------------------------------------------------------------------------------

using vrf_item = item_change<vrf_text>;

std::optional<vrf_text> vrf_in(const ledger_value* value) noexcept {
  return value == nullptr ? std::nullopt : std::optional{vrf_text{value->as_text()}};
}

int first_vrf(vrf_item& item) {
  if (item.change.replayed && address_is_stored(item.change)) {
    return status_ok;  // the address brings it along
  }
  const vrf_text vrf = item.after.value_or(vrf_text{});
  return create_or_queue(vrf_apply_name, item.change, vrf.c_str(), std::nullopt);
}

// Two names count as one when their first eight characters agree.
int set_vrf(vrf_item& item) {
  constexpr std::size_t compared = 8;
  const vrf_text from = item.before.value_or(vrf_text{});
  const vrf_text to = item.after.value_or(vrf_text{});
  return std::strncmp(from.c_str(), to.c_str(), compared) == 0
             ? status_ok
             : create(vrf_apply_name, item.change, to.c_str(), std::nullopt);
}

int remove_vrf(vrf_item& item) {
  return item.before ? create(vrf_apply_name, item.change, default_vrf, std::nullopt) : status_ok;
}

constexpr item_row<vrf_item> vrf_row = {vrf_apply_name, first_vrf, set_vrf, remove_vrf};

}  // namespace

int object_tracking_type_route_ip_apply(const ledger_change& change) {
  OT_TRACE_ENTRY();
  if (change.field(0) == nullptr) {
    return invalid_argument;
  }
  ip_item item{change, address_in(change.old_value), address_in(change.new_value)};
  return apply_item(ip_row, item);
}

int object_tracking_type_route_vrf_apply(const ledger_change& change) {
  OT_TRACE_ENTRY();
  if (change.field(0) == nullptr) {
    return invalid_argument;
  }
  vrf_item item{change, vrf_in(change.old_value), vrf_in(change.new_value)};
  return apply_item(vrf_row, item);
}

int queue_pending_route(const char* track, const char* vrf_name, std::uint32_t prefix,
                        std::uint32_t mask, bool has_address) noexcept {
  std::unique_ptr<pending_route> item{new (std::nothrow) pending_route{}};
  if (item == nullptr) {
    return no_memory;
  }
  item->vrf.assign(vrf_name == nullptr ? "" : vrf_name);
  item->track.assign(track);
  item->ip = {prefix, mask};
  item->has_address = has_address;
  waiting_routes.push(std::move(item));
  return status_ok;
}

void replay_pending_routes() {
  while (const auto item = waiting_routes.pop()) {
    const char* vrf = item->vrf.empty() ? nullptr : item->vrf.c_str();
    traced("ot_fec_reconnect_handler", create_name,
           object_tracking_type_route_create(item->track.c_str(), vrf, item->ip.prefix,
                                             item->ip.mask, item->has_address));
  }
}

void drop_pending_routes() noexcept {
  waiting_routes.clear();
}

std::uint32_t pending_route_count() noexcept {
  return waiting_routes.count();
}

}  // namespace ot
