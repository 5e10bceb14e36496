// A program on the C library, for the end-to-end tests: it does what lines on its standard input
// say, and prints an answer for each and every event, while it waits for both by poll.
//
//   follow [reconnect] [NAME ...]   many N   list   get NAME   set LINE   delete NAME
//   apply FLAGS TEXT (with "\n" for a new line)   wait STATE MILLISECONDS NAME ...
#include <poll.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <iostream>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include "tools/client/object_tracking.h"

namespace {

using words = std::vector<std::string>;

otrack_client* client = nullptr;
std::vector<otrack_follower*> followers;

std::vector<const char*> pointers(const words& names) {
  std::vector<const char*> all;
  for (const std::string& name : names) {
    all.push_back(name.c_str());
  }
  return all;
}

// Reasons of several lines are told in one.
void answer(int result) {
  std::string reason = result < 0 ? otrack_error(client) : "";
  std::replace(reason.begin(), reason.end(), '\n', '|');
  std::cout << "answer " << result << ' ' << reason << std::endl;
}

void print(const otrack_track* track) {
  std::cout << "track " << otrack_track_name(track) << ' '
            << otrack_state_word(otrack_track_state(track)) << ' ' << otrack_track_kind(track)
            << ' ' << otrack_track_since(track) << ' ' << otrack_track_changes(track) << ' '
            << otrack_track_json(track) << '\n';
}

void on_event(const otrack_event* event, void* follower) {
  constexpr const char* kinds[] = {"", "state", "synced", "deleted", "lost", "resync"};
  std::cout << "event " << *static_cast<std::size_t*>(follower) << ' ' << kinds[event->kind] << ' '
            << event->track << ' ' << otrack_state_word(event->state) << ' '
            << otrack_state_word(event->previous) << std::endl;
}

int follow(const words& names, bool reconnects) {
  otrack_follower* made = nullptr;
  const int result = otrack_follow(client, pointers(names).data(), names.size(),
                                   reconnects ? OTRACK_RECONNECT : 0, &made);
  if (result == OTRACK_OK) {
    followers.push_back(made);
  }
  return result;
}

int run_follow(const words& rest, const std::string& /*text*/) {
  const bool reconnects = !rest.empty() && rest[0] == "reconnect";
  return follow({rest.begin() + (reconnects ? 1 : 0), rest.end()}, reconnects);
}

int run_many(const words& rest, const std::string& /*text*/) {
  int result = OTRACK_OK;
  for (int left = std::stoi(rest.at(0)); left > 0 && result == OTRACK_OK; --left) {
    result = follow({}, false);
  }
  return result;
}

int run_list(const words& /*rest*/, const std::string& /*text*/) {
  otrack_list* list = nullptr;
  const int result = otrack_list_read(client, &list);
  for (std::size_t at = 0; result == OTRACK_OK && at < otrack_list_count(list); ++at) {
    print(otrack_list_at(list, at));
  }
  otrack_list_free(list);
  return result;
}

int run_get(const words& /*rest*/, const std::string& text) {
  otrack_track* track = nullptr;
  const int result = otrack_get(client, text.c_str(), &track);
  if (result == OTRACK_OK) {
    print(track);
  }
  otrack_track_free(track);
  return result;
}

int run_set(const words& /*rest*/, const std::string& text) {
  return otrack_set(client, text.c_str());
}

int run_delete(const words& /*rest*/, const std::string& text) {
  return otrack_delete(client, text.c_str());
}

int run_apply(const words& rest, const std::string& text) {
  std::string lines;
  for (std::size_t at = rest.at(0).size(); at < text.size(); ++at) {
    const bool ends = text.compare(at, 2, "\\n") == 0;
    lines += ends ? '\n' : text[at];
    at += ends ? 1 : 0;
  }
  otrack_changes* changes = nullptr;
  const int result =
      otrack_apply(client, lines.c_str(), static_cast<unsigned>(std::stoul(rest[0])), &changes);
  if (result == OTRACK_OK) {
    std::cout << "changes " << otrack_changes_made(changes) << ' '
              << otrack_changes_changed(changes) << ' ' << otrack_changes_deleted(changes) << '\n'
              << otrack_changes_text(changes) << otrack_changes_warnings(changes);
  }
  otrack_changes_free(changes);
  return result;
}

int run_wait(const words& rest, const std::string& /*text*/) {
  const std::uint32_t state = rest.at(0) == "up" ? OTRACK_UP : OTRACK_DOWN;
  const words names(rest.begin() + 2, rest.end());
  return otrack_wait(client, pointers(names).data(), names.size(), state, std::stoi(rest.at(1)));
}

// A line's first word, and what it runs with the words behind it and their text.
const std::map<std::string, int (*)(const words& rest, const std::string& text)> commands{
    {"follow", run_follow}, {"many", run_many},     {"list", run_list},   {"get", run_get},
    {"set", run_set},       {"delete", run_delete}, {"apply", run_apply}, {"wait", run_wait}};

void dispatch() {
  for (std::size_t at = 0; at < followers.size(); ++at) {
    const int result = otrack_follower_dispatch(followers[at], on_event, &at);
    if (result < 0) {
      std::cout << "ended " << at << ' ' << result << std::endl;
      otrack_follower_close(followers[at]);
      followers.erase(followers.begin() + static_cast<std::ptrdiff_t>(at--));
    }
  }
}

// False at the end of the standard input.
bool obey() {
  std::string line;
  if (!std::getline(std::cin, line)) {
    return false;
  }
  std::istringstream stream(line);
  std::string command;
  stream >> command;
  words rest;
  for (std::string word; stream >> word;) {
    rest.push_back(word);
  }
  const std::string text = line.size() > command.size() ? line.substr(command.size() + 1) : "";
  answer(commands.at(command)(rest, text));
  return true;
}

}  // namespace

int main() {
  setvbuf(stdin, nullptr, _IONBF, 0);  // what is read ahead would not be polled for
  std::ios::sync_with_stdio(true);
  if (otrack_open(&client) != OTRACK_OK) {
    return 1;
  }
  for (bool more = true; more;) {
    std::vector<pollfd> ready{{.fd = 0, .events = POLLIN, .revents = 0}};
    for (const otrack_follower* each : followers) {
      ready.push_back({.fd = otrack_follower_fd(each), .events = POLLIN, .revents = 0});
    }
    poll(ready.data(), ready.size(), -1);
    dispatch();
    more = ready[0].revents == 0 || obey();
  }
  for (otrack_follower* each : followers) {
    otrack_follower_close(each);
  }
  otrack_close(client);
  return 0;
}
