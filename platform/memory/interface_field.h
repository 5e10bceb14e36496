// The interfaces of the in-memory router and the clients that are notified of them. For the files
// of this folder.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <set>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "platform/interface_manager.h"

namespace ot {

struct field_interface {
  std::uint32_t handle = 0;
  std::string name;
  bool admin_up = true;
  bool link_up = true;
  bool standby = false;

  // The value of a registered attribute.
  [[nodiscard]] std::uint32_t attribute(std::uint16_t number) const;
};

// One item of a notification that is on its way.
struct field_item {
  std::uint32_t handle = 0;
  bool exists = true;
  std::string name;
  std::vector<std::pair<std::uint16_t, std::uint32_t>> attributes;
};

struct ifc_client {
  std::uint32_t id = 0;
  evm* manager = nullptr;     // of the binding
  evm* on_manager = nullptr;  // of the callback
  ifc_callback callback = nullptr;
  std::set<std::uint16_t> attributes;
};

struct interface_part {
  bool running = true;  // the interface manager
  std::uint32_t next_handle = 1;
  std::uint32_t next_client = 1;
  std::map<std::uint32_t, field_interface> interfaces;  // by handle
  std::map<std::uint32_t, ifc_client> clients;          // by id

  [[nodiscard]] field_interface* find(std::string_view name);
};

// Hands `items` to the client's callback as one notification, now.
void ifc_deliver(const ifc_client& client, const std::vector<field_item>& items);

}  // namespace ot
