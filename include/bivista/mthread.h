/* Worker thread pool: pinned POSIX workers, one job per worker at a time, driven by semaphores.
 * Every operation accepts a null pool and then runs the job inline on the caller's thread. */
#ifndef BIVISTA_MTHREAD_H
#define BIVISTA_MTHREAD_H

#include <pthread.h>
#include <semaphore.h>
#include <stdint.h>

#include "bivista/bv_export.h"

BIVISTA_EXTERN_C_BEGIN

/* A job: called as function(argument, threadIndex); its result is ignored. */
typedef void* (*MThread_Func)(void* argument, int threadIndex);

/* Bind modes, indices into the core-mask table. */
enum {
  MTHREAD_BIND_ALL = 0,   /* CPUs 0-7 */
  MTHREAD_BIND_BIG = 1,   /* CPUs 4-7 */
  MTHREAD_BIND_LITTLE = 2 /* CPUs 0-3 */
};

/* One worker. end_sem is free while the worker is idle; start_sem hands it a job. */
typedef struct MThread_Worker {
  pthread_t thread;
  sem_t start_sem;
  sem_t end_sem;
  int32_t exit;
  int32_t index;
  void* argument;
  MThread_Func function;
  int32_t priority; /* nice value, -20 or 0 */
  int32_t bindMode;
} MThread_Worker;

/* The pool handle (16 bytes on 64-bit targets). Callers pass it around as void*. */
typedef struct MThread_Pool {
  MThread_Worker* workers;
  int32_t count;
} MThread_Pool;

/* Create options; a null options pointer means all zero with the name "Xelma_Algo". */
typedef struct MThread_Options {
  int32_t bindMode;     /* 0 all cores, 1 big cores, 2 little cores */
  int32_t highPriority; /* non-zero: nice -20 */
  const char* name;     /* given to every worker; null for none */
} MThread_Options;

/* Makes count workers. Returns the pool or null; *status (when status is non-null) receives the
 * number of workers on success and 1 on failure. Workers 4-7 are bound to the other cluster.
 * A count whose records pass 2^31 bytes fails as an allocation safeNew refuses. */
BIVISTA_API void* MThread_Create(int count, const MThread_Options* options, int* status);
/* Stops and joins every worker (a busy one finishes its job first) and frees the pool. */
BIVISTA_API void MThread_Destroy(void* pool);

/* Hands one job to worker threadIndex, waiting first for its previous job to end. Null pool:
 * runs function(argument, threadIndex) at once. -1 (logged) for an index outside the pool. */
BIVISTA_API int MThread_Boot(void* pool, int threadIndex, MThread_Func function, void* argument);
/* Boots workers first .. first + count - 1 with one function and argument. Ranges here and in
 * MThread_Sync/MThread_Finish end at INT_MAX (no index lies past it). */
BIVISTA_API int MThread_Run(void* pool, int first, int count, MThread_Func function,
                            void* argument);
/* Waits for the jobs of workers first .. first + count - 1 and leaves them idle. */
BIVISTA_API int MThread_Sync(void* pool, int first, int count);
/* MThread_Sync for one worker. */
BIVISTA_API int MThread_Clean(void* pool, int threadIndex);
/* MThread_Run then MThread_Sync over the same range. */
BIVISTA_API int MThread_Finish(void* pool, int first, int count, MThread_Func function,
                               void* argument);

/* Binds the calling thread to the core mask of bindMode; returns the system call's result. */
BIVISTA_API int MThread_Bind(int bindMode);
/* Names a thread (null thread: the calling one); a null name does nothing. Names are cut to 15
 * characters. Returns 0 or the error number. */
BIVISTA_API int MThread_Name(pthread_t* thread, const char* name);
/* Stores bindMode in every worker record. Workers read it only when they start. */
BIVISTA_API void MThread_ChangeBindCoreFlag(void* pool, int bindMode);

BIVISTA_EXTERN_C_END

#endif
