// Runs code with the portable rows forced or with the detected ones, and puts
// back the choice the environment made when it goes out of scope.
#pragma once

#include <cstdlib>
#include <cstring>

#include "platform/cpu.h"

namespace tavo::test {

class RowVariants {
 public:
  explicit RowVariants(bool portable) { platform::force_portable_for_testing(portable); }
  ~RowVariants() { platform::force_portable_for_testing(portable_from_environment()); }
  RowVariants(const RowVariants&) = delete;
  RowVariants& operator=(const RowVariants&) = delete;

  static bool portable_from_environment() {
    const char* value = getenv(platform::kPortableVariable);
    return value != nullptr && *value != '\0' && strcmp(value, "0") != 0;
  }
};

// fn() once with the portable rows and once with the widest the processor runs.
template <class Fn>
auto portable_and_detected(Fn&& fn) {
  struct Both {
    decltype(fn()) portable, detected;
  };
  Both both;
  {
    RowVariants rows(true);
    both.portable = fn();
  }
  {
    RowVariants rows(false);
    both.detected = fn();
  }
  return both;
}

}  // namespace tavo::test
