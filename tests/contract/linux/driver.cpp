// The Linux platform under the contract suite: an instance in a directory of its own, links that
// are veth pairs in a network namespace of the test's own, real time.
#include "tests/contract/driver.h"

#include <gtest/gtest.h>
#include <sched.h>
#include <sys/mman.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <memory>
#include <sstream>
#include <thread>

#include "platform/event_manager.h"
#include "platform/linux/events/server.h"
#include "platform/linux/links/vrf_devices.h"
#include "platform/linux/log/queue.h"
#include "platform/linux/loop/sd_event.h"

namespace ot::contract {
namespace {

using namespace std::chrono_literals;

constexpr std::chrono::microseconds patience = 10s;
constexpr int quiet_ms = 5000;  // a subscriber that hears nothing for so long has heard all

std::string instance_directory;

void ip(const std::string& arguments) {
  ASSERT_EQ(std::system(("ip " + arguments).c_str()), 0) << "ip " << arguments;
}

std::string link_text(const std::string& name) {
  const std::string command = "ip -o link show dev " + name;
  const std::unique_ptr<FILE, int (*)(FILE*)> pipe{popen(command.c_str(), "r"), pclose};
  std::array<char, 512> line{};
  const bool read = std::fgets(line.data(), line.size(), pipe.get()) != nullptr;
  return read ? line.data() : "";
}

// The far end of the veth pair.
std::string peer_of(const std::string& name) {
  return name + "p";
}

// A flag of the loop that is raised when `time` is over.
class loop_deadline {
 public:
  loop_deadline(evm* manager, std::chrono::microseconds time) {
    const auto usec = static_cast<std::uint64_t>(time.count());
    EXPECT_GE(sd_event_add_time_relative(
                  evm_sd_event(manager), &source_, CLOCK_MONOTONIC, usec, 1,
                  [](sd_event_source*, std::uint64_t, void* flag) {
                    *static_cast<bool*>(flag) = true;
                    return 0;
                  },
                  &over_),
              0);
  }
  ~loop_deadline() { sd_event_source_disable_unref(source_); }
  loop_deadline(const loop_deadline&) = delete;
  loop_deadline& operator=(const loop_deadline&) = delete;

  [[nodiscard]] bool over() const { return over_; }

 private:
  sd_event_source* source_ = nullptr;
  bool over_ = false;
};

// Runs `work` on a thread of its own while this one runs the loop.
void run_beside(evm* manager, const std::function<void()>& work) {
  std::atomic<bool> done = false;
  std::thread thread{[&] {
    work();
    done = true;
    evm_post(
        manager, [](void*) {}, nullptr);  // wakes the loop
  }};
  EXPECT_TRUE(run_until(manager, [&] { return done.load(); }));
  thread.join();
}

}  // namespace

void start() {
  char directory[] = "/tmp/ot_contract.XXXXXX";
  ASSERT_NE(mkdtemp(directory), nullptr);
  instance_directory = directory;
  setenv("OT_ROOT", directory, 1);
}

void finish() {
  event_publisher_close();
  the_vrf_devices().close();
  unsetenv("OT_ROOT");
  std::filesystem::remove_all(instance_directory);
}

bool run_until(evm* manager, const std::function<bool()>& condition) {
  const loop_deadline deadline{manager, patience};
  while (!condition()) {
    if (deadline.over() || evm_block(manager) != 0 || evm_dispatch(manager) != 0) {
      return false;
    }
  }
  return true;
}

void let_pass(evm* manager, std::chrono::milliseconds time) {
  const loop_deadline end{manager, time};
  EXPECT_TRUE(run_until(manager, [&] { return end.over(); }));
}

// The namespace goes with the next test's, or with the process.
std::string interfaces_unavailable() {
  if (unshare(CLONE_NEWNET) != 0) {
    return std::string{"no network namespace of our own: "} + std::strerror(errno);
  }
  return {};
}

void make_interface(const std::string& name) {
  ip("link add " + name + " type veth peer name " + peer_of(name));
  ip("link set " + peer_of(name) + " up");
  ip("link set " + name + " up");
  const auto end = std::chrono::steady_clock::now() + patience;
  while (link_text(name).find("state UP") == std::string::npos) {
    ASSERT_LT(std::chrono::steady_clock::now(), end) << name << " does not come up";
  }
}

void remove_interface(const std::string& name) {
  ip("link del " + name);
}

// A link cannot be renamed while it is up.
void rename_interface(const std::string& from, const std::string& to) {
  ip("link set " + from + " down");
  ip("link set " + from + " name " + to);
  ip("link set " + to + " up");
}

void cut_link(const std::string& name) {
  ip("link set " + peer_of(name) + " down");
}

void restore_link(const std::string& name) {
  ip("link set " + peer_of(name) + " up");
}

void set_admin_down(const std::string& name) {
  ip("link set " + name + " down");
}

void set_admin_up(const std::string& name) {
  ip("link set " + name + " up");
}

int subscribe(evm* manager, std::span<const evdl_filter> filters, evdl_subscriber** ret) {
  int status = -1;
  run_beside(manager, [&] { status = evdl_subscribe(filters, ret); });
  return status;
}

std::vector<evdl_track_event> receive(evm* manager, evdl_subscriber* subscriber, std::size_t count,
                                      int* ret_status) {
  std::vector<evdl_track_event> events;
  run_beside(manager, [&] {
    std::size_t before = 0;
    do {
      before = events.size();
      *ret_status = evdl_receive(subscriber, quiet_ms,
                                 [&](const evdl_track_event& event) { events.push_back(event); });
    } while (*ret_status == 0 && events.size() > before && events.size() < count);
  });
  return events;
}

std::string messages_unavailable() {
  const bool to_system_log =
      access("/run/systemd/journal/socket", W_OK) == 0 || access("/dev/log", W_OK) == 0;
  return to_system_log && isatty(STDERR_FILENO) != 1
             ? "messages go to the system's log here, not to standard error"
             : "";
}

std::vector<std::string> logged(evm* manager, const std::function<void()>& talk) {
  const int kept = dup(STDERR_FILENO);
  const int memory = memfd_create("log", MFD_CLOEXEC);
  EXPECT_EQ(log_queue_attach(manager), 0);
  dup2(memory, STDERR_FILENO);
  talk();
  let_pass(manager, 1ms);
  log_queue_detach();
  dup2(kept, STDERR_FILENO);
  std::string text(static_cast<std::size_t>(lseek(memory, 0, SEEK_END)), '\0');
  EXPECT_EQ(pread(memory, text.data(), text.size(), 0), static_cast<ssize_t>(text.size()));
  close(memory);
  close(kept);
  std::vector<std::string> lines;
  std::istringstream stream{text};
  for (std::string line; std::getline(stream, line);) {
    lines.push_back(line);
  }
  return lines;
}

}  // namespace ot::contract
