// What is written down of a command before its program runs, and when that never runs.
#include "tools/children/spawn.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

#include "platform/linux/unique_fd.h"
#include "tools/children/groups.h"

namespace ot::children {
namespace {

struct text_pipe {
  text_pipe() {
    std::array<int, 2> ends{-1, -1};
    EXPECT_EQ(pipe2(ends.data(), O_CLOEXEC), 0);
    from = unique_fd(ends[0]);
    into = unique_fd(ends[1]);
  }
  // All, once nobody can write into it any more.
  std::string text() {
    into.reset();
    std::string all;
    std::array<char, 4096> part{};
    for (ssize_t size = 0; (size = read(from.get(), part.data(), part.size())) > 0;) {
      all.append(part.data(), static_cast<std::size_t>(size));
    }
    return all;
  }
  void fill() const {
    const std::array<char, 4096> part{};
    fcntl(into.get(), F_SETFL, O_NONBLOCK);
    while (write(into.get(), part.data(), part.size()) > 0) {
    }
    fcntl(into.get(), F_SETFL, 0);
  }

  unique_fd from;
  unique_fd into;
};

const std::vector<std::string> say{"/bin/echo", "it ran"};
const std::vector<std::string> missing{"/nowhere/program"};
const std::vector<std::string> none;

bool has_child(pid_t process) {
  const std::string number = std::to_string(process);
  std::ifstream stream("/proc/" + number + "/task/" + number + "/children");
  pid_t child = 0;
  return static_cast<bool>(stream >> child);
}

TEST(spawned, is_on_record_before_it_runs) {
  text_pipe both;
  pid_t child = 0;
  ASSERT_EQ(
      spawn(
          {.argv = say, .environment = none, .output = both.into.get(), .record = both.into.get()},
          &child),
      0);
  const std::string text = both.text();
  const std::string ran = "\nit ran\n";
  ASSERT_TRUE(text.ends_with(ran)) << text;
  EXPECT_EQ(identity_in(text.substr(0, text.size() - ran.size())).number, child) << text;
  int status = -1;
  ASSERT_EQ(waitpid(child, &status, 0), child);
  EXPECT_EQ(status, 0);
}

TEST(spawned, runs_though_it_cannot_be_recorded) {
  text_pipe output;
  const unique_fd full(open("/dev/full", O_WRONLY | O_CLOEXEC));
  pid_t child = 0;
  ASSERT_EQ(
      spawn({.argv = say, .environment = none, .output = output.into.get(), .record = full.get()},
            &child),
      0);
  EXPECT_EQ(output.text(), "it ran\n");
  ASSERT_EQ(waitpid(child, nullptr, 0), child);
}

TEST(spawned, never_runs_when_its_parent_dies_while_it_is_recorded) {
  text_pipe output;
  text_pipe record;
  record.fill();
  const pid_t parent = fork();
  ASSERT_GE(parent, 0);
  if (parent == 0) {
    pid_t child = 0;
    (void)spawn({.argv = say,
                 .environment = none,
                 .output = output.into.get(),
                 .record = record.into.get()},
                &child);
    _exit(0);
  }
  const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(20);
  while (!has_child(parent) && std::chrono::steady_clock::now() < end) {
    std::this_thread::yield();
  }
  EXPECT_TRUE(has_child(parent));
  ASSERT_EQ(kill(parent, SIGKILL), 0);
  int status = 0;
  ASSERT_EQ(waitpid(parent, &status, 0), parent);
  EXPECT_TRUE(WIFSIGNALED(status));
  EXPECT_NE(record.text().find(" (tools_tests) "), std::string::npos);
  EXPECT_EQ(output.text(), "");
}

TEST(spawned, whose_program_is_missing_leaves_no_child) {
  pid_t child = 0;
  EXPECT_EQ(spawn({.argv = missing, .environment = none}, &child), ENOENT);
  EXPECT_EQ(child, 0);
  EXPECT_EQ(waitpid(-1, nullptr, WNOHANG), -1);
  EXPECT_EQ(errno, ECHILD);
}

}  // namespace
}  // namespace ot::children
