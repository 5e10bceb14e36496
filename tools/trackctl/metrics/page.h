// What is measured of the running service, of its tracks and of trackpolicy.
#pragma once

#include <nlohmann/json_fwd.hpp>
#include <string>
#include <string_view>

#include "oper/records/track_records.h"
#include "tools/trackctl/engine.h"
#include "tools/trackctl/metrics/text.h"

namespace ot::trackctl {

// A track by its whole name; `published`: whether a state was. `now`: seconds since the epoch.
void measure_track(std::string_view name, const track_info__& record, bool published, double now,
                   metrics_text& into);
void measure_engine(const engine_state& engine, metrics_text& into);
void measure_loop(const loop_state& loop, metrics_text& into);
// A policy as trackpolicy's socket tells it. Throws nlohmann::json::exception.
void measure_policy(const nlohmann::json& policy, metrics_text& into);

struct metrics_page {
  std::string text;
  bool service = false;  // whether the service is running; without it the text says so
};

// Reads all of it. trackpolicy may be absent, as the service may; the reason why it cannot be read
// goes to standard error. Throws when what is running cannot be read.
metrics_page read_metrics(text_form form);

}  // namespace ot::trackctl
