// A track in words, "NAME KIND ... [--delay-up S] [--delay-down S]": what `set` is given, and a
// line of a configuration file.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "tools/trackctl/command.h"
#include "tools/trackctl/kinds/kinds.h"
#include "tools/trackctl/plan.h"

namespace ot::trackctl {

// What is said of a track.
struct said_track {
  std::string name;
  std::string words;  // all behind the name, as they were given
  wanted_type type;
  wanted_delays delays;
  bool shared = false;                  // it may follow what another track follows
  std::vector<std::string> notes = {};  // what is taken but does not mean what it says

  // All its items, as the ledger will have them.
  [[nodiscard]] track_items items() const;
};

// Looks at the kind and its arguments once more, before `track` is set; throws when something is in
// the way.
using line_check = std::function<void(const std::string& track, const track_kind& kind,
                                      const command_line& parsed)>;

// The words of a line of a file, without its comment.
arguments line_words(std::string_view line);

// What is wrong with words that no line means as they stand there; empty when nothing is.
std::string word_fault(const arguments& words);

// Reads the words. Throws failure for what is wrong, and help_shown after having printed the help
// of the kind. `check`: null for none.
said_track read_track_line(const arguments& words, const line_check& check = nullptr);

// The words for a track that has these items, without its name and its delays; none when no words
// make exactly these. `others_follow_it`: another track follows the same object.
std::optional<std::string> write_object(const track_items& items, bool others_follow_it = false,
                                        const member_order& order = nullptr);

// The same for people: also where the words alone would not make exactly these items. Empty for a
// track of no kind.
std::string describe_object(const track_items& items);

// The whole line, or none, as above.
std::optional<std::string> write_track_line(const std::string& name, const track_items& items,
                                            bool others_follow_it = false,
                                            const member_order& order = nullptr);

// The delays that the items have; 0 for none.
wanted_delays delays_of(const track_items& items);

// What only one track can or should follow; without a kind where several may.
struct exclusive_object {
  std::string text;
  const track_kind* kind = nullptr;
};
exclusive_object find_exclusive_object(const track_items& items);

}  // namespace ot::trackctl
