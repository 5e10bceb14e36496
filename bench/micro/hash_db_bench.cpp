// The track table at its full size: the look-up that every event of every track makes, and the
// making and deleting of an entry.
#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstdlib>
#include <vector>

#include "core/track.h"

namespace ot {
namespace {

std::vector<track_name> fill_tracks_table() {
  std::vector<track_name> names;
  if (tracks_table_create() != 0) std::abort();
  for (unsigned i = 0; i < max_tracks; ++i) {
    char name[8];
    std::snprintf(name, sizeof name, "t%04u", i);
    ot_track track;
    track.name.assign(name);
    if (hash_db_add_new_item(tracks_table, name, &track) != 0) std::abort();
    names.push_back(track.name);
  }
  return names;
}

void find_track(benchmark::State& state) {
  const std::vector<track_name> names = fill_tracks_table();
  std::size_t next = 0;
  for (auto _ : state) {
    benchmark::DoNotOptimize(hash_db_get_track_item(names[next].c_str()));
    next = (next + 7) % names.size();
  }
  hash_db_destroy(tracks_table);
}
BENCHMARK(find_track);

void delete_and_add_track(benchmark::State& state) {
  const std::vector<track_name> names = fill_tracks_table();
  std::size_t next = 0;
  for (auto _ : state) {
    const track_name& name = names[next];
    const ot_track track = *hash_db_get_track_item(name.c_str());
    if (hash_db_delete(tracks_table, name.c_str()) != 0 ||
        hash_db_add_new_item(tracks_table, name.c_str(), &track) != 0) {
      std::abort();
    }
    next = (next + 7) % names.size();
  }
  hash_db_destroy(tracks_table);
}
BENCHMARK(delete_and_add_track);

void walk_all_tracks(benchmark::State& state) {
  fill_tracks_table();
  for (auto _ : state) {
    for (auto* track = hash_db_first_data<ot_track>(tracks_table); track != nullptr;
         track = hash_db_next_data<ot_track>(tracks_table)) {
      benchmark::DoNotOptimize(track);
    }
  }
  hash_db_destroy(tracks_table);
}
BENCHMARK(walk_all_tracks);

}  // namespace
}  // namespace ot
