// JSON of the BFD engine's control socket. The engine dies of well-formed JSON of the wrong shape,
// so what it is sent is built here and nowhere else. What it sends is checked field by field, since
// the library would throw at a wrong one.
#include "platform/linux/bfd/messages.h"

#include <arpa/inet.h>

#include <nlohmann/json.hpp>

namespace ot {
namespace {

using nlohmann::json;

struct operation_row {
  std::string_view word;
  bfd_operation operation;
};

constexpr operation_row operations[] = {
    {"add", bfd_operation::session_present},
    {"delete", bfd_operation::session_gone},
    {"status", bfd_operation::session_state},
};

std::string address_text(std::uint32_t address) {
  char text[INET_ADDRSTRLEN] = "";
  inet_ntop(AF_INET, &address, text, sizeof text);
  return text;
}

// The one text field `key`; null when it is missing or no text.
const std::string* text_of(const json& object, const char* key) {
  const auto found = object.find(key);
  return found == object.end() ? nullptr : found->get_ptr<const std::string*>();
}

const std::string none;

// The text field `key`, if there is one; false when it is no text.
bool optional_text(const json& object, const char* key, const std::string** ret) {
  if (!object.contains(key)) {
    return true;
  }
  const std::string* text = text_of(object, key);
  *ret = text == nullptr ? *ret : text;
  return text != nullptr;
}

// Leaves 0 for a session of another kind than ours. False for a field of the wrong kind.
bool read_destination(const json& object, std::uint32_t* ret) {
  const std::string* text = &none;
  if (!optional_text(object, "peer-address", &text)) {
    return false;
  }
  const auto multihop = object.find("multihop");
  const bool far = multihop != object.end();
  if (far && !multihop->is_boolean()) {
    return false;
  }
  in_addr address{};
  if (!(far && multihop->get<bool>()) && inet_pton(AF_INET, text->c_str(), &address) == 1) {
    *ret = address.s_addr;
  }
  return true;
}

// An object, or a discarded value.
json parse_object(std::string_view payload) {
  json value = json::parse(payload, nullptr, false);
  return value.is_object() ? value : json(json::value_t::discarded);
}

bfd_operation operation_of(std::string_view word) noexcept {
  for (const operation_row& row : operations) {
    if (row.word == word) {
      return row.operation;
    }
  }
  return bfd_operation::other;
}

}  // namespace

std::string bfd_add_payload(const bfd_session_config& session, const bfd_label& label) {
  json peer = {{"peer-address", address_text(session.destination)},
               {"local-interface", session.interface.c_str()},
               {"label", label.c_str()},
               {"detect-multiplier", session.multiplier},
               {"receive-interval", session.interval},
               {"transmit-interval", session.interval},
               {"create-only", true}};
  if (session.source != 0) {
    peer["local-address"] = address_text(session.source);
  }
  const json request = {{"ipv4", json::array({std::move(peer)})}};
  return request.dump(-1, ' ', true, json::error_handler_t::replace);
}

std::string bfd_remove_payload(const bfd_label& label) {
  const json peer = {{"label", label.c_str()}};
  const json request = {{"label", json::array({peer})}};
  return request.dump(-1, ' ', true, json::error_handler_t::replace);
}

std::string bfd_subscribe_payload() {
  constexpr std::uint64_t states_and_sessions = 3;  // in the machine's byte order
  return {reinterpret_cast<const char*>(&states_and_sessions), sizeof states_and_sessions};
}

bool bfd_read_response(std::string_view payload, bool* ret_accepted) {
  const json object = parse_object(payload);
  const std::string* status = object.is_discarded() ? nullptr : text_of(object, "status");
  if (status == nullptr || (*status != "ok" && *status != "error")) {
    return false;
  }
  *ret_accepted = *status == "ok";
  return true;
}

bool bfd_read_notification(std::string_view payload, bfd_notification* ret) {
  const json object = parse_object(payload);
  const std::string* word = object.is_discarded() ? nullptr : text_of(object, "op");
  if (word == nullptr) {
    return false;
  }
  bfd_notification read;
  read.operation = operation_of(*word);
  const std::string* label = &none;
  const std::string* interface = &none;
  const std::string* state = &none;
  if (!optional_text(object, "label", &label) ||
      !optional_text(object, "local-interface", &interface) ||
      !optional_text(object, "state", &state) || !read_destination(object, &read.destination) ||
      (read.operation == bfd_operation::session_state && state == &none)) {
    return false;
  }
  read.label.assign(*label);
  read.interface.assign(*interface);
  read.up = *state == "up";
  *ret = read;
  return true;
}

}  // namespace ot
