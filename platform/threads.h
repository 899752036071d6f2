// Thread creation and scheduling calls of the worker pool, behind a seam so
// that tests can make thread creation fail.
#pragma once

#include <pthread.h>

namespace tavo::platform {

using ThreadBody = void* (*)(void*);
using ThreadCreate = int (*)(pthread_t* thread, ThreadBody body, void* arg);

// pthread_create with default attributes, or the replacement a test installed.
int thread_create(pthread_t* thread, ThreadBody body, void* arg);
void set_thread_create_for_testing(ThreadCreate create);  // nullptr restores

// Kernel thread id of the calling thread.
int current_tid();

}  // namespace tavo::platform
