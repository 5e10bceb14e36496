// `qmond status`: the statistics table as the operator reads it.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "platform/linux/probes/qmon/table_view.h"

namespace ot::qmond {

// An operation as the table has it.
struct operation_status {
  statistics result;
  description about;
};

// By operation id. Throws failure(exit_not_running) when no qmond fills a table.
std::vector<operation_status> read_status();

// With a heading; `utf8` says whether the terminal shows bars of blocks.
std::string status_text(const std::vector<operation_status>& operations, bool utf8);
// A list of objects.
std::string status_json(const std::vector<operation_status>& operations);

// The command; `arguments` is what follows "status".
int run_status(const std::vector<std::string>& arguments);

}  // namespace ot::qmond
