// JSON as the tools read and write it. The library's classes are compiled once, in json.cpp: every
// file that includes this would make its own copy otherwise, which costs seconds each.
#pragma once

#include <nlohmann/json.hpp>

extern template class nlohmann::basic_json<>;
extern template class nlohmann::basic_json<nlohmann::ordered_map>;
