// rtclient_ and tblx_shm_: client of the FIB. It answers longest-match look-ups in one table and
// reports changes of registered prefixes. Addresses are u32 in network byte order. Main thread.
#pragma once

#include <cstdint>
#include <span>

#include "platform/evm.h"
#include "platform/fixed_text.h"
#include "platform/status.h"

namespace ot {

// The prefix is registered already.
inline constexpr int fib_already_registered = status_code(0x4ff40a00);

struct rtclient;

inline constexpr std::uint32_t fib_family_ipv4 = 12;

// What a look-up found. Owned by the caller until rtclient_lookup_free. The router's own addresses
// are beside the routes: one hides none of the routes that cover it.
struct rtclient_result {
  bool route_found = false;
  std::uint32_t prefix_length = 0;  // of the longest match
  bool own_address = false;         // the router's own, and so a host route of itself
  fixed_text<64> first_hop;         // egress interface; the first one of a multipath route
};

// A change that may concern a registered prefix; it carries no state of its own.
struct rtclient_notification {
  std::uint32_t family = fib_family_ipv4;
  std::uint32_t table_id = 0;
  std::uint32_t prefix = 0;
  std::uint32_t prefix_length = 0;
};

struct rtclient_registration {
  std::uint32_t table_id = 0;
  std::uint32_t family = 0;
  std::uint64_t reserved = 0;
  std::uint32_t prefix = 0;
  std::uint16_t prefix_length = 0;
  char client_name[32] = {};
};

struct rtclient_parameters {
  const char* client_name = nullptr;
  std::uint32_t mode = 0;
  evm* manager = nullptr;
  std::uint32_t channel = 0;
};

// All run on the manager's loop. The first connection is announced by `reconnected` too.
struct rtclient_callbacks {
  void (*changed)(const rtclient_notification* notification) = nullptr;
  void (*disconnected)() = nullptr;
  void (*reconnected)() = nullptr;
};

// Opens a client; it connects in the background and goes on trying. Fills `ret` on success. Status
// code.
int rtclient_init(const rtclient_parameters& parameters, const rtclient_callbacks& callbacks,
                  rtclient** ret) noexcept;
// Ends the client; no callback comes any more.
void rtclient_close(rtclient* client) noexcept;

// Longest match of one address in one table. During `changed`, for the prefix that it is about, it
// is the one that the notification stands for. 0 with a result to be released, or a status code
// with `ret` null.
int rtclient_lookup(rtclient* client, std::uint32_t family, std::uint32_t table_id,
                    std::uint32_t address, rtclient_result** ret) noexcept;
// Null is allowed.
void rtclient_lookup_free(rtclient_result* result) noexcept;

// Add and drop change notifications. A registration is followed by one notification soon after,
// also one that is answered fib_already_registered since the prefix is registered in that table;
// later ones come whenever the longest match of the prefix may have changed, with the registered
// prefix and length.
int rtclient_bulk_reg_notif(rtclient* client,
                            std::span<const rtclient_registration> prefixes) noexcept;
int rtclient_bulk_unreg_notif(rtclient* client,
                              std::span<const rtclient_registration> prefixes) noexcept;

// VRF id to IPv4 unicast table id and back. 0 with `ret` written, or a status code.
int tblx_shm_lookup_vrf(std::uint32_t vrf_id, std::uint32_t* ret_table_id) noexcept;
int tblx_shm_lookup_tbl(std::uint32_t table_id, std::uint32_t* ret_vrf_id) noexcept;

}  // namespace ot
