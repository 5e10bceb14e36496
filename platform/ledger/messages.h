// The ledger's messages, as both ends of the socket write and read them: bytes, names, parts.
// Numbers are in little-endian order, texts and values stand behind their length. A reader never
// looks past its bytes; after the first thing that does not fit everything it returns is zero or
// empty and `ok` is false.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "platform/ledger/calls/backend.h"
#include "platform/ledger/engine/backlog.h"

namespace ot {

// --- Bytes -----------------------------------------------------------------------------------

// What one message carries at most, of those who may write and of all others. The largest commit
// fits, with every name as long as names are, and a page of a list, with room for its lengths.
inline constexpr std::size_t ledger_writers_message_max = std::size_t{4} << 20;
inline constexpr std::size_t ledger_message_max = std::size_t{1} << 20;

class ledger_writer {
 public:
  void u8(std::uint8_t number);
  void u32(std::uint32_t number);
  void u64(std::uint64_t number);
  void bytes(std::span<const std::byte> value);
  void text(std::string_view value);
  void append(const ledger_writer& other);

  [[nodiscard]] std::span<const std::byte> data() const noexcept { return data_; }

 private:
  std::vector<std::byte> data_;
};

class ledger_reader {
 public:
  explicit ledger_reader(std::span<const std::byte> data) noexcept : rest_(data) {}

  std::uint8_t u8() noexcept;
  std::uint32_t u32() noexcept;
  std::uint64_t u64() noexcept;
  // Views into the message.
  std::span<const std::byte> bytes() noexcept;
  std::string_view text() noexcept;
  // A number of things of at least `least` bytes each, which the rest can hold.
  std::size_t count(std::size_t least) noexcept;

  [[nodiscard]] bool ok() const noexcept { return ok_; }
  // Whether everything fitted and nothing is left over.
  [[nodiscard]] bool finished() const noexcept { return ok_ && rest_.empty(); }

 private:
  std::span<const std::byte> take(std::size_t length) noexcept;

  std::span<const std::byte> rest_;
  bool ok_ = true;
};

// --- Names -----------------------------------------------------------------------------------

inline constexpr const char* ledger_socket_path = "/run/object_tracking/ledger.sock";
inline constexpr const char* ledger_object = "/ledger";
inline constexpr const char* ledger_interface = "object.tracking.Ledger1";

// One member a kind of request; each answers with a status and, when that is 0, what was asked for.
// A commit's refusals follow any status.
namespace ledger_member {
inline constexpr const char* bind = "Bind";              // path
inline constexpr const char* get = "Get";                // path -> value
inline constexpr const char* set = "Set";                // path, value
inline constexpr const char* erase = "Delete";           // path
inline constexpr const char* page = "Page";              // prefix, after -> more, stored items
inline constexpr const char* commit = "Commit";          // proposals[, generation] -> refusals
inline constexpr const char* generation = "Generation";  // -> generation of the configuration
inline constexpr const char* list = "List";              // query -> page
inline constexpr const char* subscribe = "Subscribe";    // path; notices follow as signals
inline constexpr const char* notices = "Notices";        // the signal
}  // namespace ledger_member

// --- Parts -----------------------------------------------------------------------------------

void ledger_put_value(ledger_writer& writer, ledger_kind kind, std::span<const std::byte> bytes);
int ledger_take_value(ledger_reader& reader, ledger_value& ret);  // 0 or 12

void ledger_put_stored(ledger_writer& writer, std::span<const ledger_stored> items);
int ledger_take_stored(ledger_reader& reader, std::vector<ledger_stored>& ret);  // 0 or 12

void ledger_put_proposals(ledger_writer& writer, std::span<const ledger_proposal> changes);
std::vector<ledger_proposal> ledger_take_proposals(ledger_reader& reader);

void ledger_put_refusals(ledger_writer& writer, std::span<const ledger_refusal> refusals);
std::vector<ledger_refusal> ledger_take_refusals(ledger_reader& reader);

// The texts of a taken query are views into the message.
void ledger_put_query(ledger_writer& writer, const ledger_list_query& query);
ledger_list_query ledger_take_query(ledger_reader& reader) noexcept;

void ledger_put_page(ledger_writer& writer, const ledger_page& page);
void ledger_take_page(ledger_reader& reader, ledger_page& ret);

void ledger_put_notices(ledger_writer& writer, const ledger_notices& notices);
ledger_notices ledger_take_notices(ledger_reader& reader);

}  // namespace ot
