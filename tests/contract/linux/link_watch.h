// An interface manager client under test: its loop, its connection, and what it was notified of.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "platform/event_manager.h"
#include "platform/interface_manager.h"
#include "platform/linux/loop/sd_event.h"

namespace ot::testing {

// One item as text: "+eth0 state=3 redundancy=1" or "-eth0" for a deletion.
inline std::string item_text(const ifc_item& item) {
  std::string text = (item.exists != 0 ? "+" : "-") + std::string(item.name);
  for (const ifc_attribute& attribute : item.attributes) {
    if (attribute.value != nullptr) {
      text += attribute.number == ifc_attr_state ? " state=" : " redundancy=";
      text += std::to_string(*attribute.value);
    }
  }
  return text;
}

// Runs the loop until `done()`. False when 5 s have passed before.
inline bool run_loop_until(evm* manager, const std::function<bool()>& done) {
  bool late = false;
  sd_event_source* deadline = nullptr;
  sd_event_add_time_relative(
      evm_sd_event(manager), &deadline, CLOCK_MONOTONIC, 5'000'000, 1,
      [](sd_event_source*, std::uint64_t, void* flag) {
        *static_cast<bool*>(flag) = true;
        return 0;
      },
      &late);
  while (!late && !done()) {
    EXPECT_EQ(evm_block(manager), 0);
    evm_dispatch(manager);
  }
  sd_event_source_disable_unref(deadline);
  return !late;
}

class link_watch {
 public:
  link_watch() {
    current_ = this;
    EXPECT_EQ(evm_create(&manager_), 0);
    EXPECT_EQ(ifc_control_server_bind(manager_, 2, &context_), 0);
    EXPECT_EQ(ifc_register_callback(context_, "test", manager_, &link_watch::on_notification), 0);
  }
  ~link_watch() {
    ifc_control_server_unbind(&context_);
    evm_destroy(manager_);
    current_ = nullptr;
  }
  link_watch(const link_watch&) = delete;
  link_watch& operator=(const link_watch&) = delete;

  ifc_conn_ctx& context() { return context_; }
  std::size_t bulks() const { return bulks_; }

  void register_attribute(std::uint16_t attribute) {
    int status = -1;
    EXPECT_EQ(ifc_attr_register(context_, attribute, &status), 0);
    EXPECT_EQ(status, 0);
  }
  void register_both() {
    register_attribute(ifc_attr_state);
    register_attribute(ifc_attr_redundancy);
  }

  std::vector<std::string> take() { return std::exchange(reported_, {}); }

  // Runs the loop until `done(reported so far)` or until 5 s have passed; what was reported is
  // taken.
  std::vector<std::string> run_until(
      const std::function<bool(const std::vector<std::string>&)>& done) {
    const bool in_time = run_loop_until(manager_, [&] { return done(reported_); });
    EXPECT_TRUE(in_time) << "not reported in time; so far: " << ::testing::PrintToString(reported_);
    return take();
  }
  // Runs the loop until all of `items` have been reported.
  std::vector<std::string> run_until_reported(const std::vector<std::string>& items) {
    return run_until([&](const auto& reported) {
      return std::all_of(items.begin(), items.end(), [&](const std::string& item) {
        return std::find(reported.begin(), reported.end(), item) != reported.end();
      });
    });
  }

 private:
  static int on_notification(evm*, const ifc_bulk_notification* message) {
    EXPECT_EQ(message->code, ifc_bulk_code);
    ++current_->bulks_;
    for (const ifc_item& item : message->items) {
      current_->reported_.push_back(item_text(item));
    }
    return 0;
  }

  // The callback has no context, and each test's body has a thread of its own.
  static inline thread_local link_watch* current_ = nullptr;

  evm* manager_ = nullptr;
  ifc_conn_ctx context_;
  std::vector<std::string> reported_;
  std::size_t bulks_ = 0;
};

}  // namespace ot::testing
