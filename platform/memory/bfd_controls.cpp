// The test's hands on the in-memory BFD service.
#include "platform/memory/bfd_controls.h"

#include <arpa/inet.h>

#include <stdexcept>

#include "platform/memory/bfd_field.h"
#include "platform/memory/interface_field.h"

namespace ot {
namespace {

void tell_states_of_up_sessions(bfd_part& part, bool up) {
  for (const auto& [key, session] : part.wanted) {
    if (part.answering.contains(key)) {
      bfd_tell_state(part, key, up);
    }
  }
}

bfd_field_key field_key(std::string_view interface, const char* address) {
  const field_interface* found = world_part<interface_part>().find(interface);
  in_addr parsed{};
  if (found == nullptr || inet_pton(AF_INET, address, &parsed) != 1) {
    throw std::runtime_error{"no such interface or address"};
  }
  return {found->handle, ntohl(parsed.s_addr)};
}

}  // namespace

namespace field {

void bfd_engine_back() {
  bfd_part& part = world_part<bfd_part>();
  const std::scoped_lock lock{part.mutex};
  part.running = true;
  bfd_tell_status(part, 1);
  tell_states_of_up_sessions(part, true);
}

void bfd_engine_away() {
  bfd_part& part = world_part<bfd_part>();
  const std::scoped_lock lock{part.mutex};
  part.running = false;
  bfd_tell_status(part, 0);
  tell_states_of_up_sessions(part, false);
}

void bfd_peer_answers(std::string_view interface, const char* address) {
  const bfd_field_key key = field_key(interface, address);
  bfd_part& part = world_part<bfd_part>();
  const std::scoped_lock lock{part.mutex};
  part.answering.insert(key);
  if (part.up(key)) {
    bfd_tell_state(part, key, true);
  }
}

void bfd_peer_silent(std::string_view interface, const char* address) {
  const bfd_field_key key = field_key(interface, address);
  bfd_part& part = world_part<bfd_part>();
  const std::scoped_lock lock{part.mutex};
  const bool was_up = part.up(key);
  part.answering.erase(key);
  if (was_up) {
    bfd_tell_state(part, key, false);
  }
}

void bfd_refuses_next(int error) {
  bfd_part& part = world_part<bfd_part>();
  const std::scoped_lock lock{part.mutex};
  part.refusal = error;
}

void bfd_says_result(const bfdc_request_result& result) {
  bfd_part& part = world_part<bfd_part>();
  const std::scoped_lock lock{part.mutex};
  bfd_tell(part, &bfdc_bind_record::request_done, result);
}

void bfd_says_event(const bfdc_event& event) {
  bfd_part& part = world_part<bfd_part>();
  const std::scoped_lock lock{part.mutex};
  bfd_tell(part, &bfdc_bind_record::state_changed, event);
}

void bfd_says_status(std::uint32_t status) {
  bfd_part& part = world_part<bfd_part>();
  const std::scoped_lock lock{part.mutex};
  bfd_tell_status(part, status);
}

std::vector<bfd_wanted_session> bfd_wanted_sessions() {
  bfd_part& part = world_part<bfd_part>();
  const std::scoped_lock lock{part.mutex};
  std::vector<bfd_wanted_session> sessions;
  for (const auto& [key, session] : part.wanted) {
    const in_addr address{htonl(key.second)};
    char text[INET_ADDRSTRLEN] = "";
    inet_ntop(AF_INET, &address, text, sizeof text);
    sessions.push_back({key.first, text, session.rate, session.debounce_count});
  }
  return sessions;
}

std::size_t bfd_requests() {
  bfd_part& part = world_part<bfd_part>();
  const std::scoped_lock lock{part.mutex};
  return part.requests;
}

std::size_t bfd_binds() {
  bfd_part& part = world_part<bfd_part>();
  const std::scoped_lock lock{part.mutex};
  return part.binds;
}

std::string bfd_client_name() {
  bfd_part& part = world_part<bfd_part>();
  const std::scoped_lock lock{part.mutex};
  return part.client ? std::string{part.client->client_name.view()} : "";
}

}  // namespace field
}  // namespace ot
