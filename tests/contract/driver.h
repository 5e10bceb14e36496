// What the contract suite needs of the platform under test beyond platform/*.h: a router of its
// own, time that passes, links that are cut, and somebody to receive. One implementation a platform
// (memory/driver.cpp, linux/driver.cpp).
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <span>
#include <string>
#include <vector>

#include "platform/event_subscriber.h"
#include "platform/evm.h"

namespace ot::contract {

// A router without interfaces of its own and an empty instance, for one test. To be finished before
// the manager goes.
void start();
void finish();

// --- Time ----------------------------------------------------------------------------------------

// Runs the manager's loop until `condition` holds. False when it still does not after some seconds.
bool run_until(evm* manager, const std::function<bool()>& condition);
// Runs the loop for that long.
void let_pass(evm* manager, std::chrono::milliseconds time);

// --- Interfaces ----------------------------------------------------------------------------------

// Why interfaces cannot be made here; empty when they can. To be asked before any is made.
std::string interfaces_unavailable();
// Up, with a link.
void make_interface(const std::string& name);
void remove_interface(const std::string& name);
void rename_interface(const std::string& from, const std::string& to);
void cut_link(const std::string& name);
void restore_link(const std::string& name);
void set_admin_down(const std::string& name);
void set_admin_up(const std::string& name);

// --- Events and messages -------------------------------------------------------------------------

// A subscriber in its own right, while `manager` runs the publisher's loop. evdl_subscribe's
// result.
int subscribe(evm* manager, std::span<const evdl_filter> filters, evdl_subscriber** ret);

// What the subscriber gets until `count` events have come, none comes for a while, or the
// publisher has cut it off (then `ret_status` is not 0).
std::vector<evdl_track_event> receive(evm* manager, evdl_subscriber* subscriber, std::size_t count,
                                      int* ret_status);

// Why messages cannot be read back here; empty when they can.
std::string messages_unavailable();
// The lines for the operator's log that `talk` gave.
std::vector<std::string> logged(evm* manager, const std::function<void()>& talk);

}  // namespace ot::contract
