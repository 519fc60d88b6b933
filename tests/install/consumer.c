/* Built against an installed copy: links the library, whose logger needs the host companion. */
#include <stdio.h>

#include "bivista/depthcalc.h"

int main(void) {
  uint64_t handle = 0;
  /* Logs through the companion's logger and returns 0. */
  if (BIVISTA_DepthCalc_Destroy(&handle) != 0) return 1;
  printf("consumer ok\n");
  return 0;
}
