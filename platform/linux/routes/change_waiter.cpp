#include "platform/linux/routes/change_waiter.h"

#include <linux/rtnetlink.h>
#include <sys/eventfd.h>

#include <cerrno>
#include <system_error>

#include "platform/linux/loop/sd_event.h"
#include "platform/status.h"

namespace ot {
namespace {

constexpr int loopback = 1;                     // the ifindex, in every namespace
constexpr eventfd_t stop = eventfd_t{1} << 32;  // more than there are questions

// The answer does not matter, only that there is one.
void ask_about_a_link(netlink_socket& requests) noexcept {
  netlink_request request;
  nlmsghdr* message = mnl_nlmsg_put_header(request.bytes);
  message->nlmsg_type = RTM_GETLINK;
  auto* link = static_cast<ifinfomsg*>(mnl_nlmsg_put_extra_header(message, sizeof(ifinfomsg)));
  *link = ifinfomsg{};
  link->ifi_index = loopback;
  mnl_attr_put_u32(message, IFLA_EXT_MASK, RTEXT_FILTER_SKIP_STATS);
  requests.ask(
      message, [](void*, const nlmsghdr&) {}, nullptr);
}

}  // namespace

int change_waiter::open(evm* manager) noexcept {
  if (thread_.joinable()) {
    return status_ok;
  }
  asked_ = unique_fd(eventfd(0, EFD_CLOEXEC));
  answered_ = unique_fd(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK));
  if (!asked_.valid() || !answered_.valid()) {
    return errno;
  }
  if (const int status = requests_.open_requests(); status != 0) {
    return status;
  }
  const int r =
      sd_event_add_io(evm_sd_event(manager), &source_, answered_.get(), EPOLLIN, on_whole, this);
  if (r < 0) {
    return -r;
  }
  under_way_ = 0;
  try {
    thread_ = std::thread([this] { run(); });
  } catch (const std::system_error& error) {
    source_ = sd_event_source_disable_unref(source_);
    return error.code().value();
  }
  return status_ok;
}

void change_waiter::close() noexcept {
  if (thread_.joinable()) {
    eventfd_write(asked_.get(), stop);
    thread_.join();
  }
  source_ = sd_event_source_disable_unref(source_);
}

void change_waiter::ask() noexcept {
  ++under_way_;
  eventfd_write(asked_.get(), 1);
}

void change_waiter::run() noexcept {
  eventfd_t count = 0;
  while (eventfd_read(asked_.get(), &count) == 0 && count < stop) {
    ask_about_a_link(requests_);
    eventfd_write(answered_.get(), count);
  }
}

int change_waiter::on_whole(sd_event_source*, int fd, std::uint32_t, void* self) {
  auto& waiter = *static_cast<change_waiter*>(self);
  eventfd_t count = 0;
  if (eventfd_read(fd, &count) == 0) {
    waiter.under_way_ -= count;
    if (waiter.under_way_ == 0) {
      waiter.whole_(waiter.context_);
    }
  }
  return 0;
}

}  // namespace ot
