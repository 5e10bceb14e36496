// Starting the engine for a test and writing down what it reports.
#include "tests/contract/linux/bfd_vty_fixture.h"

#include <arpa/inet.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <thread>
#include <utility>

#include "platform/linux/bfd/instance.h"

namespace ot::testing {
namespace {

using namespace std::chrono_literals;

constexpr const char* state_words[] = {"admin ", "down ", "init ", "up "};

std::uint32_t address(unsigned last) {
  return htonl(0x0a000000U + last);
}

}  // namespace

void bfd_vty_fixture::SetUp() {
  contract_test::SetUp();
  const std::string folder = std::string(std::getenv("OT_ROOT")) + "/run/frr";
  std::filesystem::create_directories(folder);
  path_ = folder + "/bfdd.vty";
  bfdd_ = std::make_unique<fake_vty>(manager(), path_);
}

void bfd_vty_fixture::TearDown() {
  bfdd_.reset();  // so that the engine need not wait for its answers
  engine_.reset();
  contract_test::TearDown();
}

bfd::session_config bfd_vty_fixture::session(unsigned number, std::uint32_t interval,
                                             std::uint32_t multiplier) {
  return {{bfd::interface_name{"v" + std::to_string(number)}, address(number)},
          address(254),
          interval,
          multiplier};
}

vty_key bfd_vty_fixture::key(unsigned number) {
  return {"10.0.0." + std::to_string(number), "v" + std::to_string(number)};
}

void bfd_vty_fixture::configure_peer(const vty_key& key, const std::string& profile) {
  vty_peer peer;
  peer.local = peer.original = "10.0.0.254";
  peer.profile = profile;
  bfdd_->peers()[key] = peer;
}

std::string bfd_vty_fixture::mark() const {
  char text[64];
  std::snprintf(text, sizeof text, "object-tracking-%08x", bfd::instance_number());
  return text;
}

void bfd_vty_fixture::start_engine() {
  bfd::engine::owner& reported = *this;
  engine_ = std::make_unique<bfd::vty_engine>(reported, path_);
  ASSERT_EQ(engine_->start(manager()), 0);
}

void bfd_vty_fixture::end_beside_bfdd(const std::function<void()>& first) {
  std::thread bfdds_own{[&] {
    if (first) {
      first();
    }
    while (bfdd_->connected()) {
      bfdd_->serve_once();
    }
  }};
  end_engine();
  bfdds_own.join();
  EXPECT_TRUE(bfdd_->peers().empty());
  EXPECT_FALSE(bfdd_->logs_sessions());
}

void bfd_vty_fixture::start() {
  bfdd_->listen();
  start_engine();
  ASSERT_EQ(wait_reported(1), texts{"runs"});
}

void bfd_vty_fixture::wait_peers(std::size_t count) {
  EXPECT_TRUE(run_until([&] { return bfdd_->peers().size() == count; }))
      << bfdd_->peers().size() << " in place of " << count;
}

void bfd_vty_fixture::bring_up(unsigned number) {
  engine_->add(session(number));
  ASSERT_TRUE(run_until([&] { return bfdd_->peers().contains(key(number)); }));
  settle();
  bfdd_->set_state(key(number), "up");
  ASSERT_EQ(wait_reported(1), texts{"up " + std::to_string(number)});
}

void bfd_vty_fixture::settle() {
  std::size_t before = 0;
  do {
    before = bfdd_->commands().size();
    contract::let_pass(manager(), 30ms);
  } while (bfdd_->commands().size() != before);
}

bfd_vty_fixture::texts bfd_vty_fixture::reported() {
  return std::exchange(reported_, {});
}

bfd_vty_fixture::texts bfd_vty_fixture::wait_reported(std::size_t count) {
  EXPECT_TRUE(run_until([&] { return reported_.size() >= count; }))
      << reported_.size() << " in place of " << count;
  return reported();
}

const bfdc_session_status& bfd_vty_fixture::status(unsigned number) {
  return statuses_[number];
}

void bfd_vty_fixture::session_changed(const bfd::session_key& key,
                                      const bfdc_session_status& now) noexcept {
  const unsigned number = ntohl(key.destination) & 0xff;
  bfdc_session_status& known = statuses_[number];
  if (known.state != now.state) {
    reported_.push_back(state_words[now.state] + std::to_string(number));
  }
  known = now;
}

void bfd_vty_fixture::engine_changed() noexcept {
  const bfdc_engine_status now = engine_->status();
  if (std::exchange(ran_, now.running) != now.running) {
    reported_.push_back(now.running ? "runs" : "away: " + std::string{now.reason.c_str()});
  }
}

}  // namespace ot::testing
