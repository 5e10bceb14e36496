#include "platform/linux/bfd/own/engine.h"

#include <pthread.h>
#include <sched.h>
#include <sys/epoll.h>
#include <sys/random.h>

#include <algorithm>
#include <new>

#include "platform/common/root_path.h"
#include "platform/err_string.h"
#include "platform/linux/loop/sd_event.h"
#include "platform/linux/monotonic.h"
#include "platform/status.h"

namespace ot::bfd {
namespace {

constexpr std::uint64_t tick_usec = 1'000'000;
constexpr std::uint64_t stamp_usec = 20'000;
// What was left is wanted again when the stored configuration is applied, which is done by then.
constexpr std::uint64_t left_usec = 2'000'000;

// To spread packets and to number sessions; nothing is secret about either.
std::uint32_t next_random(void* generator) {
  return static_cast<std::uint32_t>((*static_cast<std::mt19937*>(generator))());
}

// A packet that is late because others compute takes a session down, here or at the neighbor. Where
// the system does not allow it, we do without.
void ask_for_priority() noexcept {
  sched_param wanted{};
  wanted.sched_priority = 10;
  pthread_setschedparam(pthread_self(), SCHED_RR | SCHED_RESET_ON_FORK, &wanted);
}

std::uint32_t random_seed() noexcept {
  std::uint32_t seed = 0;
  if (getrandom(&seed, sizeof seed, 0) != static_cast<ssize_t>(sizeof seed)) {
    seed = static_cast<std::uint32_t>(monotonic_us());
  }
  return seed;
}

}  // namespace

own_engine::own_engine(engine::owner& reported)
    : owner_(reported), random_(random_seed()), speaker_(*this, next_random, &random_) {}

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
  for (const int status : {due_.attach(manager), tick_.attach(manager), links_.attach(manager)}) {
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

void own_engine::open() noexcept {
  if (!open_) {
    open_ = true;
    ask_for_priority();
    links_.open();
    tick_.start(tick_usec);
    look_at_port();
  }
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
  const std::optional<uid_t> other = port_owners_.other(control_port, socket_.fd());
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
  wakes_ = true;
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
  const std::optional<std::uint64_t> next = speaker_.next_due();
  if (next) {
    due_.start(*next > now ? *next - now : 0);
  } else {
    due_.stop();
  }
  wake_for_packets(!next || *next > now + most_early);
}

// With so many sessions that one is always due soon, what has come is read then: a wake-up for each
// packet would cost more than all else.
void own_engine::wake_for_packets(bool wake) noexcept {
  if (wake != wakes_ && readable_ != nullptr) {
    wakes_ = wake;
    sd_event_source_set_enabled(readable_, wake ? SD_EVENT_ON : SD_EVENT_OFF);
  }
}

// Once a second: the port, the counters, and an end when nothing is left to do.
void own_engine::tick(void* self) noexcept {
  auto* engine = static_cast<own_engine*>(self);
  if (engine->sessions_.empty() && engine->speaker_.empty()) {
    engine->close();
    engine->stood_down_.clear();  // nobody is looked for any more
    engine->owner_.engine_changed();
    return;
  }
  // Two that found each other are not to look at the same moments ever after.
  engine->tick_.start(tick_usec + next_random(&engine->random_) % (tick_usec / 4));
  engine->look_at_port();
  for (auto& [key, session] : engine->sessions_) {
    engine->report(session);
  }
  engine->owner_.engine_changed();
  engine->serve(monotonic_us());
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
