/* Prints the state of every track, then each change, until it is stopped. To build it:
 *     cc follow.c $(pkg-config --cflags --libs object-tracking) -o follow */
#include <object_tracking.h>
#include <stdio.h>

int main(void) {
  otrack_client *client;
  otrack_follower *follower;
  const otrack_event *event;

  if (otrack_open(&client) != OTRACK_OK)
    return 1;
  if (otrack_follow(client, NULL, 0, OTRACK_RECONNECT, &follower) != OTRACK_OK) {
    fprintf(stderr, "follow: %s\n", otrack_error(client));
    return 1;
  }
  while (otrack_follower_next(follower, -1, &event) > 0) {
    switch (event->kind) {
    case OTRACK_EVENT_STATE:
      printf("%s is %s\n", event->track, otrack_state_word(event->state));
      break;
    case OTRACK_EVENT_DELETED:
      printf("%s is no more\n", event->track);
      break;
    case OTRACK_EVENT_LOST:
      printf("the service is away\n");
      break;
    }
    fflush(stdout);
  }
  return 1;
}
