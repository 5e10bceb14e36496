// The service's client of the FIB: looking routes up, registering for their changes, and what it
// reports of them and of its connection. Addresses are in network byte order. Main thread.
#pragma once

#include <cstdint>

#include "core/track.h"
#include "platform/evm.h"
#include "platform/fib_client.h"

namespace ot {

// 1 while the FIB connection is up; the first connection is announced like every later one.
extern std::uint32_t ot_fib_connection_up;

// Opens the client. 0, also when it is open already; 22 for a null manager; the client's error.
int ot_fec_init(evm* manager) noexcept;
// Closes it: the end of a service in a test.
void ot_fec_close() noexcept;

// Longest match of `prefix` in the VRF's table. 0 with a result for the caller to release (it may
// be null), or an error code with a null result.
int ot_fec_lookup(std::uint32_t prefix, std::uint32_t vrf_id, rtclient_result** ret) noexcept;

// 22 while the connection is down, registering also for prefix 0. Unregistering with VRF id 0 does
// nothing. A prefix that is registered already is no failure.
int ot_fec_register(std::uint32_t prefix, std::uint32_t mask, std::uint32_t vrf_id) noexcept;
int ot_fec_unregister(std::uint32_t prefix, std::uint32_t mask, std::uint32_t vrf_id) noexcept;

// Up when the result found a route of exactly the mask's length: a covering route is not the route.
track_state reachability_of(const rtclient_result* result, std::uint32_t mask) noexcept;

// Table of a VRF and back; the default ones for 0 and for what cannot be translated.
std::uint32_t ot_tblx_vrf_id_2_table_id(std::uint32_t vrf_id) noexcept;
std::uint32_t ot_tblx_table_id_2_vrf_id(std::uint32_t table_id) noexcept;

// The callbacks. A registered prefix may have changed: looks it up again and passes a changed
// reachability on. The connection is lost: entries, states and registrations stay as they are. It
// is back: every route with a known VRF is registered again, then the configuration that waited is
// applied in its order; a failing registration ends this, and the configuration goes on waiting.
void ot_fec_notif_handler(const rtclient_notification* notification);
void ot_fec_disconnect_handler();
void ot_fec_reconnect_handler();

// Releases a look-up result when it goes out of scope.
class fib_result {
 public:
  fib_result() noexcept = default;
  ~fib_result() { rtclient_lookup_free(result_); }
  fib_result(const fib_result&) = delete;
  fib_result& operator=(const fib_result&) = delete;

  [[nodiscard]] rtclient_result** out() noexcept { return &result_; }
  [[nodiscard]] const rtclient_result* get() const noexcept { return result_; }

 private:
  rtclient_result* result_ = nullptr;
};

}  // namespace ot
