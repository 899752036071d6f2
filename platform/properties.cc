#include "platform/properties.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>

#if defined(__ANDROID__)
#include <sys/system_properties.h>
#endif

namespace tavo::platform {
namespace {

int copy_value(char* value, const char* text, size_t len) {
  if (len >= kPropertyValueMax) len = kPropertyValueMax - 1;
  memcpy(value, text, len);
  value[len] = '\0';
  return static_cast<int>(len);
}

#if !defined(__ANDROID__)
// Looks `key` up in the property file; the last line that sets it wins, as in
// build.prop. Blank lines and lines starting with '#' are skipped.
bool read_property_file(const char* key, char* value) {
  const char* path = getenv(kPropertyFileVariable);
  if (path == nullptr || *path == '\0') return false;
  FILE* file = fopen(path, "r");
  if (file == nullptr) return false;
  const size_t key_len = strlen(key);
  bool found = false;
  char line[512];
  while (fgets(line, sizeof line, file) != nullptr) {
    size_t len = strcspn(line, "\r\n");
    line[len] = '\0';
    const char* text = line;
    while (*text == ' ' || *text == '\t') ++text;
    if (*text == '#' || strncmp(text, key, key_len) != 0) continue;
    const char* rest = text + key_len;
    while (*rest == ' ' || *rest == '\t') ++rest;
    if (*rest != '=') continue;
    ++rest;
    while (*rest == ' ' || *rest == '\t') ++rest;
    size_t value_len = strlen(rest);
    while (value_len > 0 && (rest[value_len - 1] == ' ' || rest[value_len - 1] == '\t')) --value_len;
    copy_value(value, rest, value_len);
    found = true;
  }
  fclose(file);
  return found;
}
#endif

}  // namespace

int property_get(const char* key, char* value, const char* default_value) {
  value[0] = '\0';
#if defined(__ANDROID__)
  char found[PROP_VALUE_MAX] = {0};
  if (__system_property_get(key, found) > 0) return copy_value(value, found, strlen(found));
#else
  if (read_property_file(key, value) && value[0] != '\0') return static_cast<int>(strlen(value));
#endif
  if (default_value == nullptr) return 0;
  return copy_value(value, default_value, strlen(default_value));
}

}  // namespace tavo::platform
