// "set NAME and|or|weight|percentage ...": the track follows other tracks, which need not exist
// yet. The four kinds differ in how a member is written and in whether there are limits.
#include <iostream>
#include <memory>

#include "tools/trackctl/list_items.h"
#include "tools/trackctl/track_kind.h"

namespace ot::trackctl {
namespace {

using words = std::vector<std::string>;

std::shared_ptr<words> define_members(CLI::App& app, const char* description) {
  auto members = std::make_shared<words>();
  app.add_option("MEMBER", *members, description)->required();
  return members;
}

items_reader define_boolean(CLI::App& app, const char* folder) {
  const auto members =
      define_members(app, "names of tracks; a \"not\" before one takes it the other way round");
  return [members, folder] { return list_items(folder, nullptr, read_boolean_members(*members)); };
}

struct limit_words {
  std::string up;
  std::string down;
};

items_reader define_threshold(CLI::App& app, const char* folder, const char* description,
                              std::vector<list_member_word> (*read_members)(const words&)) {
  const auto limits = std::make_shared<limit_words>();
  app.add_option("--up", limits->up, "the list is down above this value")->required();
  app.add_option("--down", limits->down, "the list is down below this value")->required();
  const auto members = define_members(app, description);
  return [=] {
    const list_limits parsed = read_limits(limits->up, limits->down);
    return list_items(folder, &parsed, read_members(*members));
  };
}

std::vector<list_member_word> read_and_note_percentage_members(const words& given) {
  words weighted;
  std::vector<list_member_word> members = read_percentage_members(given, weighted);
  for (const std::string& name : weighted) {
    std::cerr << "trackctl: note: the weight of member \"" << name
              << "\" counts as 1, as every member's of a percentage list does\n";
  }
  return members;
}

}  // namespace

items_reader define_and_kind(CLI::App& app) {
  return define_boolean(app, "type/list/0x3/");
}

items_reader define_or_kind(CLI::App& app) {
  return define_boolean(app, "type/list/0x4/");
}

items_reader define_weight_kind(CLI::App& app) {
  return define_threshold(app, "type/list/0x7/", "names of tracks, each with its weight",
                          read_weighted_members);
}

items_reader define_percentage_kind(CLI::App& app) {
  return define_threshold(app, "type/list/0x8/", "names of tracks",
                          read_and_note_percentage_members);
}

}  // namespace ot::trackctl
