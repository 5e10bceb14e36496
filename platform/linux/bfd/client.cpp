// The BFD client's calls. A request is checked, gets its number and is handed to the loop that the
// client was bound on; everything else happens there.
#include "platform/bfd_client.h"

#include <net/if.h>

#include <cerrno>
#include <cstring>
#include <memory>
#include <mutex>
#include <new>

#include "platform/event_manager.h"
#include "platform/linked_queue.h"
#include "platform/linux/bfd/keeper.h"
#include "platform/status.h"

namespace ot::bfd {
namespace {

constexpr std::uint32_t connection_up = 1;

struct queued_request : lq_link {
  bool wanted = false;  // else given up
  client_key key;
  session_config config;
  request_origin origin;
};

// The process's one client.
struct client_state {
  std::mutex lock;  // all but the keeper, which is the loop's
  bool bound = false;
  bfdc_bind_record record;
  std::uint32_t sequence = 0;
  lq_queue requests;
  session_keeper* keeper = nullptr;
};

client_state& the_client() noexcept {
  static client_state client;
  return client;
}

std::unique_ptr<queued_request> next_request() noexcept {
  const std::lock_guard guard(the_client().lock);
  return std::unique_ptr<queued_request>{
      static_cast<queued_request*>(lq_pop(the_client().requests))};
}

// One task is posted for each request.
void serve_request(void* /*argument*/) {
  const std::unique_ptr<queued_request> request = next_request();
  session_keeper* keeper = the_client().keeper;
  if (request == nullptr || keeper == nullptr) {
    return;
  }
  if (request->wanted) {
    keeper->create(request->key, request->config, request->origin);
  } else {
    keeper->remove(request->key, request->origin);
  }
}

void notify_bound(void* /*argument*/) {
  std::unique_lock guard(the_client().lock);
  const bool bound = the_client().bound;
  const bfdc_bind_record client = the_client().record;
  guard.unlock();
  if (bound) {
    const bfdc_bind_result result{status_ok};
    client.bound(&result);
    const bfdc_connection_status connected{connection_up};
    client.connection(&connected);
  }
}

std::uint32_t ipv4_of(const bfd_address& address) noexcept {
  std::uint32_t ipv4 = 0;
  std::memcpy(&ipv4, address.bytes, sizeof ipv4);
  return ipv4;
}

// One host's address, not a group's.
bool unicast(std::uint32_t address) noexcept {
  const unsigned first = reinterpret_cast<const std::uint8_t*>(&address)[0];
  return first != 0 && first < 224;
}

// The interface's name, or an empty one.
interface_name interface_of(const bfdc_session_request& request) noexcept {
  char name[IF_NAMESIZE] = "";
  if (!request.interface.empty()) {
    const std::string_view given = request.interface.view();
    return given.size() < IF_NAMESIZE ? interface_name{given} : interface_name{};
  }
  return interface_name{if_indextoname(request.ifhandle, name) == nullptr ? "" : name};
}

// Engines need not check anything.
bool takable(const bfdc_session_request& request, const session_config& config) noexcept {
  return request.destination.family == bfd_family_ipv4 && unicast(config.key.destination) &&
         !config.key.interface.empty() && config.interval >= bfdc_rate_min &&
         config.interval <= bfdc_rate_max && config.multiplier >= bfdc_debounce_min &&
         config.multiplier <= bfdc_debounce_max;
}

// A status code of the sending.
int hand_over(std::unique_ptr<queued_request> request, std::uint32_t* ret_sequence) noexcept {
  client_state& client = the_client();
  const std::lock_guard guard(client.lock);
  if (!client.bound) {
    return ENOTCONN;
  }
  request->origin.sequence = client.sequence + 1;
  if (const int status = evm_post(client.record.manager, serve_request, nullptr);
      status != status_ok) {
    return status;
  }
  *ret_sequence = ++client.sequence;
  lq_append(client.requests, *request.release());
  return status_ok;
}

int send_request(const bfdc_session_request& request, bool wanted,
                 bfdc_session_answer* ret) noexcept {
  *ret = {};
  std::unique_ptr<queued_request> copy{new (std::nothrow) queued_request{}};
  if (copy == nullptr) {
    return no_memory;
  }
  const std::uint32_t destination = ipv4_of(request.destination);
  copy->wanted = wanted;
  copy->key = {request.ifhandle, destination};
  copy->origin.context = request.context;
  if (wanted) {
    copy->config = {{interface_of(request), destination},
                    ipv4_of(request.source),
                    request.rate,
                    request.debounce_count};
    if (!takable(request, copy->config)) {
      ret->result = invalid_argument;
      return status_ok;
    }
  }
  const int status = hand_over(std::move(copy), &ret->sequence);
  ret->session_id = ret->sequence;
  return status;
}

}  // namespace
}  // namespace ot::bfd

namespace ot {

int bfdc_bind_nb(const bfdc_bind_record& record, void* /*context*/) noexcept {
  if (record.manager == nullptr) {
    return invalid_argument;
  }
  bfdc_unbind();
  bfd::client_state& client = bfd::the_client();
  std::unique_ptr<bfd::session_keeper> keeper{new (std::nothrow) bfd::session_keeper{record}};
  if (keeper == nullptr) {
    return no_memory;
  }
  int status = evm_post(record.manager, bfd::notify_bound, nullptr);
  if (status == status_ok) {
    status = keeper->start();
  }
  if (status != status_ok) {
    return status;
  }
  const std::lock_guard guard(client.lock);
  client.record = record;
  client.bound = true;
  client.keeper = keeper.release();
  return status_ok;
}

void bfdc_unbind() noexcept {
  bfd::client_state& client = bfd::the_client();
  {
    const std::lock_guard guard(client.lock);
    client.bound = false;
  }
  while (bfd::next_request() != nullptr) {
  }
  delete client.keeper;
  client.keeper = nullptr;
}

int bfdc_session_create_nb(const bfdc_session_request& request, bfdc_session_answer* ret) noexcept {
  return bfd::send_request(request, true, ret);
}

int bfdc_session_delete_unconfig_nb(const bfdc_session_request& request,
                                    bfdc_session_answer* ret) noexcept {
  return bfd::send_request(request, false, ret);
}

}  // namespace ot
