/* Starts the worker pool, which logs the version banner, and stops it. */
#include <stdio.h>

#include "tavo_lumo_hdr.h"

int main(void) {
  if (tavo_hdr_pool_init() != 0) {
    fprintf(stderr, "tavo-hdr-smoke: the worker pool did not start\n");
    return 1;
  }
  if (tavo_hdr_pool_destroy() != 0) {
    fprintf(stderr, "tavo-hdr-smoke: the worker pool did not stop cleanly\n");
    return 1;
  }
  printf("tavo-hdr-smoke: worker pool started and stopped\n");
  return 0;
}
