#include "tools/trackctl/terminal.h"

#include <langinfo.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <clocale>
#include <cstdlib>
#include <cstring>

#include "tools/trackctl/columns.h"

namespace ot::trackctl {
namespace {

// What the environment says; empty when it says nothing.
std::string_view setting(const char* variable) {
  const char* const value = std::getenv(variable);
  return value == nullptr ? "" : value;
}

}  // namespace

terminal output_terminal() {
  terminal output;
  output.present = isatty(STDOUT_FILENO) == 1;
  output.colours = output.present && setting("NO_COLOR").empty() && !setting("TERM").empty() &&
                   setting("TERM") != "dumb";
  winsize size{};
  if (output.present && ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col != 0) {
    output.width = size.ws_col;
  }
  return output;
}

std::string shown_text(std::string text) {
  std::setlocale(LC_CTYPE, "");
  if (std::strcmp(nl_langinfo(CODESET), "UTF-8") == 0) {
    return text;
  }
  constexpr std::string_view arrow = "\u2192";
  for (std::size_t at = 0; (at = text.find(arrow, at)) != std::string::npos;) {
    text.replace(at, arrow.size(), "->");
  }
  return text;
}

std::string coloured_state(const terminal& output, const std::string& text,
                           std::string_view state) {
  if (!output.colours) {
    return text;
  }
  const char* const colour = state == "up" ? "\033[32m" : state == "down" ? "\033[31m" : "\033[33m";
  return colour + text + "\033[0m";
}

std::string wrapped(const terminal& output, std::string_view text, std::size_t column) {
  std::string result;
  std::size_t at = column;
  while (!text.empty()) {
    const std::string_view word = text.substr(0, text.find(' '));
    text.remove_prefix(word.size() == text.size() ? word.size() : word.size() + 1);
    if (at != column && at + 1 + columns_of(word) > output.width) {
      result += '\n' + std::string(column, ' ');
      at = column;
    }
    if (at != column) {
      result += ' ';
      ++at;
    }
    result += word;
    at += columns_of(word);
  }
  return result;
}

}  // namespace ot::trackctl
