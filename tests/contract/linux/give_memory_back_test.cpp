// What is let go of at rest: code and constants, and nothing that was written to.
#include "platform/linux/give_memory_back.h"

#include <gtest/gtest.h>
#include <sys/ptrace.h>
#include <sys/wait.h>

#include <csignal>
#include <cstddef>
#include <cstring>
#include <fstream>
#include <sstream>
#include <string>
#include <thread>

namespace ot {
namespace {

std::string written = "as the program came";

// Of mappings that nobody writes to, KiB.
std::size_t kib_of_files() {
  std::ifstream maps{"/proc/self/smaps"};
  std::string line;
  bool counts = false;
  std::size_t sum = 0;
  while (std::getline(maps, line)) {
    std::istringstream words{line};
    std::string first;
    std::string second;
    words >> first >> second;
    if (first == "Rss:") {
      sum += counts ? std::stoul(second) : 0;
    } else if (second.size() == 4 && second.back() == 'p') {
      counts = second == "r-xp" || second == "r--p";
    }
  }
  return sum;
}

TEST(memory_given_back, takes_code_and_leaves_what_was_written) {
  written = "changed since";
  kib_of_files();  // what it runs itself is there
  const std::size_t before = kib_of_files();
  give_memory_back();
  EXPECT_LT(kib_of_files(), before / 2);
  EXPECT_EQ(written, "changed since");
  std::ostringstream out;  // virtual functions, which the start had to place
  out << 1.5;
  EXPECT_EQ(out.str(), "1.5");
}

alignas(long) const char constant[sizeof(long)] = "as made";

TEST(memory_given_back, leaves_what_a_debugger_has_written) {
  const pid_t child = fork();
  ASSERT_GE(child, 0);
  if (child == 0) {
    ptrace(PTRACE_TRACEME, 0, nullptr, nullptr);
    raise(SIGSTOP);
    give_memory_back();
    _exit(*static_cast<const volatile char*>(constant));
  }
  int status = 0;
  ASSERT_EQ(waitpid(child, &status, WUNTRACED), child);
  long text = 0;
  std::memcpy(&text, "written", sizeof text);
  auto* const place = const_cast<char*>(constant);
  EXPECT_EQ(ptrace(PTRACE_POKEDATA, child, place, text), 0);
  EXPECT_EQ(ptrace(PTRACE_CONT, child, nullptr, nullptr), 0) << kill(child, SIGKILL);
  ASSERT_EQ(waitpid(child, &status, 0), child);
  EXPECT_TRUE(WIFEXITED(status));
  EXPECT_EQ(WEXITSTATUS(status), 'w');
}

TEST(memory_given_back, is_no_matter_to_threads_that_run) {
  std::jthread other{[](const std::stop_token& stop) {
    for (int round = 0; round == 0 || !stop.stop_requested(); ++round) {
      std::ostringstream out;
      out << round;
      EXPECT_EQ(out.str(), std::to_string(round));
    }
  }};
  for (int count = 0; count < 200; ++count) {
    give_memory_back();
  }
}

}  // namespace
}  // namespace ot
