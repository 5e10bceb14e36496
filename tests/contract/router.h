// What the contract suite needs to test the FIB and the VRF service: routes and VRFs that come and
// go. Interfaces are those of driver.h. One implementation a platform (memory/router.cpp,
// linux/router.cpp).
#pragma once

#include <cstdint>
#include <functional>
#include <string>

namespace ot::contract {

inline constexpr std::uint32_t main_table = 254;

// `prefix` is "ADDRESS/LENGTH". The route leaves through an interface that has been made.
void add_route(const std::string& prefix, const std::string& interface,
               std::uint32_t table = main_table);
void remove_route(const std::string& prefix, std::uint32_t table = main_table);

// An address of the router's own, "ADDRESS/LENGTH", with the route that it makes to its link.
void add_address(const std::string& address, const std::string& interface);

// Why VRFs cannot be made here; empty when they can. Asked when interfaces can be made.
std::string vrfs_unavailable();
void make_vrf(const std::string& name, std::uint32_t table);
void remove_vrf(const std::string& name);

// Makes changes of VRFs while the messages about them are lost.
void change_unannounced(const std::function<void()>& change);

// The FIB's messages are lost, and so is what the client registered.
void lose_fib_messages();

}  // namespace ot::contract
