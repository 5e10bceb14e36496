// The probe service's table as the service reads it, when something has happened to the file: there
// is none then, and there is one again when it has been made good.
#include <gtest/gtest.h>

#include <cstddef>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

#include "platform/linux/monotonic.h"
#include "platform/linux/probes/qmon/table_layout.h"
#include "platform/probe_service.h"
#include "tests/contract/probe_test_bed.h"

namespace ot::contract {
namespace {

namespace fs = std::filesystem;

class hostile_probe_table : public testing::Test {
 protected:
  void SetUp() override {
    ASSERT_NE(library_, nullptr);
    bed_->start();
    bed_->result(31, 1, 12);
    path_ = std::getenv("OT_ROOT") + std::string(statistics_path);
    good_ = path_ + ".good";
    fs::copy_file(path_, good_);
    ASSERT_EQ(qmon_ot_shm_client_init(), 0);
    ASSERT_TRUE(runs());
  }
  void TearDown() override {
    write_back();  // the bed writes into it once more
    bed_.reset();
    qmon_library_unload(library_);
  }

  // As the service asks: the table is opened where there is none.
  static bool runs() {
    if (qmon_ot_shm_get_stat_tbl() == nullptr) {
      (void)qmon_ot_shm_client_init();
    }
    qmon_stat_entry entry;
    return qmon_ot_stat_look_up(31, qmon_ot_shm_get_stat_tbl(), &entry);
  }
  void set_heartbeat(std::uint64_t ms) const {
    std::fstream file(path_, std::ios::in | std::ios::out | std::ios::binary);
    file.seekp(offsetof(table_header, heartbeat_ms));
    file.write(reinterpret_cast<const char*>(&ms), sizeof ms);
  }
  // In place, so that whoever has the file open sees it.
  void write_back() const {
    std::ifstream from(good_, std::ios::binary);
    std::ofstream(path_, std::ios::binary) << from.rdbuf();
    set_heartbeat(monotonic_ms());
  }

  std::unique_ptr<probe_test_bed> bed_ = make_probe_test_bed();
  void* library_ = qmon_library_load("libqmon_infra.dll");
  std::string path_;
  std::string good_;
};

TEST_F(hostile_probe_table, a_file_that_was_cut_off_has_only_what_is_left) {
  for (const std::uintmax_t size : {fs::file_size(path_) - 1, std::uintmax_t{4096},
                                    std::uintmax_t{64}, std::uintmax_t{63}, std::uintmax_t{0}}) {
    fs::resize_file(path_, size);
    const bool header_left = size >= sizeof(table_header);
    EXPECT_EQ(qmon_ot_shm_get_stat_tbl() != nullptr, header_left) << size;
    qmon_stat_entry entry{31, 1, 12};
    (void)qmon_ot_stat_look_up(31, qmon_ot_shm_get_stat_tbl(), &entry);
    EXPECT_EQ(entry.return_code, 1U) << size;
    EXPECT_EQ(entry.response_time, 12U) << size;
    EXPECT_TRUE(size > sizeof(table_header) || !runs()) << size;
    write_back();
    EXPECT_TRUE(runs()) << size;
  }
}

TEST_F(hostile_probe_table, a_file_of_something_else_is_none) {
  std::ofstream(path_, std::ios::binary) << std::string(fs::file_size(good_), 'x');
  EXPECT_FALSE(runs());
  EXPECT_EQ(qmon_ot_shm_get_stat_tbl(), nullptr);
  write_back();
  EXPECT_TRUE(runs());
}

TEST_F(hostile_probe_table, a_heartbeat_from_the_future_is_not_believed) {
  set_heartbeat(monotonic_ms() + 3600000);
  EXPECT_FALSE(runs());
  EXPECT_EQ(qmon_ot_shm_get_stat_tbl(), nullptr);
  write_back();
  EXPECT_TRUE(runs());
}

}  // namespace
}  // namespace ot::contract
