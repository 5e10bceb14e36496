// What the sessions have agreed on with their neighbors, kept in /run while they are up: a service
// that crashed and is back within the detection time goes on with them, and no neighbor notices.
// A file of another version holds no sessions, and what is damaged is none. Loop's thread.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "platform/common/bfd/session.h"
#include "platform/common/bfd/speaker.h"
#include "platform/linux/bfd/engine.h"
#include "platform/linux/unique_fd.h"

namespace ot::bfd {

struct saved_session {
  session_config config;
  neighbor_path path;
  agreed_session agreed;
};

class saved_sessions {
 public:
  // What an earlier process has left that its neighbors cannot have missed yet. The file begins
  // anew. Without one, nothing is kept. Throws bad_alloc.
  std::vector<saved_session> take_over(const std::string& path);
  // The port that they were sent from; 0: unknown.
  [[nodiscard]] std::uint16_t source_port() const noexcept { return source_port_; }

  // `slot`: the session's, from take_slot().
  std::uint32_t take_slot();
  void free_slot(std::uint32_t slot) noexcept;
  void keep(std::uint32_t slot, const saved_session& session) noexcept;
  void forget(std::uint32_t slot) noexcept;
  void keep_source_port(std::uint16_t port) noexcept;
  // The sessions are being run at this moment.
  void stamp() noexcept;
  // A clean end: there is nothing to go on with.
  void remove() noexcept;

 private:
  void write(std::uint64_t place, const void* bytes, std::size_t size) noexcept;

  unique_fd file_;
  std::string path_;
  std::uint16_t source_port_ = 0;
  std::uint32_t slots_ = 0;
  std::vector<std::uint32_t> free_;
};

}  // namespace ot::bfd
