// The worker pool: a fixed set of threads running queued jobs first in, first
// out. Its record also carries the completion lock of the band jobs and the
// capture lock that serialises captures.
#pragma once

#include <pthread.h>

#include <cstdint>

#include "include/tavo_lumo_hdr.h"

struct pool_job {
  void* (*routine)(void*);
  void* arg;
  pool_job* next;
};

struct thread_pool {
  pthread_mutex_t queue_lock;
  pthread_cond_t queue_ready;
  pthread_mutex_t pro_lock;
  pthread_cond_t pro_ready;
  pthread_mutex_t t_lock;
  pool_job* queue_head;
  int32_t shutdown;
  pthread_t* threadid;
  int32_t* thread_creatflag;
  int32_t max_thread_num;
  int32_t cur_queue_size;
};

extern "C" {
TAVO_HDR_EXPORT extern thread_pool* pool;
TAVO_HDR_EXPORT extern int32_t g_args[4];
}

namespace tavo {
inline constexpr int kPoolWorkers = 4;

// Looks for `ready` for a short while before the caller sleeps on a
// condition: the bands of a capture's batches follow one another closely, and
// a sleeping thread takes longer to wake than the next batch takes to come.
// Yields the processor between looks, so that a thread with work on the same
// core goes on. True once ready.
bool spin_until_ready(bool (*ready)(const void*), const void* arg);

// Called in a forked child with the library lock held across the fork: the
// parent's workers do not exist there. Resets the pool's queue and locks and
// has the next job start the workers again.
void forget_workers_after_fork();
}
