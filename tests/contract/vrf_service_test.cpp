// The VRF information service and the translation of ids: what is answered, and who is notified.
#include "platform/vrf_service.h"

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "platform/fib_client.h"
#include "platform/status.h"
#include "tests/contract/contract_test.h"
#include "tests/contract/router.h"

namespace ot::contract {
namespace {

using namespace std::chrono_literals;

using news = std::vector<std::string>;

news* reported = nullptr;

int note(std::uint32_t event, const vmap_vrf* item) {
  reported->push_back((event == vmap_event_update ? "+" : "-") + std::string{item->name.view()} +
                      " " + std::to_string(item->id));
  return 0;
}

struct free_request {
  void operator()(vmap_mdb* request) const noexcept { vmap_c_mdb_free(request); }
};

class vrf_contract : public contract_test {
 protected:
  void SetUp() override {
    contract_test::SetUp();
    reported = &news_;
    if (const std::string reason = interfaces_unavailable(); !reason.empty()) {
      GTEST_SKIP() << reason;
    }
    std::int32_t binding = -1;
    ASSERT_EQ(vmap_c_lib_init(vmap_lib_lookup, "lookup", nullptr, nullptr, &look_up_), 0);
    ASSERT_EQ(vmap_c_lib_init(
                  vmap_lib_registration, "registration", manager(), [] { return 1; }, &register_),
              0);
    for (vmap_lib* library : {look_up_, register_}) {
      ASSERT_EQ(vmap_c_bind(library, &binding), 0);
      EXPECT_NE(binding, -1);
    }
  }
  void TearDown() override {
    for (const std::uint64_t handle : handles_) {
      vmap_c_notif_unreg(register_, handle);
    }
    contract_test::TearDown();
  }

  // Asks by name, or by id when there is none.
  std::optional<vmap_vrf> find(const char* name, std::uint32_t id = 0) {
    vmap_mdb* request = nullptr;
    EXPECT_EQ(vmap_c_mdb_init(look_up_, vmap_request_lookup, &request), 0);
    const std::unique_ptr<vmap_mdb, free_request> owner{request};
    const std::uint32_t router = vmap_c_vr_id_dflt();
    EXPECT_EQ(name != nullptr ? vmap_c_mdb_add_vrf_by_vrf_name(request, nullptr, router, name)
                              : vmap_c_mdb_add_vrf_by_vrf_id(request, nullptr, router, id),
              0);
    vmap_lookup_reply* answer = nullptr;
    EXPECT_EQ(vmap_c_lookup(request, &answer), 0);
    const vmap_reply* reply = vmap_c_lrc_get_reply(answer);
    EXPECT_EQ(vmap_c_lrc_get_reply_status(reply), 0);
    std::optional<vmap_vrf> found;
    if (vmap_c_lrc_get_reply_item_cnt(reply) != 0) {
      found = *vmap_c_lrc_get_reply_item_vrf(reply, 0);
    }
    EXPECT_EQ(vmap_c_lrc_get_reply_item_vrf(reply, 1), nullptr);
    vmap_c_lookup_reply_free(answer);
    return found;
  }
  // "NAME ID" or "none".
  std::string ask(const char* name, std::uint32_t id = 0) {
    const std::optional<vmap_vrf> found = find(name, id);
    return found ? std::string{found->name.view()} + " " + std::to_string(found->id) : "none";
  }
  std::uint32_t id_of(const char* name) {
    const std::optional<vmap_vrf> found = find(name);
    return found ? found->id : 0;
  }

  // Registers for a VRF; the handle is given back at the end.
  std::uint64_t watch(const char* name, vmap_vrf_callback callback = note) {
    vmap_mdb* request = nullptr;
    EXPECT_EQ(vmap_c_mdb_init(register_, vmap_request_registration, &request), 0);
    const std::unique_ptr<vmap_mdb, free_request> owner{request};
    EXPECT_EQ(vmap_c_mdb_add_vrf_by_vrf_name(request, callback, vmap_c_vr_id_dflt(), name), 0);
    vmap_registration_reply reply{-1, 0};
    EXPECT_EQ(vmap_c_notif_reg(request, &reply), 0);
    EXPECT_EQ(reply.status, 0);
    EXPECT_NE(reply.handle, 0U);
    handles_.push_back(reply.handle);
    return reply.handle;
  }

  static std::uint32_t table_of(std::uint32_t id) {
    std::uint32_t table = 0;
    return tblx_shm_lookup_vrf(id, &table) == 0 ? table : 0;
  }
  static std::uint32_t vrf_of(std::uint32_t table) {
    std::uint32_t id = 0;
    return tblx_shm_lookup_tbl(table, &id) == 0 ? id : 0;
  }

  vmap_lib* look_up_ = nullptr;
  vmap_lib* register_ = nullptr;
  std::vector<std::uint64_t> handles_;
  news news_;
};

TEST_F(vrf_contract, the_default_vrf_has_an_id_and_the_main_table) {
  const std::uint32_t id = vmap_c_vrf_id_dflt();
  EXPECT_NE(id, 0U);
  EXPECT_EQ(ask("default"), "default " + std::to_string(id));
  EXPECT_EQ(ask(nullptr, id), "default " + std::to_string(id));
  EXPECT_EQ(table_of(id), vmap_c_tbl_id_ipv4_ucast_dflt());
  EXPECT_EQ(vrf_of(vmap_c_tbl_id_ipv4_ucast_dflt()), id);
}

TEST_F(vrf_contract, a_vrf_that_does_not_exist_is_an_empty_answer) {
  EXPECT_EQ(ask("nosuch"), "none");
  EXPECT_EQ(ask(nullptr, 4711), "none");
}

TEST_F(vrf_contract, what_cannot_be_translated_is_refused_and_writes_nothing) {
  std::uint32_t kept = 77;
  EXPECT_EQ(tblx_shm_lookup_vrf(4711, &kept), not_found_errno);
  EXPECT_EQ(tblx_shm_lookup_tbl(4711, &kept), not_found_errno);
  EXPECT_EQ(kept, 77U);
}

TEST_F(vrf_contract, a_handle_is_given_back_once) {
  const std::uint64_t first = watch("red");
  const std::uint64_t second = watch("red");
  EXPECT_NE(first, second);
  EXPECT_EQ(vmap_c_notif_unreg(register_, first), 0);
  EXPECT_EQ(vmap_c_notif_unreg(register_, first), not_found_errno);
  EXPECT_NE(watch("red"), first) << "no handle is used again";
}

class changing_vrfs_contract : public vrf_contract {
 protected:
  void SetUp() override {
    vrf_contract::SetUp();
    if (IsSkipped()) {
      return;
    }
    if (const std::string reason = vrfs_unavailable(); !reason.empty()) {
      GTEST_SKIP() << reason;
    }
  }
  bool reported(std::size_t count) {
    const bool came = run_until([&] { return news_.size() >= count; });
    let_pass(manager(), 20ms);
    return came && news_.size() == count;
  }
};

TEST_F(changing_vrfs_contract, a_registration_for_a_vrf_to_come_is_reported_when_it_comes) {
  watch("red");
  make_vrf("red", 10);
  ASSERT_TRUE(reported(1));
  const std::uint32_t id = id_of("red");
  EXPECT_EQ(news_[0], "+red " + std::to_string(id));
  EXPECT_EQ(ask(nullptr, id), "red " + std::to_string(id));
  EXPECT_NE(table_of(id), 0U);
  EXPECT_EQ(vrf_of(table_of(id)), id);
}

TEST_F(changing_vrfs_contract, a_deletion_is_reported_with_the_id_that_was) {
  make_vrf("red", 10);
  ASSERT_TRUE(run_until([this] { return id_of("red") != 0; }));
  const std::uint32_t id = id_of("red");
  const std::uint32_t table = table_of(id);
  watch("red");
  let_pass(manager(), 20ms);
  EXPECT_EQ(news_, news{}) << "the present state is not reported";
  remove_vrf("red");
  ASSERT_TRUE(reported(1));
  EXPECT_EQ(news_[0], "-red " + std::to_string(id));
  EXPECT_EQ(ask("red"), "none");
  EXPECT_EQ(table_of(id), 0U);
  EXPECT_EQ(vrf_of(table), 0U);
}

TEST_F(changing_vrfs_contract, a_vrf_made_anew_has_another_id) {
  watch("red");
  make_vrf("red", 10);
  ASSERT_TRUE(reported(1));
  const std::uint32_t table = table_of(id_of("red"));
  remove_vrf("red");
  make_vrf("red", 20);
  ASSERT_TRUE(reported(3));
  EXPECT_EQ(news_[1], "-" + news_[0].substr(1));
  EXPECT_EQ(news_[2], "+red " + std::to_string(id_of("red")));
  EXPECT_NE(news_[2], news_[0]);
  EXPECT_NE(table_of(id_of("red")), table);
  EXPECT_EQ(vrf_of(table), 0U);
}

// Whoever registers prefixes in one of them is notified of both.
TEST_F(changing_vrfs_contract, vrfs_that_share_a_table_have_table_ids_of_their_own) {
  make_vrf("red", 10);
  make_vrf("blue", 10);
  ASSERT_TRUE(run_until([this] { return id_of("red") != 0 && id_of("blue") != 0; }));
  for (const char* name : {"red", "blue"}) {
    EXPECT_EQ(vrf_of(table_of(id_of(name))), id_of(name)) << name;
  }
}

TEST_F(changing_vrfs_contract, only_who_registered_for_a_vrf_is_notified_of_it) {
  watch("red");
  watch("red");
  make_vrf("blue", 20);
  make_vrf("red", 10);
  ASSERT_TRUE(reported(2));
  EXPECT_EQ(news_[0], "+red " + std::to_string(id_of("red")));
  EXPECT_EQ(news_[0], news_[1]);
}

TEST_F(changing_vrfs_contract, what_changes_unannounced_is_reported_all_the_same) {
  watch("red");
  watch("blue");
  make_vrf("red", 10);
  ASSERT_TRUE(reported(1));
  change_unannounced([] {
    remove_vrf("red");
    make_vrf("blue", 20);
  });
  ASSERT_TRUE(reported(3));
  EXPECT_EQ(news_[1], "-" + news_[0].substr(1));
  EXPECT_EQ(news_[2], "+blue " + std::to_string(id_of("blue")));
  make_vrf("red", 30);  // and what is announced is followed as before
  EXPECT_TRUE(reported(4));
}

TEST_F(changing_vrfs_contract, a_registration_given_back_is_not_reported) {
  vmap_c_notif_unreg(register_, watch("red"));
  watch("blue");
  make_vrf("red", 10);
  make_vrf("blue", 20);
  ASSERT_TRUE(reported(1));
  EXPECT_EQ(news_[0], "+blue " + std::to_string(id_of("blue")));
}

TEST_F(changing_vrfs_contract, a_callback_may_give_the_next_registration_back) {
  static vmap_lib* library;
  static std::uint64_t next;
  library = register_;
  watch("red", [](std::uint32_t event, const vmap_vrf* item) {
    vmap_c_notif_unreg(library, next);
    return note(event, item);
  });
  next = watch("red");
  make_vrf("red", 10);
  EXPECT_TRUE(reported(1));
}

}  // namespace
}  // namespace ot::contract
