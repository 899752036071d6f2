#include "pool/library_lock.h"

#include <pthread.h>

#include "pool/thread_pool.h"

namespace tavo {
namespace {

pthread_mutex_t g_library_mutex = PTHREAD_RECURSIVE_MUTEX_INITIALIZER_NP;

// fork() copies the process with only the thread that called it. Holding the
// library lock across the fork means no capture, batch or pool change is
// half-way in the copy: the child gets the lock back free and a pool whose
// workers are gone, which it starts again on first use (pool/thread_pool.cc).
// The lock is made anew in the child rather than unlocked: its owner there is
// a thread of another id.
void before_fork() { pthread_mutex_lock(&g_library_mutex); }
void after_fork_in_parent() { pthread_mutex_unlock(&g_library_mutex); }
void after_fork_in_child() {
  pthread_mutexattr_t recursive;
  pthread_mutexattr_init(&recursive);
  pthread_mutexattr_settype(&recursive, PTHREAD_MUTEX_RECURSIVE);
  pthread_mutex_init(&g_library_mutex, &recursive);
  pthread_mutexattr_destroy(&recursive);
  forget_workers_after_fork();
}

// Registered when the library is loaded; a library unloaded with dlclose
// takes its handlers with it.
[[maybe_unused]] const int g_fork_handlers = pthread_atfork(before_fork, after_fork_in_parent, after_fork_in_child);

}  // namespace

LibraryLock::LibraryLock() { pthread_mutex_lock(&g_library_mutex); }
LibraryLock::~LibraryLock() { pthread_mutex_unlock(&g_library_mutex); }

}  // namespace tavo
