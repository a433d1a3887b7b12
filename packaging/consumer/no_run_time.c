/*
 * A Windows program of nothing but the library: it needs no C run-time library, so that LLVM's
 * linker can link it with ZVQRN.lib where there is nothing of Microsoft's.  Ends with 7 when both
 * calls came back and said that no service runs.
 */
#include "zvqrn/zvqrn.h"

int __cdecl start(void);
int __cdecl start(void) {
  int32_t length = 0;
  return QRNGetPCName(0, &length) == 0 && QRNStopService() == 0 ? 7 : 1;
}
