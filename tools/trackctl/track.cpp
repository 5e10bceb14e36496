// Three places hold what there is to know of a track: the operational records, the state items and
// the configured delays. Each is read with one walk. Objects are put into JSON by the kind's row.
#include "tools/trackctl/track.h"

#include <memory>
#include <span>
#include <vector>

#include "platform/ledger_datalist.h"
#include "platform/ledger_status.h"
#include "tools/trackctl/command.h"
#include "tools/trackctl/kinds/kinds.h"
#include "tools/trackctl/times.h"

namespace ot::trackctl {
namespace {

using json = nlohmann::ordered_json;

std::string text(const auto& field) {
  return std::string(field.view());
}

const char* up_or_down(bool up) {
  return up ? "up" : "down";
}

json pending_json(const delayed_state_status__* delayed) {
  if (delayed == nullptr) {
    return nullptr;
  }
  return {{"state", up_or_down(delayed->TrackState)}, {"seconds", delayed->TimeRemaining}};
}

json members_json(const track_info__& record) {
  json members = json::array();
  for (const auto* member = record.BoolTracks; member != nullptr; member = member->next) {
    members.push_back({{"name", text(member->ObjectName)},
                       {"state", up_or_down(member->TrackState)},
                       {"not", member->WithNot}});
  }
  for (const auto* member = record.ThresholdTracks; member != nullptr; member = member->next) {
    members.push_back({{"name", text(member->ObjectName)},
                       {"state", up_or_down(member->TrackState)},
                       {"weight", member->Weight}});
  }
  return members;
}

json limits_json(const track_info__& record) {
  if (record.ThresholdUp == nullptr || record.ThresholdDown == nullptr) {
    return nullptr;
  }
  return {{"up", *record.ThresholdUp}, {"down", *record.ThresholdDown}};
}

json tracked_by_json(const track_info__& record) {
  json names = json::array();
  for (const auto* each = record.TrackingInteraces; each != nullptr; each = each->next) {
    names.push_back(text(each->InterfaceName));
  }
  return names;
}

constexpr std::uint32_t page_size = 100;
constexpr int most_attempts = 20;

using extras_map = std::map<std::string, track_extras, std::less<>>;

// Registering again in the same process is not an error.
void register_records() {
  if (const int code = ot_records_register(); code != duplicate_key) {
    check_code("preparing the operational records", code);
  }
}

void visit_encoded(std::span<const std::byte> bytes, const track_visitor& visit) {
  track_info__ record{};
  check_code("decoding an operational record", brec_decode(track_info___brec, bytes, &record));
  const auto release = [](track_info__* decoded) { brec_release(track_info___brec, decoded); };
  const std::unique_ptr<track_info__, decltype(release)> links(&record, release);
  visit(record);
}

struct page_deleter {
  void operator()(ledger_page* page) const noexcept { ledger_datalist_free(page); }
};
using page_ptr = std::unique_ptr<ledger_page, page_deleter>;

// The page behind `marker`; null at the end.
page_ptr read_page(const ledger_connection& connection, const std::string& marker) {
  ledger_page* page = nullptr;
  const int code =
      ledger_datalist(connection.get(), "track/detail", marker.c_str(), page_size, &page);
  if (code == ledger_no_data || code == ledger_list_end) {
    return nullptr;
  }
  check_code("reading the tracks", code);
  return page_ptr(page);
}

// Every page. False when nothing followed where more was announced: the track where the page began
// is gone.
bool read_pages(const ledger_connection& connection, std::vector<page_ptr>& ret) {
  page_ptr page = read_page(connection, "");
  while (page) {
    ret.push_back(std::move(page));
    if (!ret.back()->has_continuation) {
      return true;
    }
    page = read_page(connection, ret.back()->continuation);
  }
  return ret.empty();
}

bool note_published(void* context, std::string_view track, const ledger_value&) {
  (*static_cast<extras_map*>(context))[std::string(track)].published = true;
  return true;
}

bool note_configured(void* context, std::string_view path, const ledger_value& value) {
  const std::size_t slash = path.find('/');
  const std::string_view item = path.substr(slash + 1);
  track_extras& extras = (*static_cast<extras_map*>(context))[std::string(path.substr(0, slash))];
  extras.configured = true;
  if (item == delay_up_item || item == delay_down_item) {
    (item == delay_up_item ? extras.delay_up : extras.delay_down) = value.as_u32();
  }
  return true;
}

void walk(const std::string& root, ledger_visit visit, void* context) {
  const ledger_connection connection(root);
  const int code = ledger_item_walk(connection.get(), "", visit, context);
  if (code != ledger_no_data) {
    check_code("reading " + root, code);
  }
}

}  // namespace

bool awaits_result(const track_info__& record) noexcept {
  const track_kind* const kind = find_track_kind(record.Type);
  return !record.TrackState && kind != nullptr && kind->awaits_result != nullptr &&
         kind->awaits_result(record.TrackTypeInfo);
}

const char* state_word(const track_info__& record, bool published) noexcept {
  if (record.TrackState) {
    return "up";
  }
  return published && !awaits_result(record) ? "down" : "unknown";
}

json track_to_json(const track_info__& record, const track_extras& extras) {
  const track_kind* const kind = find_track_kind(record.Type);
  const bool has_object = kind != nullptr && kind->object != nullptr;
  return {{"name", text(record.TrackeName)},
          {"type", kind != nullptr ? kind->word : "none"},
          {"state", state_word(record, extras.published)},
          {"changes", record.StateChangeCounter},
          {"last_change",
           extras.published
               ? json(json_time(from_epoch(std::chrono::seconds(record.SecondsLastChange))))
               : json(nullptr)},
          {"delay_up", extras.delay_up},
          {"delay_down", extras.delay_down},
          {"pending", pending_json(record.Delayed)},
          {"object", has_object ? kind->object(record.TrackTypeInfo) : json(nullptr)},
          {"members", members_json(record)},
          {"limits", limits_json(record)},
          {"tracked_by", tracked_by_json(record)}};
}

void flag_missing_members(json& track,
                          const std::function<bool(std::string_view name)>& is_configured) {
  for (json& member : track["members"]) {
    member["missing"] = !is_configured(member["name"].get_ref<const std::string&>());
  }
}

bool read_track_record(const std::string& track, const track_visitor& visit) {
  register_records();
  const ledger_connection connection(records_root);
  ledger_value value;
  const int code = ledger_item_get(connection.get(), ("track/detail/" + track).c_str(), &value);
  if (code == ledger_no_data) {
    return false;
  }
  check_code("reading track \"" + track + "\"", code);
  visit_encoded(value.bytes(), visit);
  return true;
}

void read_track_records(const track_visitor& visit) {
  read_named_records([&visit](std::string_view, const track_info__& record) { visit(record); });
}

void read_named_records(const named_track_visitor& visit) {
  register_records();
  const ledger_connection connection(records_root);
  std::vector<page_ptr> pages;
  for (int attempt = 1; !read_pages(connection, pages); ++attempt) {
    if (attempt == most_attempts) {
      throw failure(exit_refused,
                    "tracks are deleted faster than they can be read; try again later");
    }
    pages.clear();
  }
  for (const page_ptr& page : pages) {
    while (const ledger_entry* entry = ledger_datalist_next(page.get())) {
      visit_encoded(entry->data, [&](const track_info__& record) { visit(entry->name, record); });
    }
  }
}

std::set<std::string, std::less<>> read_published_tracks() {
  std::set<std::string, std::less<>> names;
  walk(
      states_root,
      [](void* context, std::string_view track, const ledger_value&) {
        static_cast<std::set<std::string, std::less<>>*>(context)->emplace(track);
        return true;
      },
      &names);
  return names;
}

extras_map read_track_extras() {
  extras_map extras;
  walk(states_root, note_published, &extras);
  walk(std::string(tracks_root), note_configured, &extras);
  return extras;
}

}  // namespace ot::trackctl
