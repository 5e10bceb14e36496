// An index of all tracks by their names, for as long as none comes or goes: faster than the table,
// and with the same answers.
#pragma once

#include <array>
#include <bit>
#include <cstdint>
#include <cstring>
#include <vector>

#include "core/track.h"

namespace ot {

class track_index {
 public:
  // May throw bad_alloc.
  void make(const std::vector<ot_track*>& tracks) {
    slots_.assign(std::bit_ceil(tracks.size() * 2 + 2), nullptr);
    shift_ = 64 - std::countr_zero(slots_.size());
    for (ot_track* track : tracks) {
      std::size_t at = first_slot(words_of(track->name));
      while (slots_[at] != nullptr) {
        at = next_slot(at);
      }
      slots_[at] = track;
    }
  }

  // The track, or null.
  [[nodiscard]] ot_track* find(const track_name& name) const noexcept {
    const name_words words = words_of(name);
    for (std::size_t at = first_slot(words); slots_[at] != nullptr; at = next_slot(at)) {
      if (words_of(slots_[at]->name) == words) {
        return slots_[at];
      }
    }
    return hash_db_get_track_item(name.c_str());  // it may know the name in another spelling
  }

 private:
  // The whole field, which is zero behind the text.
  using name_words = std::array<std::uint64_t, track_name::capacity / sizeof(std::uint64_t)>;
  static_assert(sizeof(name_words) == track_name::capacity);

  static name_words words_of(const track_name& name) noexcept {
    name_words words;
    std::memcpy(words.data(), name.c_str(), sizeof words);
    return words;
  }

  [[nodiscard]] std::size_t first_slot(const name_words& words) const noexcept {
    std::uint64_t hash = 0;
    for (std::size_t i = 0; i < words.size() && words[i] != 0; ++i) {
      hash = (std::rotl(hash, 32) ^ words[i]) * 0x9e3779b97f4a7c15U;
    }
    return hash >> shift_;  // the upper bits depend on every character
  }
  [[nodiscard]] std::size_t next_slot(std::size_t at) const noexcept {
    return (at + 1) & (slots_.size() - 1);
  }

  std::vector<ot_track*> slots_;
  int shift_ = 63;
};

}  // namespace ot
