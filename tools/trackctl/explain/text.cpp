// A node is a line that says what the track is, one for each thing that makes it so, and its
// members below it, two blanks further in.
#include "tools/trackctl/explain/text.h"

#include <cstdint>
#include <cstdio>
#include <utility>

#include "tools/json.h"

namespace ot::trackctl::explain {
namespace {

using json = nlohmann::ordered_json;

std::string word(const json& value) {
  return value.get<std::string>();
}

std::string seconds_text(std::uint64_t milliseconds) {
  char text[32];
  std::snprintf(text, sizeof text, "%.1f s", static_cast<double>(milliseconds) / 1000.0);
  return text;
}

class writer {
 public:
  explicit writer(const time_form& form) : form_(form) {}

  void write_track(const json& node, const std::string& label, int depth);
  void write_remedy(const json& tree);
  [[nodiscard]] std::string take() { return std::move(text_); }

 private:
  void line(int depth, const std::string& words) {
    text_ += std::string(static_cast<std::size_t>(depth) * 2, ' ') + words + '\n';
  }
  void write_delay(const json& node, int depth);
  void write_object(const json& object, int depth);
  void write_list(const json& node, int depth);
  void write_member(const json& member, const std::string& type, int depth);

  const time_form& form_;
  std::string text_;
};

void writer::write_delay(const json& node, int depth) {
  const json& delay = node["delay"];
  if (!delay.is_null()) {
    line(depth, "it will be " + word(delay["to"]) + " at " + form_(word(delay["ends"])) +
                    ", when its delay is over, in " +
                    seconds_text(delay["remaining_ms"].get<std::uint64_t>()));
  }
}

void writer::write_object(const json& object, int depth) {
  if (object.is_null()) {
    return;
  }
  line(depth, word(object["what"]));
  for (const json& finding : object["findings"]) {
    line(depth + 1, word(finding));
  }
}

std::string counted(const json& list) {
  return std::to_string(list["up"].get<std::uint64_t>()) + " of " +
         std::to_string(list["members"].get<std::uint64_t>());
}

std::string range(const json& list) {
  return "from " + std::to_string(list["limits"]["down"].get<std::uint32_t>()) + " to " +
         std::to_string(list["limits"]["up"].get<std::uint32_t>());
}

std::string value(const json& list) {
  return std::to_string(list["value"].get<std::uint64_t>());
}

struct rule {
  const char* type;
  std::string (*text)(const json& list);
};
const rule rules[] = {
    {"and",
     [](const json& list) {
       return "\"and\" list, up when all of its members count as up: " + counted(list) + " do";
     }},
    {"or",
     [](const json& list) {
       return "\"or\" list, up when one of its members counts as up: " + counted(list) + " do";
     }},
    {"weight",
     [](const json& list) {
       return "weight list, up " + range(list) + ": the weights of its members that are up, " +
              counted(list) + ", make " + value(list);
     }},
    {"percentage",
     [](const json& list) {
       return "percentage list, up " + range(list) + " %: " + counted(list) +
              " of its members are up, " + value(list) + " %";
     }},
};

// A list is computed when something is published. Until then, and in a cycle of lists for ever, it
// is what it was.
bool has_other_result(const json& node) {
  return word(node["list"]["result"]) != (word(node["state"]) == "up" ? "up" : "down") &&
         node["delay"].is_null();
}

void writer::write_list(const json& node, int depth) {
  const json& list = node["list"];
  if (list.is_null()) {
    return;
  }
  for (const rule& row : rules) {
    if (word(node["type"]) == row.type) {
      line(depth, list["members"] == 0 ? word(node["type"]) + " list without members, which is down"
                                       : row.text(list));
    }
  }
  if (has_other_result(node)) {
    line(depth,
         "its members make it " + word(list["result"]) +
             " now; lists that contain each other are not computed and keep their states, and "
             "others follow when a member's state is published");
  }
  for (const json& member : node["members"]) {
    write_member(member, word(node["type"]), depth);
  }
}

// What a member brings to its list.
std::string contribution(const json& member, bool of_percentage) {
  const std::string counts = word(member["counts_as"]);
  if (member.contains("not")) {
    return "counts as " + counts;
  }
  if (of_percentage) {
    return counts == "up" ? "counts" : "does not count";
  }
  const std::string weight = std::to_string(member["weight"].get<std::uint32_t>());
  return counts == "up" ? "adds " + weight : "adds 0 of " + weight;
}

std::string where_else(const json& member) {
  const std::string seen = word(member["seen"]);
  return seen == "cycle"   ? "; it contains this list, and both keep their states"
         : seen == "above" ? "; see above"
                           : "; `trackctl explain " + word(member["name"]) + "` goes on from there";
}

void writer::write_member(const json& member, const std::string& type, int depth) {
  const bool negated = member.contains("not") && member["not"].get<bool>();
  const std::string label = std::string("- ") + (negated ? "not " : "") + word(member["name"]);
  const std::string brings = contribution(member, type == "percentage");
  if (member["missing"].get<bool>()) {
    line(depth, label + ": there is no such track; it " + brings);
  } else if (member.contains("seen")) {
    line(depth, label + " is " + word(member["state"]) + "; it " + brings + where_else(member));
  } else {
    write_track(member["track"], label + '\n' + brings, depth);
  }
}

// `label` may have a second line: what the track brings to the list above it.
void writer::write_track(const json& node, const std::string& label, int depth) {
  const std::size_t end = label.find('\n');
  const std::string since = node["since"].is_null() ? "" : " since " + form_(word(node["since"]));
  line(depth, label.substr(0, end) + " is " + word(node["state"]) + since +
                  (end == std::string::npos ? "" : "; it " + label.substr(end + 1)));
  const int inner = depth + (end == std::string::npos ? 1 : 2);
  write_delay(node, inner);
  write_object(node["object"], inner);
  write_list(node, inner);
  if (word(node["type"]) == "none" && node["object"].is_null()) {
    line(inner, "it follows nothing yet; `trackctl set " + word(node["name"]) +
                    " KIND ...` gives it an object");
  }
}

void writer::write_remedy(const json& tree) {
  if (tree["list"].is_null() || word(tree["state"]) == "up" ||
      (!tree["delay"].is_null() && tree["delay"]["to"] == "up")) {
    return;
  }
  if (tree["remedy"].is_null()) {
    line(0,
         "nothing that its members follow can bring it up: some are missing, or in each other's "
         "way");
    return;
  }
  std::string changes;
  for (const json& change : tree["remedy"]) {
    changes += (changes.empty() ? "" : ", ") + word(change["track"]) + ' ' + word(change["to"]);
  }
  const auto delay = tree["delay_up"].get<std::uint32_t>();
  line(0, "to bring it up: " + (changes.empty() ? "nothing more is needed" : changes) +
              (delay == 0 ? "" : "; its delay of " + std::to_string(delay) + " s follows"));
}

}  // namespace

std::string local_time(const std::string& rfc3339) {
  return rfc3339.substr(0, 10) + ' ' + rfc3339.substr(11, 8);
}

std::string text_of(const json& tree, const time_form& form) {
  writer words(form);
  words.write_track(tree, word(tree["name"]), 0);
  words.write_remedy(tree);
  return words.take();
}

}  // namespace ot::trackctl::explain
