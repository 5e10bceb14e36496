// Routing netlink. What is asked for is answered within the call; events wait until they are read.
#include "tools/trackpolicy/kernel/kernel_access.h"

#include <linux/rtnetlink.h>
#include <sys/epoll.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <utility>

namespace ot::trackpolicy {
namespace {

constexpr unsigned groups =
    RTMGRP_LINK | RTMGRP_IPV4_IFADDR | RTMGRP_IPV6_IFADDR | RTMGRP_IPV4_ROUTE | RTMGRP_IPV6_ROUTE;

// How often a dump is tried again when the tables changed under it. After that what it brought
// counts: what changed comes as an event.
constexpr int read_attempts = 4;

constexpr std::array<std::uint8_t, 2> families{AF_INET, AF_INET6};

void ask_for(int fd, int option) noexcept {
  constexpr int on = 1;
  (void)setsockopt(fd, SOL_NETLINK, option, &on, sizeof on);
}

void ignore(void* /*context*/, const nlmsghdr& /*message*/) {}

}  // namespace

int kernel_access::open(sd_event* loop, std::function<void()> readable) {
  int error = open_requests();
  if (error == 0) {
    error = events_.open_events(groups);
  }
  if (error != 0) {
    return error;
  }
  // Where it cannot be had, more is read than is needed.
  (void)filter_foreign_routes(events_.fd());
  readable_ = loop_source::descriptor(loop, events_.fd(), EPOLLIN,
                                      [call = std::move(readable)](std::uint32_t) { call(); });
  return 0;
}

int kernel_access::open_requests() {
  if (const int error = requests_.open_requests(); error != 0) {
    return error;
  }
  ask_for(requests_.fd(), NETLINK_EXT_ACK);
  ask_for(requests_.fd(), NETLINK_CAP_ACK);
  ask_for(requests_.fd(), NETLINK_GET_STRICT_CHK);
  return 0;
}

bool kernel_access::read_events(netlink_visit visit, void* context) {
  int status = 0;
  while (status == 0) {
    status = events_.receive_events(visit, context);
  }
  if (status != EAGAIN) {
    (void)events_.drain();
  }
  return status == EAGAIN;
}

void kernel_access::await_link_changes() {
  netlink_request question;
  (void)requests_.ask(write_link_question(question.bytes), ignore, nullptr);
}

int kernel_access::read_links(link_table& ret) {
  int status = EINTR;
  for (int attempt = 0; status == EINTR && attempt < read_attempts; ++attempt) {
    netlink_request request;
    ret.clear();
    status = requests_.request(
        write_link_dump(request.bytes),
        [](void* to, const nlmsghdr& message) {
          link_fact link;
          bool gone = false;
          if (read_link(message, &link, &gone) && !gone) {
            static_cast<link_table*>(to)->put(link);
          }
        },
        &ret);
  }
  return status == EINTR ? 0 : status;
}

int kernel_access::read_routes(std::vector<kernel_route>& ret) {
  for (const std::uint8_t family : families) {
    const int status = read_family(family, ret);
    const bool absent = status == EAFNOSUPPORT || status == EOPNOTSUPP || status == ENOENT;
    if (status != 0 && !absent) {
      return status;
    }
  }
  return 0;
}

int kernel_access::read_family(std::uint8_t family, std::vector<kernel_route>& ret) {
  struct reading {
    std::uint8_t family;
    std::vector<kernel_route> found;
  } state{family, {}};
  int status = EINTR;
  for (int attempt = 0; status == EINTR && attempt < read_attempts; ++attempt) {
    netlink_request request;
    state.found.clear();
    status = requests_.request(
        write_route_dump(request.bytes, family),
        [](void* to, const nlmsghdr& message) {
          auto& into = *static_cast<reading*>(to);
          route_news news;
          if (read_route(message, &news) && news.protocol == route_protocol &&
              news.family == into.family) {
            into.found.insert(into.found.end(), news.routes.begin(), news.routes.end());
          }
        },
        &state);
  }
  ret.insert(ret.end(), state.found.begin(), state.found.end());
  return status == EINTR ? 0 : status;
}

int kernel_access::set_up(std::uint32_t index, bool up) {
  netlink_request request;
  return requests_.request(write_link_change(request.bytes, index, up), ignore, nullptr);
}

void kernel_access::carry_out(std::span<route_change> changes) {
  while (!changes.empty()) {
    const std::size_t count = std::min(changes.size(), netlink_socket::questions_at_once);
    send_some(changes.first(count));
    changes = changes.subspan(count);
  }
}

void kernel_access::send_some(std::span<route_change> changes) {
  alignas(nlmsghdr) std::array<char, netlink_socket::questions_at_once * message_room> place{};
  std::size_t size = 0;
  for (route_change& each : changes) {
    const nlmsghdr* const message = each.add ? write_addition(place.data() + size, each.what)
                                             : write_deletion(place.data() + size, each.what);
    size += NLMSG_ALIGN(message->nlmsg_len);
    each.error = EIO;  // unless there is an answer
  }
  (void)requests_.ask_all(
      {place.data(), size},
      [](void* to, std::size_t question, const nlmsghdr& answer) {
        route_change& one = (*static_cast<std::span<route_change>*>(to))[question];
        one.error = netlink_error(answer);
        one.text = error_text(answer);
      },
      &changes);
}

}  // namespace ot::trackpolicy
