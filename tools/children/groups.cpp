#include "tools/children/groups.h"

#include <dirent.h>

#include <array>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>

#include "platform/linux/file_stream.h"

namespace ot::children {
namespace {

// Of /proc/PID/stat, counted from behind the name of the program.
constexpr int group_field = 3;
constexpr int start_field = 20;

struct directory_closer {
  void operator()(DIR* directory) const noexcept { closedir(directory); }
};

// What a file of a process holds, at most `most` bytes of it.
std::string read_of(const std::string& process, const char* file, std::size_t most) {
  const file_stream stream{std::fopen(("/proc/" + process + "/" + file).c_str(), "re")};
  std::string text(most, '\0');
  text.resize(stream == nullptr ? 0 : std::fread(text.data(), 1, most, stream.get()));
  return text;
}

// 0: there is none. The program's name, in parentheses, may hold anything.
std::uint64_t stat_number(const std::string& line, int field) {
  std::size_t at = line.rfind(')');
  for (int passed = 0; passed < field && at != std::string::npos; ++passed) {
    at = line.find(' ', at + 1);
  }
  return at == std::string::npos ? 0 : std::strtoull(line.c_str() + at, nullptr, 10);
}

// Empty: there is no such process.
std::string stat_line(const std::string& process) {
  return read_of(process, "stat", 1024);
}

bool has_variable(const std::string& process, std::string_view mark) {
  constexpr std::size_t most = 128 << 10;
  const std::string variables = '\0' + read_of(process, "environ", most);
  return variables.find('\0' + std::string(mark)) != std::string::npos;
}

}  // namespace

void signal_group(pid_t leader, int number) noexcept {
  ::kill(-leader, number);
}

process_identity identity_in(std::string_view stat_line) {
  const std::string line(stat_line);
  const process_identity found{.number = static_cast<pid_t>(std::strtol(line.c_str(), nullptr, 10)),
                               .started_ticks = stat_number(line, start_field)};
  return found.number > 1 && found.started_ticks != 0 ? found : process_identity{};
}

bool group_is_left(const process_identity& leader, std::string_view mark) {
  if (leader.number == 0) {
    return false;
  }
  const process_identity now = identity_in(stat_line(std::to_string(leader.number)));
  if (now.number != 0 || ::kill(-leader.number, 0) != 0) {
    return now.number != 0 && now.started_ticks == leader.started_ticks;
  }
  const std::unique_ptr<DIR, directory_closer> processes{opendir("/proc")};
  while (const dirent* each = processes == nullptr ? nullptr : readdir(processes.get())) {
    const std::string process = each->d_name;
    if (process.find_first_not_of("0123456789") != std::string::npos) {
      continue;
    }
    const std::string line = stat_line(process);
    if (stat_number(line, group_field) == static_cast<std::uint64_t>(leader.number) &&
        stat_number(line, start_field) >= leader.started_ticks && has_variable(process, mark)) {
      return true;
    }
  }
  return false;
}

}  // namespace ot::children
