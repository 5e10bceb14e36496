// All BFD sessions of this system, as packets and the clock see them: which session a packet is
// for, what is due when, and the packets to be sent. No socket and no clock, like session.h: the
// owner hands both in. Times are microseconds of one monotonic clock, addresses in network byte
// order.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <numeric>
#include <optional>
#include <set>
#include <span>
#include <unordered_map>
#include <utility>
#include <vector>

#include "platform/common/bfd/packet.h"
#include "platform/common/bfd/session.h"

namespace ot::bfd {

// The way to a neighbor on a link of ours.
struct neighbor_path {
  std::uint32_t ifindex = 0;
  std::uint32_t destination = 0;
  std::uint32_t source = 0;

  friend bool operator==(const neighbor_path&, const neighbor_path&) = default;
};

// A session of the speaker, which owns it.
struct spoken_session {
  explicit spoken_session(const session& begun) noexcept : machine(begun) {}

  session machine;
  std::optional<neighbor_path> path;  // without one nothing is sent, and nothing heard
  bool leaving = false;               // given up, which the neighbor is being told
  std::uint64_t packets_in = 0;
  std::uint64_t packets_out = 0;
  std::uint32_t ups = 0;
  std::uint32_t downs = 0;
  void* tag = nullptr;  // the owner's
  std::uint64_t scheduled = 0;
};

// How a packet has come.
struct packet_arrival {
  std::uint32_t ifindex = 0;
  std::uint32_t source = 0;
  int ttl = 0;
};

// Packets that were dropped, by reason.
struct discarded_packets {
  std::array<std::uint64_t, static_cast<std::size_t>(discard::authentication) + 1> malformed{};
  std::uint64_t ttl = 0;         // they may have come from afar
  std::uint64_t no_session = 0;  // nobody here speaks with that neighbor, or not by that number

  [[nodiscard]] std::uint64_t all() const noexcept {
    return std::accumulate(malformed.begin(), malformed.end(), ttl + no_session);
  }
};

class speaker {
 public:
  class owner {
   public:
    virtual void send(const neighbor_path& path, const control_packet& packet) noexcept = 0;
    // The state, a diagnostic or an interval of the session has changed, or it was heard for the
    // first time. The speaker's sessions are not to be removed from inside.
    virtual void changed(spoken_session& session) noexcept = 0;

   protected:
    ~owner() = default;
  };

  speaker(owner& notified, session::random_number random, void* context) noexcept
      : owner_(notified), random_(random), context_(context) {}

  // A session without a path; `agreed`: that goes on after another process. Throws bad_alloc.
  spoken_session& add(const session_timing& timing, const agreed_session* agreed,
                      std::uint64_t now);
  // The neighbor is told, as long as it takes, and nothing is reported of the session any more.
  void remove(spoken_session& session, std::uint64_t now) noexcept;
  // A session on that path which is being given up, and is from now on wanted again; or null.
  spoken_session* take_back(const neighbor_path& path, const session_timing& timing,
                            std::uint64_t now) noexcept;

  // There is a way to the neighbor, or another one than before: the session begins anew there,
  // unless it goes on after another process. Throws bad_alloc.
  void set_path(spoken_session& session, const neighbor_path& path, std::uint64_t now);
  void lose_path(spoken_session& session, std::uint64_t now) noexcept;
  void set_timing(spoken_session& session, const session_timing& timing,
                  std::uint64_t now) noexcept;

  void received(std::span<const std::byte> datagram, const packet_arrival& arrival,
                std::uint64_t now) noexcept;
  // Does what is due, and sends what would be within `most_early`. Packets that have come by `now`
  // are to be handed in before.
  void run(std::uint64_t now) noexcept;
  // When there is something to do; none before another event.
  [[nodiscard]] std::optional<std::uint64_t> next_due() const noexcept;
  // Tells all neighbors at once that their sessions end.
  void say_farewell(std::uint64_t now) noexcept;

  [[nodiscard]] const discarded_packets& discarded() const noexcept { return discarded_; }
  [[nodiscard]] bool empty() const noexcept { return sessions_.empty(); }

 private:
  using place_key = std::pair<std::uint32_t, std::uint32_t>;  // interface, neighbor
  using deadline = std::pair<std::uint64_t, spoken_session*>;

  spoken_session* recipient(const control_packet& packet, const packet_arrival& arrival) noexcept;
  template <typename Action>
  void act(spoken_session& session, std::uint64_t now, Action action) noexcept;
  void send_due(spoken_session& session, std::uint64_t now) noexcept;
  void schedule(spoken_session& session) noexcept;
  void erase(spoken_session& session) noexcept;
  std::uint32_t unused_discriminator() const noexcept;

  owner& owner_;
  session::random_number random_;
  void* context_;
  std::unordered_map<std::uint32_t, std::unique_ptr<spoken_session>> sessions_;  // by discriminator
  std::map<place_key, spoken_session*> places_;
  std::set<deadline> deadlines_;
  std::vector<spoken_session*> running_;  // during run()
  discarded_packets discarded_;
};

}  // namespace ot::bfd
