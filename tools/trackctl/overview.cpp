#include "tools/trackctl/overview.h"

#include <algorithm>

#include "tools/trackctl/columns.h"

namespace ot::trackctl {
namespace {

using json = nlohmann::ordered_json;

constexpr std::size_t state_width = 7;
constexpr std::size_t label_width = 13;  // with the indentation before it

std::string name_of(const seen_track& seen) {
  return seen.track["name"].get<std::string>();
}

std::string text_of(const json& value) {
  return value.is_string() ? value.get<std::string>() : value.dump();
}

// When the state was published; the epoch when none was.
moment last_change(const json& track) {
  const json& value = track["last_change"];
  return value.is_null() ? moment{} : parse_json_time(value.get<std::string>());
}

std::string age(const json& track, moment now) {
  const moment since = last_change(track);
  return since == moment{} ? "-"
                           : duration_text(std::chrono::floor<std::chrono::seconds>(now - since));
}

// "up in 4s", or nothing.
std::string running(const json& track) {
  const json& pending = track["pending"];
  return pending.is_null()
             ? ""
             : text_of(pending["state"]) + " in " +
                   duration_text(std::chrono::seconds(pending["seconds"].get<std::int64_t>()));
}

std::string delay_text(const json& seconds) {
  const auto number = seconds.get<std::int64_t>();
  return number == 0 ? "none" : duration_text(std::chrono::seconds(number));
}

// "prefix 192.0.2.0, next hop eth0": whatever the kind tells, but for what there is not.
std::string object_text(const json& object) {
  std::string text;
  for (const auto& [key, value] : object.items()) {
    if (value.is_null()) {
      continue;
    }
    std::string words = key;
    std::replace(words.begin(), words.end(), '_', ' ');
    text += (text.empty() ? "" : ", ") + words + ' ' +
            (value.is_object() ? '(' + object_text(value) + ')' : text_of(value));
  }
  return text;
}

std::string member_text(const json& member) {
  std::string text;
  if (member.contains("weight")) {
    text = "weight " + member["weight"].dump();
  } else if (member.value("not", false)) {
    text = "negated";
  }
  if (member.value("missing", false)) {
    text += std::string(text.empty() ? "" : ", ") + "not configured";
  }
  return text;
}

std::string members_text(const json& members, const terminal& output) {
  std::size_t width = 0;
  for (const json& member : members) {
    width = std::max(width, columns_of(member["name"].get_ref<const std::string&>()));
  }
  std::string text;
  for (const json& member : members) {
    const auto state = member["state"].get<std::string>();
    text += padded(text.empty() ? "  members" : "", label_width) +
            padded(member["name"].get<std::string>(), width) + "  " +
            coloured_state(output, padded(state, state_width), state) + member_text(member);
    text.erase(text.find_last_not_of(' ') + 1);
    text += '\n';
  }
  return text;
}

std::string labelled(const terminal& output, const char* label, const std::string& text) {
  return text.empty() ? ""
                      : padded(std::string("  ") + label, label_width) +
                            wrapped(output, text, label_width) + '\n';
}

void sort_by_name(std::vector<seen_track>& tracks) {
  std::sort(tracks.begin(), tracks.end(), [](const seen_track& one, const seen_track& other) {
    return name_of(one) < name_of(other);
  });
}

constexpr const char* no_tracks =
    "There are no tracks; `trackctl set --help` tells how one is made.\n";

}  // namespace

std::string overview_text(std::vector<seen_track> tracks, const terminal& output, moment now) {
  if (tracks.empty()) {
    return no_tracks;
  }
  sort_by_name(tracks);
  std::size_t name_width = 5;
  for (const seen_track& seen : tracks) {
    name_width = std::max(name_width, columns_of(name_of(seen)));
  }
  constexpr std::size_t age_width = 6;
  const std::size_t column = name_width + 2 + state_width + 2 + age_width + 2;
  std::string text = padded("Track", name_width + 2) + padded("State", state_width + 2) +
                     padded("For", age_width + 2) + "Follows\n";
  for (const seen_track& seen : tracks) {
    const auto state = seen.track["state"].get<std::string>();
    const std::string runs = running(seen.track);
    text += padded(name_of(seen), name_width + 2) +
            coloured_state(output, padded(state, state_width), state) + "  " +
            padded(age(seen.track, now), age_width + 2) +
            wrapped(output, seen.words + (runs.empty() ? "" : " (" + runs + ')'), column) + '\n';
  }
  return text;
}

namespace {

std::string detail_text(const seen_track& seen, const terminal& output, moment now) {
  const json& track = seen.track;
  const auto state = track["state"].get<std::string>();
  const json& limits = track["limits"];
  std::string trackers;
  for (const json& each : track["tracked_by"]) {
    trackers += (trackers.empty() ? "" : ", ") + text_of(each);
  }
  const std::string object = track["object"].is_null() ? "" : object_text(track["object"]);
  const bool published = !track["last_change"].is_null();
  return name_of(seen) + " is " + coloured_state(output, state, state) +
         (published ? " since " + text_time(last_change(track)).substr(0, 19) + " (" +
                          age(track, now) + ")"
                    : "") +
         '\n' + labelled(output, "follows", seen.words) +
         labelled(output, "object", object == seen.words ? "" : object) +
         labelled(
             output, "delays",
             "up " + delay_text(track["delay_up"]) + ", down " + delay_text(track["delay_down"])) +
         labelled(output, "running", running(track)) +
         labelled(output, "limits",
                  limits.is_null()
                      ? ""
                      : "up " + limits["up"].dump() + ", down " + limits["down"].dump()) +
         members_text(track["members"], output) + labelled(output, "tracked by", trackers) +
         labelled(output, "changes", track["changes"].dump() + " since the service started");
}

}  // namespace

std::string details_text(std::vector<seen_track> tracks, const terminal& output, moment now) {
  if (tracks.empty()) {
    return no_tracks;
  }
  sort_by_name(tracks);
  std::string text;
  for (const seen_track& seen : tracks) {
    text += (text.empty() ? "" : "\n") + detail_text(seen, output, now);
  }
  return text;
}

}  // namespace ot::trackctl
