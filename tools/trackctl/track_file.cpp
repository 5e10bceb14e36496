// A line: NAME KIND ..., or "include PATH", a file or a folder whose *.conf files are read in the
// order of their names, hidden ones not; a path is relative to the file that includes it. "#" at
// the begin of a word begins a comment, which ends with its line, and a "\" at the end of a line
// goes on in the next.
#include "tools/trackctl/track_file.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <istream>
#include <map>
#include <sstream>

#include "tools/trackctl/waiting_note.h"

namespace ot::trackctl {
namespace {

namespace fs = std::filesystem;

constexpr std::string_view byte_order_mark = "\xEF\xBB\xBF";
constexpr int includes_max = 8;                         // of one in another
constexpr std::size_t lines_max = 100'000;              // of all files together
constexpr std::size_t line_max = std::size_t{1} << 18;  // a list of 8,000 members fits

class file_reader {
 public:
  explicit file_reader(file_content& ret) noexcept : content_(ret) {}

  void read_file(const fs::path& path, const std::string& from, int depth);
  void read_stream(std::istream& stream, const std::string& name, const fs::path& folder,
                   int depth);

 private:
  void error(const std::string& place, const std::string& text) {
    content_.errors.push_back(place.empty() ? text : place + ": " + text);
  }
  void take_line(const std::string& line, const std::string& place, const fs::path& folder,
                 int depth);
  void include(const fs::path& path, const std::string& place, int depth);
  void take_track(const arguments& words, const std::string& place);

  file_content& content_;
  std::map<std::string, std::string> places_;  // of the tracks, by name
  std::size_t lines_ = 0;
};

// What is wrong with a line that has characters that no editor shows.
std::string text_fault(const std::string& line) {
  const auto found = std::find_if_not(line.begin(), line.end(), [](unsigned char c) {
    return c == '\t' || (c >= ' ' && c != 0x7f);
  });
  if (found == line.end()) {
    return {};
  }
  std::array<char, 8> number{};
  std::snprintf(number.data(), number.size(), "0x%02x", static_cast<unsigned char>(*found));
  return "character " + std::to_string(found - line.begin() + 1) + " of the line is no text (" +
         number.data() + ')';
}

// Whether the line ends with a "\" that is in no comment; it and the blanks behind it become one
// blank then.
bool take_continuation(std::string& line) {
  const std::size_t end = line.find_last_not_of(" \t");
  if (end == std::string::npos || line[end] != '\\') {
    return false;
  }
  for (std::size_t at = 0; (at = line.find('#', at)) != std::string::npos; ++at) {
    if (at == 0 || line[at - 1] == ' ' || line[at - 1] == '\t') {
      return false;
    }
  }
  line.replace(end, std::string::npos, " ");
  return true;
}

// Reads a line, or as much of it as is too long. False at the end.
bool next_line(std::istream& stream, std::string& ret) {
  ret.clear();
  for (int c = 0; ret.size() <= line_max && (c = stream.get()) != EOF && c != '\n';) {
    ret.push_back(static_cast<char>(c));
  }
  return stream.good() || !ret.empty();
}

// What was meant by words that are no line; empty when they may be one.
std::string advice(const arguments& words) {
  if (words.size() < 2) {
    return "a line is NAME KIND ..., such as: uplink interface eth0, or include PATH";
  }
  if (find_track_kind(words[1]) != nullptr) {
    return {};
  }
  if (words[0] == "include") {
    return "include takes one path, without blanks";
  }
  if (words[0] == "trackctl" || words[0] == "set") {
    return "leave \"" + words[0] + (words[0] == "set" ? "" : " set") +
           "\" out: a line is NAME KIND ...";
  }
  return {};
}

void file_reader::take_track(const arguments& words, const std::string& place) {
  if (std::any_of(words.begin(), words.end(),
                  [](const auto& word) { return word == "--help" || word == "-h"; })) {
    error(place, "a track has no --help");
    return;
  }
  try {
    said_track said = read_track_line(words);
    const auto [known, fresh] = places_.emplace(said.name, place);
    if (!fresh) {
      error(place, "track \"" + said.name + "\" stands in " + known->second + " already");
      return;
    }
    content_.tracks.push_back({std::move(said), place});
  } catch (const failure& reason) {
    const std::string text = reason.what();
    error(place, text.starts_with("set: ") ? text.substr(5) : text);
  }
}

void file_reader::include(const fs::path& path, const std::string& place, int depth) {
  std::error_code fault;
  if (depth >= includes_max) {
    error(place, "includes stand in each other more than " + std::to_string(includes_max) +
                     " times; does the file include itself?");
    return;
  }
  if (!fs::is_directory(path, fault)) {
    read_file(path, place, depth + 1);
    return;
  }
  std::vector<fs::path> files;
  for (fs::directory_iterator entry(path, fault), end; !fault && entry != end;
       entry.increment(fault)) {
    if (entry->path().extension() == ".conf" &&
        !entry->path().filename().native().starts_with('.')) {
      files.push_back(entry->path());
    }
  }
  if (fault) {
    error(place, path.string() + ": " + fault.message());
    return;
  }
  std::sort(files.begin(), files.end());
  for (const fs::path& file : files) {
    read_file(file, place, depth + 1);
  }
}

void file_reader::take_line(const std::string& line, const std::string& place,
                            const fs::path& folder, int depth) {
  const arguments words = line_words(line);
  std::string fault = text_fault(line);
  if (fault.empty()) {
    fault = word_fault(words);
  }
  if (fault.empty() && words.empty()) {
    return;
  }
  const bool includes = words.size() == 2 && words[0] == "include";
  if (fault.empty() && !includes) {
    fault = advice(words);
  }
  if (!fault.empty()) {
    error(place, fault);
  } else if (includes) {
    include(folder / words[1], place, depth);
  } else {
    take_track(words, place);
  }
}

void file_reader::read_stream(std::istream& stream, const std::string& name, const fs::path& folder,
                              int depth) {
  std::string whole;
  std::size_t number = 0;
  std::size_t began = 0;
  for (std::string line; next_line(stream, line);) {
    ++number;
    began = whole.empty() ? number : began;
    const std::string place = name + ':' + std::to_string(began);
    if (++lines_ > lines_max || whole.size() + line.size() > line_max) {
      error(place, lines_ > lines_max ? "too many lines" : "the line is too long");
      return;
    }
    if (!line.empty() && line.back() == '\r') {
      line.pop_back();
    }
    if (number == 1 && line.starts_with(byte_order_mark)) {
      line.erase(0, byte_order_mark.size());
    }
    const bool goes_on = take_continuation(line);
    whole += line;
    if (goes_on) {
      continue;
    }
    take_line(whole, place, folder, depth);
    whole.clear();
  }
  if (!whole.empty()) {
    take_line(whole, name + ':' + std::to_string(began), folder, depth);
  }
  if (stream.bad() || (depth == 0 && &stream == &std::cin && std::ferror(stdin) != 0)) {
    error(name, "it cannot be read to its end");
  }
}

void file_reader::read_file(const fs::path& path, const std::string& from, int depth) {
  std::error_code fault;
  if (fs::is_directory(path, fault)) {
    error(from, path.string() + ": it is a folder; a file that says \"include " + path.string() +
                    "\" reads all of it");
    return;
  }
  const auto note = note_for_input(path.string());
  errno = 0;
  std::ifstream stream(path);
  if (!stream) {
    error(from, path.string() + ": " + std::strerror(errno == 0 ? EIO : errno));
    return;
  }
  read_stream(stream, path.string(), path.parent_path(), depth);
}

}  // namespace

file_content read_track_file(const std::string& path) {
  file_content content;
  file_reader reader(content);
  if (path == "-") {
    const auto note = note_for_input(path);
    reader.read_stream(std::cin, "standard input", fs::path(), 0);
  } else {
    reader.read_file(path, "", 0);
  }
  return content;
}

file_content read_track_text(const std::string& text, const std::string& name) {
  file_content content;
  std::istringstream stream(text);
  file_reader(content).read_stream(stream, name, fs::path(), 0);
  return content;
}

}  // namespace ot::trackctl
