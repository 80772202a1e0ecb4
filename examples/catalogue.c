/* catalogue: prints what the DCH knows: its applications, or the attributes and the help text of
 * one.
 *
 *   catalogue [APPLICATION]
 *
 * Shows dc_getApplications, dc_getApplAttributes and dc_getApplHelp. */
#include <stdio.h>
#include <stdlib.h>

#include <zordchcl.h>

enum { waitSeconds = 5 };

typedef int Query(ZORA_Long* length, char** buffer, const char* applName, short wait);

/* An empty answer is a failure as well: the DCH knows nothing of the kind. */
static int show(const char* title, Query* query, const char* applName) {
  ZORA_Long length;
  char* text;
  if (query(&length, &text, applName, waitSeconds) != 0) {
    printf("%s: none\n", title);
    return 0;
  }
  if (text == NULL) return 0; /* the answer came, but there was no memory for it */
  printf("%s:\n%s\n", title, text);
  free(text);
  return 1;
}

int main(int argc, char** argv) {
  if (argc > 2) {
    fprintf(stderr, "usage: catalogue [APPLICATION]\n");
    return 64;
  }
  if (argc == 1) return show("applications", dc_getApplications, NULL) ? 0 : 1;
  show("attributes", dc_getApplAttributes, argv[1]);
  show("help", dc_getApplHelp, argv[1]);
  return 0;
}
