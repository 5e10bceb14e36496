// The VRF devices of the system, as the VRF service of this platform knows them, and the default
// VRF, which has none. Main thread.
#pragma once

#include <systemd/sd-event.h>

#include <cstdint>
#include <vector>

#include "platform/linux/netlink/socket.h"
#include "platform/vrf_service.h"

namespace ot {

struct vrf_device {
  vrf_text name;
  std::uint32_t id = 0;  // ifindex
  std::uint32_t table = 0;

  friend bool operator==(const vrf_device&, const vrf_device&) = default;
};

class vrf_devices {
 public:
  // Notified of each device that came or changed (`gone` false), and of each that went.
  using observer = void (*)(const vrf_device& device, bool gone);

  vrf_devices() = default;
  ~vrf_devices() { close(); }
  vrf_devices(const vrf_devices&) = delete;
  vrf_devices& operator=(const vrf_devices&) = delete;

  // Reads all devices and follows their events on `manager`. 0, also when open, or a status code.
  int open(evm* manager, observer notified) noexcept;
  void close() noexcept;

  // The device or null; the default VRF is one of them.
  [[nodiscard]] const vrf_device* named(std::string_view name) const noexcept;
  [[nodiscard]] const vrf_device* with_id(std::uint32_t id) const noexcept;
  [[nodiscard]] const vrf_device* with_table(std::uint32_t table) const noexcept;

 private:
  struct vrf_event {
    vrf_device device;
    bool gone = false;
  };

  static int on_readable(sd_event_source* source, int fd, std::uint32_t events, void* self);
  static void on_event(void* self, const nlmsghdr& message);

  int dump(std::vector<vrf_device>* ret) noexcept;
  void take(const std::vector<vrf_event>& news);
  void read_all_again();
  void apply(const vrf_device& device);
  void withdraw(std::uint32_t id);

  netlink_socket events_;
  netlink_socket requests_;
  sd_event_source* source_ = nullptr;
  observer observer_ = nullptr;
  std::vector<vrf_device> devices_;
  std::vector<vrf_event> news_;  // read and not reported yet
  bool missed_ = false;          // news that found no memory
};

// The process's one set.
vrf_devices& the_vrf_devices() noexcept;

}  // namespace ot
