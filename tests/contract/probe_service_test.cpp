// The probe service's package as its user sees it: two libraries loaded by name, and through them
// the table of whichever service runs.
#include "platform/probe_service.h"

#include <gtest/gtest.h>

#include <array>

#include "tests/contract/probe_test_bed.h"

namespace ot::contract {
namespace {

constexpr const char* infrastructure = "libqmon_infra.dll";
constexpr const char* component = "libqmon_infra_comp.dll";

// Id, code, milliseconds.
using entry_words = std::array<std::uint32_t, 3>;

entry_words words_of(const qmon_stat_entry& entry) {
  return {entry.op_id, entry.return_code, entry.response_time};
}

// Not yet loaded.
class probe_package_contract : public testing::Test {
 protected:
  std::unique_ptr<probe_test_bed> bed_ = make_probe_test_bed();
};

TEST_F(probe_package_contract, a_library_that_is_not_there_is_not_loaded) {
  EXPECT_EQ(qmon_library_load("libqmon_nobody_has.dll"), nullptr);
  qmon_library_unload(nullptr);
}

TEST_F(probe_package_contract, nothing_is_there_until_the_libraries_are_loaded) {
  bed_->start();
  bed_->result(31, 1, 12);
  EXPECT_NE(qmon_ot_shm_client_init(), 0);
  EXPECT_EQ(qmon_ot_shm_get_stat_tbl(), nullptr);
}

TEST_F(probe_package_contract, what_was_loaded_twice_stays_until_it_was_unloaded_twice) {
  bed_->start();
  void* const second = qmon_library_load(component);
  void* const first = qmon_library_load(infrastructure);
  ASSERT_EQ(qmon_library_load(infrastructure), first);
  ASSERT_EQ(qmon_ot_shm_client_init(), 0);
  qmon_library_unload(first);
  EXPECT_NE(qmon_ot_shm_get_stat_tbl(), nullptr);
  qmon_library_unload(first);
  EXPECT_EQ(qmon_ot_shm_get_stat_tbl(), nullptr);
  qmon_library_unload(second);
}

class probe_table_contract : public probe_package_contract {
 protected:
  void SetUp() override {
    ASSERT_NE(infrastructure_, nullptr);
    ASSERT_NE(component_, nullptr);
  }
  ~probe_table_contract() override {
    qmon_library_unload(component_);
    qmon_library_unload(infrastructure_);
  }

  static entry_words found(std::uint32_t op_id) {
    qmon_stat_entry entry;
    EXPECT_TRUE(qmon_ot_stat_look_up(op_id, qmon_ot_shm_get_stat_tbl(), &entry)) << op_id;
    return words_of(entry);
  }
  // Also that nothing is written.
  static bool runs(std::uint32_t op_id) {
    qmon_stat_entry entry{9, 9, 9};
    const bool running = qmon_ot_stat_look_up(op_id, qmon_ot_shm_get_stat_tbl(), &entry);
    EXPECT_TRUE(running || words_of(entry) == (entry_words{9, 9, 9}));
    return running;
  }

 private:
  void* infrastructure_ = qmon_library_load(infrastructure);
  void* component_ = qmon_library_load(component);
};

TEST_F(probe_table_contract, there_is_none_before_the_service_has_made_one) {
  EXPECT_NE(qmon_ot_shm_client_init(), 0);
  EXPECT_EQ(qmon_ot_shm_get_stat_tbl(), nullptr);
  EXPECT_FALSE(runs(31));
  bed_->start();
  EXPECT_EQ(qmon_ot_shm_get_stat_tbl(), nullptr) << "not opened yet";
  EXPECT_EQ(qmon_ot_shm_client_init(), 0);
  EXPECT_NE(qmon_ot_shm_get_stat_tbl(), nullptr);
}

TEST_F(probe_table_contract, an_operation_is_found_with_its_latest_result) {
  bed_->start();
  ASSERT_EQ(qmon_ot_shm_client_init(), 0);
  EXPECT_FALSE(runs(31));
  bed_->result(31, 2, 12);
  bed_->result(4294967295, 1, 4294967295);
  EXPECT_EQ(found(31), (entry_words{31, 2, 12}));
  EXPECT_EQ(found(4294967295), (entry_words{4294967295, 1, 4294967295}));
  bed_->result(31, 0, 0);
  EXPECT_EQ(found(31), (entry_words{31, 0, 0}));
  EXPECT_FALSE(runs(32));
  bed_->stop(31);
  EXPECT_FALSE(runs(31));
}

TEST_F(probe_table_contract, opening_it_again_keeps_it) {
  bed_->start();
  bed_->result(31, 1, 12);
  ASSERT_EQ(qmon_ot_shm_client_init(), 0);
  void* const table = qmon_ot_shm_get_stat_tbl();
  ASSERT_EQ(qmon_ot_shm_client_init(), 0);
  EXPECT_EQ(qmon_ot_shm_get_stat_tbl(), table);
  EXPECT_TRUE(runs(31));
}

TEST_F(probe_table_contract, the_table_of_a_service_that_ended_is_none) {
  bed_->start();
  bed_->result(31, 1, 12);
  ASSERT_EQ(qmon_ot_shm_client_init(), 0);
  qmon_stat_entry entry;
  const void* const table = qmon_ot_shm_get_stat_tbl();
  ASSERT_TRUE(qmon_ot_stat_look_up(31, table, &entry));
  bed_->end();
  EXPECT_FALSE(qmon_ot_stat_look_up(31, table, &entry));
  EXPECT_EQ(qmon_ot_shm_get_stat_tbl(), nullptr);
  EXPECT_NE(qmon_ot_shm_client_init(), 0);
  EXPECT_EQ(qmon_ot_shm_get_stat_tbl(), nullptr);
  EXPECT_FALSE(runs(31));
}

TEST_F(probe_table_contract, a_service_that_starts_again_is_followed_after_the_next_open) {
  bed_->start();
  bed_->result(31, 1, 12);
  ASSERT_EQ(qmon_ot_shm_client_init(), 0);
  bed_->end();
  bed_->start();
  bed_->result(31, 4, 0);
  EXPECT_EQ(qmon_ot_shm_get_stat_tbl(), nullptr);
  ASSERT_EQ(qmon_ot_shm_client_init(), 0);
  EXPECT_EQ(found(31), (entry_words{31, 4, 0}));
}

}  // namespace
}  // namespace ot::contract
