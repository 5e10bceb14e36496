// Messages of the BFD engine's control socket, put together and taken apart. The engine is trusted
// with nothing: a header is judged before its payload is waited for.
#include "platform/linux/bfd/frame.h"

#include <arpa/inet.h>

#include <cstring>

namespace ot {
namespace {

constexpr std::uint8_t protocol_version = 1;
constexpr std::size_t buffer_size = bfd_header_size + bfd_payload_limit;

struct wire_header {
  std::uint32_t length = 0;  // of the payload, network byte order
  std::uint16_t id = 0;      // echoed as it is
  std::uint8_t type = 0;
  std::uint8_t version = protocol_version;
};
static_assert(sizeof(wire_header) == bfd_header_size);

bool plausible(const wire_header& header) noexcept {
  return header.version == protocol_version &&
         (header.type == bfd_type_response || header.type == bfd_type_notification) &&
         ntohl(header.length) <= bfd_payload_limit;
}

}  // namespace

std::string bfd_frame_bytes(std::uint8_t type, std::uint16_t id, std::string_view payload) {
  const wire_header header{htonl(static_cast<std::uint32_t>(payload.size())), id, type,
                           protocol_version};
  std::string bytes(sizeof header, '\0');
  std::memcpy(bytes.data(), &header, sizeof header);
  return bytes.append(payload);
}

// Not cleared: pages that no message reaches are never touched.
bfd_frame_reader::bfd_frame_reader()
    : buffer_(std::make_unique_for_overwrite<char[]>(buffer_size)) {}

std::span<char> bfd_frame_reader::room() noexcept {
  if (begin_ > 0) {
    std::memmove(buffer_.get(), buffer_.get() + begin_, end_ - begin_);
    end_ -= begin_;
    begin_ = 0;
  }
  return {buffer_.get() + end_, buffer_size - end_};
}

bfd_frame_reader::found bfd_frame_reader::next(bfd_frame* ret) noexcept {
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

}  // namespace ot
