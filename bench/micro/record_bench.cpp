// Encoding and decoding the detail record of one interface track: what each line of a `show` costs
// on both sides.
#include <benchmark/benchmark.h>

#include <cstdlib>
#include <memory>

#include "oper/records/track_records.h"

namespace ot {
namespace {

track_info__ sample() {
  // The types may be registered already, by another benchmark of the program.
  static_cast<void>(ot_records_register());
  track_info__ record;
  record.TrackeName.assign("uplink");
  record.Type = track_type::interface;
  record.TrackState = true;
  record.StateChangeCounter = 3;
  record.SecondsLastChange = 1'700'000'000;
  record.TrackTypeInfo.discriminant = 1;
  record.TrackTypeInfo.InterfaceTracks = {};
  record.TrackTypeInfo.InterfaceTracks.InterfaceName.assign("eth0");
  return record;
}

struct encoded {
  std::unique_ptr<std::byte[]> bytes;
  std::size_t length = 0;
};

encoded encode(const track_info__& record) {
  std::byte* bytes = nullptr;
  encoded result;
  if (brec_encode(track_info___brec, &record, &bytes, &result.length) != 0) std::abort();
  result.bytes.reset(bytes);
  return result;
}

void encode_record(benchmark::State& state) {
  const track_info__ record = sample();
  for (auto _ : state) {
    benchmark::DoNotOptimize(encode(record));
  }
}
BENCHMARK(encode_record);

void decode_record(benchmark::State& state) {
  const encoded source = encode(sample());
  for (auto _ : state) {
    track_info__ record;
    if (brec_decode(track_info___brec, {source.bytes.get(), source.length}, &record) != 0) {
      std::abort();
    }
    brec_release(track_info___brec, &record);
  }
}
BENCHMARK(decode_record);

}  // namespace
}  // namespace ot
