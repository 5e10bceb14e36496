// Finding a kind among the rows.

#include "core/track_kind.h"

#include <utility>

namespace ot {
namespace {

std::pair<const track_kind*, const track_kind_type*> find(track_type type) noexcept {
  for (const track_kind* kind : track_kinds()) {
    for (const track_kind_type& candidate : kind->types) {
      if (candidate.type == type) {
        return {kind, &candidate};
      }
    }
  }
  return {};
}

}  // namespace

const track_kind* track_kind_of(track_type type) noexcept {
  return find(type).first;
}

const track_kind_type* track_kind_type_of(track_type type) noexcept {
  return find(type).second;
}

}  // namespace ot
