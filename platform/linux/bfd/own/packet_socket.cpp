#include "platform/linux/bfd/own/packet_socket.h"

#include <netinet/ip.h>
#include <sys/random.h>

#include <cerrno>
#include <cstring>

#include "platform/status.h"

namespace ot::bfd {
namespace {

constexpr int ttl = 255;
constexpr int internetwork_control = IPTOS_PREC_INTERNETCONTROL;  // before the traffic of others
constexpr int receive_buffer = 1 << 20;
constexpr int reads_of_a_turn = 16;

// Sessions are to be told apart from everything else by the port they come from (RFC 5881, 4).
constexpr unsigned first_source_port = 49'152;
constexpr unsigned source_ports = 65'536 - first_source_port;
constexpr int port_attempts = 32;

bool set_option(int fd, int level, int name, int value) noexcept {
  return setsockopt(fd, level, name, &value, sizeof value) == 0;
}

sockaddr_in any_address(std::uint16_t port) noexcept {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(port);
  return address;
}

int bind_to(int fd, std::uint16_t port) noexcept {
  const sockaddr_in address = any_address(port);
  return bind(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0 ? status_ok
                                                                                    : errno;
}

unique_fd udp_socket() noexcept {
  return unique_fd{socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0)};
}

packet_arrival arrival_of(const msghdr& header, const sockaddr_in& from) noexcept {
  packet_arrival arrival{0, from.sin_addr.s_addr, 0};
  for (cmsghdr* part = CMSG_FIRSTHDR(&header); part != nullptr;
       part = CMSG_NXTHDR(const_cast<msghdr*>(&header), part)) {
    if (part->cmsg_level != IPPROTO_IP) {
      continue;
    }
    if (part->cmsg_type == IP_PKTINFO) {
      in_pktinfo info;
      std::memcpy(&info, CMSG_DATA(part), sizeof info);
      arrival.ifindex = static_cast<std::uint32_t>(info.ipi_ifindex);
    } else if (part->cmsg_type == IP_TTL) {
      std::memcpy(&arrival.ttl, CMSG_DATA(part), sizeof arrival.ttl);
    }
  }
  return arrival;
}

}  // namespace

int packet_socket::open(std::uint16_t source_port) noexcept {
  int status = open_receiver();
  if (status == status_ok) {
    status = open_sender(source_port);
  }
  if (status != status_ok) {
    close();
  }
  return status;
}

void packet_socket::close() noexcept {
  count_ = 0;
  receiver_.reset();
  sender_.reset();
}

// With SO_REUSEADDR: FRR's bfdd, should it start while we have the port, would end with an
// assertion if it could not bind.
int packet_socket::open_receiver() noexcept {
  unique_fd fresh = udp_socket();
  const int fd = fresh.get();
  if (!fresh.valid() || !set_option(fd, SOL_SOCKET, SO_REUSEADDR, 1) ||
      !set_option(fd, IPPROTO_IP, IP_PKTINFO, 1) || !set_option(fd, IPPROTO_IP, IP_RECVTTL, 1)) {
    return errno;
  }
  if (!set_option(fd, SOL_SOCKET, SO_RCVBUFFORCE, receive_buffer)) {
    set_option(fd, SOL_SOCKET, SO_RCVBUF, receive_buffer);
  }
  if (const int status = bind_to(fd, control_port); status != status_ok) {
    return status;
  }
  receiver_ = std::move(fresh);
  return status_ok;
}

int packet_socket::open_sender(std::uint16_t port) noexcept {
  unique_fd fresh = udp_socket();
  const int fd = fresh.get();
  if (!fresh.valid() || !set_option(fd, IPPROTO_IP, IP_TTL, ttl) ||
      !set_option(fd, IPPROTO_IP, IP_TOS, internetwork_control)) {
    return errno;
  }
  int status = EADDRINUSE;
  for (int attempt = 0; attempt < port_attempts && status == EADDRINUSE; ++attempt) {
    unsigned random = 0;
    if (port < first_source_port &&
        getrandom(&random, sizeof random, 0) != static_cast<ssize_t>(sizeof random)) {
      random = static_cast<unsigned>(attempt);
    }
    source_port_ = port >= first_source_port
                       ? port
                       : static_cast<std::uint16_t>(first_source_port + random % source_ports);
    port = 0;
    status = bind_to(fd, source_port_);
  }
  sender_ = std::move(fresh);
  return status;
}

// --- In ------------------------------------------------------------------------------------------

void packet_socket::receive(packet_visit visit, void* context) noexcept {
  constexpr std::size_t longest = 256;  // with any authentication there may be
  constexpr std::size_t controls = CMSG_SPACE(sizeof(in_pktinfo)) + CMSG_SPACE(sizeof(int));
  static std::byte bytes[batch][longest];
  alignas(cmsghdr) static char control[batch][controls];
  static sockaddr_in from[batch];
  static iovec parts[batch];
  static mmsghdr messages[batch];
  for (int reads = 0; reads < reads_of_a_turn; ++reads) {
    for (std::size_t i = 0; i < batch; ++i) {
      parts[i] = {bytes[i], longest};
      messages[i].msg_hdr = {&from[i], sizeof from[i], &parts[i], 1, control[i], controls, 0};
    }
    const int count = recvmmsg(receiver_.get(), messages, batch, MSG_DONTWAIT, nullptr);
    for (int i = 0; i < count; ++i) {
      visit(context, {bytes[i], messages[i].msg_len}, arrival_of(messages[i].msg_hdr, from[i]));
    }
    if (count < static_cast<int>(batch)) {
      return;
    }
  }
}

// --- Out -----------------------------------------------------------------------------------------

void packet_socket::send(const neighbor_path& path, const control_packet& packet) noexcept {
  if (!sender_.valid()) {
    return;
  }
  outgoing& slot = queued_[count_];
  slot.bytes = write_control_packet(packet);
  slot.to = any_address(control_port);
  slot.to.sin_addr.s_addr = path.destination;
  slot.part = {slot.bytes.data(), slot.bytes.size()};
  msghdr& header = messages_[count_].msg_hdr;
  header = {&slot.to, sizeof slot.to, &slot.part, 1, slot.control, control_size, 0};
  cmsghdr* part = CMSG_FIRSTHDR(&header);
  part->cmsg_level = IPPROTO_IP;
  part->cmsg_type = IP_PKTINFO;
  part->cmsg_len = CMSG_LEN(sizeof(in_pktinfo));
  in_pktinfo info{};
  info.ipi_ifindex = static_cast<int>(path.ifindex);
  info.ipi_spec_dst.s_addr = path.source;
  std::memcpy(CMSG_DATA(part), &info, sizeof info);
  if (++count_ == batch) {
    flush();
  }
}

// A packet that cannot be sent does not keep those behind it back.
void packet_socket::flush() noexcept {
  std::size_t sent = 0;
  while (sent < count_) {
    const int taken = sendmmsg(sender_.get(), &messages_[sent],
                               static_cast<unsigned>(count_ - sent), MSG_DONTWAIT | MSG_NOSIGNAL);
    sent += taken > 0 ? static_cast<std::size_t>(taken) : 1;
  }
  count_ = 0;
}

}  // namespace ot::bfd
