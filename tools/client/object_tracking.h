/* object_tracking.h: the state of a router's tracks, in other programs. C and C++.
 *
 * A client is opened once; it reads tracks, changes the configuration, and makes followers. A
 * follower has a descriptor for any event loop: when it is readable, otrack_follower_dispatch hands
 * over what has changed. It begins with the state of every track, and when the service has been
 * away with all of them anew, so a program that takes over what it is told is always right.
 *
 *     otrack_client *client;
 *     otrack_follower *follower;
 *     const otrack_event *event;
 *
 *     if (otrack_open(&client) != OTRACK_OK)
 *         return 1;
 *     if (otrack_follow(client, NULL, 0, OTRACK_RECONNECT, &follower) != OTRACK_OK)
 *         return fprintf(stderr, "%s\n", otrack_error(client)), 1;
 *     while (otrack_follower_next(follower, -1, &event) >= 0)
 *         if (event != NULL && event->kind == OTRACK_EVENT_STATE)
 *             printf("%s is %s\n", event->track, otrack_state_word(event->state));
 *
 * Threads: a client and what was made with it belong to one thread at a time. Different clients may
 * be used by different threads at once; what they ask the service goes one after the other. After a
 * fork only the process that opened a client uses it; the other one opens its own.
 *
 * Calls that ask the service wait for its answer, ten seconds at most, for a change of the
 * configuration thirty, and no signal ends a wait. They return OTRACK_OK, or a negative OTRACK_ERR_
 * number whose reason otrack_error tells; outputs are then not written. OTRACK_ERR_INVALID is also
 * for a null pointer where nothing is said of NULL, and for flags and states that a call does not
 * know; what only reads an object (otrack_track_name ...) wants one. NULL is closed and freed as
 * nothing.
 *
 * Names and texts are UTF-8 and end with a zero byte. Pointers that a call returns belong to the
 * object that they came from, as long as it lives or as it is said there.
 *
 * What is promised: within libobject-tracking.so.1 no function goes or changes its meaning, no
 * number changes, and structures only grow at their end, by members that the library fills in. A
 * program reads structures, and never makes or copies one. Numbers that a program does not know (of
 * states, kinds of events, errors) may come with later versions; it passes over them.
 */
#ifndef OBJECT_TRACKING_H
#define OBJECT_TRACKING_H

#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef struct otrack_client otrack_client;
typedef struct otrack_list otrack_list;
typedef struct otrack_track otrack_track;
typedef struct otrack_follower otrack_follower;
typedef struct otrack_changes otrack_changes;

/* States. */
enum { OTRACK_UNKNOWN = 0, OTRACK_UP = 1, OTRACK_DOWN = 2 };

enum {
  OTRACK_OK = 0,
  OTRACK_ERR_INVALID = -1,    /* an argument is wrong: a name, a line, a number */
  OTRACK_ERR_NO_SERVICE = -2, /* the service is not running, or has ended */
  OTRACK_ERR_NO_TRACK = -3,   /* there is no track of that name */
  OTRACK_ERR_REFUSED = -4,    /* the service does not do it, or failed */
  OTRACK_ERR_TIMEOUT = -5,    /* the service has not answered, or a wait is over */
  OTRACK_ERR_NO_MEMORY = -6
};

/* Flags. */
enum {
  OTRACK_RECONNECT = 1, /* otrack_follow: wait for the service, and go on when it comes back */
  OTRACK_PRUNE = 2,     /* otrack_apply: delete the tracks that the text does not name */
  OTRACK_DRY_RUN = 4,   /* otrack_apply: change nothing */
  OTRACK_NO_WAIT = 8    /* otrack_follow: return at once; the states come by the descriptor */
};

/* "1.0.0" */
const char* otrack_version(void);
/* What an error number means. */
const char* otrack_strerror(int error);
/* "up", "down", "unknown" */
const char* otrack_state_word(uint32_t state);

/* Asks nothing of the service, which need not run. The environment's OT_ROOT is where it keeps its
 * files, when not below "/". */
int otrack_open(otrack_client** ret);
/* What was made with it is closed before. NULL: nothing. */
void otrack_close(otrack_client* client);
/* The reason of the client's last error, for people; valid until its next call. */
const char* otrack_error(const otrack_client* client);

/* --- Reading ------------------------------------------------------------------------------------
 */

/* All tracks, sorted by name. Each is what it was at some moment of the call. */
int otrack_list_read(otrack_client* client, otrack_list** ret);
size_t otrack_list_count(const otrack_list* list);
/* NULL beyond the end. */
const otrack_track* otrack_list_at(const otrack_list* list, size_t index);
void otrack_list_free(otrack_list* list);

/* One track; OTRACK_ERR_NO_TRACK. */
int otrack_get(otrack_client* client, const char* name, otrack_track** ret);
void otrack_track_free(otrack_track* track);

const char* otrack_track_name(const otrack_track* track);
uint32_t otrack_track_state(const otrack_track* track);
/* Milliseconds since 1970 of the last publication, 0 before the first. Whole seconds today. */
int64_t otrack_track_since(const otrack_track* track);
/* How often a state was published since the service started. */
uint64_t otrack_track_changes(const otrack_track* track);
/* "interface", "route", "probe", "bfd", "and", "or", "weight", "percentage", "none" */
const char* otrack_track_kind(const otrack_track* track);
/* All there is to know, as `trackctl show NAME --json` prints it: what is followed, delays,
 * members. Members are added with later versions, and never go. Its state is that of
 * otrack_track_state, as events tell it: of a track whose interface does not exist it is unknown,
 * which trackctl calls down, as does what is stored for routing software; of a new BFD track
 * whose session has not come up yet it is down, which trackctl calls unknown. */
const char* otrack_track_json(const otrack_track* track);

/* --- Following ----------------------------------------------------------------------------------
 */

enum {
  OTRACK_EVENT_STATE = 1,   /* a track and its state: at first of every track, then each change */
  OTRACK_EVENT_SYNCED = 2,  /* every track has been told */
  OTRACK_EVENT_DELETED = 3, /* a track is no more; `previous` is what it was */
  OTRACK_EVENT_LOST = 4,    /* the service has gone; what is known may be old */
  OTRACK_EVENT_RESYNC = 5   /* it is back; every track is told again, then OTRACK_EVENT_SYNCED */
};

/* Valid until the next call with its follower. */
typedef struct otrack_event {
  uint32_t kind;
  uint32_t state;    /* of STATE */
  uint32_t previous; /* of STATE, DELETED: the one told before; OTRACK_UNKNOWN for a new track */
  uint32_t reserved;
  int64_t time;      /* milliseconds since 1970: when this process learned of it */
  const char* track; /* of STATE, DELETED; "" otherwise */
} otrack_event;

/* Follows the tracks of these names, or every track when `count` is 0; tracks need not exist yet.
 * Without OTRACK_RECONNECT the service must run, and the follower ends when it goes. When the call
 * is back the first states wait to be handed over; with OTRACK_RECONNECT they may come later, after
 * a service that is away or does not answer, and with OTRACK_NO_WAIT always. */
int otrack_follow(otrack_client* client, const char* const* names, size_t count, unsigned flags,
                  otrack_follower** ret);
/* Readable when there is something to dispatch; the same for the follower's life. Only for waiting:
 * it is read by the calls below. */
int otrack_follower_fd(const otrack_follower* follower);
/* Hands over what has come and never waits, whatever the service does: one that has not answered
 * for some seconds is OTRACK_EVENT_LOST. The number of events; once a follower without
 * OTRACK_RECONNECT has told everything after the service went, OTRACK_ERR_NO_SERVICE. The callback
 * may read and configure, and must neither close the follower nor take its events. */
int otrack_follower_dispatch(otrack_follower* follower,
                             void (*on_event)(const otrack_event* event, void* context),
                             void* context);
/* Waits for the next event, at most so many milliseconds (-1: for ever), whatever signals come. 1
 * with the event, 0 with NULL when the time is over, or an error as above. */
int otrack_follower_next(otrack_follower* follower, int timeout_ms, const otrack_event** ret);
void otrack_follower_close(otrack_follower* follower);

/* Waits until all these tracks are in the state, at most so many milliseconds (-1: for ever); for
 * none it does not wait. OTRACK_ERR_TIMEOUT, OTRACK_ERR_NO_TRACK when one does not exist at the
 * call. */
int otrack_wait(otrack_client* client, const char* const* names, size_t count, uint32_t state,
                int timeout_ms);

/* --- Configuration ------------------------------------------------------------------------------
 */

/* Makes one track exactly what the line says, which is what `trackctl set` takes: "uplink interface
 * eth0 --delay-up 5". */
int otrack_set(otrack_client* client, const char* line);
int otrack_delete(otrack_client* client, const char* name);
/* Makes the tracks what a text says, one a line, as `trackctl apply` reads files: all of it, or
 * nothing. `ret` may be NULL. */
int otrack_apply(otrack_client* client, const char* text, unsigned flags, otrack_changes** ret);

size_t otrack_changes_made(const otrack_changes* changes);
size_t otrack_changes_changed(const otrack_changes* changes);
size_t otrack_changes_deleted(const otrack_changes* changes);
/* What differed, a line each: "+ ...", "- ...", "~ ..."; "" for nothing. */
const char* otrack_changes_text(const otrack_changes* changes);
/* What the text may not mean, a line each; "" for nothing. */
const char* otrack_changes_warnings(const otrack_changes* changes);
void otrack_changes_free(otrack_changes* changes);

#ifdef __cplusplus
}
#endif

#endif
