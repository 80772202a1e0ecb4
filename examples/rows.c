/* rows: waits for rows of one attribute group, and stops after some seconds.
 *
 *   rows APPLICATION GROUP SECONDS
 *
 * Shows how a second thread breaks a wait: dc_waitOnDataInitialize, dc_waitOnData,
 * dc_waitOnDataCancel, dc_waitOnDataDestroy. */
#define _POSIX_C_SOURCE 200809L

#include <arpa/inet.h>
#include <pthread.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include <zordchcl.h>

enum { largestRow = 32767 };

struct Stopper {
  void* handle;
  unsigned seconds;
};

/* Any thread may cancel; the one that waits then gets -1. */
static void* cancelLater(void* argument) {
  const struct Stopper* stopper = argument;
  sleep(stopper->seconds);
  dc_waitOnDataCancel(stopper->handle);
  return NULL;
}

static unsigned lengthOf(const char* row) {
  uint32_t word;
  memcpy(&word, row, sizeof word);
  return ntohl(word);
}

int main(int argc, char** argv) {
  static char row[largestRow];
  struct Stopper stopper;
  pthread_t thread;
  int result;

  if (argc != 4) {
    fprintf(stderr, "usage: rows APPLICATION GROUP SECONDS\n");
    return 64;
  }
  DCH_api_init();
  stopper.handle = dc_waitOnDataInitialize(argv[1], argv[2]);
  stopper.seconds = (unsigned)strtoul(argv[3], NULL, 10);
  if (stopper.handle == NULL) {
    fprintf(stderr, "rows: cannot subscribe\n");
    return 69;
  }
  if (pthread_create(&thread, NULL, cancelLater, &stopper) != 0) return 71;
  while ((result = dc_waitOnData(stopper.handle, row, sizeof row)) == 0) {
    printf("a row of %u bytes\n", lengthOf(row));
    fflush(stdout);
  }
  /* Nobody may still use the handle when it is destroyed, the cancelling thread included. */
  pthread_join(thread, NULL);
  dc_waitOnDataDestroy(stopper.handle);
  DCH_api_destroy();
  return result == -1 ? 0 : 1;
}
