// The client's side of the in-memory interface manager: binding, registering and the look-ups.
#include "platform/interface_manager.h"

#include "platform/memory/alloc_faults.h"
#include "platform/memory/interface_field.h"
#include "platform/memory/world.h"
#include "platform/status.h"

namespace ot {
namespace {

constexpr int manager_not_running = 111;  // ECONNREFUSED

ifc_client* find_client(const ifc_conn_ctx& context) {
  auto& clients = world_part<interface_part>().clients;
  const auto it = clients.find(static_cast<std::uint32_t>(context.handle));
  return it == clients.end() ? nullptr : &it->second;
}

// The API error of a call on `context`.
int api_error(const ifc_conn_ctx& context) {
  if (!world_part<interface_part>().running) {
    return manager_not_running;
  }
  return find_client(context) == nullptr ? invalid_argument : status_ok;
}

// One look-up: `find(part)` gives the interface or null, `found(interface)` takes what was asked.
template <typename Find, typename Found>
int look_up(const ifc_conn_ctx& context, std::string_view operation, int* ret_status, Find&& find,
            Found&& found) noexcept {
  alloc_faults_paused pause;
  *ret_status = status_ok;
  if (const auto failure = take_failure(operation)) {
    *ret_status = failure->item_status;
    return failure->result;
  }
  if (const int error = api_error(context)) {
    return error;
  }
  const field_interface* interface = find(world_part<interface_part>());
  if (interface == nullptr) {
    *ret_status = not_found_errno;
  } else {
    found(*interface);
  }
  return status_ok;
}

auto by_handle(std::uint32_t handle) {
  return [handle](interface_part& part) {
    const auto it = part.interfaces.find(handle);
    return it == part.interfaces.end() ? nullptr : &it->second;
  };
}

}  // namespace

int ifc_control_server_bind(evm* manager, std::uint32_t mode, ifc_conn_ctx* ret) noexcept {
  alloc_faults_paused pause;
  note_introduction("ifc_control_server_bind", {std::to_string(mode)});
  if (const int code = take_failure_code("ifc_control_server_bind")) {
    return code;
  }
  interface_part& part = world_part<interface_part>();
  if (!part.running) {
    return manager_not_running;
  }
  const std::uint32_t id = part.next_client++;
  part.clients.emplace(id, ifc_client{id, manager, manager, nullptr, {}});
  ret->handle = id;
  return status_ok;
}

void ifc_control_server_unbind(ifc_conn_ctx* context) noexcept {
  alloc_faults_paused pause;
  world_part<interface_part>().clients.erase(static_cast<std::uint32_t>(context->handle));
  context->handle = 0;
}

int ifc_conn_ctx_to_connid(const ifc_conn_ctx& context, std::uint32_t* ret) noexcept {
  alloc_faults_paused pause;
  if (const int code = take_failure_code("ifc_conn_ctx_to_connid")) {
    return code;
  }
  if (const int error = api_error(context)) {
    return error;
  }
  *ret = static_cast<std::uint32_t>(context.handle);
  return status_ok;
}

int ifc_register_callback(ifc_conn_ctx& context, const char* name, evm* manager,
                          ifc_callback callback) noexcept {
  alloc_faults_paused pause;
  note_introduction("ifc_register_callback", {name});
  if (const int code = take_failure_code("ifc_register_callback")) {
    return code;
  }
  if (const int error = api_error(context)) {
    return error;
  }
  ifc_client& client = *find_client(context);
  client.on_manager = manager;
  client.callback = callback;
  return status_ok;
}

int ifc_attr_register(ifc_conn_ctx& context, std::uint16_t attribute, int* ret_status) {
  alloc_faults_paused pause;
  *ret_status = status_ok;
  if (const auto failure = take_failure("ifc_attr_register")) {
    *ret_status = failure->item_status;
    return failure->result;
  }
  if (const int error = api_error(context)) {
    return error;
  }
  if (attribute != ifc_attr_state && attribute != ifc_attr_redundancy) {
    *ret_status = invalid_argument;
    return status_ok;
  }
  note_introduction("ifc_attr_register", {std::to_string(attribute)});
  ifc_client& client = *find_client(context);
  client.attributes.insert(attribute);
  std::vector<field_item> items;
  for (const auto& [handle, interface] : world_part<interface_part>().interfaces) {
    items.push_back({handle, true, interface.name, {{attribute, interface.attribute(attribute)}}});
  }
  if (client.callback != nullptr && !items.empty()) {
    ifc_deliver(client, items);
  }
  return status_ok;
}

int ifc_interface_find(const ifc_conn_ctx& context, const char* name, std::uint32_t* ret_handle,
                       int* ret_status) noexcept {
  return look_up(
      context, "ifc_interface_find", ret_status,
      [name](interface_part& part) { return part.find(name); },
      [ret_handle](const field_interface& found) { *ret_handle = found.handle; });
}

int ifc_interface_name(const ifc_conn_ctx& context, std::uint32_t handle, ifc_name* ret_name,
                       int* ret_status) noexcept {
  return look_up(context, "ifc_interface_name", ret_status, by_handle(handle),
                 [ret_name](const field_interface& found) { ret_name->assign(found.name); });
}

int ifc_state_query(const ifc_conn_ctx& context, std::uint32_t handle, std::uint32_t /*flags*/,
                    std::uint32_t* ret_state, int* ret_status) noexcept {
  return look_up(
      context, "ifc_state_query", ret_status, by_handle(handle),
      [ret_state](const field_interface& found) { *ret_state = found.attribute(ifc_attr_state); });
}

}  // namespace ot
