// Stand-ins of the phone's liblog and property call, so that the compile
// check's shared library links with every symbol resolved. Never shipped.
#include <stdarg.h>

int __system_property_get(const char* name, char* value) {
  (void)name;
  value[0] = '\0';
  return 0;
}

int __android_log_print(int prio, const char* tag, const char* fmt, ...) {
  (void)prio;
  (void)tag;
  (void)fmt;
  return 0;
}
