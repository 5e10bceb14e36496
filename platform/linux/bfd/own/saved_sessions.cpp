// A header and slots of one size, each with a check value; a slot is written in one piece, so that
// it is the old or the new one, or wrong by its check value.
#include "platform/linux/bfd/own/saved_sessions.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstring>
#include <ctime>
#include <span>
#include <type_traits>

namespace ot::bfd {
namespace {

constexpr std::uint32_t magic = 0x6f746264;  // with the version: another one, another number
constexpr std::uint32_t most_slots = 4096;

// FNV-1a.
std::uint64_t check_of(std::span<const std::byte> bytes) noexcept {
  std::uint64_t hash = 14695981039346656037U;
  for (const std::byte byte : bytes) {
    hash = (hash ^ std::to_integer<std::uint8_t>(byte)) * 1099511628211U;
  }
  return hash;
}

template <typename Content>
struct checked {
  Content content{};
  std::uint64_t check = 0;

  [[nodiscard]] std::uint64_t wanted() const noexcept {
    return check_of(std::as_bytes(std::span{&content, 1}));
  }
};

struct header {
  std::uint32_t version = magic;
  std::uint32_t source_port = 0;
  std::uint64_t alive_at = 0;  // microseconds since the boot, suspension counted
};

// The content of a slot, without padding, which would be in the check value.
struct slot_content {
  char interface[16] = {};
  std::uint32_t destination = 0;
  std::uint32_t source = 0;
  std::uint32_t interval = 0;
  std::uint32_t multiplier = 0;
  std::uint32_t ifindex = 0;
  std::uint32_t path_source = 0;
  std::uint32_t discriminator = 0;
  std::uint32_t tx = 0;
  std::uint32_t rx = 0;
  std::uint32_t in_use = 0;
  std::byte remote[control_packet_size] = {};
};
static_assert(std::has_unique_object_representations_v<slot_content>);
static_assert(std::has_unique_object_representations_v<header>);

using file_header = checked<header>;
using file_slot = checked<slot_content>;

std::uint64_t since_boot_us() noexcept {
  timespec now{};
  clock_gettime(CLOCK_BOOTTIME, &now);
  return static_cast<std::uint64_t>(now.tv_sec) * 1'000'000 +
         static_cast<std::uint64_t>(now.tv_nsec) / 1000;
}

template <typename Content>
bool read_at(int fd, std::uint64_t place, checked<Content>* ret) noexcept {
  return pread(fd, ret, sizeof *ret, static_cast<off_t>(place)) ==
         static_cast<ssize_t>(sizeof *ret);
}

std::uint64_t place_of(std::uint32_t slot) noexcept {
  return sizeof(file_header) + std::uint64_t{slot} * sizeof(file_slot);
}

slot_content content_of(const saved_session& session) noexcept {
  slot_content content;
  std::memcpy(content.interface, session.config.key.interface.c_str(), sizeof content.interface);
  content.destination = session.config.key.destination;
  content.source = session.config.source;
  content.interval = session.config.interval;
  content.multiplier = session.config.multiplier;
  content.ifindex = session.path.ifindex;
  content.path_source = session.path.source;
  content.discriminator = session.agreed.discriminator;
  content.tx = session.agreed.tx;
  content.rx = session.agreed.rx;
  content.in_use = 1;
  const auto remote = write_control_packet(session.agreed.remote);
  std::memcpy(content.remote, remote.data(), remote.size());
  return content;
}

// False for what no session can have agreed on.
bool session_of(const slot_content& content, saved_session* ret) noexcept {
  if (content.in_use == 0 || content.discriminator == 0 || content.tx == 0 ||
      read_control_packet(content.remote, &ret->agreed.remote) != discard::none) {
    return false;
  }
  const std::string_view name{content.interface,
                              strnlen(content.interface, sizeof content.interface)};
  ret->config = {{interface_name{name}, content.destination},
                 content.source,
                 content.interval,
                 content.multiplier};
  ret->path = {content.ifindex, content.destination, content.path_source};
  ret->agreed.discriminator = content.discriminator;
  ret->agreed.tx = content.tx;
  ret->agreed.rx = content.rx;
  return true;
}

// How long the neighbor waits for a packet of ours.
std::uint64_t patience_of_neighbor(const saved_session& session) noexcept {
  const std::uint64_t tx = session.agreed.tx;
  const std::uint64_t wanted = session.agreed.remote.required_min_rx;
  return session.config.multiplier * (tx > wanted ? tx : wanted);
}

}  // namespace

std::vector<saved_session> saved_sessions::take_over(const std::string& path) {
  std::vector<saved_session> left;
  const unique_fd old{open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK)};
  file_header head;
  if (old.valid() && read_at(old.get(), 0, &head) && head.check == head.wanted() &&
      head.content.version == magic) {
    source_port_ = static_cast<std::uint16_t>(head.content.source_port);
    const std::uint64_t now = since_boot_us();
    const std::uint64_t outage = now - std::min(now, head.content.alive_at);
    file_slot slot;
    for (std::uint32_t i = 0; i < most_slots && read_at(old.get(), place_of(i), &slot); ++i) {
      saved_session session;
      if (slot.check == slot.wanted() && session_of(slot.content, &session) &&
          outage < patience_of_neighbor(session)) {
        left.push_back(session);
      }
    }
  }
  path_ = path;
  unlink(path.c_str());
  file_ = unique_fd{open(path.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC | O_NOFOLLOW, 0600)};
  stamp();
  return left;
}

void saved_sessions::write(std::uint64_t place, const void* bytes, std::size_t size) noexcept {
  // What is not written is not gone on with.
  if (file_.valid() && pwrite(file_.get(), bytes, size, static_cast<off_t>(place)) < 0) {
    file_.reset();
    unlink(path_.c_str());
  }
}

std::uint32_t saved_sessions::take_slot() {
  if (!free_.empty()) {
    const std::uint32_t slot = free_.back();
    free_.pop_back();
    return slot;
  }
  free_.reserve(slots_ + 1);  // giving it back cannot fail
  forget(slots_);
  return slots_++;
}

void saved_sessions::free_slot(std::uint32_t slot) noexcept {
  forget(slot);
  free_.push_back(slot);
}

void saved_sessions::keep(std::uint32_t slot, const saved_session& session) noexcept {
  file_slot kept{content_of(session), 0};
  kept.check = kept.wanted();
  write(place_of(slot), &kept, sizeof kept);
}

void saved_sessions::forget(std::uint32_t slot) noexcept {
  file_slot none;
  none.check = none.wanted();
  write(place_of(slot), &none, sizeof none);
}

void saved_sessions::keep_source_port(std::uint16_t port) noexcept {
  source_port_ = port;
  stamp();
}

void saved_sessions::stamp() noexcept {
  file_header head;
  head.content.source_port = source_port_;
  head.content.alive_at = since_boot_us();
  head.check = head.wanted();
  write(0, &head, sizeof head);
}

void saved_sessions::remove() noexcept {
  if (file_.valid()) {
    unlink(path_.c_str());
    file_.reset();
  }
}

}  // namespace ot::bfd
