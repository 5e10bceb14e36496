// Decodes arbitrary bytes as typed records. What decodes must encode to the same bytes again, and
// releasing it must leave nothing behind (the leak check sees to that).
//
// The first byte chooses the type; its heading is put before the rest, since no fuzzer guesses a
// fingerprint. Beyond the types the bytes are taken as they are.
#include <cstdlib>
#include <cstring>
#include <memory>
#include <vector>

#include "oper/records/track_records.h"
#include "platform/records/wire.h"
#include "tests/unit/platform/records/samples.h"

namespace ot {
namespace {

constexpr const brec_descriptor* types[] = {
    &samples::tree_brec,       &track_info___brec,           &track_info_brief___brec,
    &bool_track_info___brec,   &route_track_info___brec,     &interface_tracking_info___brec,
    &bfdprb_track_info___brec, &delayed_state_status___brec,
};

void require(bool condition) noexcept {
  if (!condition) std::abort();
}

void decode(const brec_descriptor& type, const std::vector<std::byte>& bytes) {
  void* const record = brec_alloc(type.size);
  require(record != nullptr);
  if (brec_decode(type, bytes, record) == 0) {
    require(samples::encoded(type, record) == bytes);
  } else {
    const std::vector<std::byte> zero(type.size);
    require(std::memcmp(record, zero.data(), type.size) == 0);
  }
  brec_free(type, record);
}

}  // namespace
}  // namespace ot

extern "C" int LLVMFuzzerInitialize(int* /*argc*/, char*** /*argv*/) {
  ot::require(ot::samples::register_samples() == 0 && ot::ot_records_register() == 0);
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size == 0) return 0;
  const auto* rest = reinterpret_cast<const std::byte*>(data + 1);
  std::vector<std::byte> bytes;
  if (*data < std::size(ot::types)) bytes = ot::brec_heading(*ot::types[*data]);
  bytes.insert(bytes.end(), rest, rest + size - 1);
  ot::decode(*ot::types[*data % std::size(ot::types)], bytes);
  return 0;
}
