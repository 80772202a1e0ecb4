/* changes: prints changes of provider status until it has seen some.
 *
 *   changes COUNT
 *
 * Shows dc_waitForDPStatusInitialize, dc_waitForDPStatus and dc_waitForDPStatusDestroy. */
#include <stdio.h>
#include <stdlib.h>

#include <zordchcl.h>

int main(int argc, char** argv) {
  unsigned long left;
  void* handle;

  if (argc != 2) {
    fprintf(stderr, "usage: changes COUNT\n");
    return 64;
  }
  left = strtoul(argv[1], NULL, 10);
  DCH_api_init();
  handle = dc_waitForDPStatusInitialize();
  if (handle == NULL) {
    fprintf(stderr, "changes: cannot subscribe\n");
    return 69;
  }
  for (; left > 0; --left) {
    /* The text is the library's and good until the next call. */
    const char* change = dc_waitForDPStatus(handle);
    if (change == NULL) break;
    printf("%s\n", change);
    fflush(stdout);
  }
  dc_waitForDPStatusDestroy(handle);
  DCH_api_destroy();
  return left == 0 ? 0 : 1;
}
