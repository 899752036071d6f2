// Seams the tests drive: captured log lines, a property file, the pool.
#pragma once

#include <gtest/gtest.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <random>
#include <utility>
#include <string>
#include <vector>

#include "support/cpu_masks.h"

namespace tavo::test {

// Every log line written while it lives (the whole formatted message).
class LogCapture {
 public:
  LogCapture();
  ~LogCapture();
  std::vector<std::string> lines() const;
  // Lines containing `text`.
  int count(const std::string& text) const;
  bool contains(const std::string& text) const { return count(text) > 0; }
  std::string joined() const;
};

// Every later log line also goes to stderr (as with TAVO_TEST_LOG set), e.g.
// for a death test to match.
void EchoLogToStderr();

// Dark, normal and bright frames of the synthetic scene, hand-held (frames 0
// and 2 moved apart, so that a swap shows), chroma laid out as `layout` names
// ("YVU420_SEMIPLANAR" interleaves V,U; else planar).
std::array<std::vector<uint8_t>, 3> bracket(int32_t width, int32_t height, const std::string& layout,
                                            uint32_t seed);

// The fusion of pyrFuse composed of the exported kernels level by level into
// whole stored pyramids, writing into `out` what pyrFuse writes.
void reference_fusion(const uint8_t* const* frames, uint32_t n, uint32_t stride, uint32_t frame_height,
                      int32_t width, int32_t height, const int32_t* offsets, const char* layout,
                      uint8_t* out);

// n samples drawn uniformly from lo ... hi by a fixed sequence.
template <class T>
std::vector<T> random_samples(size_t n, uint32_t seed, int lo, int hi) {
  std::mt19937 rng(seed);
  std::uniform_int_distribution<int> d(lo, hi);
  std::vector<T> v(n);
  for (auto& s : v) s = static_cast<T>(d(rng));
  return v;
}

inline std::vector<uint8_t> random_bytes(size_t n, uint32_t seed) { return random_samples<uint8_t>(n, seed, 0, 255); }

// body(mask) under every mask that gives tables of rows of its own (a mask
// that repeats an earlier one's rows is left out), traced with the mask's
// name and the sets its tables name.
template <class Body>
void ForEachCpuMask(Body body) {
  for (const CpuMask& m : kCpuMasks) {
    if (RepeatsAnEarlierMask(m)) continue;
    const ScopedCpuMask scoped(m.mask);
    SCOPED_TRACE(std::string(m.name) + ": " + RowTables{}.sets());
    body(m);
  }
}

// Properties of the host property file for as long as it lives (the
// library's environment is read again when it starts and when it ends).
class ScopedProperties {
 public:
  explicit ScopedProperties(std::initializer_list<std::pair<std::string, std::string>> values);
  ~ScopedProperties();
  ScopedProperties(const ScopedProperties&) = delete;
  ScopedProperties& operator=(const ScopedProperties&) = delete;

 private:
  std::string path_;
};

// A fixture that starts the worker pool for each test and checks that nothing
// the library allocated is left behind.
class PoolTest : public ::testing::Test {
 protected:
  void SetUp() override;
  void TearDown() override;
  long live_at_start_ = 0;
};

// A monotonic clock that advances one millisecond at every reading, so that
// no capture in a test runs into the time limit however slow the machine
// (sanitizers, emulation).
class ScopedTickingClock {
 public:
  ScopedTickingClock();
  ~ScopedTickingClock();
};

// A fresh temporary directory, removed with its files at destruction.
class TempDir {
 public:
  TempDir();
  ~TempDir();
  const std::string& path() const { return path_; }

 private:
  std::string path_;
};

}  // namespace tavo::test
