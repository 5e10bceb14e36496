// The terminal as a screen of styled lines, by ncurses.
#pragma once

#include <vector>

#include "tools/trackctl/live_table.h"

namespace ot::trackctl {

enum class key { none, quit, up, down, page_up, page_down, home, end, resized };

// The whole terminal, given back as it was at the end. One at a time.
class terminal_screen {
 public:
  // Throws when the terminal is of a type that cannot be addressed.
  terminal_screen();
  ~terminal_screen();
  terminal_screen(const terminal_screen&) = delete;
  terminal_screen& operator=(const terminal_screen&) = delete;

  // Its present size, from the first track on.
  [[nodiscard]] live_screen size() const noexcept;
  void draw(const std::vector<live_line>& lines);
  // The next key that was pressed; never waits.
  key next_key();

 private:
  bool colours_ = false;
  bool blocks_ = false;
};

}  // namespace ot::trackctl
