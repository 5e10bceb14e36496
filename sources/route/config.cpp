// Applying a route track's address and VRF.

#include "sources/route/config.h"

#include <cstring>

#include "core/debug.h"
#include "platform/path_tuple.h"
#include "platform/status.h"
#include "sources/route/fib_connection.h"
#include "sources/route/pending.h"
#include "sources/route/table.h"
#include "sources/route/track.h"
#include "state/track_record.h"

namespace ot {
namespace {

struct address {
  std::uint32_t prefix = 0;
  std::uint32_t mask = 0;
  bool present = false;

  explicit address(const ledger_value* value) noexcept {
    present =
        value != nullptr && path_tuple_unpack(value->bytes(), "%N%N", &prefix, &mask) == status_ok;
  }
  [[nodiscard]] bool same_as(const address& other) const noexcept {
    return prefix == other.prefix && mask == other.mask;
  }
};

vrf_text vrf_of(const ledger_value* value) noexcept {
  return value == nullptr ? vrf_text{} : vrf_text{value->as_text()};
}

void remember_type(const ledger_change& change) noexcept {
  if (const ledger_path_field* type = change.field(1)) {
    set_configured_type(change.fields[0].text, type->number);
  }
}

int create(const char* who, const ledger_change& change, const char* vrf, const address& ip) {
  const int status =
      object_tracking_type_route_create(change.fields[0].text, vrf, ip.prefix, ip.mask, ip.present);
  remember_type(change);
  if (status != status_ok) {
    OT_TRACE_ERROR("(%s) : object_tracking_type_route_create failed - %s", who, err_string(status));
  }
  return status;
}

int create_or_queue(const char* who, const ledger_change& change, const char* vrf,
                    const address& ip) {
  return ot_fib_connection_up != 0
             ? create(who, change, vrf, ip)
             : queue_pending_route(change.fields[0].text, vrf, ip.prefix, ip.mask, ip.present);
}

// A set that brings no address leaves the track without a route.
int set_address(const char* who, const ledger_change& change, const address& old_ip,
                const address& new_ip) {
  if (old_ip.present) {
    if (new_ip.present && old_ip.same_as(new_ip)) {
      return status_ok;
    }
    const int status = object_tracking_type_route_delete(change.fields[0].text);
    if (status != status_ok) {
      return status;
    }
  }
  return new_ip.present ? create(who, change, nullptr, new_ip) : status_ok;
}

// Two names count as one when their first eight characters agree.
bool same_vrf(const vrf_text& a, const vrf_text& b) noexcept {
  constexpr std::size_t compared = 8;
  return std::strncmp(a.c_str(), b.c_str(), compared) == 0;
}

}  // namespace

int object_tracking_type_route_ip_apply(const ledger_change& change) {
  OT_TRACE_ENTRY();
  if (change.field(0) == nullptr) {
    return invalid_argument;
  }
  const address old_ip(change.old_value);
  const address new_ip(change.new_value);
  if ((change.event & ledger_event_create) != 0) {
    return new_ip.present ? create_or_queue(__func__, change, nullptr, new_ip) : status_ok;
  }
  if ((change.event & ledger_event_set) != 0) {
    return set_address(__func__, change, old_ip, new_ip);
  }
  if ((change.event & ledger_event_delete) != 0 && old_ip.present) {
    return object_tracking_type_route_delete(change.fields[0].text);
  }
  return status_ok;
}

int object_tracking_type_route_vrf_apply(const ledger_change& change) {
  OT_TRACE_ENTRY();
  if (change.field(0) == nullptr) {
    return invalid_argument;
  }
  const address no_address(nullptr);
  const vrf_text old_vrf = vrf_of(change.old_value);
  const vrf_text new_vrf = vrf_of(change.new_value);
  if ((change.event & ledger_event_create) != 0) {
    return create_or_queue(__func__, change, new_vrf.c_str(), no_address);
  }
  if ((change.event & ledger_event_set) != 0) {
    return same_vrf(old_vrf, new_vrf) ? status_ok
                                      : create(__func__, change, new_vrf.c_str(), no_address);
  }
  if ((change.event & ledger_event_delete) != 0 && change.old_value != nullptr) {
    return create(__func__, change, default_vrf, no_address);
  }
  return status_ok;
}

}  // namespace ot
