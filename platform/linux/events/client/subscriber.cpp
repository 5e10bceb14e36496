// A subscriber to the service's track events, for tools and other programs. The publisher keeps a
// bounded backlog for each; who does not read is cut off and has to subscribe again.
#include "platform/event_subscriber.h"

#include <poll.h>
#include <sys/socket.h>

#include <cerrno>
#include <memory>
#include <new>
#include <string>
#include <vector>

#include "platform/common/root_path.h"
#include "platform/ledger_status.h"
#include "platform/linux/events/protocol.h"
#include "platform/linux/monotonic.h"
#include "platform/linux/unique_fd.h"
#include "platform/linux/unix_address.h"

namespace ot {

struct evdl_subscriber {
  unique_fd connection;
  std::vector<event_packet_record> packet;  // room for the largest one
};

namespace {

constexpr int answer_limit_ms = 2'000;

int status_of_connect(int error) noexcept {
  const bool ours = error == EMFILE || error == ENFILE;  // and no word on the service
  return error == EACCES || error == EPERM ? ledger_denied
         : error == EAGAIN                 ? ledger_no_answer
         : ours                            ? error
                                           : ledger_unreachable;
}

// Connected, whatever signals come; false with errno.
bool connected(int fd, const sockaddr_un& address) noexcept {
  int result = 0;
  do {
    result = connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address);
  } while (result != 0 && errno == EINTR);
  return result == 0;
}

// Invalid with errno; EAGAIN when the publisher takes no connection now and it is not waited for
// that.
unique_fd connect_to_publisher(bool waits) {
  unique_fd connection(
      socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC | (waits ? 0 : SOCK_NONBLOCK), 0));
  if (!connection.valid()) {
    return {};
  }
  // A service that does not accept must not hang its clients.
  const timeval limit{.tv_sec = answer_limit_ms / 1000, .tv_usec = 0};
  setsockopt(connection.get(), SOL_SOCKET, SO_SNDTIMEO, &limit, sizeof limit);
  sockaddr_un address;
  if (!unix_address(root_path(event_socket_path), &address)) {
    errno = ENAMETOOLONG;
    return {};
  }
  return connected(connection.get(), address) ? std::move(connection) : unique_fd{};
}

std::vector<std::byte> subscription_packet(std::span<const evdl_filter> filters) {
  const event_subscription_head head{event_protocol_version,
                                     static_cast<std::uint32_t>(filters.size())};
  std::vector<std::byte> packet(sizeof head + filters.size() * sizeof(evdl_track_record));
  std::memcpy(packet.data(), &head, sizeof head);
  std::byte* place = packet.data() + sizeof head;
  for (const evdl_filter& filter : filters) {
    const evdl_track_record record{static_cast<std::uint32_t>(filter.track.size()),
                                   filter.any_state ? 1U : 0U, fixed_text<32>(filter.track),
                                   filter.state};
    std::memcpy(place, &record, sizeof record);
    place += sizeof record;
  }
  return packet;
}

// Whether somebody listens at the publisher's socket, who may have no room for us.
bool publisher_is_there() noexcept {
  try {
    return connect_to_publisher(false).valid() || errno == EAGAIN;
  } catch (const std::bad_alloc&) {
    return true;
  }
}

bool becomes_readable(int connection, int timeout_ms) noexcept {
  const std::uint64_t end = monotonic_ms() + static_cast<std::uint64_t>(timeout_ms);
  pollfd readable{connection, POLLIN, 0};
  int ready = 0;
  do {
    const std::uint64_t now = monotonic_ms();
    ready = poll(&readable, 1, static_cast<int>(end > now ? end - now : 0));
  } while (ready < 0 && errno == EINTR);
  return ready == 1;
}

int begin(std::span<const evdl_filter> filters, bool waits, evdl_subscriber** ret) {
  unique_fd connection = connect_to_publisher(waits);
  if (!connection.valid()) {
    return status_of_connect(errno);
  }
  const std::vector<std::byte> packet = subscription_packet(filters);
  auto added = std::make_unique<evdl_subscriber>();
  added->packet.resize(event_packet_limit);
  // A publisher that is full answers without reading, so a send that fails is not the last word.
  send(connection.get(), packet.data(), packet.size(), MSG_NOSIGNAL);
  added->connection = std::move(connection);
  *ret = added.release();
  return status_ok;
}

int begin_with_limits(std::span<const evdl_filter> filters, bool waits,
                      evdl_subscriber** ret) noexcept {
  if (filters.size() > event_filter_limit) {
    return E2BIG;
  }
  try {
    return begin(filters, waits, ret);
  } catch (const std::bad_alloc&) {
    return no_memory;
  }
}

}  // namespace

int evdl_subscribe_begin(std::span<const evdl_filter> filters, evdl_subscriber** ret) noexcept {
  return begin_with_limits(filters, false, ret);
}

// A publisher that refused without reading leaves a reset before its answer; one that is full may
// end the connection without any, as one that has just gone does.
int evdl_subscribe_answer(const evdl_subscriber* subscriber, int timeout_ms) noexcept {
  const int connection = subscriber->connection.get();
  event_subscription_answer answer;
  if (!becomes_readable(connection, timeout_ms)) {
    return ledger_no_answer;
  }
  ssize_t length = recv(connection, &answer, sizeof answer, MSG_DONTWAIT);
  if (length < 0 && errno == ECONNRESET) {
    length = recv(connection, &answer, sizeof answer, MSG_DONTWAIT);
  }
  if (length != static_cast<ssize_t>(sizeof answer)) {
    return publisher_is_there() ? ledger_busy : ledger_unreachable;
  }
  return answer.status == EUSERS ? ledger_busy : answer.status;
}

int evdl_subscribe(std::span<const evdl_filter> filters, evdl_subscriber** ret) noexcept {
  evdl_subscriber* begun = nullptr;
  int status = begin_with_limits(filters, true, &begun);
  if (status == status_ok) {
    status = evdl_subscribe_answer(begun, answer_limit_ms);
  }
  if (status != status_ok) {
    delete begun;
    return status;
  }
  *ret = begun;
  return status_ok;
}

int evdl_subscriber_fd(const evdl_subscriber* subscriber) noexcept {
  return subscriber->connection.get();
}

int evdl_receive(evdl_subscriber* subscriber, int timeout_ms,
                 const std::function<void(const evdl_track_event&)>& on_event) {
  const int connection = subscriber->connection.get();
  pollfd readable{connection, POLLIN, 0};
  if (poll(&readable, 1, timeout_ms) <= 0) {
    return status_ok;
  }
  std::vector<event_packet_record>& packet = subscriber->packet;
  for (;;) {
    const ssize_t length =
        recv(connection, packet.data(), packet.size() * sizeof packet[0], MSG_DONTWAIT);
    if (length < 0 && (errno == EAGAIN || errno == EINTR)) {
      return status_ok;
    }
    if (length <= 0) {
      return ledger_unreachable;
    }
    const auto count = static_cast<std::size_t>(length) / sizeof packet[0];
    for (event_packet_record& record : std::span(packet).first(count)) {
      terminate(record.name);
      on_event({std::string(record.name.view()), record.state});
    }
  }
}

void evdl_unsubscribe(evdl_subscriber* subscriber) noexcept {
  delete subscriber;
}

}  // namespace ot
