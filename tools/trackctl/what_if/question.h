// From what the operator assumes and what is there to the question of a simulation. Pure; the
// service is read before.
//
// To assume that a track is up or down is to assume it of its object, so that every track on the
// same object goes along. A list has no object: one that is assumed to be up or down no longer
// looks at its members, and stands as if it followed an object of its own.
#pragma once

#include <map>
#include <string>
#include <vector>

#include "tools/trackctl/command.h"
#include "tools/trackctl/configuration.h"
#include "tools/trackctl/member_places.h"
#include "tools/trackctl/track_file.h"
#include "tools/what_if/question.h"

namespace ot::trackctl {

// Reads "NAME=up" and "NAME=down". Throws for what is neither, and for a track that is named twice.
std::vector<what_if::assumption> read_assumptions(const arguments& words);

// Throws unless each track is there and follows something, and no object would have to be up and
// down at once.
void check_assumptions(const std::vector<what_if::assumption>& assumptions,
                       const configured_tracks& tracks);

// Makes the lists that are assumed to be up or down stand alone.
void let_stand_alone(const std::vector<what_if::assumption>& assumptions,
                     configured_tracks& tracks);
void let_stand_alone(const std::vector<what_if::assumption>& assumptions,
                     std::vector<file_track>& tracks);

// All items, the members of each list from the oldest to the newest.
std::vector<what_if::stored_item> items_of(
    const configured_tracks& tracks,
    const std::map<std::string, member_places, std::less<>>& places);

// A track that gets an object which no track follows now, so that nothing is known of it.
struct unknown_object {
  std::string track;
  std::string object;  // in the words of `set`
};
std::vector<unknown_object> find_unknown_objects(
    const configured_tracks& present, const configured_tracks& after,
    const std::vector<what_if::assumption>& assumptions);

}  // namespace ot::trackctl
