// The VRF devices of the system, as the VRF service of this platform knows them, and the default
// VRF, which has none. Main thread.
#pragma once

#include <systemd/sd-event.h>

#include <cstdint>
#include <vector>

#include "platform/common/vrf_requests.h"
#include "platform/linux/links/vrf_record.h"
#include "platform/linux/netlink/socket.h"
#include "platform/linux/netlink/watch.h"

namespace ot {

class vrf_devices {
 public:
  // Notified of each device that came or changed (`gone` false), and of each that went.
  using observer = void (*)(const vrf_device& device, bool gone);

  vrf_devices() noexcept;
  ~vrf_devices() { close(); }
  vrf_devices(const vrf_devices&) = delete;
  vrf_devices& operator=(const vrf_devices&) = delete;

  // Reads all devices and follows their events on `manager`. 0, also when open, or a status code.
  int open(evm* manager, observer notified) noexcept;
  void close() noexcept;

  // The device or null; the default VRF is one of them.
  [[nodiscard]] const vrf_device* named(std::string_view name) const noexcept;
  [[nodiscard]] const vrf_device* with_id(std::uint32_t id) const noexcept;
  [[nodiscard]] const vrf_device* with_table_id(std::uint32_t table_id) const noexcept;

  // Calls visit(table id) for each VRF whose routes are in the kernel's table of that number.
  template <typename Visit>
  void for_each_on(std::uint32_t table, Visit&& visit) const {
    for (const vrf_device& device : devices_) {
      if (device.table == table) {
        visit(device.table_id);
      }
    }
    if (table == default_vrf_table) {
      visit(default_vrf_table);
    }
  }

 private:
  struct vrf_event {
    vrf_device device;
    bool gone = false;
  };

  static void on_event(void* self, const nlmsghdr& message);
  static void on_taken(void* self);
  static void on_lost(void* self, int status);
  static int on_retry(sd_event_source* source, std::uint64_t usec, void* self);

  int start_anew();
  void retry_later() noexcept;
  int dump(std::vector<vrf_device>* ret) noexcept;
  void take(const std::vector<vrf_event>& news);
  int read_all_again();
  void apply(vrf_device device);
  void withdraw(std::uint32_t id);

  evm* manager_ = nullptr;  // null until open
  netlink_watch events_;
  netlink_socket requests_;
  sd_event_source* retry_ = nullptr;
  observer observer_ = nullptr;
  std::vector<vrf_device> devices_;
  std::uint32_t next_table_id_ = first_own_table_id;
  std::vector<vrf_event> news_;  // read and not reported yet
  bool missed_ = false;          // there was news that found no memory
};

// It has no device.
inline bool is_default(const vrf_device& vrf) noexcept {
  return vrf.id == default_vrf_id;
}

// The process's one set.
vrf_devices& the_vrf_devices() noexcept;

}  // namespace ot
