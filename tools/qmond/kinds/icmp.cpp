// ICMP echo: success is the echo. The sockets are shared; a probe is one packet under way. Echo
// packets are laid out alike in both families: type, code, checksum, id, sequence, payload.
#include "tools/qmond/kinds/icmp.h"

#include <arpa/inet.h>
#include <netinet/icmp6.h>
#include <netinet/ip_icmp.h>
#include <sys/socket.h>

#include <array>
#include <cstring>

#include "tools/qmond/kinds/host.h"

namespace ot::qmond {
namespace {

struct type_pair {
  std::uint8_t request;
  std::uint8_t reply;
};

constexpr type_pair types_of(int family) noexcept {
  return family == AF_INET ? type_pair{ICMP_ECHO, ICMP_ECHOREPLY}
                           : type_pair{ICMP6_ECHO_REQUEST, ICMP6_ECHO_REPLY};
}

std::uint16_t read_u16(std::span<const std::byte> from, std::size_t offset) noexcept {
  return static_cast<std::uint16_t>(std::to_integer<unsigned>(from[offset]) << 8 |
                                    std::to_integer<unsigned>(from[offset + 1]));
}

void write_u16(std::span<std::byte> to, std::size_t offset, std::uint16_t value) noexcept {
  to[offset] = static_cast<std::byte>(value >> 8);
  to[offset + 1] = static_cast<std::byte>(value & 0xff);
}

std::uint16_t internet_checksum(std::span<const std::byte> data) noexcept {
  std::uint32_t sum = 0;
  for (std::size_t i = 0; i + 1 < data.size(); i += 2) {
    sum += read_u16(data, i);
  }
  if (data.size() % 2 != 0) {
    sum += std::to_integer<std::uint32_t>(data.back()) << 8;
  }
  while (sum >> 16 != 0) {
    sum = (sum & 0xffff) + (sum >> 16);
  }
  return static_cast<std::uint16_t>(~sum);
}

class icmp_probe : public probe {
 public:
  explicit icmp_probe(icmp_socket& socket) noexcept : socket_(socket) {}
  ~icmp_probe() override { socket_.forget(sequence_); }

  int send(const operation& what, const address& where, probe_done done) {
    return socket_.send_echo(what, where, std::move(done), &sequence_);
  }

 private:
  icmp_socket& socket_;
  std::uint16_t sequence_ = 0;  // never a request's while nothing was sent
};

started start(probe_host& host, const operation& what, const address& where, probe_done done) {
  icmp_socket& socket = where.family() == AF_INET ? host.icmp_v4 : host.icmp_v6;
  if (!socket.usable()) {
    return {.running = nullptr, .code = return_code::cannot_run};
  }
  auto made = std::make_unique<icmp_probe>(socket);
  if (const int error = made->send(what, where, std::move(done)); error != 0) {
    return {.running = nullptr, .code = code_of_errno(error)};
  }
  return {.running = std::move(made), .code = return_code::none};
}

constexpr std::array own_keys{
    key_row{"size", take_value<&operation::size, number_value, 8, 65000>, key_common},
};

}  // namespace

constinit const kind icmp_kind{
    .id = kind_id::icmp,
    .word = "icmp",
    .keys = own_keys,
    .target =
        [](const std::string& text) {
          return host_port{host_value(text), 0};
        },
    .start = start,
};

std::vector<std::byte> echo_request(int family, std::uint16_t id, std::uint16_t sequence,
                                    std::uint64_t token, std::size_t payload) {
  std::vector<std::byte> packet(echo_header_size + payload);
  packet[0] = static_cast<std::byte>(types_of(family).request);
  write_u16(packet, 4, id);
  write_u16(packet, 6, sequence);
  std::memcpy(packet.data() + echo_header_size, &token, sizeof token);
  if (family == AF_INET) {
    write_u16(packet, 2, internet_checksum(packet));
  }
  return packet;
}

std::optional<echo_header> parse_echo(int family, std::span<const std::byte> packet) noexcept {
  if (packet.size() < echo_header_size) {
    return {};
  }
  const auto type = std::to_integer<std::uint8_t>(packet[0]);
  if (type != types_of(family).request && type != types_of(family).reply) {
    return {};
  }
  return echo_header{.reply = type == types_of(family).reply,
                     .id = read_u16(packet, 4),
                     .sequence = read_u16(packet, 6)};
}

std::uint64_t echo_token(std::span<const std::byte> packet) noexcept {
  std::uint64_t token = 0;
  if (packet.size() >= echo_header_size + sizeof token) {
    std::memcpy(&token, packet.data() + echo_header_size, sizeof token);
  }
  return token;
}

std::span<const std::byte> behind_ipv4_header(std::span<const std::byte> packet) noexcept {
  if (packet.empty()) {
    return {};
  }
  const std::size_t length = (std::to_integer<std::size_t>(packet[0]) & 0xf) * 4;
  return length < 20 || length > packet.size() ? std::span<const std::byte>{}
                                               : packet.subspan(length);
}

}  // namespace ot::qmond
