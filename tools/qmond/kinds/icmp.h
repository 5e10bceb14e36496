// ICMP echo packets of both address families, and the one socket of a family for the echo probes of
// all operations. It is opened once, while there are privileges, and serves operations that are
// configured later as well: interface and source address go with each packet.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <span>
#include <unordered_map>
#include <vector>

#include "platform/linux/unique_fd.h"
#include "tools/daemon/loop.h"
#include "tools/qmond/config.h"
#include "tools/qmond/outcome.h"
#include "tools/qmond/sockets.h"

namespace ot::qmond {

struct echo_header {
  bool reply = false;
  std::uint16_t id = 0;
  std::uint16_t sequence = 0;
};

inline constexpr std::size_t echo_header_size = 8;

// A request whose payload of `payload` bytes (at least 8) begins with `token`. `family` is AF_INET,
// whose checksum is made here, or AF_INET6, whose checksum the kernel makes.
std::vector<std::byte> echo_request(int family, std::uint16_t id, std::uint16_t sequence,
                                    std::uint64_t token, std::size_t payload);

// The header of an echo request or reply; nothing for any other packet.
std::optional<echo_header> parse_echo(int family, std::span<const std::byte> packet) noexcept;

// The first eight bytes of the payload; 0 when there are fewer.
std::uint64_t echo_token(std::span<const std::byte> packet) noexcept;

// What follows the IPv4 header that a raw socket delivers with each packet; empty when malformed.
std::span<const std::byte> behind_ipv4_header(std::span<const std::byte> packet) noexcept;

using echo_answered = std::function<void(return_code)>;

class icmp_socket {
 public:
  // A datagram socket where the kernel lets this user have one, else a raw one; with neither it is
  // not usable.
  icmp_socket(sd_event* loop, int family);

  // Sends an echo request and calls `call` from the loop when it is answered or found to be
  // unreachable. `ret` names it to forget(); it is never 0. 0 or an errno value.
  int send_echo(const operation& what, const address& where, echo_answered call,
                std::uint16_t* ret);
  void forget(std::uint16_t sequence) noexcept;

  [[nodiscard]] bool usable() const noexcept { return socket_.valid(); }

 private:
  struct flight {
    address where;
    echo_answered call;
  };

  int send(std::span<const std::byte> packet, const operation& what, const address& where) noexcept;
  void receive();
  void take_answer(std::span<const std::byte> packet, const address& from);
  void receive_errors();
  void take_error(std::span<const std::byte> packet, int error);
  void answer(std::uint16_t sequence, return_code code);

  const int family_;
  bool raw_ = false;
  std::uint16_t id_ = 0;     // of our requests; the kernel's choice on a datagram socket
  std::uint64_t token_ = 0;  // distinguishes our answers from those to others' pings
  std::uint16_t next_sequence_ = 0;
  unique_fd socket_;
  loop_source source_;
  std::unordered_map<std::uint16_t, flight> flights_;
};

}  // namespace ot::qmond
