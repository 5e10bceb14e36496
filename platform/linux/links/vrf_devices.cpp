// Following VRF devices through link events. Lost events are made up for by reading all devices
// again and reporting the differences.
#include "platform/linux/links/vrf_devices.h"

#include <linux/if_link.h>
#include <linux/rtnetlink.h>
#include <sys/epoll.h>

#include <algorithm>
#include <cerrno>
#include <new>

#include "platform/common/vrf_requests.h"
#include "platform/linux/loop/sd_event.h"
#include "platform/linux/netlink/attributes.h"
#include "platform/status.h"

namespace ot {
namespace {

// How often a dump is tried again when links changed under it.
constexpr int dump_attempts = 8;

const vrf_device default_device{vrf_text{"default"}, default_vrf_id, default_vrf_table};

std::uint32_t vrf_table(netlink_bytes link_info) noexcept {
  bool vrf = false;
  std::uint32_t table = 0;
  netlink_walk(link_info, [&](std::uint16_t type, netlink_bytes value) {
    if (type == IFLA_INFO_KIND) {
      vrf = netlink_text(value) == "vrf";
    } else if (type == IFLA_INFO_DATA) {
      netlink_walk(value, [&](std::uint16_t data_type, netlink_bytes data) {
        if (data_type == IFLA_VRF_TABLE) {
          table = netlink_number<std::uint32_t>(data);
        }
      });
    }
  });
  return vrf ? table : 0;
}

// False for anything but a message about a VRF device.
bool read_device(const nlmsghdr& message, vrf_device& ret) noexcept {
  if (message.nlmsg_type != RTM_NEWLINK && message.nlmsg_type != RTM_DELLINK) {
    return false;
  }
  if (message.nlmsg_len < NLMSG_LENGTH(sizeof(ifinfomsg))) {
    return false;
  }
  vrf_device device;
  device.id =
      static_cast<std::uint32_t>(static_cast<const ifinfomsg*>(NLMSG_DATA(&message))->ifi_index);
  netlink_walk(netlink_attributes<ifinfomsg>(message),
               [&device](std::uint16_t type, netlink_bytes value) {
                 if (type == IFLA_IFNAME) {
                   device.name.assign(netlink_text(value));
                 } else if (type == IFLA_LINKINFO) {
                   device.table = vrf_table(value);
                 }
               });
  ret = device;
  return device.table != 0;
}

}  // namespace

int vrf_devices::open(evm* manager, observer notified) noexcept {
  if (source_ != nullptr) {
    return status_ok;
  }
  observer_ = notified;
  int status = events_.open_events(RTMGRP_LINK);
  if (status == status_ok) {
    status = requests_.open_requests();
  }
  if (status == status_ok) {
    status = dump(&devices_);
  }
  if (status != status_ok) {
    return status;
  }
  const int r =
      sd_event_add_io(evm_sd_event(manager), &source_, events_.fd(), EPOLLIN, on_readable, this);
  return r < 0 ? -r : status_ok;
}

void vrf_devices::close() noexcept {
  source_ = sd_event_source_disable_unref(source_);
}

const vrf_device* vrf_devices::named(std::string_view name) const noexcept {
  const auto it = std::find_if(devices_.begin(), devices_.end(),
                               [name](const vrf_device& d) { return d.name == name; });
  return it != devices_.end() ? &*it : default_device.name == name ? &default_device : nullptr;
}

const vrf_device* vrf_devices::with_id(std::uint32_t id) const noexcept {
  const auto it = std::find_if(devices_.begin(), devices_.end(),
                               [id](const vrf_device& d) { return d.id == id; });
  return it != devices_.end() ? &*it : id == default_vrf_id ? &default_device : nullptr;
}

const vrf_device* vrf_devices::with_table(std::uint32_t table) const noexcept {
  const auto it = std::find_if(devices_.begin(), devices_.end(),
                               [table](const vrf_device& d) { return d.table == table; });
  return it != devices_.end() ? &*it : table == default_vrf_table ? &default_device : nullptr;
}

// Reporting may ask the kernel, which needs the read's buffer: everything is read first.
int vrf_devices::on_readable(sd_event_source*, int, std::uint32_t, void* self) {
  auto& devices = *static_cast<vrf_devices*>(self);
  int status = status_ok;
  while (status == status_ok) {
    status = devices.events_.receive(on_event, self);
  }
  const bool lost = status == ENOBUFS || devices.missed_;
  const std::vector<vrf_event> news = std::move(devices.news_);
  devices.news_.clear();
  devices.missed_ = false;
  try {
    devices.take(news);
    if (lost) {
      devices.read_all_again();
    }
  } catch (const std::bad_alloc&) {
    devices.missed_ = true;  // all are read with the next event
  }
  return 0;
}

void vrf_devices::take(const std::vector<vrf_event>& news) {
  for (const vrf_event& event : news) {
    if (event.gone) {
      withdraw(event.device.id);
    } else {
      apply(event.device);
    }
  }
}

void vrf_devices::on_event(void* self, const nlmsghdr& message) {
  auto& devices = *static_cast<vrf_devices*>(self);
  vrf_device device;
  if (!read_device(message, device)) {
    return;
  }
  try {
    devices.news_.push_back({device, message.nlmsg_type == RTM_DELLINK});
  } catch (const std::bad_alloc&) {
    devices.missed_ = true;
  }
}

int vrf_devices::dump(std::vector<vrf_device>* ret) noexcept {
  struct target {
    std::vector<vrf_device>* devices;
    int status = status_ok;
  } to{ret};
  int status = EINTR;
  for (int attempt = 0; status == EINTR && attempt < dump_attempts; ++attempt) {
    netlink_request request;
    nlmsghdr* message = mnl_nlmsg_put_header(request.bytes);
    message->nlmsg_type = RTM_GETLINK;
    message->nlmsg_flags = NLM_F_DUMP;
    auto* link = static_cast<ifinfomsg*>(mnl_nlmsg_put_extra_header(message, sizeof(ifinfomsg)));
    *link = ifinfomsg{};
    ret->clear();
    status = requests_.request(
        message,
        [](void* context, const nlmsghdr& part) {
          auto& into = *static_cast<target*>(context);
          vrf_device device;
          if (!read_device(part, device)) {
            return;
          }
          try {
            into.devices->push_back(device);
          } catch (const std::bad_alloc&) {
            into.status = no_memory;
          }
        },
        &to);
  }
  // Links that never rest: what changed during the last dump follows as events.
  return to.status != status_ok || status == EINTR ? to.status : status;
}

void vrf_devices::read_all_again() {
  events_.drain();
  std::vector<vrf_device> now;
  if (dump(&now) != status_ok) {
    missed_ = true;
    return;
  }
  const std::vector<vrf_device> before = devices_;
  for (const vrf_device& device : before) {
    const bool stays = std::any_of(now.begin(), now.end(),
                                   [&device](const vrf_device& d) { return d.id == device.id; });
    if (!stays) {
      withdraw(device.id);
    }
  }
  for (const vrf_device& device : now) {
    apply(device);
  }
}

// A renamed device is another VRF.
void vrf_devices::apply(const vrf_device& device) {
  const vrf_device* known = with_id(device.id);
  if (known != nullptr && *known == device) {
    return;
  }
  if (known != nullptr) {
    withdraw(device.id);
  }
  devices_.push_back(device);
  observer_(device, false);
}

void vrf_devices::withdraw(std::uint32_t id) {
  const auto it = std::find_if(devices_.begin(), devices_.end(),
                               [id](const vrf_device& d) { return d.id == id; });
  if (it == devices_.end()) {
    return;
  }
  const vrf_device gone = *it;
  devices_.erase(it);
  observer_(gone, true);
}

vrf_devices& the_vrf_devices() noexcept {
  static vrf_devices devices;
  return devices;
}

}  // namespace ot
