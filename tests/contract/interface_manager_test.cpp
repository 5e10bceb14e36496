// The interface manager: what a client is notified of, when, and what its look-ups answer.
#include "platform/interface_manager.h"

#include <algorithm>
#include <map>
#include <string>
#include <vector>

#include "platform/event_connections.h"
#include "platform/status.h"
#include "tests/contract/contract_test.h"

namespace ot::contract {
namespace {

using namespace std::chrono_literals;

// What a callback was notified of about one item.
struct reported_item {
  std::string name;
  bool exists;
  std::uint32_t handle;
  std::map<std::uint16_t, std::uint32_t> attributes;  // those with a value
};

std::vector<reported_item>* reported = nullptr;
std::vector<std::uint32_t>* reported_codes = nullptr;

int note(evm* /*manager*/, const ifc_bulk_notification* message) {
  reported_codes->push_back(message->code);
  for (const ifc_item& item : message->items) {
    reported_item seen{item.name, item.exists != 0, item.handle, {}};
    for (const ifc_attribute& attribute : item.attributes) {
      if (attribute.value != nullptr) {
        seen.attributes[attribute.number] = *attribute.value;
      }
    }
    reported->push_back(seen);
  }
  return 0;
}

class interface_manager_contract : public contract_test {
 protected:
  void SetUp() override {
    contract_test::SetUp();
    reported = &items_;
    reported_codes = &codes_;
    if (const std::string reason = interfaces_unavailable(); !reason.empty()) {
      GTEST_SKIP() << reason;
    }
    make_interface("ct0");
  }
  void TearDown() override {
    if (context_.handle != 0) {
      ifc_control_server_unbind(&context_);
    }
    contract_test::TearDown();
  }

  void bind() {
    ASSERT_EQ(ifc_control_server_bind(manager(), 2, &context_), 0);
    ASSERT_EQ(ifc_register_callback(context_, "contract", manager(), note), 0);
  }
  void register_both() {
    for (const std::uint16_t attribute : {ifc_attr_state, ifc_attr_redundancy}) {
      int status = -1;
      ASSERT_EQ(ifc_attr_register(context_, attribute, &status), 0);
      ASSERT_EQ(status, 0);
    }
  }

  std::uint32_t find(const char* name) {
    std::uint32_t handle = 0;
    int status = -1;
    EXPECT_EQ(ifc_interface_find(context_, name, &handle, &status), 0);
    EXPECT_EQ(status, 0) << name;
    return handle;
  }
  std::uint32_t state_of(std::uint32_t handle) {
    std::uint32_t state = 99;
    int status = -1;
    EXPECT_EQ(ifc_state_query(context_, handle, 0, &state, &status), 0);
    EXPECT_EQ(status, 0);
    return state;
  }

  // Whether an item of `name` has come since the last clear with that state.
  bool reported_state(const std::string& name, std::uint32_t state) {
    return std::any_of(items_.begin(), items_.end(), [&](const reported_item& item) {
      const auto it = item.attributes.find(ifc_attr_state);
      return item.name == name && item.exists && it != item.attributes.end() && it->second == state;
    });
  }
  bool reported_deleted(const std::string& name) {
    return std::any_of(items_.begin(), items_.end(), [&](const reported_item& item) {
      return item.name == name && !item.exists;
    });
  }

  ifc_conn_ctx context_;
  std::vector<reported_item> items_;
  std::vector<std::uint32_t> codes_;
};

TEST_F(interface_manager_contract, registering_reports_the_present_value_before_it_returns) {
  bind();
  int status = -1;
  ASSERT_EQ(ifc_attr_register(context_, ifc_attr_state, &status), 0);
  EXPECT_EQ(status, 0);
  EXPECT_TRUE(reported_state("ct0", ifm_state_up));
  for (const reported_item& item : items_) {
    EXPECT_FALSE(item.attributes.contains(ifc_attr_redundancy)) << item.name;
  }
  items_.clear();
  ASSERT_EQ(ifc_attr_register(context_, ifc_attr_redundancy, &status), 0);
  EXPECT_EQ(status, 0);
  const auto ct0 = std::find_if(items_.begin(), items_.end(),
                                [](const reported_item& item) { return item.name == "ct0"; });
  ASSERT_NE(ct0, items_.end());
  EXPECT_EQ(ct0->attributes, (std::map<std::uint16_t, std::uint32_t>{{ifc_attr_redundancy, 1}}));
  EXPECT_EQ(ct0->handle, find("ct0"));
}

TEST_F(interface_manager_contract, every_notification_is_a_bulk_notification) {
  bind();
  register_both();
  cut_link("ct0");
  ASSERT_TRUE(run_until([this] { return reported_state("ct0", ifm_state_down); }));
  EXPECT_TRUE(std::all_of(codes_.begin(), codes_.end(),
                          [](std::uint32_t code) { return code == ifc_bulk_code; }));
}

TEST_F(interface_manager_contract, an_attribute_that_does_not_exist_is_refused) {
  bind();
  int status = 0;
  EXPECT_EQ(ifc_attr_register(context_, 7, &status), 0);
  EXPECT_NE(status, 0);
  EXPECT_TRUE(items_.empty());
}

TEST_F(interface_manager_contract, a_cut_and_a_restored_link_are_reported) {
  bind();
  register_both();
  items_.clear();
  cut_link("ct0");
  EXPECT_TRUE(run_until([this] { return reported_state("ct0", ifm_state_down); }));
  EXPECT_EQ(state_of(find("ct0")), ifm_state_down);
  items_.clear();
  restore_link("ct0");
  EXPECT_TRUE(run_until([this] { return reported_state("ct0", ifm_state_up); }));
  EXPECT_EQ(state_of(find("ct0")), ifm_state_up);
}

TEST_F(interface_manager_contract, administratively_down_is_a_state_of_its_own) {
  bind();
  register_both();
  items_.clear();
  set_admin_down("ct0");
  EXPECT_TRUE(run_until([this] { return reported_state("ct0", ifm_state_admin_down); }));
  EXPECT_EQ(state_of(find("ct0")), ifm_state_admin_down);
  items_.clear();
  set_admin_up("ct0");
  EXPECT_TRUE(run_until([this] { return reported_state("ct0", ifm_state_up); }));
}

TEST_F(interface_manager_contract, a_new_interface_is_reported_with_its_attributes) {
  bind();
  register_both();
  items_.clear();
  make_interface("ct1");
  ASSERT_TRUE(run_until([this] { return reported_state("ct1", ifm_state_up); }));
  const auto first = std::find_if(items_.begin(), items_.end(),
                                  [](const reported_item& item) { return item.name == "ct1"; });
  EXPECT_EQ(first->attributes.size(), 2u);
  EXPECT_EQ(first->attributes[ifc_attr_redundancy], 1u);
  EXPECT_EQ(first->handle, find("ct1"));
  EXPECT_NE(first->handle, find("ct0"));
}

TEST_F(interface_manager_contract, a_deleted_interface_is_reported_with_the_state_alone) {
  bind();
  register_both();
  const std::uint32_t handle = find("ct0");
  items_.clear();
  remove_interface("ct0");
  ASSERT_TRUE(run_until([this] { return reported_deleted("ct0"); }));
  for (const reported_item& item : items_) {
    if (!item.exists && item.name == "ct0") {
      EXPECT_EQ(item.handle, handle);
      EXPECT_TRUE(item.attributes.empty());  // no values
    }
  }
  std::uint32_t found = 0;
  int status = 0;
  EXPECT_EQ(ifc_interface_find(context_, "ct0", &found, &status), 0);
  EXPECT_EQ(status, not_found_errno);
}

TEST_F(interface_manager_contract, a_rename_is_a_deletion_and_a_creation) {
  bind();
  register_both();
  const std::uint32_t handle = find("ct0");
  items_.clear();
  rename_interface("ct0", "ct9");
  ASSERT_TRUE(
      run_until([this] { return reported_deleted("ct0") && reported_state("ct9", ifm_state_up); }));
  const auto place = [this](const std::string& name, bool exists) {
    return std::find_if(items_.begin(), items_.end(), [&](const reported_item& item) {
      return item.name == name && item.exists == exists;
    });
  };
  EXPECT_LT(place("ct0", false) - items_.begin(), place("ct9", true) - items_.begin());
  EXPECT_EQ(find("ct9"), handle);
}

TEST_F(interface_manager_contract, look_ups_answer_for_what_exists) {
  bind();
  const std::uint32_t handle = find("ct0");
  EXPECT_NE(handle, 0u);
  ifc_name name;
  int status = -1;
  EXPECT_EQ(ifc_interface_name(context_, handle, &name, &status), 0);
  EXPECT_EQ(status, 0);
  EXPECT_EQ(name, "ct0");
  EXPECT_EQ(state_of(handle), ifm_state_up);
}

TEST_F(interface_manager_contract, look_ups_of_what_does_not_exist_fail_and_write_nothing) {
  bind();
  constexpr std::uint32_t nobody = 0x7ffffff0;
  std::uint32_t handle = 77;
  int status = 0;
  EXPECT_EQ(ifc_interface_find(context_, "ct8", &handle, &status), 0);
  EXPECT_EQ(status, not_found_errno);
  EXPECT_EQ(handle, 77u);
  ifc_name name{"kept"};
  EXPECT_EQ(ifc_interface_name(context_, nobody, &name, &status), 0);
  EXPECT_EQ(status, not_found_errno);
  EXPECT_EQ(name, "kept");
  std::uint32_t state = 77;
  EXPECT_EQ(ifc_state_query(context_, nobody, 0, &state, &status), 0);
  EXPECT_EQ(status, not_found_errno);
  EXPECT_EQ(state, 77u);
}

TEST_F(interface_manager_contract, the_connection_has_an_id) {
  bind();
  std::uint32_t id = 0;
  EXPECT_EQ(ifc_conn_ctx_to_connid(context_, &id), 0);
  EXPECT_NE(id, 0u);
  EXPECT_NE(id, evm_no_connection);
}

TEST_F(interface_manager_contract, after_an_unbind_nothing_is_reported_and_a_new_binding_works) {
  bind();
  register_both();
  ifc_control_server_unbind(&context_);
  items_.clear();
  cut_link("ct0");
  let_pass(manager(), 50ms);
  EXPECT_TRUE(items_.empty());
  bind();
  register_both();
  EXPECT_TRUE(reported_state("ct0", ifm_state_down));
}

}  // namespace
}  // namespace ot::contract
