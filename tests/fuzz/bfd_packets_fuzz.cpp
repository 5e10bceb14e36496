// Feeds arbitrary datagrams, and time, to a BFD speaker with several sessions. Each step of the
// input is a byte that says what happens, and what that takes. Whatever came: nothing is overdue
// after a turn, a session that is up was heard in time, packets are well-formed and no flood, and
// in the end, when nobody speaks any more, every session is down.
#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <span>

#include "platform/common/bfd/speaker.h"

namespace ot::bfd {
namespace {

void require(bool condition, int line = __builtin_LINE()) noexcept {
  if (!condition) {
    std::fprintf(stderr, "broken in line %d\n", line);
    std::abort();
  }
}

std::uint32_t next_random(void* state) {
  auto& number = *static_cast<std::uint32_t*>(state);
  number = number * 1664525U + 1013904223U;
  return number;
}

class input {
 public:
  explicit input(std::span<const std::byte> bytes) : left_(bytes) {}

  [[nodiscard]] bool empty() const { return left_.empty(); }
  // Zeros when there is no more.
  template <typename Number>
  Number take() {
    Number number{};
    const std::size_t size = std::min(sizeof number, left_.size());
    if (size > 0) std::memcpy(&number, left_.data(), size);
    left_ = left_.subspan(size);
    return number;
  }
  std::span<const std::byte> take_bytes(std::size_t size) {
    const auto taken = left_.first(std::min(size, left_.size()));
    left_ = left_.subspan(taken.size());
    return taken;
  }

 private:
  std::span<const std::byte> left_;
};

class speaker_under_fuzz : private speaker::owner {
 public:
  void step(input& from) {
    const auto what = from.take<std::uint8_t>();
    slot& one = slots_[what / 16 % slots_.size()];
    switch (what % 16) {
      case 0:
        want(one);
        break;
      case 1:
        give_up(one);
        break;
      case 2:
        if (one.session != nullptr) talks_.lose_path(*one.session, now_);
        break;
      case 3:
        if (one.session != nullptr) talks_.set_path(*one.session, one.path, now_);
        break;
      case 4:
        if (one.session != nullptr) talks_.set_timing(*one.session, timing(from), now_);
        break;
      case 5:
      case 6:
        pass(from.take<std::uint16_t>() * 100U);
        break;
      case 7:
        go_on(one, from);
        break;
      case 8:
        hear(one, from.take_bytes(from.take<std::uint8_t>()), from.take<std::uint8_t>());
        break;
      default:
        hear_almost_right(one, from);
    }
    turn();
  }
  // The longest that a neighbor can have announced.
  void finish() {
    for (slot& one : slots_) {
      if (one.session == nullptr) continue;
      now_ += one.session->machine.detection_time();
      turn();
      require(one.session->machine.state() != session_state::up);
      give_up(one);
    }
    for (int i = 0; i < 100 && talks_.next_due(); ++i) {
      now_ = std::max(now_, *talks_.next_due());
      pass(10'000'000);
    }
  }

 private:
  struct slot {
    neighbor_path path;
    spoken_session* session = nullptr;
    std::uint64_t early_until = 0;
    std::uint64_t sent_at = 0;
  };

  void send(const neighbor_path& path, const control_packet& packet) noexcept override {
    control_packet read;
    require(read_control_packet(write_control_packet(packet), &read) == discard::none);
    require(read == packet && !(packet.poll && packet.final));
    const auto one = std::find_if(slots_.begin(), slots_.end(),
                                  [&](const slot& each) { return each.path == path; });
    require(one != slots_.end());
    if (one->session == nullptr || packet.final || packet.state == session_state::admin_down) {
      return;
    }
    if (now_ - one->sent_at < one->session->machine.transmit_interval() * 3 / 4) {
      one->early_until = std::max(one->early_until, now_) + 100'000;
      require(one->early_until <= now_ + 1'200'000);
    }
    one->sent_at = now_;
  }
  void changed(spoken_session& session) noexcept override { require(!session.leaving); }

  static session_timing timing(input& from) {
    return {from.take<std::uint16_t>() * 1000U + 1000, from.take<std::uint16_t>() * 1000U + 1000,
            static_cast<std::uint8_t>(from.take<std::uint8_t>() | 1U)};
  }
  void want(slot& one) {
    if (one.session != nullptr) return;
    one.early_until = one.sent_at = 0;
    constexpr session_timing fast{50'000, 50'000, 3};
    one.session = talks_.take_back(one.path, fast, now_);
    if (one.session == nullptr) {
      one.session = &talks_.add(fast, nullptr, now_);
      talks_.set_path(*one.session, one.path, now_);
    }
  }
  void give_up(slot& one) {
    if (one.session != nullptr) talks_.remove(*one.session, now_);
    one.session = nullptr;
  }
  void go_on(slot& one, input& from) {
    give_up(one);
    agreed_session left{from.take<std::uint8_t>() | 1U, 50'000, 50'000, {}};
    left.remote.state = session_state::up;
    left.remote.detect_multiplier = 3;
    left.remote.my_discriminator = 9;
    left.remote.required_min_rx = left.remote.desired_min_tx = from.take<std::uint16_t>() * 10U;
    one.early_until = one.sent_at = 0;
    one.session = &talks_.add({50'000, 50'000, 3}, &left, now_);
    talks_.set_path(*one.session, one.path, now_);
  }
  void hear(const slot& one, std::span<const std::byte> bytes, std::uint8_t ttl) {
    talks_.received(bytes, {one.path.ifindex, one.path.destination, ttl | 0xf0}, now_);
  }
  // A packet that says what the input wants it to, and is for the session.
  void hear_almost_right(const slot& one, input& from) {
    control_packet packet;
    packet.state = static_cast<session_state>(from.take<std::uint8_t>() % 4);
    const auto bits = from.take<std::uint8_t>();
    packet.poll = (bits & 1) != 0;
    packet.final = (bits & 2) != 0;
    packet.demand = (bits & 4) != 0;
    packet.detect_multiplier = static_cast<std::uint8_t>(1 + bits / 16);
    packet.my_discriminator = 1 + bits / 8 % 2;
    packet.your_discriminator = one.session == nullptr ? 0 : one.session->machine.discriminator();
    packet.desired_min_tx = from.take<std::uint16_t>() * 100U;
    packet.required_min_rx = from.take<std::uint16_t>() * 100U;
    const auto written = write_control_packet(packet);
    hear(one, written, 255);
  }
  void pass(std::uint64_t time) {
    const std::uint64_t until = now_ + time;
    for (auto due = talks_.next_due(); due && *due < until; due = talks_.next_due()) {
      now_ = *due;
      turn();
    }
    now_ = until;
  }
  void turn() {
    talks_.run(now_);
    const auto due = talks_.next_due();
    require(!due || *due > now_);
    for (const slot& one : slots_) {
      if (one.session == nullptr) continue;
      const session& machine = one.session->machine;
      require(!one.session->leaving);
      require(machine.state() == session_state::up || machine.transmit_interval() == 0 ||
              machine.transmit_interval() >= 1'000'000);
    }
  }

  std::uint32_t random_ = 5880;
  std::uint64_t now_ = 1'000'000'000;
  speaker talks_{*this, next_random, &random_};
  std::array<slot, 4> slots_{{{{1, 10, 20}}, {{1, 11, 20}}, {{2, 10, 20}}, {{3, 13, 23}}}};
};

}  // namespace
}  // namespace ot::bfd

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  ot::bfd::input bytes{std::as_bytes(std::span{data, size})};
  ot::bfd::speaker_under_fuzz tested;
  while (!bytes.empty()) tested.step(bytes);
  tested.finish();
  return 0;
}
