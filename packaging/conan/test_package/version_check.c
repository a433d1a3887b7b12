/* The library can be linked to, loads, and says that no service runs. */
#include <stdio.h>
#include <zvqrn/zvqrn.h>

int main(void) {
  printf("ZVQRN %s\n", QRN_VERSION);
  return QRNStopService() == 0 ? 0 : 1;
}
