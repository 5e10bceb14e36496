// Following the kernel's links. Each event is compared with what was last reported and only the
// difference is passed on. When the kernel had to drop events, everything is read again and the
// differences are reported as ordinary notifications.
#include "platform/linux/links/client.h"

#include <linux/if_link.h>
#include <linux/rtnetlink.h>

#include <cerrno>
#include <utility>

#include "platform/event_connections.h"
#include "platform/status.h"

namespace ot {
namespace {

// One read brings at most this many items (32 kB of links, two items for a rename); the batch is
// handed over between reads when it could not hold another one.
constexpr std::size_t items_of_one_read = 128;
static_assert(link_batch::capacity >= 2 * items_of_one_read);

// How often a dump is tried again when links changed under it.
constexpr int dump_attempts = 8;

nlmsghdr* link_request(netlink_request& request, std::uint16_t flags, std::uint32_t ifindex) {
  nlmsghdr* message = mnl_nlmsg_put_header(request.bytes);
  message->nlmsg_type = RTM_GETLINK;
  message->nlmsg_flags = flags;
  auto* link = static_cast<ifinfomsg*>(mnl_nlmsg_put_extra_header(message, sizeof(ifinfomsg)));
  link->ifi_family = AF_UNSPEC;
  link->ifi_index = static_cast<int>(ifindex);
  mnl_attr_put_u32(message, IFLA_EXT_MASK, RTEXT_FILTER_SKIP_STATS);
  return message;
}

struct dump_target {
  link_cache* links;
  int status = status_ok;
};

}  // namespace

ifc_client::ifc_client(evm* manager, std::uint32_t connection_id) noexcept
    : manager_(manager),
      connection_id_(connection_id),
      events_({on_event,
               [](void* client) {
                 return static_cast<ifc_client*>(client)->batch_.room() >= items_of_one_read;
               },
               [](void* client) { static_cast<ifc_client*>(client)->deliver(); }, on_lost},
              this) {}

int ifc_client::open() noexcept {
  int status = events_.open(RTMGRP_LINK);
  if (status == status_ok) {
    status = requests_.open_requests();
  }
  if (status == status_ok) {
    status = dump(&links_);
  }
  return status == status_ok ? events_.follow(manager_, netlink_turn::urgent) : status;
}

void ifc_client::on_lost(void* client, int status) {
  auto* self = static_cast<ifc_client*>(client);
  if (status != ENOBUFS || self->read_all_again() != status_ok) {
    self->broken();
  }
}

void ifc_client::on_event(void* client, const nlmsghdr& message) {
  auto* self = static_cast<ifc_client*>(client);
  const std::uint32_t ifindex = link_message_index(message);
  if (ifindex == 0) {
    return;
  }
  const link_record* before = self->links_.find(ifindex);
  link_record now;
  if (message.nlmsg_type == RTM_DELLINK) {
    self->withdraw(before);
  } else if (link_record_read(message, before, &now)) {
    self->apply(before, now);
  }
}

// Without memory to keep the link it is reported all the same, and again with its next event.
void ifc_client::apply(const link_record* before, const link_record& now) noexcept {
  if (before == nullptr) {
    batch_.add_present(now, registered_);
  } else if (before->name == now.name) {
    batch_.add_present(now, link_difference(*before, now) & registered_);
  } else {
    batch_.add_deleted(*before, registered_);
    batch_.add_present(now, registered_);
  }
  links_.put(now);
}

void ifc_client::withdraw(const link_record* gone) noexcept {
  if (gone != nullptr) {
    batch_.add_deleted(*gone, registered_);
    links_.erase(gone->ifindex);
  }
}

// Deletions first: two links that swapped their names must both come out as present.
int ifc_client::read_all_again() {
  link_cache fresh;
  if (const int status = dump(&fresh); status != status_ok) {
    return status;
  }
  std::swap(links_, fresh);
  const link_cache& before = fresh;
  for (const link_record& link : before.all()) {
    const link_record* now = links_.find(link.ifindex);
    if (now == nullptr || !(now->name == link.name)) {
      make_room();
      batch_.add_deleted(link, registered_);
    }
  }
  for (const link_record& link : links_.all()) {
    const link_record* old = before.find(link.ifindex);
    const bool same = old != nullptr && old->name == link.name;
    make_room();
    batch_.add_present(link, same ? link_difference(*old, link) & registered_ : registered_);
  }
  deliver();
  return status_ok;
}

int ifc_client::register_attribute(link_attributes attribute) {
  if (callback_ == nullptr) {
    return invalid_argument;
  }
  registered_ |= attribute;
  for (const link_record& link : links_.all()) {
    make_room();
    batch_.add_present(link, attribute);
  }
  deliver();
  return status_ok;
}

void ifc_client::make_room() {
  if (batch_.room() == 0) {
    deliver();
  }
}

// The socket is of no use any more: the connection's owner opens a new one.
void ifc_client::broken() noexcept {
  events_.close();
  evm_conn_ended(manager_, connection_id_, evm_conn_failed);
}

// --- Questions to the kernel ---------------------------------------------------------------------

// All links, or one that no event has announced yet. An answer to the latter is not kept, so that
// its event is still reported as news.

int ifc_client::dump(link_cache* ret) noexcept {
  int status = EINTR;
  for (int attempt = 0; status == EINTR && attempt < dump_attempts; ++attempt) {
    netlink_request request;
    dump_target target{ret};
    ret->clear();
    status = requests_.request(
        link_request(request, NLM_F_DUMP, 0),
        [](void* context, const nlmsghdr& message) {
          auto* to = static_cast<dump_target*>(context);
          link_record link;
          if (to->status == status_ok && link_record_read(message, nullptr, &link)) {
            to->status = to->links->put(link);
          }
        },
        &target);
    status = target.status == status_ok ? status : target.status;
  }
  // Links that never rest: what changed during the last dump follows as events.
  return status == EINTR ? status_ok : status;
}

int ifc_client::ask(std::uint32_t ifindex, const char* name, link_record* ret) noexcept {
  netlink_request request;
  nlmsghdr* message = link_request(request, 0, ifindex);
  if (name != nullptr) {
    mnl_attr_put_strz(message, IFLA_IFNAME, name);
  }
  link_record found;
  const int status = requests_.request(
      message,
      [](void* link, const nlmsghdr& answer) {
        link_record_read(answer, nullptr, static_cast<link_record*>(link));
      },
      &found);
  if (status != status_ok) {
    return status == ENODEV ? not_found_errno : status;
  }
  // The kernel also finds a link by its alternative names, which no event carries.
  if (found.ifindex == 0 || (name != nullptr && !(found.name == std::string_view(name)))) {
    return not_found_errno;
  }
  *ret = found;
  return status_ok;
}

int ifc_client::look_up(const char* name, link_record* ret) noexcept {
  if (const link_record* known = links_.find(name)) {
    *ret = *known;
    return status_ok;
  }
  const std::size_t length = std::string_view(name).size();
  const bool possible = length > 0 && length < decltype(link_record::name)::capacity;
  return possible ? ask(0, name, ret) : not_found_errno;
}

int ifc_client::look_up(std::uint32_t ifindex, link_record* ret) noexcept {
  if (const link_record* known = links_.find(ifindex)) {
    *ret = *known;
    return status_ok;
  }
  const bool possible = ifindex > 0 && ifindex <= INT32_MAX;
  return possible ? ask(ifindex, nullptr, ret) : not_found_errno;
}

}  // namespace ot
