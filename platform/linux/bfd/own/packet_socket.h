// The UDP sockets of our own BFD engine (RFC 5881): packets come to port 3784, and go out, all
// sessions', from one port of the upper range, each over its session's interface. In both
// directions many at a time. Loop's thread.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

#include <netinet/in.h>
#include <sys/socket.h>

#include "platform/common/bfd/packet.h"
#include "platform/common/bfd/speaker.h"
#include "platform/linux/unique_fd.h"

namespace ot::bfd {

inline constexpr std::uint16_t control_port = 3784;

class packet_socket {
 public:
  using packet_visit = void (*)(void* context, std::span<const std::byte> datagram,
                                const packet_arrival& arrival);

  // `source_port`: to be sent from, if it is free; 0: any. 0 or an errno value.
  int open(std::uint16_t source_port) noexcept;
  void close() noexcept;
  [[nodiscard]] bool is_open() const noexcept { return receiver_.valid(); }
  [[nodiscard]] int fd() const noexcept { return receiver_.get(); }
  [[nodiscard]] std::uint16_t source_port() const noexcept { return source_port_; }

  // Hands over what has come, but no more than a turn should take.
  void receive(packet_visit visit, void* context) noexcept;

  // Sends a packet, at the latest with the next flush(). What the kernel does not take is lost, as
  // on any link.
  void send(const neighbor_path& path, const control_packet& packet) noexcept;
  void flush() noexcept;

 private:
  static constexpr std::size_t batch = 64;
  static constexpr std::size_t control_size = CMSG_SPACE(sizeof(in_pktinfo));

  struct outgoing {
    std::array<std::byte, control_packet_size> bytes;
    sockaddr_in to;
    alignas(cmsghdr) char control[control_size];
    iovec part;
  };

  int open_receiver() noexcept;
  int open_sender(std::uint16_t port) noexcept;

  unique_fd receiver_;
  unique_fd sender_;
  std::uint16_t source_port_ = 0;
  std::array<outgoing, batch> queued_;
  std::array<mmsghdr, batch> messages_;
  std::size_t count_ = 0;
};

}  // namespace ot::bfd
