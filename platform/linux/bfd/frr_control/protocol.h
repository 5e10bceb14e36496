// The protocol of the BFD engine's control socket: its framing, an 8-byte header (payload length,
// id, type, version) and the payload, and what the payloads say. Pure. Writing throws bad_alloc; so
// does reading, and nothing else.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <string_view>

#include "platform/fixed_text.h"
#include "platform/linux/bfd/engine.h"

namespace ot::bfd {

inline constexpr std::size_t frame_header_size = 8;

// Longer messages are not of this world: the engine's own are below 1 KB.
inline constexpr std::size_t payload_limit = std::size_t{64} * 1024;

inline constexpr std::uint8_t message_response = 1;
inline constexpr std::uint8_t message_add = 2;
inline constexpr std::uint8_t message_remove = 3;
inline constexpr std::uint8_t message_subscribe = 4;
inline constexpr std::uint8_t message_notification = 4;

struct frame_view {
  std::uint16_t id = 0;
  std::uint8_t type = 0;
  std::string_view payload;  // in the buffer it came in
};

// Header and payload in one piece: a lone header would stop the engine until the rest has come.
std::string frame_bytes(std::uint8_t type, std::uint16_t id, std::string_view payload);

// Takes a stream apart. Its memory is one buffer with room for the longest message.
class frame_reader {
 public:
  enum class found { nothing, frame, broken };

  frame_reader();  // throws bad_alloc

  // Where bytes of the stream are to be put, never empty while `next` has not found it broken.
  // Invalidates the payloads handed out.
  [[nodiscard]] std::span<char> room() noexcept;
  void received(std::size_t count) noexcept { end_ += count; }

  // The next whole message; `broken` for a message that the engine cannot have sent: a wrong
  // version, an unknown type, an endless length.
  [[nodiscard]] found next(frame_view* ret) noexcept;

  // A message has begun and is not complete.
  [[nodiscard]] bool partial() const noexcept { return begin_ != end_; }

 private:
  std::unique_ptr<char[]> buffer_;
  std::size_t begin_ = 0;
  std::size_t end_ = 0;
};

using session_label = fixed_text<32>;
// Payloads. The session must not exist yet: a second client's request for it would change the
// first one's session.
std::string add_payload(const session_config& session, const session_label& label);
std::string remove_payload(const session_label& label);
// For the states of all sessions and for which sessions there are. The engine repeats both at once.
std::string subscribe_payload();
// Changes nothing and is answered like any other: a sign of life.
std::string heartbeat_payload();

enum class operation_kind { other, session_present, session_gone, session_state };

// About one session. Sessions of others may have no label.
struct engine_notification {
  operation_kind operation = operation_kind::other;
  session_label label;
  session_key
      session;  // no destination: none of a single hop over IPv4; the interface may be empty
  // With session_state; numbers as in the protocol.
  std::uint8_t state = bfd_state_down;
  std::uint8_t diagnostic = 0;
  std::uint8_t remote_diagnostic = 0;
};

// False when the payload is not what the engine sends. `ret` is then unchanged.
bool read_response(std::string_view payload, bool* ret_accepted);
bool read_notification(std::string_view payload, engine_notification* ret);

}  // namespace ot::bfd
