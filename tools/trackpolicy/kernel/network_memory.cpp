// What a later trackpolicy has to know: which interfaces were set down, and whether there may be
// routes of ours.
#include <unistd.h>

#include <sstream>
#include <utility>

#include "platform/linux/monotonic.h"
#include "platform/linux/process/directories.h"
#include "tools/trackpolicy/kernel/netlink_network.h"

namespace ot::trackpolicy {
namespace {

constexpr std::size_t memory_max = std::size_t{1} << 20;

std::string memory_of(const held_links& held) {
  std::string text;
  for (const auto& [name, index] : held) {
    text += std::to_string(index) + ' ' + name + '\n';
  }
  return text;
}

held_links read_memory(const std::string& text) {
  held_links held;
  std::istringstream words(text);
  std::uint32_t index = 0;
  std::string name;
  while (words >> index >> name) {
    held[name] = index;
  }
  return held;
}

}  // namespace

void netlink_network::recall() {
  std::string text;
  std::string error;
  if (read_own_file(links_path_, memory_max, text, error) == 0) {
    link_keeper_.recall(read_memory(text));
  }
  left_behind_ = access(routes_path_.c_str(), F_OK) == 0;
  if (left_behind_ || !link_keeper_.held().empty()) {
    wake(monotonic_us());
  }
}

std::string netlink_network::remember(const held_links& held) {
  std::string error;
  if (held.empty()) {
    (void)unlink(links_path_.c_str());
  } else {
    (void)replace_own_file(links_path_, memory_of(held), 0600, false, error);
  }
  return error;
}

// That there may be routes of ours is known before the first, and until the last is gone.
void netlink_network::remember_routes() {
  const bool any = routes_.has_owners();
  if (any && !left_behind_) {
    std::string error;
    left_behind_ = replace_own_file(routes_path_, "", 0600, false, error) == 0;
  } else if (!any && left_behind_ && routes_.none_there() && !doubtful_) {
    (void)unlink(routes_path_.c_str());
    left_behind_ = false;
  }
}

}  // namespace ot::trackpolicy
