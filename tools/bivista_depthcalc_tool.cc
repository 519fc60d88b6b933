// Command-line front end of libbivista_disptodepth.
#include <stdio.h>

#include "hwy/targets.h"

namespace {

void PrintBuildInfo() {
  printf("libbivista_disptodepth %s (%s, %s, gcc %d.%d)\n", BIVISTA_VERSION, BIVISTA_TARGET_ARCH,
         BIVISTA_BUILD_TYPE, __GNUC__, __GNUC_MINOR__);
  printf("vector targets on this CPU:");
  for (int64_t t : hwy::SupportedAndGeneratedTargets()) printf(" %s", hwy::TargetName(t));
  printf("\n");
}

}  // namespace

int main() {
  PrintBuildInfo();
  return 0;
}
