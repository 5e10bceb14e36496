// Reading bfdd's lists. Intervals are those in use between the two ends while the session is up;
// before that both keep to a second, which says nothing.
#include "platform/linux/bfd/frr_vty/listing.h"

#include <algorithm>
#include <nlohmann/json.hpp>
#include <string>
#include <utility>

#include "platform/linux/bfd/frr_vty/words.h"

namespace ot::bfd::vty {
namespace {

using nlohmann::json;

// Numbers beyond what fits are the largest that does.
constexpr std::uint64_t most_ms = UINT32_MAX / 1000;

// The text field `key`; empty when it is missing. False when it is no text.
bool read_text(const json& object, const char* key, std::string_view* ret) {
  const auto found = object.find(key);
  if (found == object.end()) {
    *ret = {};
    return true;
  }
  const auto* text = found->get_ptr<const std::string*>();
  *ret = text == nullptr ? std::string_view{} : std::string_view{*text};
  return text != nullptr;
}

// The field `key`, a number; 0 when it is missing. False when it is something else.
bool read_number(const json& object, const char* key, std::uint64_t* ret) {
  const auto found = object.find(key);
  if (found == object.end()) {
    *ret = 0;
    return true;
  }
  const auto* number = found->get_ptr<const json::number_unsigned_t*>();
  *ret = number == nullptr ? 0 : *number;
  return number != nullptr;
}

// `ret` has no destination for a session of another sort than ours. False for the wrong shape.
bool read_key(const json& object, session_key* ret) {
  std::string_view peer;
  std::string_view interface;
  const auto hops = object.is_object() ? object.find("multihop") : object.end();
  if (hops == object.end() || !hops->is_boolean() || !read_text(object, "peer", &peer) ||
      peer.empty() || !read_text(object, "interface", &interface)) {
    return false;
  }
  *ret = {};
  if (!hops->get<bool>() && interface.size() < interface_name::capacity) {
    *ret = {interface_name{interface}, address_of(peer)};
  }
  return true;
}

struct timers {
  std::uint64_t transmit = 0;  // all in milliseconds
  std::uint64_t receive = 0;
  std::uint64_t remote_transmit = 0;
  std::uint64_t remote_receive = 0;
  std::uint64_t remote_multiplier = 0;
};

bool read_timers(const json& object, timers* ret) {
  return read_number(object, "transmit-interval", &ret->transmit) &&
         read_number(object, "receive-interval", &ret->receive) &&
         read_number(object, "remote-transmit-interval", &ret->remote_transmit) &&
         read_number(object, "remote-receive-interval", &ret->remote_receive) &&
         read_number(object, "remote-detect-multiplier", &ret->remote_multiplier);
}

std::uint32_t usec_of(std::uint64_t ms) noexcept {
  return static_cast<std::uint32_t>(std::min(ms, most_ms) * 1000);
}

void agree(const timers& ms, bfdc_session_status* ret) noexcept {
  const std::uint64_t receive = std::max(ms.receive, ms.remote_transmit);
  ret->transmit_interval = usec_of(std::max(ms.transmit, ms.remote_receive));
  ret->receive_interval = usec_of(receive);
  ret->detection_time =
      usec_of(std::min(receive, most_ms) * std::min(ms.remote_multiplier, most_ms));
}

bool read_status(const json& object, bfdc_session_status* ret) {
  std::string_view state;
  std::string_view reason;
  std::string_view remote_reason;
  timers ms;
  if (!read_text(object, "status", &state) || !state_of(state, &ret->state) ||
      !read_text(object, "diagnostic", &reason) ||
      !read_text(object, "remote-diagnostic", &remote_reason) || !read_timers(object, &ms)) {
    return false;
  }
  ret->diagnostic = diagnostic_of(reason);
  ret->remote_diagnostic = diagnostic_of(remote_reason);
  if (ret->state == bfd_state_up) {
    ret->remote_state = bfd_state_up;  // which bfdd does not tell otherwise
    agree(ms, ret);
  }
  return true;
}

bool read_one(const json& object, listed_session* ret) {
  std::string_view type;
  if (!read_key(object, &ret->key) || !read_text(object, "type", &type)) {
    return false;
  }
  ret->dynamic = type == "dynamic";
  return ret->key.destination == 0 || read_status(object, &ret->status);
}

bool read_one(const json& object, listed_counters* ret) {
  std::uint64_t ups = 0;
  std::uint64_t downs = 0;
  if (!read_key(object, &ret->key) ||
      !read_number(object, "control-packet-input", &ret->packets_in) ||
      !read_number(object, "control-packet-output", &ret->packets_out) ||
      !read_number(object, "session-up", &ups) || !read_number(object, "session-down", &downs)) {
    return false;
  }
  ret->ups = static_cast<std::uint32_t>(ups);
  ret->downs = static_cast<std::uint32_t>(downs);
  return true;
}

template <typename Row>
bool read_list(std::string_view text, std::vector<Row>* ret) {
  const json list = json::parse(text, nullptr, false);
  if (!list.is_array()) {
    return false;
  }
  std::vector<Row> rows;
  for (const json& object : list) {
    Row row;
    if (!read_one(object, &row)) {
      return false;
    }
    if (row.key.destination != 0) {
      rows.push_back(row);
    }
  }
  ret->swap(rows);
  return true;
}

}  // namespace

bool read_sessions(std::string_view text, std::vector<listed_session>* ret) {
  return read_list(text, ret);
}

bool read_counters(std::string_view text, std::vector<listed_counters>* ret) {
  return read_list(text, ret);
}

}  // namespace ot::bfd::vty
