// Bionic's property call, as <sys/system_properties.h> declares it, for the
// compile check of the phone build (cmake/aarch64-linux-android.cmake).
#pragma once

#define PROP_VALUE_MAX 92

#ifdef __cplusplus
extern "C" {
#endif
int __system_property_get(const char* name, char* value);
#ifdef __cplusplus
}
#endif
