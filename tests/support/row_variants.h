// Forces the portable rows, or the widest the processor runs, for as long as it
// lives; then puts back the environment's choice.
#pragma once

#include <cstdlib>
#include <cstring>

#include "platform/cpu.h"

namespace tavo::test {

class RowVariants {
 public:
  explicit RowVariants(bool portable) { platform::force_portable_for_testing(portable); }
  ~RowVariants() {
    const char* v = getenv(platform::kPortableVariable);
    platform::force_portable_for_testing(v != nullptr && *v != '\0' && strcmp(v, "0") != 0);
  }
  RowVariants(const RowVariants&) = delete;
  RowVariants& operator=(const RowVariants&) = delete;
};

}  // namespace tavo::test
