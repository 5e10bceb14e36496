// Following VRF devices through link events. Lost events are made up for by reading all devices
// again and reporting the differences.
#include "platform/linux/links/vrf_devices.h"

#include <linux/rtnetlink.h>

#include <algorithm>
#include <cerrno>
#include <ctime>
#include <new>
#include <utility>

#include "platform/common/vrf_requests.h"
#include "platform/linux/loop/sd_event.h"
#include "platform/status.h"

namespace ot {
namespace {

// How often a dump is tried again when links changed under it.
constexpr int dump_attempts = 8;

constexpr std::uint64_t retry_after = 100'000;  // microseconds

const vrf_device default_device{vrf_text{"default"}, default_vrf_id, default_vrf_table,
                                default_vrf_table};

}  // namespace

vrf_devices::vrf_devices() noexcept : events_({on_event, nullptr, on_taken, on_lost}, this) {}

int vrf_devices::open(evm* manager, observer notified) noexcept {
  if (manager_ != nullptr) {
    return status_ok;
  }
  int status = events_.open(RTMGRP_LINK);
  if (status == status_ok) {
    status = requests_.open_requests();
  }
  std::vector<vrf_device> present;
  if (status == status_ok) {
    status = dump(&present);
  }
  if (status == status_ok) {
    status = events_.follow(manager);
  }
  if (status == status_ok) {
    for (vrf_device& device : present) {
      device.table_id = next_table_id_++;
    }
    devices_ = std::move(present);
    manager_ = manager;
    observer_ = notified;
  }
  return status;
}

void vrf_devices::close() noexcept {
  events_.close();
  retry_ = sd_event_source_disable_unref(retry_);
  manager_ = nullptr;
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

const vrf_device* vrf_devices::with_table_id(std::uint32_t table_id) const noexcept {
  const auto it = std::find_if(devices_.begin(), devices_.end(),
                               [table_id](const vrf_device& d) { return d.table_id == table_id; });
  return it != devices_.end() ? &*it : table_id == default_vrf_table ? &default_device : nullptr;
}

// Reporting may ask the kernel, which needs the read's buffer: everything is read first.
void vrf_devices::on_taken(void* self) {
  auto& devices = *static_cast<vrf_devices*>(self);
  const std::vector<vrf_event> news = std::move(devices.news_);
  devices.news_.clear();
  try {
    devices.take(news);
  } catch (const std::bad_alloc&) {
    devices.missed_ = true;
  }
  if (devices.missed_) {
    devices.retry_later();
  }
}

void vrf_devices::on_lost(void* self, int status) {
  auto& devices = *static_cast<vrf_devices*>(self);
  if ((status == ENOBUFS ? devices.read_all_again() : devices.start_anew()) != status_ok) {
    devices.retry_later();
  }
}

int vrf_devices::on_retry(sd_event_source*, std::uint64_t, void* self) {
  auto& devices = *static_cast<vrf_devices*>(self);
  if (devices.start_anew() != status_ok) {
    devices.retry_later();
  }
  return 0;
}

int vrf_devices::start_anew() {
  int status = events_.open(RTMGRP_LINK);
  if (status == status_ok) {
    status = events_.follow(manager_);
  }
  return status == status_ok ? read_all_again() : status;
}

void vrf_devices::retry_later() noexcept {
  evm_start_timer(manager_, &retry_, CLOCK_BOOTTIME, retry_after, on_retry, this);
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
  const bool gone = message.nlmsg_type == RTM_DELLINK;
  if (!vrf_device_read(message, &device) || (device.table == 0 && !gone)) {
    return;
  }
  try {
    devices.news_.push_back({device, gone});
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
          if (!vrf_device_read(part, &device) || device.table == 0) {
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

// What is known is compared with what there is, and the differences are reported.
int vrf_devices::read_all_again() try {
  std::vector<vrf_device> now;
  if (const int status = dump(&now); status != status_ok) {
    return status;
  }
  missed_ = false;
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
  return status_ok;
} catch (const std::bad_alloc&) {
  return no_memory;
}

// A renamed device is another VRF. A message without a name leaves the one that is known.
void vrf_devices::apply(vrf_device device) {
  const vrf_device* known = with_id(device.id);
  if (device.name.empty() && known == nullptr) {
    return;
  }
  if (device.name.empty()) {
    device.name = known->name;
  }
  if (known != nullptr && known->name == device.name && known->table == device.table) {
    return;
  }
  if (known != nullptr) {
    withdraw(device.id);
  }
  device.table_id = next_table_id_++;
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
