#include "tools/trackctl_watch/screen.h"

#include <langinfo.h>
// Its macros are named like anything else.
#define NCURSES_NOMACROS 1
#include <curses.h>
#include <term.h>
#undef lines  // a macro there, and a word here

#include <clocale>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "tools/trackctl/command.h"

namespace ot::trackctl {
namespace {

struct key_row {
  int code;
  key meaning;
};
constexpr key_row keys[] = {
    {'q', key::quit},          {'Q', key::quit},
    {KEY_UP, key::up},         {'k', key::up},
    {KEY_DOWN, key::down},     {'j', key::down},
    {KEY_PPAGE, key::page_up}, {KEY_NPAGE, key::page_down},
    {' ', key::page_down},     {KEY_HOME, key::home},
    {'g', key::home},          {KEY_END, key::end},
    {'G', key::end},           {KEY_RESIZE, key::resized},
};

constexpr short green_pair = 1;
constexpr short red_pair = 2;
constexpr short yellow_pair = 3;

bool make_colours() {
  const char* const unwanted = std::getenv("NO_COLOR");
  if ((unwanted != nullptr && *unwanted != '\0') || !has_colors() || start_color() == ERR ||
      use_default_colors() == ERR) {
    return false;
  }
  init_pair(green_pair, COLOR_GREEN, -1);
  init_pair(red_pair, COLOR_RED, -1);
  init_pair(yellow_pair, COLOR_YELLOW, -1);
  return true;
}

attr_t attributes(live_style style, bool colours) {
  switch (style) {
    case live_style::heading:
      return A_BOLD;
    case live_style::up:
      return colours ? static_cast<attr_t>(COLOR_PAIR(green_pair)) : A_NORMAL;
    case live_style::down:
      return colours ? static_cast<attr_t>(COLOR_PAIR(red_pair)) : A_NORMAL;
    case live_style::unknown:
      return colours ? static_cast<attr_t>(COLOR_PAIR(yellow_pair)) : A_NORMAL;
    case live_style::plain:
      break;
  }
  return A_NORMAL;
}

}  // namespace

terminal_screen::terminal_screen() {
  std::setlocale(LC_ALL, "");
  const char* const set = std::getenv("TERM");
  const std::string type = set == nullptr ? "" : set;
  if (newterm(nullptr, stdout, stdin) == nullptr) {
    throw failure(exit_refused, "watch: a terminal of type \"" + type +
                                    "\" is not known here; set TERM, for example to xterm");
  }
  if (tigetstr("cup") == nullptr) {
    endwin();
    throw failure(exit_refused, "watch: a terminal of type \"" + type +
                                    "\" shows lines only; `trackctl events` follows in lines");
  }
  blocks_ = std::strcmp(nl_langinfo(CODESET), "UTF-8") == 0;
  colours_ = make_colours();
  cbreak();
  noecho();
  nonl();
  keypad(stdscr, true);
  nodelay(stdscr, true);
  set_escdelay(25);
  curs_set(0);
}

terminal_screen::~terminal_screen() {
  endwin();
}

live_screen terminal_screen::size() const noexcept {
  return {static_cast<std::size_t>(getmaxx(stdscr)), static_cast<std::size_t>(getmaxy(stdscr)), 0,
          blocks_};
}

void terminal_screen::draw(const std::vector<live_line>& lines) {
  erase();
  int row = 0;
  for (const live_line& line : lines) {
    move(row++, 0);
    for (const live_span& span : line) {
      attrset(static_cast<int>(attributes(span.style, colours_)));
      addstr(span.text.c_str());
    }
  }
  attrset(A_NORMAL);
  refresh();
}

key terminal_screen::next_key() {
  for (int code = getch(); code != ERR; code = getch()) {
    for (const key_row& row : keys) {
      if (row.code == code) {
        return row.meaning;
      }
    }
  }
  return key::none;
}

}  // namespace ot::trackctl
