// The interfaces of the in-memory router: what a test does to them, and the notification that every
// client gets of it, one a change.
#include "platform/memory/interface_field.h"

#include <stdexcept>

#include "platform/event_connections.h"
#include "platform/memory/alloc_faults.h"
#include "platform/memory/controls.h"
#include "platform/memory/loops.h"
#include "platform/memory/world.h"

namespace ot {
namespace {

void post_notification(const ifc_client& client, std::vector<field_item> items) {
  loop_post(client.on_manager, [id = client.id, items = std::move(items)] {
    const auto& clients = world_part<interface_part>().clients;
    const auto it = clients.find(id);
    if (it != clients.end()) {
      ifc_deliver(it->second, items);
    }
  });
}

// The item of `interface` with those of `numbers` that the client has registered.
field_item present_item(const ifc_client& client, const field_interface& interface,
                        std::initializer_list<std::uint16_t> numbers) {
  field_item item{interface.handle, true, interface.name, {}};
  for (const std::uint16_t number : numbers) {
    if (client.attributes.contains(number)) {
      item.attributes.emplace_back(number, interface.attribute(number));
    }
  }
  return item;
}

field_item deleted_item(const field_interface& interface) {
  return {interface.handle, false, interface.name, {{ifc_attr_state, ifm_state_unknown}}};
}

// Notifies every client that has registered something; `make(client)` gives the items.
template <typename Make>
void notify_clients(Make&& make) {
  for (const auto& [id, client] : world_part<interface_part>().clients) {
    if (client.callback != nullptr && !client.attributes.empty()) {
      post_notification(client, make(client));
    }
  }
}

// Changes the interface and notifies of attribute `number` when it has a new value.
template <typename Change>
void change_interface(std::string_view name, std::uint16_t number, Change&& change) {
  field_interface* interface = world_part<interface_part>().find(name);
  if (interface == nullptr) {
    throw std::invalid_argument{"no interface " + std::string{name}};
  }
  const std::uint32_t before = interface->attribute(number);
  change(*interface);
  if (interface->attribute(number) != before) {
    notify_clients([&](const ifc_client& client) {
      return std::vector{present_item(client, *interface, {number})};
    });
  }
}

}  // namespace

std::uint32_t field_interface::attribute(std::uint16_t number) const {
  if (number == ifc_attr_redundancy) {
    return standby ? 0 : 1;
  }
  return !admin_up ? ifm_state_admin_down : link_up ? ifm_state_up : ifm_state_down;
}

field_interface* interface_part::find(std::string_view name) {
  for (auto& [handle, interface] : interfaces) {
    if (interface.name == name) {
      return &interface;
    }
  }
  return nullptr;
}

void ifc_deliver(const ifc_client& client, const std::vector<field_item>& items) {
  std::vector<std::vector<ifc_attribute>> attributes(items.size());
  std::vector<ifc_item> rows(items.size());
  for (std::size_t i = 0; i < items.size(); ++i) {
    const field_item& item = items[i];
    for (const auto& [number, value] : item.attributes) {
      attributes[i].push_back({number, item.exists ? &value : nullptr});
    }
    rows[i] = {item.handle, item.exists ? 1U : 0U, item.name.c_str(), attributes[i]};
  }
  const ifc_bulk_notification message{ifc_bulk_code, rows};
  alloc_faults_resumed resume;
  client.callback(client.on_manager, &message);
}

namespace field {

std::uint32_t interface_added(std::string_view name, bool link_up) {
  interface_part& part = world_part<interface_part>();
  if (part.find(name) != nullptr) {
    throw std::invalid_argument{"there is an interface " + std::string{name}};
  }
  const std::uint32_t handle = part.next_handle++;
  const field_interface& added =
      part.interfaces.emplace(handle, field_interface{handle, std::string{name}, true, link_up})
          .first->second;
  notify_clients([&](const ifc_client& client) {
    return std::vector{present_item(client, added, {ifc_attr_state, ifc_attr_redundancy})};
  });
  return handle;
}

void interface_removed(std::string_view name) {
  interface_part& part = world_part<interface_part>();
  const field_interface* found = part.find(name);
  if (found == nullptr) {
    throw std::invalid_argument{"no interface " + std::string{name}};
  }
  const field_interface removed = *found;
  part.interfaces.erase(removed.handle);
  notify_clients([&](const ifc_client&) { return std::vector{deleted_item(removed)}; });
}

void interface_renamed(std::string_view from, std::string_view to) {
  interface_part& part = world_part<interface_part>();
  field_interface* found = part.find(from);
  if (found == nullptr || part.find(to) != nullptr) {
    throw std::invalid_argument{"cannot rename " + std::string{from}};
  }
  const field_item old_name = deleted_item(*found);
  found->name = to;
  notify_clients([&](const ifc_client& client) {
    return std::vector{old_name,
                       present_item(client, *found, {ifc_attr_state, ifc_attr_redundancy})};
  });
}

void link_down(std::string_view name) {
  change_interface(name, ifc_attr_state, [](field_interface& i) { i.link_up = false; });
}

void link_up(std::string_view name) {
  change_interface(name, ifc_attr_state, [](field_interface& i) { i.link_up = true; });
}

void admin_down(std::string_view name) {
  change_interface(name, ifc_attr_state, [](field_interface& i) { i.admin_up = false; });
}

void admin_up(std::string_view name) {
  change_interface(name, ifc_attr_state, [](field_interface& i) { i.admin_up = true; });
}

void standby(std::string_view name) {
  change_interface(name, ifc_attr_redundancy, [](field_interface& i) { i.standby = true; });
}

void active(std::string_view name) {
  change_interface(name, ifc_attr_redundancy, [](field_interface& i) { i.standby = false; });
}

void interface_manager_gone() {
  interface_part& part = world_part<interface_part>();
  part.running = false;
  const auto lost = std::exchange(part.clients, {});
  for (const auto& [id, client] : lost) {
    evm_conn_ended(client.manager, id, evm_conn_closed);
  }
}

void interface_manager_back() {
  world_part<interface_part>().running = true;
}

}  // namespace field
}  // namespace ot
