// The configuration as a file: whether it can be read, and who may have written it.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>

#include "tools/qmond/config.h"

namespace ot::qmond {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

TEST(qmond_config_path, a_file_that_cannot_be_read_is_a_problem_of_its_own) {
  const configuration config = read_config("/nowhere/probes.toml");
  ASSERT_EQ(config.problems.size(), 1U);
  EXPECT_EQ(problem_text("f", config.problems[0]), "f: No such file or directory");
}

TEST(qmond_config_path, an_empty_file_has_no_operations_and_no_problems) {
  const configuration config = read_config("/dev/null");
  EXPECT_THAT(config.problems, IsEmpty());
  EXPECT_THAT(config.operations, IsEmpty());
}

TEST(qmond_config_path, a_folder_is_no_configuration) {
  const configuration config = read_config("/");
  ASSERT_EQ(config.problems.size(), 1U);
  EXPECT_EQ(problem_text("f", config.problems[0]), "f: Is a directory");
}

// A file whose rights and owner the test chooses.
class qmond_config_file : public testing::Test {
 protected:
  void SetUp() override {
    const int file = mkstemp(path_.data());
    ASSERT_GE(file, 0);
    close(file);
  }
  void TearDown() override { unlink(path_.c_str()); }

  [[nodiscard]] std::vector<std::string> problems() const {
    std::vector<std::string> texts;
    for (const problem& what : read_config(path_).problems) {
      texts.push_back(problem_text("f", what));
    }
    return texts;
  }

  std::string path_ = testing::TempDir() + "probes.XXXXXX";
};

TEST_F(qmond_config_file, one_that_only_its_owner_writes_is_read) {
  for (const mode_t mode : {0600U, 0644U, 0444U}) {
    ASSERT_EQ(chmod(path_.c_str(), mode), 0);
    EXPECT_THAT(problems(), IsEmpty());
  }
}

TEST_F(qmond_config_file, one_that_others_may_write_is_refused) {
  for (const mode_t mode : {0620U, 0602U, 0666U}) {
    ASSERT_EQ(chmod(path_.c_str(), mode), 0);
    EXPECT_THAT(problems(),
                ElementsAre("f: others may write to it; only its owner may (chmod go-w)"));
  }
}

TEST_F(qmond_config_file, a_strangers_is_refused) {
  if (geteuid() != 0) {
    GTEST_SKIP() << "only root can give a file away";
  }
  ASSERT_EQ(chown(path_.c_str(), 65534, 65534), 0);
  EXPECT_THAT(problems(), ElementsAre("f: it belongs to user 65534; it must belong to user 0"));
}

TEST(qmond_config_path, a_file_without_an_end_is_refused) {
  const configuration config = read_config("/dev/zero");
  ASSERT_EQ(config.problems.size(), 1U);
  EXPECT_EQ(problem_text("f", config.problems[0]), "f: it is larger than 64 MiB");
}

}  // namespace
}  // namespace ot::qmond
