// bfdc_: client of the BFD service. Requests never wait: their results, the sessions' states and
// the connection's status come as callbacks on the loop that the client was bound on, in the order
// in which they arose. Requests may come from any thread. A session is known by its interface and
// destination: asking twice for the same one gives one session, given up by one deletion.
#pragma once

#include <cstdint>

#include "platform/evm.h"
#include "platform/fixed_text.h"

namespace ot {

inline constexpr std::uint32_t bfd_family_ipv4 = 2;

// An address of either family; IPv4 in the first four bytes, network byte order.
struct bfd_address {
  std::uint32_t family = 0;
  std::uint8_t bytes[16] = {};

  friend bool operator==(const bfd_address&, const bfd_address&) = default;
};
static_assert(sizeof(bfd_address) == 20);

struct bfdc_bind_result {
  int result = 0;  // 0: bound
};

struct bfdc_connection_status {
  std::uint32_t status = 0;  // 0 down, 1 up
};

// What a result acknowledges: the creation, or the deletion by request or by configuration.
inline constexpr std::uint32_t bfdc_request_created = 1;
inline constexpr std::uint32_t bfdc_request_deleted = 2;
inline constexpr std::uint32_t bfdc_request_unconfigured = 3;

struct bfdc_request_result {
  int error = 0;            // status code: what the service refused
  std::uint32_t event = 0;  // bfdc_request_*
  std::uint32_t ifhandle = 0;
  bfd_address destination;
  std::uint32_t sequence = 0;     // of the request
  const void* context = nullptr;  // as the request gave it; never looked into
};

inline constexpr std::uint32_t bfdc_event_session_state = 0;

struct bfdc_event {
  std::uint32_t kind = 0;
  std::uint32_t ifhandle = 0;
  bfd_address destination;
  std::uint32_t session_state = 0;  // 0 up, anything else not
};

// What a client binds with. The two numbers are those that the service knows this client by.
struct bfdc_bind_record {
  evm* manager = nullptr;
  fixed_text<64> client_name;
  std::uint32_t client_id = 0;
  std::uint32_t version = 0;
  void (*state_changed)(const bfdc_event* event) = nullptr;
  void (*bound)(const bfdc_bind_result* result) = nullptr;
  void (*connection)(const bfdc_connection_status* status) = nullptr;
  void (*request_done)(const bfdc_request_result* result) = nullptr;
};

// Binds; `bound` reports the outcome. From then on the client counts as connected, which is
// reported once, whether or not an engine runs: a session that nobody runs is down, and comes up
// when there is somebody who does. `context` is not used by the client. Status code; on failure no
// callback comes.
int bfdc_bind_nb(const bfdc_bind_record& record, void* context) noexcept;
// Ends the client and gives up its sessions; no callback comes any more. Harmless when not bound.
// On the loop's thread, or after it has ended.
void bfdc_unbind() noexcept;

// Limits of a request; others are refused with 22.
inline constexpr std::uint32_t bfdc_rate_min = 10;
inline constexpr std::uint32_t bfdc_rate_max = 60'000;
inline constexpr std::uint32_t bfdc_debounce_min = 1;
inline constexpr std::uint32_t bfdc_debounce_max = 255;

struct bfdc_session_request {
  std::uint32_t kind = 0;
  std::uint32_t ifhandle = 0;  // names the session, with the destination
  fixed_text<64> interface;    // by its name, which it may not have yet; empty: by the handle
  bfd_address destination;
  bfd_address source;
  std::uint32_t rate = 0;            // transmit interval, milliseconds
  std::uint32_t debounce_count = 0;  // missed packets until a session is down
  const void* context = nullptr;
};

// The call's own result. Requests that are taken are numbered in the order of the calls, rising
// from 1; the number comes back with the acknowledgement.
struct bfdc_session_answer {
  int result = 0;
  std::uint32_t session_id = 0;
  std::uint32_t sequence = 0;
};

// Ask for a session to be made or given up. Status code of the sending; `ret` says whether the
// request was taken, and is filled in either case. A creation is acknowledged before a state of its
// session is reported; a session that is up by then is reported up after it. Giving up a session
// that does not exist, or while the service is away, is acknowledged like any other.
int bfdc_session_create_nb(const bfdc_session_request& request, bfdc_session_answer* ret) noexcept;
int bfdc_session_delete_unconfig_nb(const bfdc_session_request& request,
                                    bfdc_session_answer* ret) noexcept;

}  // namespace ot
