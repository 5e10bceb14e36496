// Our own BFD engine on links of a namespace: its sessions keep to the names of the interfaces,
// whatever order those change in.
#include "platform/linux/bfd/own/engine.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <memory>
#include <string>

#include "platform/event_manager.h"
#include "tests/contract/linux/link_watch.h"
#include "tests/contract/linux/network_namespace.h"

namespace ot::bfd {
namespace {

using ot::testing::ip;

class watched_engine final : public engine::owner {
 public:
  watched_engine() {
    char folder[] = "/tmp/ot-engine-XXXXXX";
    EXPECT_NE(mkdtemp(folder), nullptr);
    folder_ = folder;
    setenv("OT_ROOT", folder, 1);
    EXPECT_EQ(evm_create(&manager_), 0);
    EXPECT_EQ(engine_->start(manager_), 0);
  }
  ~watched_engine() {
    engine_.reset();
    evm_destroy(manager_);
    unsetenv("OT_ROOT");
    std::filesystem::remove_all(folder_);
  }
  watched_engine(const watched_engine&) = delete;
  watched_engine& operator=(const watched_engine&) = delete;

  void add(const std::string& interface) {
    session_config config;
    config.key = {interface_name{interface}, inet_addr("10.9.0.2")};
    config.interval = 100;
    config.multiplier = 3;
    engine_->add(config);
  }
  void remove(const std::string& interface) {
    engine_->remove({interface_name{interface}, inet_addr("10.9.0.2")});
    told_.clear();
  }
  bool expect_running(bool running) {
    return ot::testing::run_loop_until(manager_,
                                       [&] { return engine_->status().running == running; });
  }
  // Each of the sessions sends from now on. Told once a second.
  bool all_send() {
    const auto told = [this] {
      std::map<std::string, std::uint64_t> packets;
      for (const auto& [interface, status] : told_) packets[interface] = status.packets_out;
      return packets;
    };
    const auto before = told();
    return ot::testing::run_loop_until(manager_, [&] {
      const auto now = told();
      return !now.empty() && std::all_of(now.begin(), now.end(), [&](const auto& session) {
        const auto known = before.find(session.first);
        return session.second > (known == before.end() ? 0 : known->second + 2);
      });
    });
  }
  std::string problem(const std::string& interface) {
    return std::string(told_[interface].problem.view());
  }

 private:
  void session_changed(const session_key& key, const bfdc_session_status& now) noexcept override {
    told_[std::string(key.interface.view())] = now;
  }
  void engine_changed() noexcept override {}

  std::string folder_;
  evm* manager_ = nullptr;
  std::unique_ptr<own_engine> engine_ = std::make_unique<own_engine>(*this);
  std::map<std::string, bfdc_session_status> told_;
};

TEST(bfd_own_engine, follows_interfaces_that_exchange_their_names) {
  if (const std::string reason = ot::testing::no_namespace_reason(); !reason.empty()) {
    GTEST_SKIP() << reason;
  }
  ot::testing::in_namespace([] {
    for (const char* name : {"0", "1"}) {
      const std::string near = std::string("e") + name;
      const std::string far = std::string("p") + name;
      std::string pair = "link add " + near;
      pair.append(" type veth peer name ").append(far);
      ip(pair);
      ip("addr add 10.9.0.1/24 dev " + near);
      ip("link set " + far + " up");
      ip("link set " + near + " up");
    }
    watched_engine engine;
    engine.add("e0");
    engine.add("e1");
    EXPECT_TRUE(engine.all_send());
    for (const char* command :
         {"e0 down", "e0 name x0", "e1 down", "e1 name e0", "x0 name e1", "e0 up", "e1 up"}) {
      ip(std::string("link set ") + command);
    }
    EXPECT_TRUE(engine.all_send()) << "both sessions have a way again";
    EXPECT_EQ(engine.problem("e0"), "");
    EXPECT_EQ(engine.problem("e1"), "");
  });
}

TEST(bfd_own_engine, without_sessions_does_not_care_who_has_the_port) {
  if (const std::string reason = ot::testing::no_namespace_reason(); !reason.empty()) {
    GTEST_SKIP() << reason;
  }
  ot::testing::in_namespace([] {
    const unique_fd other{socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0)};
    sockaddr_in name{};
    name.sin_family = AF_INET;
    name.sin_port = htons(control_port);
    ASSERT_EQ(bind(other.get(), reinterpret_cast<sockaddr*>(&name), sizeof name), 0);
    watched_engine engine;
    engine.add("e0");
    EXPECT_TRUE(engine.expect_running(false));
    engine.remove("e0");
    EXPECT_TRUE(engine.expect_running(true));
  });
}

}  // namespace
}  // namespace ot::bfd
