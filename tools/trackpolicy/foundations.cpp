// A walk over records. Lists may contain each other, and members need not be there.
#include "tools/trackpolicy/foundations.h"

#include <deque>
#include <optional>

#include "platform/common/root_path.h"
#include "platform/linux/process/directories.h"
#include "tools/settings/document.h"

namespace ot::trackpolicy {
namespace {

constexpr const char* probes_path = "/etc/object_tracking/probes.toml";
constexpr std::size_t probes_size_max = std::size_t{4} << 20;

std::string interface_in(const toml::table& table) {
  return table["interface"].value_or(std::string());
}

template <typename Member>
void take_members(const Member* from, std::vector<std::string>& ret) {
  for (; from != nullptr; from = from->next) {
    ret.emplace_back(from->ObjectName.view());
  }
}

}  // namespace

probe_interfaces read_probe_interfaces() {
  probe_interfaces found;
  std::string text;
  std::string error;
  std::vector<settings::problem> wrong;
  if (read_own_file(root_path(probes_path), probes_size_max, text, error) != 0) {
    return found;
  }
  const std::optional<toml::table> file = settings::parse_document(text, &wrong);
  if (!file) {
    return found;
  }
  const toml::table* const defaults = (*file)["defaults"].as_table();
  const std::string usual = defaults == nullptr ? std::string() : interface_in(*defaults);
  if (const toml::array* const list = (*file)["operation"].as_array()) {
    for (const toml::node& each : *list) {
      const toml::table* const one = each.as_table();
      const auto id =
          one == nullptr ? std::optional<std::uint32_t>() : (*one)["id"].value<std::uint32_t>();
      if (id) {
        const std::string own = interface_in(*one);
        found[*id] = own.empty() ? usual : own;
      }
    }
  }
  return found;
}

void foundations::note(const track_info__& record, const probe_interfaces& probes) {
  ground& made = tracks_[std::string(record.TrackeName.view())];
  take_members(record.BoolTracks, made.members);
  take_members(record.ThresholdTracks, made.members);
  const track_type_info& info = record.TrackTypeInfo;
  if (record.Type == track_type::interface) {
    made.interface = info.InterfaceTracks.InterfaceName.view();
    made.how = "follows";
  } else if (record.Type == track_type::route) {
    made.route = true;
    made.interface = info.RouteTracks.NextHop.view();
    made.how = "has its route through";
  } else if (record.Type == track_type::bfd) {
    made.interface = info.BFDTracks.InterfaceName.view();
    made.how = "has its BFD session on";
  } else if (record.Type == track_type::probe) {
    const auto probe = probes.find(info.QmonTracks.QmonOpId);
    made.interface = probe == probes.end() ? std::string() : probe->second;
    made.how = "probes through";
  }
}

void foundations::keep_routes_of(const foundations& before) {
  for (auto& [name, one] : tracks_) {
    const auto known = before.tracks_.find(name);
    if (one.route && one.interface.empty() && known != before.tracks_.end() &&
        known->second.route) {
      one.interface = known->second.interface;
    }
  }
}

std::map<std::string, std::string> foundations::below(const std::string& track) const {
  std::map<std::string, std::string> found;
  std::set<std::string> seen;
  std::deque<std::string> next{track};
  while (!next.empty()) {
    const auto at = tracks_.find(next.front());
    next.pop_front();
    if (at == tracks_.end() || !seen.insert(at->first).second) {
      continue;
    }
    const ground& one = at->second;
    if (!one.interface.empty()) {
      found.try_emplace(one.interface, at->first + ' ' + one.how);
    }
    next.insert(next.end(), one.members.begin(), one.members.end());
  }
  return found;
}

}  // namespace ot::trackpolicy
