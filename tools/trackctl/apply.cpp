#include "tools/trackctl/apply.h"

#include "tools/trackctl/command.h"

namespace ot::trackctl {
namespace {

// What differs from what is configured now; throws when it cannot be made.
applied_tracks compare(const std::vector<file_track>& wanted, bool prune) {
  const configured_tracks present = read_configuration();
  const configured_tracks after = configuration_after(present, wanted, prune);
  refuse_errors(find_conflicts(after, wanted));
  file_changes plan = plan_file(present, wanted, prune);
  if (plan.changes.size() > ledger_commit_max) {
    refuse_errors({"it would take " + std::to_string(plan.changes.size()) +
                   " changes, and one commit has at most " + std::to_string(ledger_commit_max) +
                   "; apply the file in parts"});
  }
  return {std::move(plan), find_warnings(after, wanted)};
}

}  // namespace

applied_tracks apply_tracks(const std::vector<file_track>& wanted, const apply_options& options) {
  applied_tracks applied;
  const auto compare_now = [&] {
    applied = compare(wanted, options.prune);
    return applied.plan.changes;
  };
  if (options.dry_run) {
    compare_now();
  } else {
    change_configuration(options.what, compare_now);
  }
  return applied;
}

}  // namespace ot::trackctl
