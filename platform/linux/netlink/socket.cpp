// Netlink through libmnl. A lost event is announced by ENOBUFS before the events that are
// still queued; what to do then is the owner's decision.
#include "platform/linux/netlink/socket.h"

#include <sys/socket.h>
#include <sys/time.h>

#include <cerrno>
#include <cstring>
#include <new>

namespace ot {
namespace {

constexpr int events_buffer = 8 * 1024 * 1024;

// More than the buffer holds; a flood that goes on must not keep us here.
constexpr int drain_max = 4'096;

constexpr std::size_t read_size = 32'768;  // what the kernel fills in one go of a dump

// Events come one a datagram, and this many are read by one call.
constexpr std::size_t datagrams_of_one_read = 16;

// Where a thread reads to; null when there is no memory for it. One read at a time, on the loop's
// thread and never nested: the answers of a request are complete before it returns, and events are
// handed on after their read. From the heap, of which it takes only the pages that were ever
// written: the system clears a buffer of the thread's own when the thread begins.
thread_local std::unique_ptr<char[]> read_memory;

char* read_buffer() noexcept {
  if (read_memory == nullptr) {
    read_memory.reset(new (std::nothrow) char[datagrams_of_one_read * read_size]);
  }
  return read_memory.get();
}

// The answer's end as seen in one message: -1 to go on, else the errno value.
int answer_end(const nlmsghdr& message) noexcept {
  if (message.nlmsg_type == NLMSG_ERROR) {
    return -static_cast<const nlmsgerr*>(mnl_nlmsg_get_payload(&message))->error;
  }
  if (message.nlmsg_type != NLMSG_DONE) {
    return -1;
  }
  // A dump that fails once it has begun says so in its last message.
  std::int32_t status = 0;
  if (message.nlmsg_len >= NLMSG_LENGTH(sizeof status)) {
    std::memcpy(&status, mnl_nlmsg_get_payload(&message), sizeof status);
  }
  return status < 0 ? -status : 0;
}

// Each message of a datagram.
void hand_over(const char* datagram, std::size_t length, netlink_visit visit, void* context) {
  const auto* message = reinterpret_cast<const nlmsghdr*>(datagram);
  int left = static_cast<int>(length);
  for (; mnl_nlmsg_ok(message, left); message = mnl_nlmsg_next(message, &left)) {
    visit(context, *message);
  }
}

}  // namespace

int netlink_error(const nlmsghdr& message) noexcept {
  return message.nlmsg_type == NLMSG_ERROR
             ? -static_cast<const nlmsgerr*>(mnl_nlmsg_get_payload(&message))->error
             : 0;
}

int netlink_socket::open(int family, std::uint32_t groups, int flags) noexcept {
  socket_.reset(mnl_socket_open2(family, SOCK_CLOEXEC | flags));
  if (socket_ == nullptr || mnl_socket_bind(socket_.get(), groups, MNL_SOCKET_AUTOPID) < 0) {
    return errno;
  }
  return 0;
}

int netlink_socket::open_events(std::uint32_t groups) noexcept {
  const int status = open(NETLINK_ROUTE, groups, SOCK_NONBLOCK);
  if (status != 0) {
    return status;
  }
  // Without the privilege the system's own limit holds; a burst then costs a new dump sooner.
  if (setsockopt(fd(), SOL_SOCKET, SO_RCVBUFFORCE, &events_buffer, sizeof events_buffer) != 0) {
    setsockopt(fd(), SOL_SOCKET, SO_RCVBUF, &events_buffer, sizeof events_buffer);
  }
  return 0;
}

int netlink_socket::open_requests(int family) noexcept {
  const int status = open(family, 0, 0);
  if (status != 0) {
    return status;
  }
  // The kernel answers within the call that asks; the limit only keeps a defect from hanging us.
  const timeval limit{1, 0};
  setsockopt(fd(), SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);
  return 0;
}

// Of an answer, one datagram.
int netlink_socket::receive(netlink_visit visit, void* context) noexcept {
  char* const buffer = read_buffer();
  if (buffer == nullptr) {
    return ENOMEM;
  }
  ssize_t length = -1;
  do {
    length = mnl_socket_recvfrom(socket_.get(), buffer, read_size);
  } while (length < 0 && errno == EINTR);
  if (length < 0) {
    return errno;
  }
  hand_over(buffer, static_cast<std::size_t>(length), visit, context);
  return 0;
}

int netlink_socket::receive_events(netlink_visit visit, void* context) noexcept {
  bool any = false;
  return receive_some(MSG_DONTWAIT, any, visit, context);
}

int netlink_socket::receive_some(int flags, bool& ret_any, netlink_visit visit,
                                 void* context) noexcept {
  char* const buffer = read_buffer();
  if (buffer == nullptr) {
    return ENOMEM;
  }
  mmsghdr datagrams[datagrams_of_one_read] = {};
  iovec places[datagrams_of_one_read];
  for (std::size_t i = 0; i < datagrams_of_one_read; ++i) {
    places[i] = {buffer + i * read_size, read_size};
    datagrams[i].msg_hdr.msg_iov = &places[i];
    datagrams[i].msg_hdr.msg_iovlen = 1;
  }
  int count = -1;
  do {
    count = recvmmsg(fd(), datagrams, datagrams_of_one_read, flags, nullptr);
  } while (count < 0 && errno == EINTR);
  if (count < 0) {
    return errno;
  }
  ret_any = count > 0;
  bool cut = false;
  for (int i = 0; i < count; ++i) {
    cut |= (datagrams[i].msg_hdr.msg_flags & MSG_TRUNC) != 0;
    hand_over(static_cast<const char*>(places[i].iov_base), datagrams[i].msg_len, visit, context);
  }
  // Of an event that is longer than any we know, not even the kind can be relied upon.
  return cut ? ENOBUFS : static_cast<std::size_t>(count) < datagrams_of_one_read ? EAGAIN : 0;
}

int netlink_socket::drain() noexcept {
  int status = 0;
  for (int reads = 0; (status == 0 || status == ENOBUFS) && reads < drain_max; ++reads) {
    status = receive_events([](void*, const nlmsghdr&) {}, nullptr);
  }
  return status == EAGAIN || status == ENOBUFS ? 0 : status;
}

int netlink_socket::request(nlmsghdr* message, netlink_visit visit, void* context) noexcept {
  if ((message->nlmsg_flags & NLM_F_DUMP) != NLM_F_DUMP) {
    message->nlmsg_flags |= NLM_F_ACK;
  }
  return exchange(message, false, visit, context);
}

int netlink_socket::ask(nlmsghdr* message, netlink_visit visit, void* context) noexcept {
  return exchange(message, true, visit, context);
}

int netlink_socket::ask_all(std::span<char> questions, netlink_answer visit,
                            void* context) noexcept {
  struct answers {
    netlink_answer visit;
    void* context;
    std::uint32_t first;
    std::uint32_t count = 0;
    std::uint32_t received = 0;
  } state{visit, context, sequence_ + 1};
  for (std::size_t at = 0; at < questions.size(); ++state.count) {
    auto* message = reinterpret_cast<nlmsghdr*>(questions.data() + at);
    message->nlmsg_flags |= NLM_F_REQUEST;
    message->nlmsg_seq = ++sequence_;
    at += NLMSG_ALIGN(message->nlmsg_len);
  }
  if (state.count > 0 && mnl_socket_sendto(socket_.get(), questions.data(), questions.size()) < 0) {
    return errno;
  }
  while (state.received < state.count) {
    // Nothing for the time that the socket waits: the rest was lost.
    bool any = false;
    const int status = receive_some(
        MSG_WAITFORONE, any,
        [](void* to, const nlmsghdr& part) {
          auto& reply = *static_cast<answers*>(to);
          const std::uint32_t question = part.nlmsg_seq - reply.first;
          if (question < reply.count) {  // else left over from a request that was given up
            ++reply.received;
            reply.visit(reply.context, question, part);
          }
        },
        &state);
    if (!any) {
      return status;
    }
  }
  return 0;
}

int netlink_socket::exchange(nlmsghdr* message, bool one_answer, netlink_visit visit,
                             void* context) noexcept {
  struct answer {
    netlink_visit visit;
    void* context;
    std::uint32_t sequence;
    bool one;
    bool interrupted = false;
    int end = -1;
  };
  message->nlmsg_flags |= NLM_F_REQUEST;
  message->nlmsg_seq = ++sequence_;
  if (mnl_socket_sendto(socket_.get(), message, message->nlmsg_len) < 0) {
    return errno;
  }
  answer state{visit, context, sequence_, one_answer};
  while (state.end < 0) {
    const int status = receive(
        [](void* to, const nlmsghdr& part) {
          auto& reply = *static_cast<answer*>(to);
          if (part.nlmsg_seq != reply.sequence || reply.end >= 0) {
            return;  // left over from a request that was given up
          }
          reply.interrupted |= (part.nlmsg_flags & NLM_F_DUMP_INTR) != 0;
          reply.end = answer_end(part);
          if (reply.end < 0) {
            reply.visit(reply.context, part);
            reply.end = reply.one ? 0 : -1;
          }
        },
        &state);
    if (status != 0) {
      return status;
    }
  }
  return state.interrupted && state.end == 0 ? EINTR : state.end;
}

}  // namespace ot
