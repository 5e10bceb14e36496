// A probe statistics table of a test's own, in a folder of its own.
#pragma once

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstddef>
#include <cstdlib>
#include <filesystem>
#include <string>

#include "platform/linux/probes/qmon/table_view.h"
#include "platform/linux/unique_fd.h"
#include "tools/qmond/table_writer.h"

namespace ot::qmond {

class qmond_table : public testing::Test {
 protected:
  void SetUp() override {
    std::string pattern = std::filesystem::temp_directory_path() / "qmond-test-XXXXXX";
    ASSERT_NE(mkdtemp(pattern.data()), nullptr);
    folder_ = pattern;
    path_ = folder_ + "/statistics";
  }
  void TearDown() override { std::filesystem::remove_all(folder_); }

  static statistics result(std::uint32_t code, std::uint32_t milliseconds) {
    statistics words{};
    words[word_return_code] = code;
    words[word_response_time] = milliseconds;
    return words;
  }

  // Writes into the table's file what its writer did not.
  template <typename T>
  void overwrite(std::size_t offset, const T& value) const {
    const unique_fd file(open(path_.c_str(), O_WRONLY | O_CLOEXEC));
    ASSERT_EQ(pwrite(file.get(), &value, sizeof value, static_cast<off_t>(offset)),
              ssize_t{sizeof value});
  }
  void set_heartbeat(std::uint64_t ms) const {
    overwrite(offsetof(table_header, heartbeat_ms), ms);
  }

  std::string folder_;
  std::string path_;
};

}  // namespace ot::qmond
