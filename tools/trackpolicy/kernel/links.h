// The interfaces there are, as far as routes and links of policies concern them.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <string_view>

namespace ot::trackpolicy {

struct link_fact {
  std::uint32_t index = 0;
  std::string name;
  bool up = false;              // administratively
  std::uint32_t vrf_table = 0;  // of a VRF device
  std::uint32_t lower = 0;      // the index of what it stands on (a VLAN's interface); 0: none

  bool operator==(const link_fact&) const = default;
};

class link_table {
 public:
  // Enters it, in place of what had its index or its name. False when it was known like that.
  bool put(const link_fact& link);
  // False when there was none.
  bool erase(std::uint32_t index);
  void clear();

  // Null: there is none.
  [[nodiscard]] const link_fact* find(std::string_view name) const;
  [[nodiscard]] const link_fact* find(std::uint32_t index) const;

 private:
  std::map<std::uint32_t, link_fact> by_index_;
  std::map<std::string, std::uint32_t, std::less<>> by_name_;
};

}  // namespace ot::trackpolicy
