// The in-memory BFD service. It acknowledges at once, through the client's loop; a session is up
// while its peer answers.
#include "platform/bfd_client.h"

#include <arpa/inet.h>

#include <cstring>
#include <utility>

#include "platform/memory/awaiting.h"
#include "platform/memory/bfd_field.h"
#include "platform/status.h"

namespace ot {
namespace {

std::uint32_t host_address(const bfd_address& address) noexcept {
  std::uint32_t ipv4 = 0;
  std::memcpy(&ipv4, address.bytes, sizeof ipv4);
  return ntohl(ipv4);
}

bfd_address record_of(std::uint32_t host) noexcept {
  bfd_address address;
  address.family = bfd_family_ipv4;
  const std::uint32_t ipv4 = htonl(host);
  std::memcpy(address.bytes, &ipv4, sizeof ipv4);
  return address;
}

// The call itself: whether it is sent and taken, and under what number.
int take(bfd_part& part, const char* operation, bfdc_session_answer* ret) {
  const auto failure = take_failure(operation);
  *ret = {};
  if (!part.client || (failure && failure->result != 0)) {
    return failure ? failure->result : invalid_argument;
  }
  ret->result = failure ? failure->item_status : 0;
  ret->sequence = ret->result == 0 ? ++part.last_sequence : 0;
  ++part.requests;
  return status_ok;
}

void acknowledge(bfd_part& part, const bfdc_session_request& request, std::uint32_t event,
                 int error) {
  bfdc_request_result result;
  result.error = error;
  result.event = event;
  result.ifhandle = request.ifhandle;
  result.destination = request.destination;
  result.sequence = part.last_sequence;
  result.context = request.context;
  bfd_tell(part, &bfdc_bind_record::request_done, result);
}

bool within_bounds(const bfdc_session_request& request) noexcept {
  return request.rate >= bfdc_rate_min && request.rate <= bfdc_rate_max &&
         request.debounce_count >= bfdc_debounce_min && request.debounce_count <= bfdc_debounce_max;
}

bfd_field_key key_of(const bfdc_session_request& request) noexcept {
  return {request.ifhandle, host_address(request.destination)};
}

}  // namespace

void bfd_tell_state(bfd_part& part, const bfd_field_key& key, bool up) {
  bfd_tell(part, &bfdc_bind_record::state_changed,
           bfdc_event{bfdc_event_session_state, key.first, record_of(key.second), up ? 0U : 1U});
}

void bfd_tell_status(bfd_part& part, std::uint32_t status) {
  bfd_tell(part, &bfdc_bind_record::connection, bfdc_connection_status{status});
}

int bfdc_bind_nb(const bfdc_bind_record& record, void* /*context*/) noexcept {
  alloc_faults_paused pause;
  const auto failure = take_failure("bfdc_bind_nb");
  if (failure && failure->result != 0) {
    note_change();
    return failure->result;
  }
  {
    bfd_part& part = world_part<bfd_part>();
    const std::scoped_lock lock{part.mutex};
    part.client = record;
    ++part.binds;
    loop_runs_here(record.manager);
    bfd_tell(part, &bfdc_bind_record::bound, bfdc_bind_result{failure ? failure->item_status : 0});
    if (part.running) {
      bfd_tell_status(part, 1);
    }
  }
  note_change();
  return status_ok;
}

void bfdc_unbind() noexcept {
  alloc_faults_paused pause;
  bfd_part& part = world_part<bfd_part>();
  const std::scoped_lock lock{part.mutex};
  part.client.reset();
  part.wanted.clear();
}

bool bfdc_service_present() noexcept {
  bfd_part& part = world_part<bfd_part>();
  const std::scoped_lock lock{part.mutex};
  return part.running;
}

int bfdc_session_create_nb(const bfdc_session_request& request, bfdc_session_answer* ret) noexcept {
  alloc_faults_paused pause;
  if (!within_bounds(request)) {
    *ret = bfdc_session_answer{.result = invalid_argument, .session_id = 0, .sequence = 0};
    return status_ok;
  }
  bfd_part& part = world_part<bfd_part>();
  const std::scoped_lock lock{part.mutex};
  const int status = take(part, "bfdc_session_create_nb", ret);
  if (status != status_ok || ret->result != status_ok) {
    return status;
  }
  const int refusal = std::exchange(part.refusal, 0);
  if (refusal == 0) {
    const auto [it, is_new] = part.wanted.try_emplace(
        key_of(request), wanted_session{part.last_id + 1, request.rate, request.debounce_count});
    part.last_id += is_new ? 1U : 0U;
    ret->session_id = it->second.id;
  }
  acknowledge(part, request, bfdc_request_created, refusal);
  if (part.up(key_of(request))) {
    bfd_tell_state(part, key_of(request), true);
  }
  return status_ok;
}

int bfdc_session_delete_unconfig_nb(const bfdc_session_request& request,
                                    bfdc_session_answer* ret) noexcept {
  alloc_faults_paused pause;
  bfd_part& part = world_part<bfd_part>();
  const std::scoped_lock lock{part.mutex};
  const int status = take(part, "bfdc_session_delete_unconfig_nb", ret);
  if (status == status_ok && ret->result == status_ok) {
    part.wanted.erase(key_of(request));
    acknowledge(part, request, bfdc_request_unconfigured, 0);
  }
  return status;
}

}  // namespace ot
