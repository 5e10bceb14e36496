// Routes and VRFs of the in-memory router.
#include "tests/contract/router.h"

#include "platform/memory/controls.h"

namespace ot::contract {
namespace {

struct split_prefix {
  std::string address;
  std::uint32_t length;

  explicit split_prefix(const std::string& prefix)
      : address(prefix.substr(0, prefix.find('/'))),
        length(static_cast<std::uint32_t>(std::stoul(prefix.substr(prefix.find('/') + 1)))) {}
};

std::uint32_t last_vrf_id = 0;

}  // namespace

void add_route(const std::string& prefix, const std::string& interface, std::uint32_t table) {
  const split_prefix split(prefix);
  field::route_added(split.address.c_str(), split.length, interface, table);
}

void remove_route(const std::string& prefix, std::uint32_t table) {
  const split_prefix split(prefix);
  field::route_removed(split.address.c_str(), split.length, table);
}

// Of an address that begins its prefix, so that the route to the link has the same one.
void add_address(const std::string& address, const std::string& interface) {
  add_route(address, interface, main_table);
  field::own_address_added(split_prefix(address).address.c_str());
}

std::string vrfs_unavailable() {
  return {};
}

// The table of the kernel stays out of sight: each VRF has a table id of its own.
void make_vrf(const std::string& name, std::uint32_t /*table*/) {
  ++last_vrf_id;
  field::vrf_added(name, last_vrf_id, 1000 + last_vrf_id);
}

void remove_vrf(const std::string& name) {
  field::vrf_removed(name);
}

void change_unannounced(const std::function<void()>& change) {
  change();
}

void lose_fib_messages() {
  field::fib_gone();
  field::fib_back();
}

}  // namespace ot::contract
