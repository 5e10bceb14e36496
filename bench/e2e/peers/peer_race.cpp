// Which of several readers hears first that links have lost or regained their carriers. Runs in the
// namespace of the links w000, w001, ...; their other ends, of the same names, are in another one.
//
//   peer_race FAR_NAMESPACE LINKS FOLLOWERS ROUNDS GAP_MS [subscriber] [NAME=FIFO]...
//
// With one link all followers follow it; else follower K follows link K. In each round all links go
// down and come back. For each change and reader one line: "down" or "up", the reader's name, how
// many followers it heard of, and nanoseconds since the request: the first and the last follower,
// and the median of what each follower was later than the listener for the same link.
#include <fcntl.h>
#include <net/if.h>
#include <sched.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <string>
#include <system_error>

#include "bench/e2e/link_netlink.h"
#include "bench/e2e/peers/readers.h"

namespace ot::bench {
namespace {

using namespace std::chrono_literals;

constexpr auto patience = 2s;  // a follower that was not heard of by then is lost

using times = std::vector<peer_clock::time_point>;

void enter(const char* path) {
  const unique_fd name(open(path, O_RDONLY | O_CLOEXEC));
  if (!name.valid() || setns(name.get(), CLONE_NEWNET) != 0) {
    throw std::system_error(errno, std::generic_category(), path);
  }
}

std::string link_name(unsigned number) {
  std::array<char, IF_NAMESIZE> name{};
  std::snprintf(name.data(), name.size(), "w%03u", number);
  return name.data();
}

std::vector<unsigned> indexes(unsigned links) {
  std::vector<unsigned> all;
  for (unsigned number = 0; number < links; ++number) {
    all.push_back(if_nametoindex(link_name(number).c_str()));
  }
  return all;
}

long long since(peer_clock::time_point begin, peer_clock::time_point end) {
  return std::chrono::duration_cast<std::chrono::nanoseconds>(end - begin).count();
}

void print(const char* direction, const std::string& name, peer_clock::time_point asked,
           const times& heard, const times& of_links) {
  std::vector<long long> at;
  std::vector<long long> over;
  for (std::size_t follower = 0; follower < heard.size(); ++follower) {
    const peer_clock::time_point link = of_links[of_links.size() == 1 ? 0 : follower];
    if (heard[follower] != peer_clock::time_point{}) {
      at.push_back(since(asked, heard[follower]));
      if (link != peer_clock::time_point{}) {
        over.push_back(since(link, heard[follower]));
      }
    }
  }
  std::ranges::sort(at);
  std::ranges::sort(over);
  const std::size_t count = at.size();
  std::printf("%s %s %zu %lld %lld %lld\n", direction, name.c_str(), count,
              count == 0 ? 0 : at.front(), count == 0 ? 0 : at.back(),
              over.empty() ? 0 : over[over.size() / 2]);
}

class race {
 public:
  race(const char* far, unsigned links) {
    readers_.push_back(make_listener(indexes(links)));
    const unique_fd near(open("/proc/self/ns/net", O_RDONLY | O_CLOEXEC));
    enter(far);
    for (const unsigned index : indexes(links)) {
      switches_.push_back(std::make_unique<link_switch>(index));
    }
    setns(near.get(), CLONE_NEWNET);
  }

  void add(std::unique_ptr<peer_reader> reader) { readers_.push_back(std::move(reader)); }

  void start() {
    for (const auto& reader : readers_) {
      reader->start();
    }
  }

  void change(bool up) {
    for (const auto& reader : readers_) {
      reader->expect(up);
    }
    const auto asked = peer_clock::now();
    for (const auto& one : switches_) {
      one->set(up);
    }
    const auto done = peer_clock::now();
    for (const auto& reader : readers_) {
      reader->await(done + patience);
    }
    const times of_links = readers_.front()->heard();
    for (const auto& reader : readers_) {
      print(up ? "up" : "down", reader->name(), asked, reader->heard(), of_links);
    }
  }

 private:
  std::vector<std::unique_ptr<peer_reader>> readers_;  // the listener first
  std::vector<std::unique_ptr<link_switch>> switches_;
};

void run(int argc, char** argv) {
  const auto number = [argv](int index) {
    return static_cast<unsigned>(std::strtoul(argv[index], nullptr, 10));
  };
  const unsigned followers = number(3);
  race all(argv[1], number(2));
  for (int i = 6; i < argc; ++i) {
    const std::string word = argv[i];
    const std::size_t equals = word.find('=');
    all.add(equals == std::string::npos
                ? make_subscriber(followers)
                : make_line_reader(word.substr(0, equals), word.substr(equals + 1), followers));
  }
  all.start();
  for (unsigned round = 0; round < number(4); ++round) {
    for (const bool up : {false, true}) {
      // What one change leaves to be done later shall not meet the next one.
      std::this_thread::sleep_for(std::chrono::milliseconds(number(5)));
      all.change(up);
    }
  }
  std::fflush(stdout);
  std::_Exit(0);  // the readers' threads wait for more
}

}  // namespace
}  // namespace ot::bench

int main(int argc, char** argv) {
  if (argc < 6) {
    std::fputs(
        "usage: peer_race FAR_NAMESPACE LINKS FOLLOWERS ROUNDS GAP_MS [subscriber]"
        " [NAME=FIFO]...\n",
        stderr);
    return 2;
  }
  try {
    ot::bench::run(argc, argv);
  } catch (const std::exception& error) {
    std::fprintf(stderr, "peer_race: %s\n", error.what());
  }
  return 1;
}
