// The interface manager's client calls: the kernel is the interface manager of this platform, and a
// handle is an ifindex.
#include "platform/interface_manager.h"

#include <bit>
#include <memory>
#include <new>

#include "platform/linux/links/client.h"
#include "platform/status.h"

namespace ot {
namespace {

ifc_client* client_of(const ifc_conn_ctx& context) noexcept {
  return std::bit_cast<ifc_client*>(context.handle);
}

// Writes the part of a found link that was asked for; the API error is about the binding alone.
template <typename Key, typename Give>
int look_up(const ifc_conn_ctx& context, Key key, int* ret_status, Give&& give) noexcept {
  ifc_client* client = client_of(context);
  if (client == nullptr) {
    return invalid_argument;
  }
  link_record link;
  *ret_status = client->look_up(key, &link);
  if (*ret_status == status_ok) {
    give(link);
  }
  return status_ok;
}

}  // namespace

int ifc_control_server_bind(evm* manager, std::uint32_t /*mode*/, ifc_conn_ctx* ret) noexcept {
  static std::uint32_t last_connection_id = 0;
  std::unique_ptr<ifc_client> client(new (std::nothrow)
                                         ifc_client(manager, last_connection_id + 1));
  if (client == nullptr) {
    return no_memory;
  }
  if (const int status = client->open(); status != status_ok) {
    return status;
  }
  ++last_connection_id;
  ret->handle = std::bit_cast<std::uint64_t>(client.release());
  return status_ok;
}

void ifc_control_server_unbind(ifc_conn_ctx* context) noexcept {
  delete client_of(*context);
  context->handle = 0;
}

int ifc_conn_ctx_to_connid(const ifc_conn_ctx& context, std::uint32_t* ret) noexcept {
  const ifc_client* client = client_of(context);
  if (client == nullptr) {
    return invalid_argument;
  }
  *ret = client->connection_id();
  return status_ok;
}

int ifc_register_callback(ifc_conn_ctx& context, const char* /*name*/, evm* manager,
                          ifc_callback callback) noexcept {
  ifc_client* client = client_of(context);
  if (client == nullptr || callback == nullptr) {
    return invalid_argument;
  }
  client->set_callback(manager, callback);
  return status_ok;
}

int ifc_attr_register(ifc_conn_ctx& context, std::uint16_t attribute, int* ret_status) {
  ifc_client* client = client_of(context);
  if (client == nullptr) {
    return invalid_argument;
  }
  const link_attributes bit = link_attribute_bit(attribute);
  *ret_status = bit == 0 ? invalid_argument : status_ok;
  return bit == 0 ? status_ok : client->register_attribute(bit);
}

int ifc_interface_find(const ifc_conn_ctx& context, const char* name, std::uint32_t* ret_handle,
                       int* ret_status) noexcept {
  return look_up(context, name, ret_status,
                 [&](const link_record& link) { *ret_handle = link.ifindex; });
}

int ifc_interface_name(const ifc_conn_ctx& context, std::uint32_t handle, ifc_name* ret_name,
                       int* ret_status) noexcept {
  return look_up(context, handle, ret_status,
                 [&](const link_record& link) { ret_name->assign(link.name.view()); });
}

int ifc_state_query(const ifc_conn_ctx& context, std::uint32_t handle, std::uint32_t /*flags*/,
                    std::uint32_t* ret_state, int* ret_status) noexcept {
  return look_up(context, handle, ret_status,
                 [&](const link_record& link) { *ret_state = link.state; });
}

}  // namespace ot
