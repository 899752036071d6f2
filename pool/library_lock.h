// The library lock serialises everything that drives the worker pool: starting
// and stopping it, captures, and every batch of band jobs (the batches share
// the band records and the completion count). It is recursive, so a capture
// holds it across the batches it runs, and a pool_destroy that arrives during
// a capture waits for the capture to end instead of leaving its jobs behind.
// A fork() waits for it too, so that a forked child finds the library whole.
#pragma once

namespace tavo {

class LibraryLock {
 public:
  LibraryLock();
  ~LibraryLock();
  LibraryLock(const LibraryLock&) = delete;
  LibraryLock& operator=(const LibraryLock&) = delete;
};

}  // namespace tavo
