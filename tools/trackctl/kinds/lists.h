// From the members and limits on the command line to the items of a list track, and back.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "tools/trackctl/configuration.h"
#include "tools/trackctl/kinds/kinds.h"

namespace ot::trackctl {

struct list_member_word {
  std::string name;
  std::uint32_t value = 0;  // 1 for "not", or the weight
};

// "[not] MEMBER ...": a "not" belongs to the word that follows. These throw what check functions
// throw, also for a member that is named twice.
std::vector<list_member_word> read_boolean_members(const std::vector<std::string>& words);

// "MEMBER=WEIGHT ...".
std::vector<list_member_word> read_weighted_members(const std::vector<std::string>& words);

// "MEMBER ...". A weight is taken too and counts as 1; the members that had one are added to
// `ret_weighted`.
std::vector<list_member_word> read_percentage_members(const std::vector<std::string>& words,
                                                      std::vector<std::string>& ret_weighted);

struct list_limits {
  std::uint32_t up = 0;
  std::uint32_t down = 0;
};
list_limits read_limits(const std::string& up, const std::string& down);

// The items of a list in `folder`, for example "type/list/0x3/"; without limits for null. The
// service keeps the newest member first, so they go the other way round, to be shown as they were
// given.
std::vector<config_item> list_items(std::string_view folder, const list_limits* limits,
                                    const std::vector<list_member_word>& members);

// The words that make the items of a list in `folder`: "[not] MEMBER ...", "--up N --down N
// MEMBER=WEIGHT ..." and "--up N --down N MEMBER ...". For track_kind::write.
std::string write_boolean(const track_items& items, std::string_view folder,
                          const member_order& order);
std::string write_weights(const track_items& items, std::string_view folder,
                          const member_order& order);
std::string write_shares(const track_items& items, std::string_view folder,
                         const member_order& order);

}  // namespace ot::trackctl
