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

// 0: there is no such process. The program's name, in parentheses, may hold anything.
std::uint64_t stat_number(const std::string& process, int field) {
  const std::string line = read_of(process, "stat", 1024);
  std::size_t at = line.rfind(')');
  for (int passed = 0; passed < field && at != std::string::npos; ++passed) {
    at = line.find(' ', at + 1);
  }
  return at == std::string::npos ? 0 : std::strtoull(line.c_str() + at, nullptr, 10);
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

std::uint64_t start_ticks(pid_t process) {
  return stat_number(std::to_string(process), start_field);
}

bool group_is_left(pid_t leader, std::uint64_t started_ticks, std::string_view mark) {
  const std::uint64_t started = start_ticks(leader);
  if (started != 0 || ::kill(-leader, 0) != 0) {
    return started == started_ticks && started != 0;
  }
  const std::unique_ptr<DIR, directory_closer> processes{opendir("/proc")};
  while (const dirent* each = processes == nullptr ? nullptr : readdir(processes.get())) {
    const std::string process = each->d_name;
    if (process.find_first_not_of("0123456789") == std::string::npos &&
        stat_number(process, group_field) == static_cast<std::uint64_t>(leader) &&
        stat_number(process, start_field) >= started_ticks && has_variable(process, mark)) {
      return true;
    }
  }
  return false;
}

}  // namespace ot::children
