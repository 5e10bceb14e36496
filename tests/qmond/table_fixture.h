// A probe statistics table of a test's own, in a folder of its own.
#pragma once

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <string>

#include "platform/linux/probes/qmon/table_view.h"
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

  std::string folder_;
  std::string path_;
};

}  // namespace ot::qmond
