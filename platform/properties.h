// System properties. On Android they come from the platform's property store; on
// a host build from a file of "key=value" lines (the build.prop format) named by
// the environment variable TAVO_HDR_PROPERTIES (taken when the environment is
// read, platform/environment.h); the file itself is read afresh at every look-up.
#pragma once

#include <cstddef>

namespace tavo::platform {

inline constexpr size_t kPropertyValueMax = 92;
inline constexpr const char* kPropertyFileVariable = "TAVO_HDR_PROPERTIES";
// The most of a property file a look-up reads.
inline constexpr size_t kPropertyFileMax = 1 << 20;

// Copies the value of `key` (or `default_value` when it is unset or empty) into
// `value`, which holds kPropertyValueMax bytes; returns the length copied.
int property_get(const char* key, char* value, const char* default_value);

}  // namespace tavo::platform
