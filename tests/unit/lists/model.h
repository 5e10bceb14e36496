// What tracks and lists shall do, written down a second time from the rules and in another way than
// the service: plain values, names in place of pointers, its own clock. Knows nothing of the
// service but the bucket count that fixes the order of the table's walk.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

namespace ot::test {

// The bucket of a name of fewer than 40 characters, which decides its place in the table's walk.
std::uint32_t bucket_of(const std::string& name, std::uint32_t buckets);

struct model_member {
  std::string name;
  std::uint32_t value = 0;
};

// The change that a track's delay holds back. Outlives its track while it runs, until a track of
// that name is made anew.
struct model_delay {
  std::string track;
  std::uint32_t pending = 0;
  bool running = false;
  std::uint64_t due = 0;      // milliseconds
  std::uint64_t started = 0;  // of equal due times the one started first
};

struct model_track {
  std::string name;
  std::uint32_t bucket = 0;
  std::uint64_t made = 0;
  std::uint32_t type = 6;
  std::vector<model_member> members;  // newest first
  std::uint32_t delay_up = 0;         // seconds
  std::uint32_t delay_down = 0;
  std::uint32_t up_limit = 0;
  std::uint32_t down_limit = 0;
  std::uint32_t source = 0;
  std::uint32_t state = 0;
  std::uint32_t publications = 0;
  bool waiting = false;
  std::shared_ptr<model_delay> delay;
};

class list_model {
 public:
  explicit list_model(std::uint32_t buckets) : buckets_(buckets) {}
  virtual ~list_model() = default;
  list_model(const list_model&) = delete;
  list_model& operator=(const list_model&) = delete;

  // What configuration and objects do. Types and states are the numbers of the configuration.
  void make_member(const std::string& list, std::uint32_t type, const model_member& member);
  void drop_member(const std::string& list, const std::string& member);
  void make_limits(const std::string& list, std::uint32_t type, std::uint32_t up,
                   std::uint32_t down);
  void change_limits(const std::string& list, std::uint32_t type, std::uint32_t up,
                     std::uint32_t down);
  void set_delays(const std::string& track, std::uint32_t up, std::uint32_t down);
  void erase(const std::string& track);
  void report(const std::string& track, std::uint32_t state);
  void request_calculation();
  void wait(std::uint64_t milliseconds);

  const model_track* find(const std::string& name) const;
  // All tracks in the order of the table's walk.
  const std::vector<model_track>& tracks() const { return tracks_; }
  // What was published that changed a state, in order, since the last call: "track t1 state
  // Track_Up".
  std::vector<std::string> take_changes();

 protected:
  // Whether a threshold list with this value is up.
  virtual bool between_limits(const model_track& list, std::uint32_t value) const;

 private:
  model_track* find(const std::string& name);
  model_track& make(const std::string& name, std::uint32_t type);
  void index_tracks();
  void set_state(const std::string& name, std::uint32_t state);
  void publish(const std::string& name, std::uint32_t state);
  void calculate();
  // 1 or 2, or 0 when the list has to wait.
  std::uint32_t result_of(const model_track& list) const;
  std::uint32_t boolean_result(const model_track& list) const;
  std::uint32_t threshold_result(const model_track& list) const;

  std::uint32_t buckets_;
  std::uint64_t now_ = 0;
  std::uint64_t counter_ = 0;
  std::vector<model_track> tracks_;
  std::unordered_map<std::string, std::size_t> places_;  // in tracks_
  std::vector<std::string> changes_;
  std::vector<std::shared_ptr<model_delay>> running_;
  model_delay calculation_;  // names no track
};

}  // namespace ot::test
