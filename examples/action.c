/* action: asks the DCH for an action, defers the report that belongs to it, and waits for the
 * result.
 *
 *   action NAME NODE SUBNODE OWNER ID
 *
 * Shows dc_provideAction, dc_deferReportRequest and dc_waitForActionResults. */
#include <stdio.h>
#include <stdlib.h>
#include <time.h>

#include <zordchcl.h>

enum { actionType = 1 };

int main(int argc, char** argv) {
  ZORA_Long id, result;
  if (argc != 6) {
    fprintf(stderr, "usage: action NAME NODE SUBNODE OWNER ID\n");
    return 64;
  }
  id = (ZORA_Long)strtol(argv[5], NULL, 10);
  /* No parameters: those may hold secrets, see the function's comment. */
  if (dc_provideAction(actionType, argv[4], argv[2], argv[3], argv[1], id, NULL) != 0) return 69;
  if (dc_deferReportRequest(NULL, id, (ZORA_Long)time(NULL), "HMN", "LOAD", argv[2]) != 0)
    return 69;
  result = dc_waitForActionResults(id);
  printf("action %d: result %d\n", (int)id, (int)result);
  return result == 0 ? 0 : 1;
}
