"""The C library in a program whose memory runs out at every moment of every call: the call says so, writes
nothing, and works again when there is memory."""

import re
import subprocess

import pytest

from test_client_library import HEADER_FOLDER

FAILING = r"""
#include <errno.h>
#include <stddef.h>
extern void *__libc_malloc(size_t);
extern void *__libc_calloc(size_t, size_t);
extern void *__libc_realloc(void *, size_t);
static _Thread_local long left = -1;  /* until the first that fails */
static _Thread_local int failing;     /* how many do */
static _Thread_local int failed;
void fail_after(long count, int how_many) { left = count; failing = how_many; failed = 0; }
int stop_failing(void) { left = -1; failing = 0; return failed; }
static int fails(void) {
  if (left != 0) { left -= left > 0; return 0; }
  if (failing == 0) return 0;
  --failing;
  failed = 1;
  errno = ENOMEM;
  return 1;
}
void *malloc(size_t size) { return fails() ? NULL : __libc_malloc(size); }
void *calloc(size_t count, size_t size) { return fails() ? NULL : __libc_calloc(count, size); }
void *realloc(void *old, size_t size) { return fails() ? NULL : __libc_realloc(old, size); }
"""

PROGRAM = r"""
#include <limits.h>
#include <object_tracking.h>
#include <stdio.h>
#include <string.h>
void fail_after(long count, int how_many);
int stop_failing(void);

static otrack_client *client;

static int run_list(void) {
  otrack_list *list = NULL;
  const int result = otrack_list_read(client, &list);
  if (result == OTRACK_OK ? otrack_list_count(list) != 2 : list != NULL) return 1;
  otrack_list_free(list);
  return result;
}
static int run_get(void) {
  otrack_track *track = NULL;
  const int result = otrack_get(client, "any", &track);
  if (result == OTRACK_OK ? strstr(otrack_track_json(track), "office") == NULL : track != NULL)
    return 1;
  otrack_track_free(track);
  return result;
}
static void on_event(const otrack_event *event, void *count) {
  if (event->kind == OTRACK_EVENT_STATE) ++*(int *)count;
}
static int run_follow(void) {
  const char *const names[] = {"office", "any"};
  otrack_follower *follower = NULL;
  int told = 0;
  int result = otrack_follow(client, names, 2, 0, &follower);
  if (result == OTRACK_OK) result = otrack_follower_dispatch(follower, on_event, &told);
  otrack_follower_close(follower);
  return result < 0 ? result : told != 2;
}
static int run_wait(void) {
  const char *const names[] = {"office"};
  return otrack_wait(client, names, 1, OTRACK_UP, 20000);
}
static int run_try(void) {
  otrack_changes *changes = NULL;
  const int result = otrack_apply(client, "x and office\n", OTRACK_DRY_RUN, &changes);
  if (result == OTRACK_OK ? otrack_changes_made(changes) != 1 : changes != NULL) return 1;
  otrack_changes_free(changes);
  return result;
}
static int run_apply(void) {
  static int number;
  char text[100];
  snprintf(text, sizeof text, "office interface lan0 --delay-up %d\n", 1 + ++number % 2);
  return otrack_apply(client, text, 0, NULL);
}
static int run_set(void) { return otrack_set(client, "office interface lan0"); }
static int run_delete(void) {
  const int result = otrack_delete(client, "nobody");
  return result == OTRACK_ERR_NO_TRACK ? OTRACK_OK : result;
}

static const struct {
  const char *name;
  int (*run)(void);
} calls[] = {{"list", run_list},   {"get", run_get},     {"follow", run_follow}, {"wait", run_wait},
             {"try", run_try},     {"apply", run_apply}, {"set", run_set},       {"delete", run_delete}};

/* How many allocations of the call were made to fail. */
static long attack(const char *name, int (*run)(void), int how_many) {
  for (long k = 0;; ++k) {
    fail_after(k, how_many);
    const int result = run();
    const int hit = stop_failing();
    if (!hit && result == OTRACK_OK) return k;
    if (!hit || (result != OTRACK_OK && result != OTRACK_ERR_NO_MEMORY))
      printf("%s, %d of them from %ld: %d %s\n", name, how_many, k, result, otrack_error(client));
    if (!hit) return k;
  }
}

int main(int argc, char **argv) {
  if (argc != 2 || otrack_open(&client) != OTRACK_OK) return 1;
  for (size_t at = 0; at < sizeof calls / sizeof calls[0]; ++at) {
    if (!strstr(argv[1], calls[at].name)) continue;
    if (calls[at].run() != OTRACK_OK) return 2;
    const long once = attack(calls[at].name, calls[at].run, 1);
    const long onward = attack(calls[at].name, calls[at].run, INT_MAX);
    fprintf(stderr, "%s %ld %ld\n", calls[at].name, once, onward);
  }
  otrack_close(client);
  return 0;
}
"""


READ = ("list", "get", "follow", "wait", "delete")
TAKE_LINES = ("try", "apply", "set")


def calls_that_must_survive():
    """From 2.4 on the library for options ends the process when there is no memory for one."""
    said = subprocess.run(["c++", "-E", "-dM", "-x", "c++", "-include", "CLI/Version.hpp",
                           "/dev/null"], check=True, stdout=subprocess.PIPE, text=True).stdout
    release = tuple(int(re.search(rf"CLI11_VERSION_{part} (\d+)", said)[1])
                    for part in ("MAJOR", "MINOR"))
    return READ + TAKE_LINES if release < (2, 4) else READ


def test_every_call_says_that_there_is_no_memory(office, tmp_path):
    if office.build.sanitized:
        pytest.skip("a sanitizer has a malloc of its own")
    office.ctl("set", "any", "or", "office", "nobody", "--delay-down", "5")
    office.wait_state("any", "up")
    (tmp_path / "failing.c").write_text(FAILING)
    (tmp_path / "program.c").write_text(PROGRAM)
    library = office.build.path / "lib"
    subprocess.run(["cc", "-std=c11", "-Wall", "-Wextra", "-Werror", f"-I{HEADER_FOLDER}",
                    tmp_path / "program.c", tmp_path / "failing.c", f"-L{library}",
                    "-lobject-tracking", f"-Wl,-rpath,{library}", "-o", tmp_path / "program"],
                   check=True)
    calls = calls_that_must_survive()
    result = subprocess.run([tmp_path / "program", " ".join(calls)], env=office.build.environment(office.root),
                            capture_output=True, text=True, timeout=300)
    assert (result.returncode, result.stdout) == (0, ""), result.stderr
    failed = [int(word) for line in result.stderr.splitlines() for word in line.split()[1:]]
    assert len(failed) == 2 * len(calls) and min(failed) > 10, result.stderr
