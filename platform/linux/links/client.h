// Links: the kernel is the interface manager of this platform, and a handle is an ifindex. A client
// is a process's binding to it: the sockets, the links as last reported, and who is notified.
//
// Two netlink sockets: one for events, with a large buffer, one for questions, so that an answer is
// never looked for among events. All on the thread of the manager it was opened on.
//
// The way of a change: kernel -> events_ -> link_record (record.h: line state and redundancy
// from flags, operational state and bond role) -> compared with the record in links_ -> the
// difference, as far as registered, into a bulk notification (batch.h) -> the client's callback, at
// the end of the turn. A rename is the old name's deletion and the new one's creation.
//
// When the kernel had to drop events (ENOBUFS), everything is read again, compared with what was
// last reported, and the differences follow as ordinary notifications. A socket that is broken ends
// the event connection, whose owner opens a new client.
//
// A look-up answers from links_, else asks the kernel; such an answer is not kept, so that its
// event is still reported as news. VRFs are links too, but have a set of their own (vrf_devices.h),
// which the VRF service and the route look-ups share.
#pragma once

#include <cstdint>

#include "platform/interface_manager.h"
#include "platform/linux/links/batch.h"
#include "platform/linux/links/record.h"
#include "platform/linux/netlink/socket.h"
#include "platform/linux/netlink/watch.h"

namespace ot {

class ifc_client {
 public:
  ifc_client(evm* manager, std::uint32_t connection_id) noexcept;
  ifc_client(const ifc_client&) = delete;
  ifc_client& operator=(const ifc_client&) = delete;

  // Opens both sockets, reads all links and follows their events. 0 or a status code.
  int open() noexcept;

  [[nodiscard]] std::uint32_t connection_id() const noexcept { return connection_id_; }

  void set_callback(evm* manager, ifc_callback callback) noexcept {
    callback_manager_ = manager;
    callback_ = callback;
  }
  // From here on `attribute` is reported; its present value is reported now. 22 without a callback.
  int register_attribute(link_attributes attribute);

  // The link of that name or ifindex: as last reported, else as the kernel knows it at this moment.
  // 0, 2 when there is none, or another errno value.
  int look_up(const char* name, link_record* ret) noexcept;
  int look_up(std::uint32_t ifindex, link_record* ret) noexcept;

 private:
  static void on_event(void* client, const nlmsghdr& message);
  static void on_lost(void* client, int status);

  void deliver() { batch_.deliver(callback_, callback_manager_); }
  // `before` and `gone`: the link as it is known, null when it is not.
  void apply(const link_record* before, const link_record& now) noexcept;
  void withdraw(const link_record* gone) noexcept;
  int dump(link_cache* ret) noexcept;
  int read_all_again();
  int ask(std::uint32_t ifindex, const char* name, link_record* ret) noexcept;
  void make_room();
  void broken() noexcept;

  evm* manager_;
  std::uint32_t connection_id_;
  evm* callback_manager_ = nullptr;
  ifc_callback callback_ = nullptr;
  link_attributes registered_ = 0;
  netlink_watch events_;
  netlink_socket requests_;
  link_cache links_;
  link_batch batch_;
};

}  // namespace ot
