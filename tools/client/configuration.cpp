// Changing the configuration: a text is what trackctl's files are.
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "tools/client/client.h"
#include "tools/trackctl/apply.h"
#include "tools/trackctl/configuration.h"
#include "tools/trackctl/names.h"
#include "tools/trackctl/plan.h"

struct otrack_changes {
  ot::trackctl::file_changes changes;
  std::string text;
  std::string warnings;
};

namespace {

namespace trackctl = ot::trackctl;

std::string joined(const std::vector<std::string>& lines) {
  std::string text;
  for (const std::string& line : lines) {
    text += line + '\n';
  }
  return text;
}

}  // namespace

int otrack_set(otrack_client* client, const char* line) {
  return ot::client::attempt(client, [line] {
    ot::client::check_pointer(line);
    const trackctl::file_content content = trackctl::read_track_text(line, "line");
    trackctl::refuse_errors(content.errors);
    if (content.tracks.size() != 1) {
      throw trackctl::failure(trackctl::exit_usage,
                              "one track is set, such as by: uplink interface eth0");
    }
    trackctl::apply_tracks(content.tracks, {.what = "setting the track"});
  });
}

int otrack_delete(otrack_client* client, const char* name) {
  return ot::client::attempt(client, [=] {
    ot::client::check_pointer(name);
    trackctl::check_track_name(name);
    trackctl::change_configuration("deleting track \"" + std::string(name) + '"', [=] {
      const trackctl::track_items present = trackctl::read_track(name);
      if (present.empty()) {
        throw ot::client::fail(*client, OTRACK_ERR_NO_TRACK,
                               ("there is no track \"" + std::string(name) + '"').c_str());
      }
      return trackctl::plan_delete(name, present);
    });
  });
}

int otrack_apply(otrack_client* client, const char* text, unsigned flags, otrack_changes** ret) {
  return ot::client::attempt(client, [=] {
    ot::client::check_pointer(text);
    ot::client::check_flags(flags, OTRACK_PRUNE | OTRACK_DRY_RUN);
    auto changes = std::make_unique<otrack_changes>();
    const trackctl::file_content content = trackctl::read_track_text(text, "text");
    trackctl::refuse_errors(content.errors);
    trackctl::applied_tracks applied =
        trackctl::apply_tracks(content.tracks, {.what = "applying the text",
                                                .prune = (flags & OTRACK_PRUNE) != 0,
                                                .dry_run = (flags & OTRACK_DRY_RUN) != 0});
    if (ret != nullptr) {
      changes->text = joined(applied.plan.lines);
      changes->warnings = joined(applied.warnings);
      changes->changes = std::move(applied.plan);
      *ret = changes.release();
    }
  });
}

size_t otrack_changes_made(const otrack_changes* changes) {
  return changes->changes.made;
}

size_t otrack_changes_changed(const otrack_changes* changes) {
  return changes->changes.changed;
}

size_t otrack_changes_deleted(const otrack_changes* changes) {
  return changes->changes.deleted;
}

const char* otrack_changes_text(const otrack_changes* changes) {
  return changes->text.c_str();
}

const char* otrack_changes_warnings(const otrack_changes* changes) {
  return changes->warnings.c_str();
}

void otrack_changes_free(otrack_changes* changes) {
  delete changes;
}
