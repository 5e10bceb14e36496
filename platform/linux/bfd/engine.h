// BFD on this platform: who runs the sessions that tracks follow, and the way of a request and of a
// state.
//
// Three engines can run sessions, all behind the interface below: our own (own/), and FRR's bfdd by
// its control socket (frr_control/, before FRR 10.2) or by its vty socket (frr_vty/). Only one may
// speak BFD on a router, so that bfdd is used where it runs (choice.h).
//
// Threads. The calls of platform/bfd_client.h (client.cpp) come from any thread. Each checks its
// request, numbers it, puts it in a locked queue and posts a task to the loop that the client was
// bound on, which the service runs on its thread "ot_bfd". Everything else in this folder, and
// every callback, runs on that loop and nothing there waits; what the operator wants to know of an
// engine and of the sessions lies on a board (board.h), which any thread reads.
//
// The way of a request: client.cpp -> session_keeper (keeper.h), which acknowledges it and knows
// what is wanted, whoever runs it -> engine::add or remove. The way of a state: the engine ->
// session_changed -> the keeper, which reports it to the client when it differs from what was last
// reported. When the engine changes, the sessions go down and the next one gets them all.
#pragma once

#include <cstdint>

#include "platform/bfd_status.h"
#include "platform/evm.h"
#include "platform/fixed_text.h"

namespace ot::bfd {

using interface_name = fixed_text<16>;

// What identifies a session on the wire: single hop, IPv4.
struct session_key {
  interface_name interface;
  std::uint32_t destination = 0;  // network byte order

  friend bool operator==(const session_key&, const session_key&) = default;
  friend bool operator<(const session_key& a, const session_key& b) noexcept {
    return a.destination != b.destination ? a.destination < b.destination
                                          : a.interface.view() < b.interface.view();
  }
};

struct session_config {
  session_key key;
  std::uint32_t source = 0;      // network byte order; 0: the interface's address in that subnet
  std::uint32_t interval = 0;    // milliseconds, both ways
  std::uint32_t multiplier = 0;  // 1 to 255

  friend bool operator==(const session_config&, const session_config&) = default;
};

class engine {
 public:
  // Whom an engine reports to. Not from inside a call of the engine's start() or destructor.
  class owner {
   public:
    // Anything told of the session has changed, its counters apart. A session that was added is
    // down until it is reported up.
    virtual void session_changed(const session_key& key,
                                 const bfdc_session_status& now) noexcept = 0;
    // status() has changed. Sessions of an engine that does not run any more have been reported
    // down before.
    virtual void engine_changed() noexcept = 0;

   protected:
    ~owner() = default;
  };

  engine() = default;
  // Withdraws what it holds, without waiting: the neighbors notice at once where the engine lets
  // them. Reports nothing.
  virtual ~engine() = default;
  engine(const engine&) = delete;
  engine& operator=(const engine&) = delete;

  // Begins to work in the background, on the manager's loop. 0 or a status code.
  virtual int start(evm* manager) noexcept = 0;

  // Runs a session, from now on or as soon as it can; the same key again changes the session. A
  // session that comes up by this is reported up later, not from inside the call.
  // Without memory, the session is down until it is added again.
  virtual void add(const session_config& session) noexcept = 0;
  // Nothing is reported of the session any more. Harmless when there is none.
  virtual void remove(const session_key& key) noexcept = 0;

  // What it is, whether it runs, and why not.
  [[nodiscard]] virtual bfdc_engine_status status() const noexcept = 0;
};

}  // namespace ot::bfd
