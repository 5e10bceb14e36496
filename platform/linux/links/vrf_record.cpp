#include "platform/linux/links/vrf_record.h"

#include <linux/if_link.h>
#include <linux/rtnetlink.h>

#include "platform/linux/links/record.h"
#include "platform/linux/netlink/attributes.h"

namespace ot {
namespace {

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

}  // namespace

bool vrf_device_read(const nlmsghdr& message, vrf_device* ret) noexcept {
  vrf_device device;
  device.id = link_message_index(message);
  if (device.id == 0) {
    return false;
  }
  netlink_walk(netlink_attributes<ifinfomsg>(message),
               [&device](std::uint16_t type, netlink_bytes value) {
                 if (type == IFLA_IFNAME) {
                   device.name.assign(netlink_text(value));
                 } else if (type == IFLA_LINKINFO) {
                   device.table = vrf_table(value);
                 }
               });
  *ret = device;
  return true;
}

}  // namespace ot
