// The ICMP sockets. What distinguishes an answer from others' traffic: the sequence of a request
// under way, the address it went to and a random token in its payload. Unreachable targets are
// learnt from the socket's error queue, which gives our own packet back.
#include "tools/qmond/kinds/icmp.h"

// Before the kernel's headers, which then leave out what both declare.
#include <net/if.h>

#include <linux/errqueue.h>
#include <linux/icmp.h>
#include <netinet/icmp6.h>
#include <sys/epoll.h>

#include <array>
#include <cerrno>
#include <cstring>

#include "tools/qmond/kinds/chance.h"

namespace ot::qmond {
namespace {

constexpr int buffer_size = 1 << 20;     // as much of it as the system allows
constexpr int batch = 32;                // packets read before others have their turn
constexpr std::size_t answer_size = 96;  // headers, the longest IPv4 one among them, and token

// What differs between the families but for the packets.
struct family_row {
  int family;
  int protocol;
  int level;          // of socket options and control messages
  int errors_option;  // gives the error queue
};
constexpr family_row ipv4{AF_INET, IPPROTO_ICMP, SOL_IP, IP_RECVERR};
constexpr family_row ipv6{AF_INET6, IPPROTO_ICMPV6, SOL_IPV6, IPV6_RECVERR};

constexpr const family_row& row_of(int family) noexcept {
  return family == AF_INET ? ipv4 : ipv6;
}

// A raw socket gets every ICMP packet of the machine unless it has a filter.
void accept_replies_only(int fd, int family) noexcept {
  if (family == AF_INET) {
    const icmp_filter filter{.data = ~(1U << ICMP_ECHOREPLY)};
    (void)setsockopt(fd, SOL_RAW, ICMP_FILTER, &filter, sizeof filter);
  } else {
    icmp6_filter filter;
    ICMP6_FILTER_SETBLOCKALL(&filter);
    ICMP6_FILTER_SETPASS(ICMP6_ECHO_REPLY, &filter);
    (void)setsockopt(fd, IPPROTO_ICMPV6, ICMP6_FILTER, &filter, sizeof filter);
  }
}

struct control_buffer {
  alignas(cmsghdr) std::array<char, 256> bytes{};
};

template <typename info_type>
void attach(msghdr* message, control_buffer* control, int level, int type, const info_type& info) {
  message->msg_control = control->bytes.data();
  message->msg_controllen = CMSG_SPACE(sizeof info);
  cmsghdr* const head = CMSG_FIRSTHDR(message);
  head->cmsg_level = level;
  head->cmsg_type = type;
  head->cmsg_len = CMSG_LEN(sizeof info);
  std::memcpy(CMSG_DATA(head), &info, sizeof info);
}

// Makes the packet leave as the operation wants. 0 or an errno value.
int attach_origin(msghdr* message, control_buffer* control, int family, const operation& what) {
  if (what.source.empty() && what.device.empty()) {
    return 0;
  }
  const unsigned index = what.device.empty() ? 0 : if_nametoindex(what.device.c_str());
  if (index == 0 && !what.device.empty()) {
    return ENODEV;
  }
  const address source = address::from_text(what.source, 0);
  if (source.set() && source.family() != family) {
    return EAFNOSUPPORT;
  }
  if (family == AF_INET) {
    in_pktinfo info{};
    info.ipi_ifindex = static_cast<int>(index);
    info.ipi_spec_dst = source.set() ? source.v4() : in_addr{};
    attach(message, control, SOL_IP, IP_PKTINFO, info);
  } else {
    in6_pktinfo info{};
    info.ipi6_ifindex = index;
    info.ipi6_addr = source.set() ? source.v6() : in6addr_any;
    attach(message, control, SOL_IPV6, IPV6_PKTINFO, info);
  }
  return 0;
}

// The errno value that comes with a packet of the error queue; 0 when there is none.
int queued_error(msghdr* message, const family_row& row) noexcept {
  for (cmsghdr* head = CMSG_FIRSTHDR(message); head != nullptr; head = CMSG_NXTHDR(message, head)) {
    if (head->cmsg_level == row.level && head->cmsg_type == row.errors_option) {
      sock_extended_err error{};
      std::memcpy(&error, CMSG_DATA(head), sizeof error);
      return static_cast<int>(error.ee_errno);
    }
  }
  return 0;
}

}  // namespace

icmp_socket::icmp_socket(sd_event* loop, int family) : family_(family) {
  const family_row& row = row_of(family);
  constexpr int flags = SOCK_NONBLOCK | SOCK_CLOEXEC;
  socket_ = unique_fd(socket(family, SOCK_DGRAM | flags, row.protocol));
  if (!socket_.valid()) {
    socket_ = unique_fd(socket(family, SOCK_RAW | flags, row.protocol));
    raw_ = true;
  }
  if (!socket_.valid()) {
    return;
  }
  if (raw_) {
    accept_replies_only(socket_.get(), family);
  }
  const int on = 1;
  (void)setsockopt(socket_.get(), row.level, row.errors_option, &on, sizeof on);
  (void)setsockopt(socket_.get(), SOL_SOCKET, SO_RCVBUF, &buffer_size, sizeof buffer_size);
  (void)setsockopt(socket_.get(), SOL_SOCKET, SO_SNDBUF, &buffer_size, sizeof buffer_size);
  fill_by_chance(&token_);
  fill_by_chance(&id_);
  source_ = loop_source::descriptor(loop, socket_.get(), EPOLLIN, [this](std::uint32_t events) {
    if ((events & EPOLLERR) != 0) {
      receive_errors();
    }
    receive();
  });
}

int icmp_socket::send_echo(const operation& what, const address& where, echo_answered call,
                           std::uint16_t* ret) {
  if (flights_.size() > UINT16_MAX / 2) {
    return ENOBUFS;
  }
  do {
    ++next_sequence_;
  } while (next_sequence_ == 0 || flights_.contains(next_sequence_));
  const auto packet = echo_request(family_, id_, next_sequence_, token_, what.size);
  if (const int error = send(packet, what, where); error != 0) {
    return error;
  }
  flights_[next_sequence_] = {.where = where, .call = std::move(call)};
  *ret = next_sequence_;
  return 0;
}

void icmp_socket::forget(std::uint16_t sequence) noexcept {
  flights_.erase(sequence);
}

int icmp_socket::send(std::span<const std::byte> packet, const operation& what,
                      const address& where) noexcept {
  iovec data{.iov_base = const_cast<std::byte*>(packet.data()), .iov_len = packet.size()};
  msghdr message{};
  // The port stands for the protocol on a raw IPv6 socket: it is 0 here.
  message.msg_name = const_cast<sockaddr*>(where.get());
  message.msg_namelen = where.size();
  message.msg_iov = &data;
  message.msg_iovlen = 1;
  control_buffer control;
  if (const int error = attach_origin(&message, &control, family_, what); error != 0) {
    return error;
  }
  // The first attempt may get the error of an earlier packet.
  const bool sent = sendmsg(socket_.get(), &message, MSG_NOSIGNAL) >= 0 ||
                    sendmsg(socket_.get(), &message, MSG_NOSIGNAL) >= 0;
  return sent ? 0 : why_not_sent(errno, family_, what);
}

void icmp_socket::answer(std::uint16_t sequence, return_code code) {
  const auto found = flights_.find(sequence);
  const echo_answered call = std::move(found->second.call);
  flights_.erase(found);
  call(code);
}

// One call for many that have come. What is behind headers and token of a large payload is cut.
void icmp_socket::receive() {
  std::array<std::array<std::byte, answer_size>, batch> buffers;
  std::array<sockaddr_in6, batch> senders;  // large enough for either family's
  std::array<iovec, batch> data;
  std::array<mmsghdr, batch> messages{};
  for (std::size_t i = 0; i < batch; ++i) {
    data[i] = {.iov_base = buffers[i].data(), .iov_len = answer_size};
    messages[i].msg_hdr.msg_name = &senders[i];
    messages[i].msg_hdr.msg_namelen = sizeof senders[i];
    messages[i].msg_hdr.msg_iov = &data[i];
    messages[i].msg_hdr.msg_iovlen = 1;
  }
  const int came = recvmmsg(socket_.get(), messages.data(), batch, 0, nullptr);
  for (std::size_t i = 0; static_cast<int>(i) < came; ++i) {
    take_answer({buffers[i].data(), messages[i].msg_len},
                address::from_socket(reinterpret_cast<const sockaddr*>(&senders[i]), 0));
  }
}

void icmp_socket::take_answer(std::span<const std::byte> packet, const address& from) {
  if (raw_ && family_ == AF_INET) {
    packet = behind_ipv4_header(packet);
  }
  const auto echo = parse_echo(family_, packet);
  if (!echo || !echo->reply || echo_token(packet) != token_ || (raw_ && echo->id != id_)) {
    return;
  }
  const auto found = flights_.find(echo->sequence);
  if (found != flights_.end() && found->second.where.same_host(from)) {
    answer(echo->sequence, return_code::ok);
  }
}

void icmp_socket::receive_errors() {
  std::array<std::byte, 2048> buffer;
  for (int i = 0; i < batch; ++i) {
    iovec data{.iov_base = buffer.data(), .iov_len = buffer.size()};
    control_buffer control;
    msghdr message{};
    message.msg_iov = &data;
    message.msg_iovlen = 1;
    message.msg_control = control.bytes.data();
    message.msg_controllen = control.bytes.size();
    const ssize_t size = recvmsg(socket_.get(), &message, MSG_ERRQUEUE);
    if (size < 0) {
      break;
    }
    take_error({buffer.data(), static_cast<std::size_t>(size)},
               queued_error(&message, row_of(family_)));
  }
  int pending = 0;
  socklen_t size = sizeof pending;
  (void)getsockopt(socket_.get(), SOL_SOCKET, SO_ERROR, &pending, &size);  // reading it clears it
}

void icmp_socket::take_error(std::span<const std::byte> packet, int error) {
  const auto echo = parse_echo(family_, packet);
  const bool ours = echo && !echo->reply && (!raw_ || echo->id == id_);
  if (ours && error != EMSGSIZE && flights_.contains(echo->sequence)) {
    answer(echo->sequence, return_code::unreachable);
  }
}

}  // namespace ot::qmond
