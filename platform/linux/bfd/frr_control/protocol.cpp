// Messages of the BFD engine's control socket, put together and taken apart. The engine is trusted
// with nothing: a header is judged before its payload is waited for, and the payload's JSON is
// checked field by field, since the library would throw at a wrong one. The engine dies of
// well-formed JSON of the wrong shape, so what it is sent is built here and nowhere else.
#include "platform/linux/bfd/frr_control/protocol.h"

#include <arpa/inet.h>
#include <nlohmann/json.hpp>

#include <cstring>
#include <utility>

namespace ot::bfd {
namespace {

constexpr std::uint8_t protocol_version = 1;
constexpr std::size_t buffer_size = frame_header_size + payload_limit;

struct wire_header {
  std::uint32_t length = 0;  // of the payload, network byte order
  std::uint16_t id = 0;      // echoed as it is
  std::uint8_t type = 0;
  std::uint8_t version = protocol_version;
};
static_assert(sizeof(wire_header) == frame_header_size);

bool plausible(const wire_header& header) noexcept {
  return header.version == protocol_version &&
         (header.type == message_response || header.type == message_notification) &&
         ntohl(header.length) <= payload_limit;
}

}  // namespace

std::string frame_bytes(std::uint8_t type, std::uint16_t id, std::string_view payload) {
  const wire_header header{htonl(static_cast<std::uint32_t>(payload.size())), id, type,
                           protocol_version};
  std::string bytes(sizeof header, '\0');
  std::memcpy(bytes.data(), &header, sizeof header);
  return bytes.append(payload);
}

// Not cleared: pages that no message reaches are never touched.
frame_reader::frame_reader() : buffer_(std::make_unique_for_overwrite<char[]>(buffer_size)) {}

std::span<char> frame_reader::room() noexcept {
  if (begin_ > 0) {
    std::memmove(buffer_.get(), buffer_.get() + begin_, end_ - begin_);
    end_ -= begin_;
    begin_ = 0;
  }
  return {buffer_.get() + end_, buffer_size - end_};
}

frame_reader::found frame_reader::next(frame_view* ret) noexcept {
  wire_header header;
  if (end_ - begin_ < sizeof header) {
    return found::nothing;
  }
  const char* start = buffer_.get() + begin_;
  std::memcpy(&header, start, sizeof header);
  if (!plausible(header)) {
    return found::broken;
  }
  const std::size_t length = ntohl(header.length);
  if (end_ - begin_ < sizeof header + length) {
    return found::nothing;
  }
  *ret = {header.id, header.type, {start + sizeof header, length}};
  begin_ += sizeof header + length;
  return found::frame;
}

// --- Payloads ------------------------------------------------------------------------------------

namespace {

using nlohmann::json;

struct operation_row {
  std::string_view word;
  operation_kind operation;
};

constexpr operation_row operations[] = {
    {"add", operation_kind::session_present},
    {"delete", operation_kind::session_gone},
    {"status", operation_kind::session_state},
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

// A state by its word; what is not known is not up.
std::uint8_t state_of(std::string_view word) noexcept {
  constexpr std::pair<std::string_view, std::uint8_t> states[] = {
      {"up", bfd_state_up}, {"init", bfd_state_init}, {"adm-down", bfd_state_admin_down}};
  for (const auto& [text, state] : states) {
    if (text == word) {
      return state;
    }
  }
  return bfd_state_down;
}

// A diagnostic is five bits on the wire; without one that can be, none.
std::uint8_t diagnostic_of(const json& object, const char* key) {
  const auto found = object.find(key);
  const bool number = found != object.end() && found->is_number_unsigned();
  const std::uint64_t value = number ? found->get<std::uint64_t>() : 0;
  return value < 32 ? static_cast<std::uint8_t>(value) : 0;
}

// An object, or a discarded value.
json parse_object(std::string_view payload) {
  json value = json::parse(payload, nullptr, false);
  return value.is_object() ? value : json(json::value_t::discarded);
}

operation_kind operation_of(std::string_view word) noexcept {
  for (const operation_row& row : operations) {
    if (row.word == word) {
      return row.operation;
    }
  }
  return operation_kind::other;
}

}  // namespace

std::string add_payload(const session_config& session, const session_label& label) {
  json peer = {{"peer-address", address_text(session.key.destination)},
               {"local-interface", session.key.interface.c_str()},
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

std::string remove_payload(const session_label& label) {
  const json peer = {{"label", label.c_str()}};
  const json request = {{"label", json::array({peer})}};
  return request.dump(-1, ' ', true, json::error_handler_t::replace);
}

std::string subscribe_payload() {
  constexpr std::uint64_t states_and_sessions = 3;  // in the machine's byte order
  return {reinterpret_cast<const char*>(&states_and_sessions), sizeof states_and_sessions};
}

std::string heartbeat_payload() {
  return "{}";
}

bool read_response(std::string_view payload, bool* ret_accepted) {
  const json object = parse_object(payload);
  const std::string* status = object.is_discarded() ? nullptr : text_of(object, "status");
  if (status == nullptr || (*status != "ok" && *status != "error")) {
    return false;
  }
  *ret_accepted = *status == "ok";
  return true;
}

bool read_notification(std::string_view payload, engine_notification* ret) {
  const json object = parse_object(payload);
  const std::string* word = object.is_discarded() ? nullptr : text_of(object, "op");
  if (word == nullptr) {
    return false;
  }
  engine_notification read;
  read.operation = operation_of(*word);
  const std::string* label = &none;
  const std::string* interface = &none;
  const std::string* state = &none;
  if (!optional_text(object, "label", &label) ||
      !optional_text(object, "local-interface", &interface) ||
      !optional_text(object, "state", &state) ||
      !read_destination(object, &read.session.destination) ||
      (read.operation == operation_kind::session_state && state == &none)) {
    return false;
  }
  read.label.assign(*label);
  read.session.interface.assign(*interface);
  read.state = state_of(*state);
  read.diagnostic = diagnostic_of(object, "diagnostics");
  read.remote_diagnostic = diagnostic_of(object, "remote-diagnostics");
  *ret = read;
  return true;
}

}  // namespace ot::bfd
