// The package as the service sees it: two libraries loaded by name, and through them the table of
// whichever qmond runs.
#include <cstdlib>
#include <optional>

#include "platform/probe_service.h"
#include "tests/qmond/table_fixture.h"

namespace ot::qmond {
namespace {

class package_test : public table_test {
 protected:
  void SetUp() override {
    table_test::SetUp();
    setenv("OT_ROOT", folder_.c_str(), 1);
    std::filesystem::create_directories(folder_ + "/run/qmond");
    path_ = folder_ + statistics_path;
    infra_ = qmon_library_load("libqmon_infra.dll");
    comp_ = qmon_library_load("libqmon_infra_comp.dll");
    ASSERT_NE(infra_, nullptr);
    ASSERT_NE(comp_, nullptr);
  }
  void TearDown() override {
    qmon_library_unload(comp_);
    qmon_library_unload(infra_);
    unsetenv("OT_ROOT");
    table_test::TearDown();
  }

  // Starts a writer with one operation whose result is `code`; ends the one before.
  void restart(std::uint32_t op_id, std::uint32_t code) {
    writer_.reset();
    writer_.emplace(path_, 1);
    writer_->publish(writer_->add(op_id, {}), result(code, 12));
    writer_->install();
  }

  void* infra_ = nullptr;
  void* comp_ = nullptr;
  std::optional<table_writer> writer_;
};

TEST_F(package_test, without_a_writer_there_is_no_table) {
  EXPECT_NE(qmon_ot_shm_client_init(), 0);
  EXPECT_EQ(qmon_ot_shm_get_stat_tbl(), nullptr);
  qmon_stat_entry entry{.op_id = 9, .return_code = 9, .response_time = 9};
  EXPECT_FALSE(qmon_ot_stat_look_up(1, nullptr, &entry));
  EXPECT_EQ(entry.return_code, 9U);
}

TEST_F(package_test, an_operation_is_found) {
  restart(31, 2);
  EXPECT_EQ(qmon_ot_shm_get_stat_tbl(), nullptr) << "not opened yet";
  ASSERT_EQ(qmon_ot_shm_client_init(), 0);
  void* const table = qmon_ot_shm_get_stat_tbl();
  ASSERT_NE(table, nullptr);
  qmon_stat_entry entry;
  ASSERT_TRUE(qmon_ot_stat_look_up(31, table, &entry));
  EXPECT_EQ(entry.op_id, 31U);
  EXPECT_EQ(entry.return_code, 2U);
  EXPECT_EQ(entry.response_time, 12U);
  EXPECT_FALSE(qmon_ot_stat_look_up(32, table, &entry));
}

TEST_F(package_test, an_operation_of_a_writer_that_ended_is_not_running) {
  restart(31, 1);
  ASSERT_EQ(qmon_ot_shm_client_init(), 0);
  writer_.reset();
  void* const table = qmon_ot_shm_get_stat_tbl();
  EXPECT_NE(table, nullptr);
  qmon_stat_entry entry;
  EXPECT_FALSE(qmon_ot_stat_look_up(31, table, &entry));
}

TEST_F(package_test, a_restarted_writer_is_followed_after_the_next_open) {
  restart(31, 1);
  ASSERT_EQ(qmon_ot_shm_client_init(), 0);
  restart(31, 4);
  EXPECT_EQ(qmon_ot_shm_get_stat_tbl(), nullptr);
  ASSERT_EQ(qmon_ot_shm_client_init(), 0);
  qmon_stat_entry entry;
  ASSERT_TRUE(qmon_ot_stat_look_up(31, qmon_ot_shm_get_stat_tbl(), &entry));
  EXPECT_EQ(entry.return_code, 4U);
}

TEST_F(package_test, a_library_that_is_not_there_is_not_loaded) {
  EXPECT_EQ(qmon_library_load("libqmon_nobody_has.dll"), nullptr);
  qmon_library_unload(nullptr);
}

TEST(unloaded_package_test, nothing_is_there_while_it_is_not_loaded) {
  EXPECT_NE(qmon_ot_shm_client_init(), 0);
  EXPECT_EQ(qmon_ot_shm_get_stat_tbl(), nullptr);
}

}  // namespace
}  // namespace ot::qmond
