// A client of the ledger's socket that need not keep to the rules.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace ot::test {

class raw_client {
 public:
  // Connects; ok() says whether it did.
  explicit raw_client(const std::string& socket);
  ~raw_client();
  raw_client(raw_client&& other) noexcept;
  raw_client(const raw_client&) = delete;
  raw_client& operator=(const raw_client&) = delete;
  raw_client& operator=(raw_client&&) = delete;

  [[nodiscard]] bool ok() const noexcept { return fd_ >= 0; }
  // The exchange that every conversation begins with; false when the service ended it.
  bool authenticate();
  // Sends what the socket takes before the deadline; the bytes sent.
  std::size_t send(std::string_view bytes, int timeout_ms = 5000);
  // Whether the service ends the connection within the time; what it sends is thrown away.
  bool ended_within(int timeout_ms);
  // Whether the service sends anything within the time.
  bool hears_within(int timeout_ms);

 private:
  int fd_;
};

// The start of a message of `body` bytes in all, which follow.
std::string raw_message_head(std::uint32_t body);

}  // namespace ot::test
