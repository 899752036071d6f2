/* Starts the installed library's pool, fuses one small flat capture, stops,
 * and prints the version of the header it was built against. */
#include <stdio.h>
#include <string.h>

#include "tavo_lumo_hdr.h"

int main(void) {
  static uint8_t frames[3][64 * 48 * 3 / 2], out[64 * 48 * 3 / 2];
  for (int k = 0; k < 3; ++k) memset(frames[k], 60 + 60 * k, sizeof frames[k]);
  if (tavo_hdr_pool_init() != 0) return 1;
  const int32_t result = HDR_Function(frames[0], frames[1], frames[2], out, 48, 64, "YUV420_PLANAR");
  if (tavo_hdr_pool_destroy() != 0 || result != 0) return 2;
  printf("consumer: fused a 64x48 capture with %s (%d)\n", TAVO_HDR_VERSION_STRING, TAVO_HDR_VERSION);
  return 0;
}
