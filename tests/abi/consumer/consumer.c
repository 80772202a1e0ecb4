/* What a user of the installed library would write first. */
#include <stdio.h>
#include <zora.h>
#include <zordchcl.h>

int main(void) {
  DCH_api_init();
  ZORA_SetInstanceName("consumer");
  printf("%s: debug level %d\n", ZORA_GetInstanceName(), VX_Debug());
  DCH_api_destroy();
  return 0;
}
