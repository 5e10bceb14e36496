// Questions to the kernel about its links: all of them, or one that the events have not told of
// yet. An answer to the latter is not kept, so that its event is still told as news.
#include <linux/if_link.h>
#include <linux/rtnetlink.h>

#include <cerrno>

#include "platform/linux/links/client.h"
#include "platform/status.h"

namespace ot {
namespace {

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
          if (to->status == status_ok && link_record_read(message, &link)) {
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
        link_record_read(answer, static_cast<link_record*>(link));
      },
      &found);
  if (status != status_ok) {
    return status == ENODEV ? not_found_errno : status;
  }
  // The kernel also finds a link by its alternative names, which no event carries.
  if (name != nullptr && !(found.name == std::string_view(name))) {
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
