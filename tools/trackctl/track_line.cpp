// Words and items are each other's reverse: what is written is read again before it is handed out,
// so a track that other clients have made of items that no words make is never written wrongly.
#include "tools/trackctl/track_line.h"

#include <algorithm>

#include "tools/trackctl/names.h"

namespace ot::trackctl {
namespace {

std::string kind_words() {
  std::string words;
  for (const track_kind& kind : track_kinds()) {
    words += (words.empty() ? "" : ", ") + std::string(kind.word);
  }
  return words;
}

const track_kind& require_kind(const std::string& word) {
  const track_kind* const kind = find_track_kind(word);
  if (kind == nullptr) {
    throw failure(exit_usage, "set: there is no kind of track \"" + word +
                                  "\"; the kinds are: " + kind_words());
  }
  return *kind;
}

std::uint32_t delay_or_zero(const char* what, const std::optional<std::string>& text) {
  return text ? parse_delay(what, *text) : 0;
}

// The kind in whose folder all of the track's type items lie; null when there is none.
const track_kind* kind_of(const track_items& items) {
  const auto type = std::find_if(items.begin(), items.end(), [](const auto& item) {
    return item.first.starts_with(type_prefix);
  });
  if (type == items.end()) {
    return nullptr;
  }
  for (const track_kind& kind : track_kinds()) {
    if (type->first.starts_with(kind.folder)) {
      return &kind;
    }
  }
  return nullptr;
}

// Whether the line makes exactly these items, also as the last one of a file.
bool reads_back(const std::string& line, const track_items& items) {
  const arguments words = line_words(line);
  try {
    return !line.ends_with('\\') && word_fault(words).empty() &&
           read_track_line(words).items() == items;
  } catch (const failure&) {
    return false;
  } catch (const help_shown&) {
    return false;
  }
}

std::string delay_options(const track_items& items) {
  const wanted_delays delays = delays_of(items);
  std::string text;
  if (delays.up != 0) {
    text += " --delay-up " + std::to_string(delays.up);
  }
  if (delays.down != 0) {
    text += " --delay-down " + std::to_string(delays.down);
  }
  return text;
}

// Options end where a "--" stands.
std::string with_options(std::string object, const std::string& options) {
  return object.insert(std::min(object.find(" -- "), object.size()), options);
}

}  // namespace

arguments line_words(std::string_view line) {
  constexpr std::string_view blanks = " \t";
  arguments words;
  std::size_t at = 0;
  while ((at = line.find_first_not_of(blanks, at)) != std::string::npos && line[at] != '#') {
    const std::size_t end = std::min(line.find_first_of(blanks, at), line.size());
    words.emplace_back(line.substr(at, end - at));
    at = end;
  }
  return words;
}

std::string word_fault(const arguments& words) {
  for (const std::string& word : words) {
    if (word == "\\") {
      return "a \\ goes on in the next line only where nothing stands behind it";
    }
    if (word.starts_with('"') || word.starts_with('\'')) {
      return word + " has a quotation mark; words stand without them";
    }
  }
  return {};
}

track_items said_track::items() const {
  track_items all{{std::string(existence_item), u32_value(1)}};
  for (const config_item& item : type.items) {
    all.insert_or_assign(item.path, item.value);
  }
  if (delays.up != 0) {
    all.emplace(delay_up_item, u32_value(delays.up));
  }
  if (delays.down != 0) {
    all.emplace(delay_down_item, u32_value(delays.down));
  }
  return all;
}

said_track read_track_line(const arguments& words, const line_check& check) {
  if (words.size() < 2) {
    throw failure(exit_usage,
                  "set: needs a NAME and a KIND, for example: trackctl set uplink interface eth0");
  }
  said_track said{.name = words[0], .words = {}, .type = {}, .delays = {}};
  for (std::size_t at = 1; at < words.size(); ++at) {
    said.words += (at == 1 ? "" : " ") + words[at];
  }
  const track_kind& kind = require_kind(words[1]);
  command_line app{std::string("Follow ") + kind.summary + ".",
                   "trackctl set NAME " + std::string(kind.word)};
  app.footer(std::string("Example: trackctl set ") + kind.example);
  const items_reader read_items = kind.define(app);
  std::optional<std::string> up;
  std::optional<std::string> down;
  app.add_option("--delay-up", up, "seconds before a change to up is published (0 to 65535)");
  app.add_option("--delay-down", down, "the same for a change to down");
  parse_arguments(app, {words.begin() + 2, words.end()});

  check_new_track_name(said.name);
  said.type = {kind.folder, read_items(), kind.recreate_on_change, kind.only_from_nothing};
  said.delays = {delay_or_zero("--delay-up", up), delay_or_zero("--delay-down", down)};
  said.shared = app.count("--shared") != 0;
  if (kind.notes != nullptr) {
    said.notes = kind.notes(app);
  }
  if (check) {
    check(said.name, kind, app);
  }
  return said;
}

std::optional<std::string> write_object(const track_items& items, bool others_follow_it,
                                        const member_order& order) {
  const track_kind* const kind = kind_of(items);
  if (kind == nullptr) {
    return std::nullopt;
  }
  std::string text = std::string(kind->word) + ' ' + kind->write(items, kind->folder, order);
  if (others_follow_it && kind->sharable) {
    text += " --shared";
  }
  return reads_back("name " + with_options(text, delay_options(items)), items) ? std::optional(text)
                                                                               : std::nullopt;
}

std::string describe_object(const track_items& items) {
  const track_kind* const kind = kind_of(items);
  return kind == nullptr
             ? ""
             : std::string(kind->word) + ' ' + kind->write(items, kind->folder, nullptr);
}

std::optional<std::string> write_track_line(const std::string& name, const track_items& items,
                                            bool others_follow_it, const member_order& order) {
  const std::optional<std::string> object = write_object(items, others_follow_it, order);
  if (!object) {
    return std::nullopt;
  }
  const std::string line = name + ' ' + with_options(*object, delay_options(items));
  return reads_back(line, items) ? std::optional(line) : std::nullopt;
}

wanted_delays delays_of(const track_items& items) {
  return {item_number(items, delay_up_item), item_number(items, delay_down_item)};
}

exclusive_object find_exclusive_object(const track_items& items) {
  const track_kind* const kind = kind_of(items);
  return kind == nullptr || kind->exclusive == nullptr
             ? exclusive_object{}
             : exclusive_object{kind->exclusive(items), kind};
}

}  // namespace ot::trackctl
