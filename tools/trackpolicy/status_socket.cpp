// One answer a connection, written as the reader reads it, for a few seconds at most.
#include "tools/trackpolicy/status_socket.h"

#include <sys/epoll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cmath>
#include <utility>

#include "platform/common/root_path.h"
#include "platform/linux/monotonic.h"
#include "platform/linux/process/directories.h"
#include "platform/linux/unix_address.h"
#include "tools/json.h"
#include "tools/trackpolicy/failure.h"
#include "tools/trackpolicy/kinds/kinds.h"

namespace ot::trackpolicy {
namespace {

constexpr std::uint64_t patience_us = 5'000'000;
constexpr std::uint64_t accuracy_us = 100'000;

void add_filter(const filter_report& filter, nlohmann::ordered_json& row) {
  const nlohmann::ordered_json none(nullptr);
  row["penalty"] = none;
  row["suppressed_ms"] = none;
  row["held"] = none;
  row["held_ms"] = none;
  if (filter.damped) {
    row["penalty"] = std::lround(filter.penalty);
    row["suppressed_ms"] = filter.suppressed_us / 1000;
  }
  if (filter.held) {
    row["held"] = word_of(*filter.held);
    row["held_ms"] = filter.held_us / 1000;
  }
}

}  // namespace

std::string status_json(const std::vector<policy_status>& policies) {
  std::string text;
  for (const policy_status& each : policies) {
    nlohmann::ordered_json row{{"policy", each.of.name},
                               {"kind", kind_of(each.of.kind).word},
                               {"track", each.of.track},
                               {"state", word_of(each.state)},
                               {"service", each.known ? "reachable" : "gone"},
                               {"doing", each.at_work.doing},
                               {"problem", each.at_work.problem},
                               {"runs", each.at_work.runs},
                               {"failures", each.at_work.failures},
                               {"dropped", each.at_work.dropped}};
    add_filter(each.filter, row);
    text += (text.empty() ? "\n  " : ",\n  ") +
            row.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
  }
  return '[' + text + (text.empty() ? "]\n" : "\n]\n");
}

status_socket::status_socket(sd_event* loop, std::function<std::string()> answer)
    : loop_(loop), answer_(std::move(answer)) {
  const std::string path = root_path(status_socket_path);
  sockaddr_un address{};
  listener_ = unique_fd(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
  // Of a trackpolicy that was killed; the instance's lock says that there is no other.
  unlink(path.c_str());
  if (!listener_.valid() || !unix_address(path, &address) ||
      bind(listener_.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0 ||
      share_with_group(path, 0660) != 0 || listen(listener_.get(), readers_max) != 0) {
    throw failure(exit_failed, place_error(path, errno));
  }
  arrival_ = loop_source::descriptor(loop_, listener_.get(), EPOLLIN,
                                     [this](std::uint32_t) { accept_one(); });
}

status_socket::~status_socket() {
  unlink(root_path(status_socket_path).c_str());
}

// Who comes when there are too many is closed at once.
void status_socket::accept_one() {
  unique_fd made(accept4(listener_.get(), nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK));
  if (!made.valid() || readers_.size() >= readers_max) {
    return;
  }
  const int number = made.get();
  reader& added = readers_[number];
  added.socket = std::move(made);
  added.text = answer_();
  if (!send_some(added)) {
    readers_.erase(number);
    return;
  }
  added.writable = loop_source::descriptor(loop_, number, EPOLLOUT, [this, number](std::uint32_t) {
    if (!send_some(readers_.at(number))) {
      readers_.erase(number);
    }
  });
  added.deadline = loop_source::timer(loop_, monotonic_us() + patience_us, accuracy_us,
                                      [this, number](std::uint32_t) { readers_.erase(number); });
}

// Whether there is more to send.
bool status_socket::send_some(reader& to) {
  const ssize_t size = send(to.socket.get(), to.text.data() + to.sent, to.text.size() - to.sent,
                            MSG_NOSIGNAL | MSG_DONTWAIT);
  if (size < 0) {
    return errno == EAGAIN || errno == EINTR;
  }
  to.sent += static_cast<std::size_t>(size);
  return to.sent < to.text.size();
}

}  // namespace ot::trackpolicy
