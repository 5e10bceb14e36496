// Writing and reading the ledger's messages. Whatever a peer sends is read through
// ledger_reader::take and ::count, the two places that look at lengths. Each pair of functions of
// the parts stands together: what one writes the other reads in the same order.
#include "platform/ledger/messages.h"

#include "platform/status.h"

namespace ot {
namespace {

// The least bytes of one element of a sequence: its lengths and numbers, all texts empty.
constexpr std::size_t stored_least = 12;
constexpr std::size_t proposal_least = 17;
constexpr std::size_t refusal_least = 13;
constexpr std::size_t entry_least = 12;
constexpr std::size_t notice_least = 13;

void put_count(ledger_writer& writer, std::size_t count) {
  writer.u32(static_cast<std::uint32_t>(count));
}

}  // namespace

void ledger_writer::u8(std::uint8_t number) {
  data_.push_back(std::byte{number});
}

void ledger_writer::u32(std::uint32_t number) {
  for (unsigned shift = 0; shift < 32; shift += 8) {
    data_.push_back(static_cast<std::byte>(number >> shift));
  }
}

void ledger_writer::u64(std::uint64_t number) {
  u32(static_cast<std::uint32_t>(number));
  u32(static_cast<std::uint32_t>(number >> 32));
}

void ledger_writer::bytes(std::span<const std::byte> value) {
  u32(static_cast<std::uint32_t>(value.size()));
  data_.insert(data_.end(), value.begin(), value.end());
}

void ledger_writer::text(std::string_view value) {
  bytes(std::as_bytes(std::span{value}));
}

void ledger_writer::append(const ledger_writer& other) {
  data_.insert(data_.end(), other.data_.begin(), other.data_.end());
}

std::span<const std::byte> ledger_reader::take(std::size_t length) noexcept {
  if (length > rest_.size()) {
    ok_ = false;
    rest_ = {};
    return {};
  }
  const auto taken = rest_.first(length);
  rest_ = rest_.subspan(length);
  return taken;
}

std::uint8_t ledger_reader::u8() noexcept {
  const auto taken = take(1);
  return taken.empty() ? std::uint8_t{0} : std::to_integer<std::uint8_t>(taken[0]);
}

std::uint32_t ledger_reader::u32() noexcept {
  std::uint32_t number = 0;
  unsigned shift = 0;
  for (const std::byte byte : take(4)) {
    number |= std::to_integer<std::uint32_t>(byte) << shift;
    shift += 8;
  }
  return number;
}

std::uint64_t ledger_reader::u64() noexcept {
  const std::uint64_t low = u32();
  return low | std::uint64_t{u32()} << 32;
}

std::span<const std::byte> ledger_reader::bytes() noexcept {
  return take(u32());
}

std::string_view ledger_reader::text() noexcept {
  const auto taken = bytes();
  return {reinterpret_cast<const char*>(taken.data()), taken.size()};
}

std::size_t ledger_reader::count(std::size_t least) noexcept {
  const std::size_t number = u32();
  if (number > rest_.size() / least) {
    ok_ = false;
    rest_ = {};
    return 0;
  }
  return number;
}

void ledger_put_value(ledger_writer& writer, ledger_kind kind, std::span<const std::byte> bytes) {
  writer.u32(static_cast<std::uint32_t>(kind));
  writer.bytes(bytes);
}

int ledger_take_value(ledger_reader& reader, ledger_value& ret) {
  const auto kind = static_cast<ledger_kind>(reader.u32());
  return ledger_value_assign(ret, kind, reader.bytes());
}

void ledger_put_stored(ledger_writer& writer, std::span<const ledger_stored> items) {
  put_count(writer, items.size());
  for (const ledger_stored& item : items) {
    writer.text(item.path);
    ledger_put_value(writer, item.value.kind, item.value.bytes());
  }
}

int ledger_take_stored(ledger_reader& reader, std::vector<ledger_stored>& ret) {
  for (std::size_t left = reader.count(stored_least); left > 0; --left) {
    ledger_stored& item = ret.emplace_back();
    item.path = reader.text();
    if (const int status = ledger_take_value(reader, item.value); status != status_ok) {
      return status;
    }
  }
  return status_ok;
}

void ledger_put_proposals(ledger_writer& writer, std::span<const ledger_proposal> changes) {
  put_count(writer, changes.size());
  for (const ledger_proposal& change : changes) {
    writer.text(change.path);
    writer.u32(change.stage);
    writer.u8(change.remove ? 1 : 0);
    ledger_put_value(writer, change.kind, change.value);
  }
}

std::vector<ledger_proposal> ledger_take_proposals(ledger_reader& reader) {
  std::vector<ledger_proposal> changes(reader.count(proposal_least));
  for (ledger_proposal& change : changes) {
    change.path = reader.text();
    change.stage = reader.u32();
    change.remove = reader.u8() != 0;
    change.kind = static_cast<ledger_kind>(reader.u32());
    const auto value = reader.bytes();
    change.value.assign(value.begin(), value.end());
  }
  return changes;
}

void ledger_put_refusals(ledger_writer& writer, std::span<const ledger_refusal> refusals) {
  put_count(writer, refusals.size());
  for (const ledger_refusal& refusal : refusals) {
    writer.text(refusal.path);
    writer.u32(static_cast<std::uint32_t>(refusal.code));
    writer.text(refusal.text);
    writer.u8(refusal.applied ? 1 : 0);
  }
}

std::vector<ledger_refusal> ledger_take_refusals(ledger_reader& reader) {
  std::vector<ledger_refusal> refusals(reader.count(refusal_least));
  for (ledger_refusal& refusal : refusals) {
    refusal.path = reader.text();
    refusal.code = static_cast<int>(reader.u32());
    refusal.text = reader.text();
    refusal.applied = reader.u8() != 0;
  }
  return refusals;
}

void ledger_put_query(ledger_writer& writer, const ledger_list_query& query) {
  writer.text(query.path);
  writer.text(query.marker);
  writer.u32(query.page_size);
  writer.u8(query.values ? 1 : 0);
}

ledger_list_query ledger_take_query(ledger_reader& reader) noexcept {
  ledger_list_query query;
  query.path = reader.text();
  query.marker = reader.text();
  query.page_size = reader.u32();
  query.values = reader.u8() != 0;
  return query;
}

void ledger_put_page(ledger_writer& writer, const ledger_page& page) {
  writer.u8(page.has_continuation ? 1 : 0);
  writer.text(page.continuation);
  put_count(writer, page.entries.size());
  for (const ledger_entry& entry : page.entries) {
    writer.text(entry.name);
    writer.u32(entry.data_kind);
    writer.bytes(entry.data);
  }
}

void ledger_take_page(ledger_reader& reader, ledger_page& ret) {
  ret.has_continuation = reader.u8() != 0;
  ret.continuation = reader.text();
  ret.entries.resize(reader.count(entry_least));
  for (ledger_entry& entry : ret.entries) {
    entry.name = reader.text();
    entry.data_kind = reader.u32();
    const auto data = reader.bytes();
    entry.data.assign(data.begin(), data.end());
  }
}

void ledger_put_notices(ledger_writer& writer, const ledger_notices& notices) {
  put_count(writer, notices.size());
  for (const ledger_notice& notice : notices) {
    writer.u8(notice.resync ? 1 : 0);
    writer.text(notice.path);
    writer.u32(notice.kind);
    writer.u32(notice.value);
  }
}

ledger_notices ledger_take_notices(ledger_reader& reader) {
  ledger_notices notices(reader.count(notice_least));
  for (ledger_notice& notice : notices) {
    notice.resync = reader.u8() != 0;
    notice.path = reader.text();
    notice.kind = reader.u32();
    notice.value = reader.u32();
  }
  return notices;
}

}  // namespace ot
