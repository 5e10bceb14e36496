// The ledger's service as a process among others: a second instance, users without rights, clients
// before, during and after its life.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <functional>
#include <optional>
#include <stdexcept>

#include "platform/event_manager.h"
#include "platform/ledger.h"
#include "platform/ledger/server/server.h"
#include "platform/ledger_commit.h"
#include "platform/ledger_status.h"
#include "platform/process.h"
#include "tests/contract/linux/closed_descriptors.h"
#include "tests/contract/linux/ledger_place.h"
#include "tests/support/ledger_proposals.h"
#include "tests/support/sample_tree.h"

namespace ot::test {
namespace {

using ::testing::HasSubstr;

constexpr uid_t nobody = 65534;
constexpr const char* item = "/cfg/gl/sample/thing/x/a";

int commit(const ledger_proposal& change) {
  return ledger_commit(ledger_get_default_conn(), {&change, 1}, nullptr);
}

// Runs `work` in a child and returns its exit status; the child's own failures show as 99.
int in_child(const std::function<int()>& work) {
  const pid_t child = fork();
  if (child == 0) {
    _exit(work());
  }
  int status = 0;
  return child > 0 && waitpid(child, &status, 0) == child && WIFEXITED(status) ? WEXITSTATUS(status)
                                                                               : 99;
}

// An instance in a process of its own, killed at the end.
class other_instance {
 public:
  other_instance() {
    int ready[2] = {-1, -1};
    if (pipe(ready) != 0) {
      throw std::runtime_error{"no pipe"};
    }
    child_ = fork();
    if (child_ == 0) {
      const direct_service service;
      const bool reported = write(ready[1], "r", 1) == 1;
      pause();
      _exit(reported ? 0 : 1);
    }
    close(ready[1]);
    char byte = 0;
    running_ = read(ready[0], &byte, 1) == 1;
    close(ready[0]);
  }
  ~other_instance() {
    kill(child_, SIGKILL);
    waitpid(child_, nullptr, 0);
  }
  other_instance(const other_instance&) = delete;
  other_instance& operator=(const other_instance&) = delete;

  [[nodiscard]] pid_t process() const noexcept { return child_; }
  [[nodiscard]] bool running() const noexcept { return running_; }

 private:
  pid_t child_ = -1;
  bool running_ = false;
};

TEST(ledger_service, a_second_instance_is_refused_with_the_first_ones_name) {
  const ledger_place place;
  {
    const other_instance first;
    ASSERT_TRUE(first.running());
    evm* manager = nullptr;
    ASSERT_EQ(evm_create(&manager), 0);
    char error[512] = {};
    EXPECT_EQ(ledger_server_open(manager, error, sizeof error), ledger_not_available);
    EXPECT_THAT(error, HasSubstr("process " + std::to_string(first.process()) + " holds"));
    EXPECT_THAT(error, HasSubstr(place.path() + "/run/object_tracking/ledger.lock"));
    evm_destroy(manager);
  }
  const direct_service after;  // what a killed instance leaves behind is no obstacle
}

TEST(ledger_service, an_unusable_root_is_named) {
  const ledger_place place;
  std::ofstream{place.path() + "/run"} << "a file where a directory belongs";
  evm* manager = nullptr;
  ASSERT_EQ(evm_create(&manager), 0);
  char error[512] = {};
  EXPECT_NE(ledger_server_open(manager, error, sizeof error), 0);
  EXPECT_THAT(error, HasSubstr(place.path() + "/run"));
  evm_destroy(manager);
}

TEST(ledger_service, modes_keep_others_out) {
  const ledger_place place;
  const direct_service service;
  const auto mode = [&place](const char* path) {
    struct stat state {};
    EXPECT_EQ(stat((place.path() + path).c_str(), &state), 0) << path;
    return state.st_mode & 0777U;
  };
  EXPECT_EQ(mode("/run/object_tracking"), 0750U);
  EXPECT_EQ(mode("/var/lib/object_tracking"), 0700U);
  EXPECT_EQ(mode("/run/object_tracking/ledger.sock"), 0660U);
  EXPECT_EQ(mode("/var/lib/object_tracking/configuration.mdb"), 0600U);
  EXPECT_EQ(mode("/run/object_tracking/operational.mdb"), 0600U);
}

class ledger_access : public ::testing::Test {
 protected:
  void SetUp() override {
    if (getuid() != 0) {
      GTEST_SKIP() << "only root can become another user";
    }
    chmod(place_.path().c_str(), 0755);
    service_.emplace();
    service_->run([] { ASSERT_EQ(register_sample_tree(), 0); });
  }
  static int as_nobody(const std::function<int()>& work) {
    return in_child([&work] { return setgid(nobody) == 0 && setuid(nobody) == 0 ? work() : 98; });
  }
  ledger_place place_;
  std::optional<threaded_service> service_;
};

TEST_F(ledger_access, strangers_do_not_even_connect) {
  EXPECT_EQ(as_nobody([] {
              ledger_conn* conn = nullptr;
              return ledger_bind("/oper/", &conn) == ledger_denied ? 0 : 1;
            }),
            0);
}

TEST_F(ledger_access, a_stranger_who_connects_may_nothing) {
  chmod((place_.path() + "/run/object_tracking").c_str(), 0755);
  chmod(place_.socket().c_str(), 0666);
  EXPECT_EQ(as_nobody([] {
              ledger_value value;
              const ledger_proposal change = set_number(item, 1);
              ledger_conn* conn = nullptr;
              const bool denied = ledger_bind("/", &conn) == ledger_denied &&
                                  ledger_commit(nullptr, {&change, 1}, nullptr) == ledger_denied;
              return denied ? 0 : 1;
            }),
            0);
  service_->run([] { EXPECT_TRUE(sample().verified.empty()); });
}

TEST_F(ledger_access, a_stranger_hears_that_of_the_largest_commit_too) {
  chmod((place_.path() + "/run/object_tracking").c_str(), 0755);
  chmod(place_.socket().c_str(), 0666);
  const std::string folder = "/cfg/" + std::string(200, 'x') + "/";
  std::vector<ledger_proposal> changes;
  for (std::size_t number = 0; number < ledger_commit_max; ++number) {
    changes.push_back(set_number(folder + std::to_string(number), 1));
  }
  EXPECT_EQ(as_nobody([&changes] {
              return ledger_commit(nullptr, changes, nullptr) == ledger_denied ? 0 : 1;
            }),
            0);
}

TEST(ledger_client, without_a_service_it_is_unreachable) {
  const ledger_place place;
  ledger_conn* conn = nullptr;
  EXPECT_EQ(ledger_bind("/oper/", &conn), ledger_unreachable);
  EXPECT_EQ(conn, nullptr);
}

TEST(ledger_client, the_next_call_finds_a_restarted_service) {
  const ledger_place place;
  std::optional<threaded_service> service{std::in_place};
  ledger_conn* conn = nullptr;
  ASSERT_EQ(ledger_bind("/debug/", &conn), 0);
  ASSERT_EQ(ledger_item_set(conn, "x", ledger_kind::u32, bytes_of_numbers({4})), 0);
  service.reset();
  ledger_value value;
  EXPECT_EQ(ledger_item_get(conn, "x", &value), ledger_unreachable);
  service.emplace();
  ASSERT_EQ(ledger_item_get(conn, "x", &value), 0);
  EXPECT_EQ(value.as_u32(), 4U);
  ledger_unbind(conn);
}

TEST(ledger_service, an_ended_service_takes_its_descriptors_along) {
  const ledger_place place;
  const int before = watches_on_closed_descriptors();
  ledger_conn* conn = nullptr;
  {
    const threaded_service service;
    ASSERT_EQ(ledger_bind("/oper/", &conn), 0);
  }
  EXPECT_EQ(watches_on_closed_descriptors(), before);
  ledger_unbind(conn);
}

TEST(ledger_client, a_child_has_a_conversation_of_its_own) {
  const ledger_place place;
  threaded_service service;
  ledger_conn* conn = nullptr;
  ASSERT_EQ(ledger_bind("/debug/", &conn), 0);
  const auto number = bytes_of_numbers({4});
  EXPECT_EQ(in_child([&] { return ledger_item_set(conn, "x", ledger_kind::u32, number); }), 0);
  ledger_value value;
  ASSERT_EQ(ledger_item_get(conn, "x", &value), 0);
  EXPECT_EQ(value.as_u32(), 4U);
  ledger_unbind(conn);
}

TEST(ledger_client, a_child_of_the_service_does_not_touch_its_stores) {
  const ledger_place place;
  const direct_service service;  // does not answer: its loop does not run
  const auto start = std::chrono::steady_clock::now();
  EXPECT_EQ(in_child([] {
              ledger_conn* conn = nullptr;
              return ledger_bind("/oper/", &conn) == ledger_no_answer ? 0 : 1;
            }),
            0);
  // The wait for a service that hangs is bounded.
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds{5});
}

TEST(ledger_client, the_library_file_is_looked_for_below_the_package_root) {
  const ledger_place place;
  setenv("OT_PKG_ROOT", place.path().c_str(), 1);
  EXPECT_FALSE(ledger_library_readable());
  std::filesystem::create_directories(place.path() + "/pkg/lib");
  std::ofstream{place.path() + "/pkg/lib/libledger.so"} << "x";
  EXPECT_TRUE(ledger_library_readable());
  unsetenv("OT_PKG_ROOT");
}

TEST(ledger_service, a_commit_survives_the_kill_of_the_service) {
  const ledger_place place;
  const pid_t child = fork();
  ASSERT_GE(child, 0);
  if (child == 0) {
    const direct_service service;
    if (register_sample_tree() == 0 && commit(set_number(item, 7)) == 0) {
      kill(getpid(), SIGKILL);
    }
    _exit(1);
  }
  int status = 0;
  ASSERT_EQ(waitpid(child, &status, 0), child);
  ASSERT_TRUE(WIFSIGNALED(status));
  const direct_service again;
  ledger_value value;
  ASSERT_EQ(ledger_item_get(ledger_get_default_conn(), item + 1, &value), 0);
  EXPECT_EQ(value.as_u32(), 7U);
}

TEST(ledger_service, a_full_ledger_refuses_new_items_in_words) {
  const ledger_place place;
  setenv("OT_LEDGER_MAP_KB", "256", 1);
  const direct_service service;
  unsetenv("OT_LEDGER_MAP_KB");
  ASSERT_EQ(register_sample_tree(), 0);
  std::vector<ledger_refusal> refusals;
  int status = 0;
  int count = 0;
  const auto path = [](int index) {
    return "/cfg/gl/sample/thing/x" + std::to_string(index) + "/note";
  };
  while (status == 0 && count < 10'000) {
    std::vector<ledger_proposal> changes;
    for (int i = 0; i < 20; ++i) {
      changes.push_back(set_text(path(count + i), std::string(200, 'x')));
    }
    status = ledger_commit(ledger_get_default_conn(), changes, &refusals);
    count += status == 0 ? 20 : 0;
  }
  ASSERT_EQ(status, ledger_full);
  ASSERT_FALSE(refusals.empty());
  EXPECT_THAT(refusals[0].text, HasSubstr("new items are no longer taken, deletes are"));
  EXPECT_EQ(commit(remove_item(path(0))), 0);
}

}  // namespace
}  // namespace ot::test
