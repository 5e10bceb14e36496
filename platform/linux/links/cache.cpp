// A sorted run of small records: a thousand links are 40 kB, a dump is entered without a search,
// and a look-up by name is rare enough to go through all.
#include "platform/linux/links/cache.h"

#include <algorithm>
#include <cstring>
#include <new>

#include "platform/status.h"

namespace ot {

const link_record* link_cache::find(std::uint32_t ifindex) const noexcept {
  const auto at = std::ranges::lower_bound(links_, ifindex, {}, &link_record::ifindex);
  return at == links_.end() || at->ifindex != ifindex ? nullptr : &*at;
}

const link_record* link_cache::find(const char* name) const noexcept {
  const auto at = std::ranges::find_if(links_, [name](const link_record& link) {
    return std::strcmp(link.name.c_str(), name) == 0;
  });
  return at == links_.end() ? nullptr : &*at;
}

int link_cache::put(const link_record& link) noexcept {
  const auto at = std::ranges::lower_bound(links_, link.ifindex, {}, &link_record::ifindex);
  if (at != links_.end() && at->ifindex == link.ifindex) {
    *at = link;
    return status_ok;
  }
  try {
    links_.insert(at, link);
    return status_ok;
  } catch (const std::bad_alloc&) {
    return no_memory;
  }
}

void link_cache::erase(std::uint32_t ifindex) noexcept {
  const auto at = std::ranges::lower_bound(links_, ifindex, {}, &link_record::ifindex);
  if (at != links_.end() && at->ifindex == ifindex) {
    links_.erase(at);
  }
}

}  // namespace ot
