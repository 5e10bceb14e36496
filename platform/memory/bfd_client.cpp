// The in-memory BFD service, its client's side and the test's. It acknowledges at once, through the
// client's loop; a session is up while its peer answers.
#include "platform/memory/bfd_controls.h"

#include <arpa/inet.h>

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <map>
#include <mutex>
#include <optional>
#include <set>
#include <stdexcept>
#include <utility>

#include "platform/bfd_status.h"
#include "platform/clock.h"
#include "platform/memory/alloc_faults.h"
#include "platform/memory/interface_field.h"
#include "platform/memory/loops.h"
#include "platform/memory/world.h"
#include "platform/status.h"

namespace ot {
namespace {

using session_key = std::pair<std::uint32_t, std::uint32_t>;  // handle, address in host order

struct wanted_session {
  std::uint32_t id = 0;
  std::uint32_t rate = 0;
  std::uint32_t debounce_count = 0;
  bfdc_session_status status;  // but for the state
};

struct bfd_part {
  std::mutex mutex;
  bool running = false;
  bool connects = true;  // a client that binds
  bfdc_engine_status engine;
  std::optional<bfdc_bind_record> client;
  std::size_t binds = 0;
  std::size_t requests = 0;
  std::uint32_t last_sequence = 0;
  std::uint32_t last_id = 0;
  int refusal = 0;  // of the next creation
  std::map<session_key, wanted_session> wanted;
  std::set<session_key> answering;

  [[nodiscard]] bool up(const session_key& key) const {
    return running && wanted.contains(key) && answering.contains(key);
  }
};

// The part, locked as long as this lives.
class locked_part {
 public:
  bfd_part& operator*() noexcept { return part_; }
  bfd_part* operator->() noexcept { return &part_; }

 private:
  bfd_part& part_ = world_part<bfd_part>();
  const std::scoped_lock<std::mutex> lock_{part_.mutex};
};

// Has one of the client's callbacks called with `message` on its loop; nobody is notified when the
// client has gone by then. With the part locked.
template <typename Message>
void notify(bfd_part& part, void (*bfdc_bind_record::*callback)(const Message*), Message message) {
  if (!part.client) {
    return;
  }
  loop_post(part.client->manager, [callback, message] {
    void (*call)(const Message*) = nullptr;
    {
      locked_part then;
      call = then->client ? *then->client.*callback : nullptr;
    }
    if (call != nullptr) {
      alloc_faults_resumed resume;
      call(&message);
    }
  });
}

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
  notify(part, &bfdc_bind_record::request_done, result);
}

bool within_bounds(const bfdc_session_request& request) noexcept {
  return request.rate >= bfdc_rate_min && request.rate <= bfdc_rate_max &&
         request.debounce_count >= bfdc_debounce_min && request.debounce_count <= bfdc_debounce_max;
}

session_key key_of(const bfdc_session_request& request) noexcept {
  return {request.ifhandle, host_address(request.destination)};
}

void notify_state(bfd_part& part, const session_key& key, bool up) {
  notify(part, &bfdc_bind_record::state_changed,
         bfdc_event{bfdc_event_session_state, key.first, record_of(key.second), up ? 0U : 1U});
}

void notify_status(bfd_part& part, std::uint32_t status) {
  notify(part, &bfdc_bind_record::connection, bfdc_connection_status{status});
}

void notify_of_up_sessions(bfd_part& part, bool up) {
  for (const auto& [key, session] : part.wanted) {
    if (part.answering.contains(key)) {
      notify_state(part, key, up);
    }
  }
}

session_key field_key(std::string_view interface, const char* address) {
  const field_interface* found = world_part<interface_part>().find(interface);
  in_addr parsed{};
  if (found == nullptr || inet_pton(AF_INET, address, &parsed) != 1) {
    throw std::runtime_error{"no such interface or address"};
  }
  return {found->handle, ntohl(parsed.s_addr)};
}

}  // namespace

int bfdc_bind_nb(const bfdc_bind_record& record, void* /*context*/) noexcept {
  alloc_faults_paused pause;
  const auto failure = take_failure("bfdc_bind_nb");
  if (failure && failure->result != 0) {
    note_change();
    return failure->result;
  }
  note_introduction("bfdc_bind_nb", {record.client_name.view(), std::to_string(record.client_id),
                                     std::to_string(record.version)});
  {
    locked_part part;
    part->client = record;
    ++part->binds;
    loop_runs_here(record.manager);
    notify(*part, &bfdc_bind_record::bound, bfdc_bind_result{failure ? failure->item_status : 0});
    if (part->connects) {
      notify_status(*part, 1);
    }
  }
  note_change();
  return status_ok;
}

void bfdc_unbind() noexcept {
  alloc_faults_paused pause;
  locked_part part;
  part->client.reset();
  part->wanted.clear();
}

bfdc_engine_status bfdc_engine() noexcept {
  alloc_faults_paused pause;
  locked_part part;
  return part->engine;
}

std::uint32_t bfdc_sessions_not_run() noexcept {
  alloc_faults_paused pause;
  locked_part part;
  return part->running ? 0 : static_cast<std::uint32_t>(part->wanted.size());
}

bool bfdc_session(std::uint32_t ifhandle, const bfd_address& destination,
                  bfdc_session_status* ret) noexcept {
  alloc_faults_paused pause;
  locked_part part;
  const session_key key{ifhandle, host_address(destination)};
  const auto found = part->wanted.find(key);
  if (found == part->wanted.end()) {
    return false;
  }
  *ret = found->second.status;
  ret->state = part->up(key) ? bfd_state_up : bfd_state_down;
  return true;
}

int bfdc_session_create_nb(const bfdc_session_request& request, bfdc_session_answer* ret) noexcept {
  alloc_faults_paused pause;
  if (!within_bounds(request)) {
    *ret = bfdc_session_answer{.result = invalid_argument, .session_id = 0, .sequence = 0};
    return status_ok;
  }
  locked_part part;
  const int status = take(*part, "bfdc_session_create_nb", ret);
  if (status != status_ok || ret->result != status_ok) {
    return status;
  }
  const int refusal = std::exchange(part->refusal, 0);
  if (refusal == 0) {
    const auto [it, is_new] = part->wanted.try_emplace(
        key_of(request),
        wanted_session{part->last_id + 1, request.rate, request.debounce_count, {}});
    part->last_id += is_new ? 1U : 0U;
    ret->session_id = it->second.id;
  }
  acknowledge(*part, request, bfdc_request_created, refusal);
  if (part->up(key_of(request))) {
    notify_state(*part, key_of(request), true);
  }
  return status_ok;
}

int bfdc_session_delete_unconfig_nb(const bfdc_session_request& request,
                                    bfdc_session_answer* ret) noexcept {
  alloc_faults_paused pause;
  locked_part part;
  const int status = take(*part, "bfdc_session_delete_unconfig_nb", ret);
  if (status == status_ok && ret->result == status_ok) {
    part->wanted.erase(key_of(request));
    acknowledge(*part, request, bfdc_request_unconfigured, 0);
  }
  return status;
}

namespace field {

void bfd_engine_back() {
  locked_part part;
  part->running = true;
  part->engine.running = true;
  part->engine.since = clock_realtime_seconds();
  notify_of_up_sessions(*part, true);
}

void bfd_engine_away() {
  locked_part part;
  part->running = false;
  part->engine.running = false;
  part->engine.since = clock_realtime_seconds();
  notify_of_up_sessions(*part, false);
}

void bfd_engine_is(const bfdc_engine_status& status) {
  locked_part part;
  part->engine = status;
  part->engine.running = part->running;
}

void bfd_session_is(std::string_view interface, const char* address,
                    const bfdc_session_status& status) {
  const session_key key = field_key(interface, address);
  locked_part part;
  part->wanted.at(key).status = status;
}

void bfd_client_connects(bool connected) {
  locked_part part;
  part->connects = connected;
  notify_status(*part, connected ? 1 : 0);
}

void bfd_peer_answers(std::string_view interface, const char* address) {
  const session_key key = field_key(interface, address);
  locked_part part;
  part->answering.insert(key);
  if (part->up(key)) {
    notify_state(*part, key, true);
  }
}

void bfd_peer_silent(std::string_view interface, const char* address) {
  const session_key key = field_key(interface, address);
  locked_part part;
  const bool was_up = part->up(key);
  part->answering.erase(key);
  if (was_up) {
    notify_state(*part, key, false);
  }
}

void bfd_refuses_next(int error) {
  locked_part part;
  part->refusal = error;
}

void bfd_says_result(const bfdc_request_result& result) {
  locked_part part;
  notify(*part, &bfdc_bind_record::request_done, result);
}

void bfd_says_event(const bfdc_event& event) {
  locked_part part;
  notify(*part, &bfdc_bind_record::state_changed, event);
}

void bfd_says_status(std::uint32_t status) {
  locked_part part;
  notify_status(*part, status);
}

std::vector<bfd_wanted_session> bfd_wanted_sessions() {
  locked_part part;
  std::vector<bfd_wanted_session> sessions;
  for (const auto& [key, session] : part->wanted) {
    const in_addr address{htonl(key.second)};
    char text[INET_ADDRSTRLEN] = "";
    inet_ntop(AF_INET, &address, text, sizeof text);
    sessions.push_back({key.first, text, session.rate, session.debounce_count});
  }
  return sessions;
}

std::size_t bfd_requests() {
  locked_part part;
  return part->requests;
}

std::size_t bfd_binds() {
  locked_part part;
  return part->binds;
}

std::string bfd_client_name() {
  locked_part part;
  return part->client ? std::string{part->client->client_name.view()} : "";
}

}  // namespace field

}  // namespace ot
