// Framing of the BFD engine's control socket: an 8-byte header (payload length, id, type, version)
// and the payload. Pure.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <string_view>

namespace ot {

inline constexpr std::size_t bfd_header_size = 8;

// Longer messages are not of this world: the engine's own are below 1 KB.
inline constexpr std::size_t bfd_payload_limit = std::size_t{64} * 1024;

inline constexpr std::uint8_t bfd_type_response = 1;
inline constexpr std::uint8_t bfd_type_add = 2;
inline constexpr std::uint8_t bfd_type_remove = 3;
inline constexpr std::uint8_t bfd_type_subscribe = 4;
inline constexpr std::uint8_t bfd_type_notification = 4;

struct bfd_frame {
  std::uint16_t id = 0;
  std::uint8_t type = 0;
  std::string_view payload;  // in the buffer it came in
};

// Header and payload in one piece: a lone header would stop the engine until the rest has come.
std::string bfd_frame_bytes(std::uint8_t type, std::uint16_t id, std::string_view payload);

// Takes a stream apart. Its memory is one buffer with room for the longest message.
class bfd_frame_reader {
 public:
  enum class found { nothing, frame, broken };

  bfd_frame_reader();  // throws bad_alloc

  // Where bytes of the stream are to be put, never empty while `next` has not found it broken.
  // Invalidates the payloads handed out.
  [[nodiscard]] std::span<char> room() noexcept;
  void received(std::size_t count) noexcept { end_ += count; }

  // The next whole message; `broken` for a message that the engine cannot have sent: a wrong
  // version, an unknown type, an endless length.
  [[nodiscard]] found next(bfd_frame* ret) noexcept;

  // A message has begun and is not complete.
  [[nodiscard]] bool partial() const noexcept { return begin_ != end_; }

 private:
  std::unique_ptr<char[]> buffer_;
  std::size_t begin_ = 0;
  std::size_t end_ = 0;
};

}  // namespace ot
