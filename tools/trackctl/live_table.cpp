#include "tools/trackctl/live_table.h"

#include <algorithm>
#include <array>
#include <string_view>

#include "tools/trackctl/columns.h"

namespace ot::trackctl {
namespace {

using std::chrono::duration;

constexpr std::size_t state_width = 7;
constexpr std::size_t age_width = 6;
constexpr std::size_t flaps_width = 5;
constexpr std::size_t widest_sparkline = 60;  // a minute a part
constexpr auto shown_time = std::chrono::hours(1);

// Adds the time from `from` to `to` to the parts that it lies in.
class shares {
 public:
  shares(moment begin, moment end, std::size_t parts)
      : begin_(begin),
        part_((end - begin) / static_cast<std::int64_t>(parts)),
        up_(parts),
        known_(parts) {}

  void add(moment from, moment to, const std::string& state) {
    if (state == "unknown") {
      return;
    }
    for (std::size_t part = 0; part < up_.size(); ++part) {
      const moment first = begin_ + part_ * static_cast<std::int64_t>(part);
      const double seconds =
          duration<double>(std::min(to, first + part_) - std::max(from, first)).count();
      known_[part] += std::max(seconds, 0.0);
      up_[part] += state == "up" ? std::max(seconds, 0.0) : 0.0;
    }
  }

  [[nodiscard]] std::vector<std::optional<double>> values() const {
    std::vector<std::optional<double>> result(up_.size());
    for (std::size_t part = 0; part < up_.size(); ++part) {
      if (known_[part] > 0) {
        result[part] = up_[part] / known_[part];
      }
    }
    return result;
  }

 private:
  moment begin_;
  moment::duration part_;
  std::vector<double> up_;
  std::vector<double> known_;
};

// One cell: its character, and how it looks.
live_span cell(const std::optional<double>& share, bool blocks) {
  if (!share) {
    return {" ", live_style::plain};
  }
  constexpr std::array block{"▁", "▂", "▃", "▄", "▅", "▆", "▇", "█"};
  constexpr std::array letter{"_", "_", ".", ".", "-", "-", "+", "#"};
  const std::size_t last = block.size() - 1;
  // Only a time without a break is full, and only one without any up is empty.
  const std::size_t level =
      *share >= 1   ? last
      : *share <= 0 ? 0
                    : 1 + static_cast<std::size_t>(*share * static_cast<double>(last - 1));
  return {blocks ? block[level] : letter[level], level == last ? live_style::up
                                                 : level == 0  ? live_style::down
                                                               : live_style::unknown};
}

live_style style_of(const std::string& state) {
  return state == "up" ? live_style::up : state == "down" ? live_style::down : live_style::unknown;
}

// What is no plain character would put the columns out of order.
std::string printable(std::string text) {
  std::replace_if(
      text.begin(), text.end(), [](unsigned char c) { return c < ' ' || c >= 127; }, '?');
  return text;
}

void cut(live_line& line, std::size_t width) {
  std::size_t used = 0;
  for (std::size_t index = 0; index < line.size(); ++index) {
    const std::size_t wide = columns_of(line[index].text);
    if (used + wide > width) {  // only cells of one column are not plain letters
      line[index].text.resize(width - used);
      line.resize(index + 1);
      return;
    }
    used += wide;
  }
}

struct table {
  std::size_t name_width = 5;
  std::size_t sparkline = 0;
};

table measure(const std::vector<live_track>& tracks, std::size_t width) {
  table result;
  for (const live_track& track : tracks) {
    result.name_width = std::max(result.name_width, track.name.size());
  }
  const std::size_t before =
      result.name_width + 2 + state_width + 2 + age_width + 2 + flaps_width + 2;
  result.sparkline = width > before ? std::min(width - before, widest_sparkline) : 0;
  return result;
}

live_line summary_line(const std::vector<live_track>& tracks, moment now) {
  std::array<std::size_t, 3> counts{};
  for (const live_track& track : tracks) {
    ++counts[track.state == "up" ? 0 : track.state == "down" ? 1 : 2];
  }
  return {
      {std::to_string(tracks.size()) + (tracks.size() == 1 ? " track: " : " tracks: ")},
      {std::to_string(counts[0]) + " up", live_style::up},
      {", "},
      {std::to_string(counts[1]) + " down", counts[1] > 0 ? live_style::down : live_style::plain},
      {", "},
      {std::to_string(counts[2]) + " unknown"},
      {"   " + text_time(now).substr(0, 19)}};
}

live_line heading_line(const table& shape) {
  const std::string last = shape.sparkline >= 9 ? "Last hour" : "";
  return {{padded("Track", shape.name_width + 2) + padded("State", state_width + 2) +
               right_aligned("For", age_width) + "  " + right_aligned("Flaps", flaps_width) + "  " +
               last,
           live_style::heading}};
}

live_line track_line(const live_track& track, const kept_history& history, moment now,
                     const live_screen& screen, const table& shape) {
  const moment begin = now - shown_time;
  const auto flaps =
      std::count_if(history.changes.begin(), history.changes.end(), [&](const past_change& change) {
        return change.when >= begin && change.from == "up" && change.track == track.name;
      });
  live_line line{
      {padded(printable(track.name), shape.name_width + 2)},
      {padded(track.state, state_width), style_of(track.state)},
      {"  " +
       right_aligned(track.since
                         ? duration_text(std::chrono::floor<std::chrono::seconds>(now) -
                                         std::chrono::floor<std::chrono::seconds>(*track.since))
                         : "-",
                     age_width) +
       "  " + right_aligned(std::to_string(flaps), flaps_width) + "  "}};
  if (shape.sparkline > 0) {
    for (const auto& share : up_shares(history, track, begin, now, shape.sparkline)) {
      line.push_back(cell(share, screen.blocks));
    }
  }
  return line;
}

std::string footer(std::size_t tracks, const live_screen& screen) {
  const std::size_t rows = live_rows(screen);
  std::string text = "q quit";
  if (tracks > rows && rows > 0) {
    text += "   " + std::to_string(screen.first + 1) + "-" +
            std::to_string(std::min(tracks, screen.first + rows)) + " of " +
            std::to_string(tracks) + ", arrows and page keys scroll";
  }
  return text;
}

}  // namespace

std::vector<std::optional<double>> up_shares(const kept_history& history, const live_track& track,
                                             moment begin, moment end, std::size_t parts) {
  shares sum(begin, end, parts);
  moment at = history.since;
  std::string state = track.state;
  bool any = false;
  for (const past_change& change : history.changes) {
    if (change.track != track.name) {
      continue;
    }
    if (any || history.complete) {
      sum.add(at, change.when, change.from);
    }
    any = true;
    at = change.when;
    state = change.to;
  }
  if (!any && track.since) {
    at = std::max(at, *track.since);  // it may be younger than the history
  }
  if (any || history.complete) {
    sum.add(at, end, state);
  }
  return sum.values();
}

std::size_t live_rows(const live_screen& screen) noexcept {
  return screen.height > 3 ? screen.height - 3 : 0;
}

std::vector<live_line> live_lines(const std::vector<live_track>& tracks,
                                  const kept_history& history, moment now,
                                  const live_screen& screen) {
  const table shape = measure(tracks, screen.width);
  std::vector<live_line> lines{summary_line(tracks, now), heading_line(shape)};
  const std::size_t last = std::min(tracks.size(), screen.first + live_rows(screen));
  for (std::size_t index = screen.first; index < last; ++index) {
    lines.push_back(track_line(tracks[index], history, now, screen, shape));
  }
  lines.resize(std::max<std::size_t>(screen.height, 3) - 1);
  lines.push_back({{footer(tracks.size(), screen), live_style::heading}});
  lines.resize(std::min(lines.size(), screen.height));
  for (live_line& line : lines) {
    cut(line, screen.width);
  }
  return lines;
}

}  // namespace ot::trackctl
