/* Built against an installed copy, as C: links the library, whose logger needs the host
 * companion, and calls an entry and two of the exported stages through the public headers. */
#include <stdio.h>

#include "bivista/depthcalc.h"
#include "bivista/depthcalc_stages.h"

int main(void) {
  uint64_t handle = 0;
  uint8_t disp[4 * 3] = {40, 40, 40, 40, 40, 40, 40, 40, 40, 40, 40, 40};
  uint8_t conf[4 * 3] = {200, 200, 200, 200, 200, 200, 200, 200, 200, 200, 200, 200};
  uint8_t outDisp[4 * 3] = {0}, outConf[4 * 3] = {0};
  DisparityType rec = {0};
  BIVISTA_Rect area = {1, 0, 2, 2};
  rec.data = disp;
  rec.width = 4, rec.height = 3, rec.stride = 4;
  /* Logs through the companion's logger and returns 0. */
  if (BIVISTA_DepthCalc_Destroy(&handle) != 0) return 1;
  if (D2AnalysisAFMultiDepth(rec, 4, 4, 3, 0) != 0) return 2; /* one depth */
  CorrectFocusArea(rec, conf, &area, outDisp, outConf);
  if (outDisp[1] != 40 || outConf[6] != 200 || outDisp[0] != 0) return 3;
  printf("consumer ok\n");
  return 0;
}
