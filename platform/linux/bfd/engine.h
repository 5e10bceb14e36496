// The client's side of the BFD engine: connects, keeps the engine's sessions the ones of the book,
// and tells the client what comes of it. Loop's thread.
#pragma once

#include <cstdint>
#include <map>

#include "platform/bfd_client.h"
#include "platform/linux/bfd/book.h"
#include "platform/linux/bfd/connection.h"
#include "platform/linux/bfd/engine_watch.h"
#include "platform/linux/bfd/timer.h"

namespace ot {

class bfd_engine final : private bfd_connection::owner {
 public:
  bfd_engine(const bfdc_bind_record& client, const bfd_labels& labels)
      : client_(client), book_(labels) {}
  // Gives up what the engine holds for us, without waiting for its answers.
  ~bfd_engine();
  bfd_engine(const bfd_engine&) = delete;
  bfd_engine& operator=(const bfd_engine&) = delete;

  // Connects in the background. 0 or a status code.
  int start() noexcept;

  void create(const bfd_session_key& key, const bfd_session_config& config,
              const bfd_creation& creation) noexcept;
  void remove(const bfd_session_key& key, const bfd_creation& removal) noexcept;

 private:
  static void attempt(void* self) noexcept;
  static void appeared(void* self) noexcept;
  static void retry_refused(void* self) noexcept;

  bool received(const bfd_frame& frame) override;
  void writable() noexcept override;
  void ended(bfd_end why) noexcept override;

  bool connect();
  void reconnect_later() noexcept;
  bool send(std::uint8_t type, const std::string& payload, std::uint32_t number);
  bool send_jobs();
  void send_what_waits() noexcept;
  bool take_response(const bfd_frame& frame);
  void subscribed();
  void session_answered(std::uint32_t number, bool accepted);
  void acknowledge(bfd_session& session, int error);
  void tell_request(std::uint32_t event, const bfd_session_key& key, const bfd_creation& asked,
                    int error);
  void tell_state(const bfd_session_key& key, bool up);

  bfdc_bind_record client_;
  bfd_book book_;
  bfd_connection connection_{*this};
  bfd_engine_watch watch_{appeared, this};
  bfd_timer reconnect_{attempt, this};
  bfd_timer retry_{retry_refused, this};
  std::uint64_t retry_usec_ = 0;
  std::size_t failed_attempts_ = 0;  // in a row
  bool connected_ = false;           // the engine has taken the subscription
  std::uint16_t last_id_ = 0;
  // Requests that the engine has not answered: its id for them, and the number of the session asked
  // for (0: something else).
  std::map<std::uint16_t, std::uint32_t> unanswered_;
  std::optional<bfd_job> postponed_;  // the socket was full
};

}  // namespace ot
