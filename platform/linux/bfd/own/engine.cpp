#include "platform/linux/bfd/own/engine.h"

#include <sys/epoll.h>
#include <sys/random.h>

#include <algorithm>
#include <new>

#include "platform/common/root_path.h"
#include "platform/err_string.h"
#include "platform/linux/bfd/own/port_owners.h"
#include "platform/linux/loop/sd_event.h"
#include "platform/linux/monotonic.h"
#include "platform/status.h"

namespace ot::bfd {
namespace {

constexpr std::uint64_t tick_usec = 1'000'000;
constexpr std::uint64_t stamp_usec = 20'000;
// What was left is wanted again when the stored configuration is applied, which is done by then.
constexpr std::uint64_t left_usec = 2'000'000;

// splitmix64: to spread packets and to number sessions; nothing is secret about either.
std::uint32_t next_random(void* state) {
  auto& word = *static_cast<std::uint64_t*>(state);
  word += 0x9e3779b97f4a7c15U;
  std::uint64_t mixed = word;
  mixed = (mixed ^ (mixed >> 30)) * 0xbf58476d1ce4e5b9U;
  mixed = (mixed ^ (mixed >> 27)) * 0x94d049bb133111ebU;
  return static_cast<std::uint32_t>(mixed ^ (mixed >> 31));
}

std::uint64_t random_seed() noexcept {
  std::uint64_t seed = 0;
  if (getrandom(&seed, sizeof seed, 0) != static_cast<ssize_t>(sizeof seed)) {
    seed = monotonic_us();
  }
  return seed;
}

session_timing timing_of(const session_config& config) noexcept {
  return {config.interval * 1000, config.interval * 1000,
          static_cast<std::uint8_t>(config.multiplier)};
}

std::uint32_t usec(std::uint64_t interval) noexcept {
  return static_cast<std::uint32_t>(std::min<std::uint64_t>(interval, UINT32_MAX));
}

}  // namespace

own_engine::own_engine(engine::owner& reported)
    : owner_(reported),
      random_state_(random_seed()),
      speaker_(*this, next_random, &random_state_) {}

own_engine::~own_engine() {
  if (socket_.is_open()) {
    speaker_.say_farewell(monotonic_us());
    socket_.flush();
  }
  saved_.remove();
  close();
}

int own_engine::start(evm* manager) noexcept {
  manager_ = manager;
  for (const int status : {due_.attach(manager), tick_.attach(manager)}) {
    if (status != status_ok) {
      return status;
    }
  }
  try {
    left_ = saved_.take_over(root_path("/run/object_tracking/bfd_sessions"));
  } catch (const std::bad_alloc&) {
    return no_memory;
  }
  left_until_ = monotonic_us() + left_usec;
  return status_ok;
}

// --- The port ------------------------------------------------------------------------------------

// 0 or an errno value; then nothing is open.
int own_engine::open() noexcept {
  if (open_) {
    return status_ok;
  }
  const int status = links_.open(manager_);
  open_ = status == status_ok;
  if (open_) {
    tick_.start(tick_usec);
    look_at_port();
  }
  return status;
}

void own_engine::close() noexcept {
  readable_ = sd_event_source_disable_unref(readable_);
  socket_.close();
  links_.close();
  due_.stop();
  tick_.stop();
  open_ = false;
}

// Opens the port when it is nobody's, and leaves it when it is another's too.
void own_engine::look_at_port() noexcept {
  const std::optional<uid_t> other = other_port_owner(control_port, socket_.fd());
  try {
    if (other) {
      stand_down("user " + user_text(*other) +
                 " has UDP port 3784: only one program can speak BFD");
      return;
    }
    if (socket_.is_open()) {
      return;
    }
    const int status = socket_.open(saved_.source_port());
    if (status != status_ok) {
      stand_down("UDP port 3784 cannot be opened: " + std::string(err_string(status)));
      return;
    }
  } catch (const std::bad_alloc&) {
    return;  // the next tick looks again
  }
  if (sd_event_add_io(evm_sd_event(manager_), &readable_, socket_.fd(), EPOLLIN, on_readable,
                      this) < 0) {
    socket_.close();
    return;
  }
  saved_.keep_source_port(socket_.source_port());
  stood_down_.clear();
  find_paths();
  owner_.engine_changed();
}

void own_engine::stand_down(const std::string& why) noexcept {
  const bool news = stood_down_.empty();
  stood_down_ = why;
  readable_ = sd_event_source_disable_unref(readable_);
  socket_.close();
  find_paths();
  if (news) {
    owner_.engine_changed();
  }
}

// --- The sessions --------------------------------------------------------------------------------

void own_engine::add(const session_config& session) noexcept {
  const auto known = sessions_.find(session.key);
  const std::uint64_t now = monotonic_us();
  try {
    if (known != sessions_.end()) {
      known->second.config = session;
      speaker_.set_timing(*known->second.spoken, timing_of(session), now);
      find_path(known->second);
    } else {
      add_new(session);
    }
  } catch (const std::bad_alloc&) {
    refuse(session.key, "out of memory");
  }
  serve(now);
}

void own_engine::add_new(const session_config& session) {
  if (const int status = open(); status != status_ok) {
    refuse(session.key, err_string(status));
    return;
  }
  held_session& added = sessions_[session.key];
  added.config = session;
  try {
    begin(added);
  } catch (...) {
    sessions_.erase(session.key);
    throw;
  }
  find_path(added);
}

void own_engine::refuse(const session_key& key, std::string_view why) noexcept {
  bfdc_session_status status;
  status.problem.assign(why);
  owner_.session_changed(key, status);
}

// A session that is being given up on the same way is taken back, since the neighbor can know only
// one.
void own_engine::begin(held_session& session) {
  const std::uint64_t now = monotonic_us();
  const session_timing timing = timing_of(session.config);
  std::string_view problem;
  const std::optional<neighbor_path> path = links_.towards(session.config, &problem);
  session.slot = saved_.take_slot();
  if (path && socket_.is_open()) {
    session.spoken = speaker_.take_back(*path, timing, now);
  }
  if (session.spoken == nullptr) {
    const agreed_session* left = path ? left_of(session.config, *path) : nullptr;
    session.unconfirmed = left != nullptr;
    session.spoken = &speaker_.add(timing, left, now);
  }
  session.spoken->tag = &session;
}

const agreed_session* own_engine::left_of(const session_config& config,
                                          const neighbor_path& path) noexcept {
  if (monotonic_us() > left_until_) {
    left_.clear();
  }
  const auto found = std::find_if(left_.begin(), left_.end(), [&](const saved_session& session) {
    return session.config == config && session.path == path;
  });
  return found == left_.end() ? nullptr : &found->agreed;
}

void own_engine::find_path(held_session& session) {
  std::string_view problem;
  std::optional<neighbor_path> path = links_.towards(session.config, &problem);
  if (!socket_.is_open()) {
    problem = stood_down_;
    path.reset();
  }
  const problem_text before = session.problem;
  session.problem.assign(problem);
  if (path) {
    speaker_.set_path(*session.spoken, *path, monotonic_us());
  } else {
    speaker_.lose_path(*session.spoken, monotonic_us());
  }
  if (!(session.problem == before)) {
    report(session);
  }
}

void own_engine::find_paths() noexcept {
  for (auto& [key, session] : sessions_) {
    try {
      if (session.spoken != nullptr) {
        find_path(session);
      }
    } catch (const std::bad_alloc&) {
      session.problem.assign("out of memory");
    }
  }
}

void own_engine::links_changed(void* self) noexcept {
  auto* engine = static_cast<own_engine*>(self);
  engine->find_paths();
  engine->serve(monotonic_us());
}

void own_engine::remove(const session_key& key) noexcept {
  const auto found = sessions_.find(key);
  if (found == sessions_.end()) {
    return;
  }
  saved_.free_slot(found->second.slot);
  speaker_.remove(*found->second.spoken, monotonic_us());
  sessions_.erase(found);
  serve(monotonic_us());
}

// --- Packets and the clock -----------------------------------------------------------------------

void own_engine::send(const neighbor_path& path, const control_packet& packet) noexcept {
  socket_.send(path, packet);
}

void own_engine::receive() noexcept {
  if (!socket_.is_open()) {
    return;
  }
  socket_.receive(
      [](void* self, std::span<const std::byte> datagram, const packet_arrival& arrival) {
        static_cast<own_engine*>(self)->speaker_.received(datagram, arrival, monotonic_us());
      },
      this);
}

int own_engine::on_readable(sd_event_source* /*source*/, int /*fd*/, std::uint32_t /*events*/,
                            void* self) {
  auto* engine = static_cast<own_engine*>(self);
  engine->receive();
  engine->serve(monotonic_us());
  return 0;
}

void own_engine::due(void* self) noexcept {
  auto* engine = static_cast<own_engine*>(self);
  const std::uint64_t now = monotonic_us();
  engine->receive();
  engine->speaker_.run(now);
  engine->serve(now);
}

// What follows from whatever was done.
void own_engine::serve(std::uint64_t now) noexcept {
  socket_.flush();
  if (now - stamped_ >= stamp_usec && !sessions_.empty()) {
    stamped_ = now;
    saved_.stamp();
  }
  if (const std::optional<std::uint64_t> next = speaker_.next_due()) {
    due_.start(*next > now ? *next - now : 0);
  } else {
    due_.stop();
  }
}

// Once a second: the port, the counters, and an end when nothing is left to do.
void own_engine::tick(void* self) noexcept {
  auto* engine = static_cast<own_engine*>(self);
  if (engine->sessions_.empty() && engine->speaker_.empty()) {
    engine->close();
    return;
  }
  // Two that found each other are not to look at the same moments ever after.
  engine->tick_.start(tick_usec + next_random(&engine->random_state_) % (tick_usec / 4));
  engine->look_at_port();
  for (auto& [key, session] : engine->sessions_) {
    engine->report(session);
  }
  engine->owner_.engine_changed();
  engine->serve(monotonic_us());
}

// --- Reports -------------------------------------------------------------------------------------

void own_engine::changed(spoken_session& session) noexcept {
  auto* held = static_cast<held_session*>(session.tag);
  if (held == nullptr) {
    return;
  }
  if (session.machine.state() == session_state::up && session.path) {
    saved_.keep(held->slot, {held->config, *session.path, session.machine.agreed()});
  } else {
    saved_.forget(held->slot);
  }
  report(*held);
}

void own_engine::report(held_session& session) noexcept {
  session.unconfirmed = session.unconfirmed && session.spoken->packets_in == 0 &&
                        session.spoken->machine.state() == session_state::up;
  owner_.session_changed(session.config.key, status_of(session));
}

bfdc_session_status own_engine::status_of(const held_session& session) const noexcept {
  const spoken_session& spoken = *session.spoken;
  const ot::bfd::session& machine = spoken.machine;
  bfdc_session_status status;
  status.state = session.unconfirmed ? bfd_state_down : static_cast<std::uint8_t>(machine.state());
  status.diagnostic = static_cast<std::uint8_t>(machine.reason());
  status.remote_state = static_cast<std::uint8_t>(machine.remote_state());
  status.remote_diagnostic = static_cast<std::uint8_t>(machine.remote_reason());
  status.transmit_interval = usec(machine.transmit_interval());
  status.receive_interval = usec(machine.receive_interval());
  status.detection_time = usec(machine.detection_time());
  status.packets_in = spoken.packets_in;
  status.packets_out = spoken.packets_out;
  status.ups = spoken.ups;
  status.downs = spoken.downs;
  status.problem = session.problem;
  return status;
}

bfdc_engine_status own_engine::status() const noexcept {
  bfdc_engine_status status;
  status.running = stood_down_.empty();
  status.name.assign("own engine");
  status.reason.assign(stood_down_);
  status.discarded = speaker_.discarded().all();
  return status;
}

}  // namespace ot::bfd
