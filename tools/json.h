// JSON as the tools read and write it. The library's classes are compiled once, in json.cpp: every
// file that includes this would make its own copy otherwise, which costs seconds each.
#pragma once

#include <nlohmann/json.hpp>

// What a value holds is let go of in json.cpp, since the library's own way ends the process where
// there is no memory for it, and libobject-tracking stands in the processes of others.
template <>
void nlohmann::json::json_value::destroy(value_t type);
template <>
void nlohmann::ordered_json::json_value::destroy(value_t type);

extern template class nlohmann::basic_json<>;
extern template class nlohmann::basic_json<nlohmann::ordered_map>;
