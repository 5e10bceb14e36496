// The in-memory platform under the contract suite: everything goes through its controls.
#include "tests/contract/driver.h"

#include "platform/memory/controls.h"

namespace ot::contract {

using namespace std::chrono_literals;

void start() {
  field::reset();
}

void finish() {
  field::reset();
}

bool run_until(evm* /*manager*/, const std::function<bool()>& condition) {
  field::run_pending();
  for (auto passed = 0ms; !condition() && passed < 10s; passed += 1ms) {
    field::advance(1ms);
  }
  return condition();
}

void let_pass(evm* /*manager*/, std::chrono::milliseconds time) {
  field::advance(time);
}

std::string interfaces_unavailable() {
  return {};
}

void make_interface(const std::string& name) {
  field::interface_added(name);
}

void remove_interface(const std::string& name) {
  field::interface_removed(name);
}

void rename_interface(const std::string& from, const std::string& to) {
  field::interface_renamed(from, to);
}

void cut_link(const std::string& name) {
  field::link_down(name);
}

void restore_link(const std::string& name) {
  field::link_up(name);
}

void set_admin_down(const std::string& name) {
  field::admin_down(name);
}

void set_admin_up(const std::string& name) {
  field::admin_up(name);
}

int subscribe(evm* /*manager*/, std::span<const evdl_filter> filters, evdl_subscriber** ret) {
  return evdl_subscribe(filters, ret);
}

std::vector<evdl_track_event> receive(evm* /*manager*/, evdl_subscriber* subscriber,
                                      std::size_t /*count*/, int* ret_status) {
  field::run_pending();
  std::vector<evdl_track_event> events;
  *ret_status =
      evdl_receive(subscriber, 0, [&](const evdl_track_event& event) { events.push_back(event); });
  return events;
}

std::string messages_unavailable() {
  return {};
}

std::vector<std::string> logged(evm* /*manager*/, const std::function<void()>& talk) {
  field::take_messages();
  talk();
  field::run_pending();
  return field::take_messages();
}

}  // namespace ot::contract
