// Places are given in the order in which clients connect. Looking for the longest idle one costs a
// look at each, once a connection and only when all places are taken.
#include "platform/ledger/server/clients.h"

#include <sys/socket.h>

#include <cerrno>
#include <new>
#include <utility>

#include "platform/common/root_path.h"
#include "platform/ledger/messages.h"
#include "platform/linux/process/directories.h"

namespace ot {
namespace {

constexpr std::size_t places_for_all = 512;
constexpr std::size_t places_for_root = 32;  // in addition
constexpr std::uint64_t root_grace_us = 5'000'000;

}  // namespace

int ledger_clients::open(sd_event* loop, std::string& ret_error) {
  loop_ = loop;
  members_ = service_group();
  return listener_.open(loop, root_path(ledger_socket_path), SOCK_STREAM, ret_error);
}

void ledger_clients::notify(std::string_view base,
                            std::span<const ledger_dpv_notification> entries) {
  ledger_notice_batch batch{base, entries};
  for (const auto& peer : peers_) {
    peer->notify(batch);
  }
}

void ledger_clients::peer_ended(ledger_peer& peer) noexcept {
  std::erase_if(peers_, [&peer](const auto& candidate) { return candidate.get() == &peer; });
}

// Ends the peer of those wanted that has said nothing for the longest time, `silent_us` at least.
// False when there is none.
bool ledger_clients::end_longest(bool trusted, bool idle, std::uint64_t silent_us) noexcept {
  std::uint64_t now = 0;
  sd_event_now(loop_, CLOCK_MONOTONIC, &now);
  ledger_peer* longest = nullptr;
  for (const auto& peer : peers_) {
    if (peer->trusted() == trusted && peer->last_heard_us() + silent_us <= now &&
        (longest == nullptr || peer->last_heard_us() < longest->last_heard_us()) &&
        (!idle || peer->idle())) {
      longest = peer.get();
    }
  }
  if (longest != nullptr) {
    peer_ended(*longest);
  }
  return longest != nullptr;
}

bool ledger_clients::make_way(bool for_trusted) noexcept {
  return end_longest(false, true, 0) || end_longest(true, true, for_trusted ? 0 : root_grace_us) ||
         (for_trusted && end_longest(false, false, 0));
}

void ledger_clients::client_connected(unique_fd socket, bool trusted) noexcept {
  const std::size_t places = places_for_all + (trusted ? places_for_root : 0);
  if (peers_.size() >= places && !make_way(trusted)) {
    return;  // the client sees that it is not served
  }
  try {
    peers_.reserve(peers_.size() + 1);
    auto peer = std::make_unique<ledger_peer>(*this, engine_, commits_,
                                              ledger_rights_of(socket.get(), members_), trusted);
    int result = peer->start(loop_, socket);
    if (result == -EMFILE && make_way(trusted)) {
      result = peer->start(loop_, socket);
    }
    if (result >= 0) {
      peers_.push_back(std::move(peer));
    }
  } catch (const std::bad_alloc&) {
    // The socket is closed, and the client sees that it is not served.
  }
}

}  // namespace ot
