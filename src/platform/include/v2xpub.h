/* Periodic tasks, time and atomic file writes for RSU services. */
#ifndef V2XPUB_H
#define V2XPUB_H

#include "v2x_types.h"

#ifdef __cplusplus
extern "C" {
#endif

typedef enum e_v2xtask_type {
  V2XTASK_TYPE_FIFO = 1,
  V2XTASK_TYPE_RR = 2,
  V2XTASK_TYPE_OTHER = 3,
} e_v2xtask_type_t;

typedef void (*v2xpub_TaskFun_t)(void* arg);

typedef struct v2xpub_TaskInitPara {
  char m_taskName[32];
  uint32 m_priority;  /* advisory: tasks run at normal priority unless the process may raise it */
  uint32 m_intervals; /* period in microseconds */
  e_v2xtask_type_t m_tskType;
  bool m_isOneShot;
  void* mp_arg;
  v2xpub_TaskFun_t f_tskFunEnter; /* run once on the task's thread before the first period */
  v2xpub_TaskFun_t f_tskFunExec;  /* run every m_intervals */
  v2xpub_TaskFun_t f_tskFunExit;  /* run once when the task is stopped */
  bool m_eventTrigFlag;           /* not supported: must be false */
} v2xpub_TaskInitPara_t;

typedef void* V2XPUB_TASKHANDLE;

/* Prepares the task service; idempotent. 0. */
int32 v2xpub_PubSubInit(void);
/*
 * Starts a task on its own thread. The exec routine runs at a fixed rate:
 * period k starts at start + k * interval, whatever the routine's duration
 * (a routine that overruns skips the periods it missed). A one-shot task runs
 * its routine once, after one interval. 0 on success, -2 on a bad argument
 * (null handle or record, no exec routine, zero interval), -1 when the thread
 * cannot be started.
 */
int32 v2xpub_TaskCreate(V2XPUB_TASKHANDLE* handle, const v2xpub_TaskInitPara_t* para);
/* Stops a task and waits for its thread (never call it from the task itself).
 * 0, or -2 for a null handle. The handle is invalid afterwards. */
int32 v2xpub_TaskStop(V2XPUB_TASKHANDLE handle);
/* Number of times the task's exec routine has run. */
uint64 v2xpub_TaskRunCount(V2XPUB_TASKHANDLE handle);

/* Wall-clock time in milliseconds since the Unix epoch. */
uint64 v2xpub_CommGetCurrentTime64(void);

/*
 * Replaces the file at path with len bytes of data atomically: the bytes go to
 * a temporary file in the same directory, are flushed to disk, and the file is
 * renamed over path. Readers see the old file or the new one, never a part.
 * 0 on success; -2 on a bad argument; -1 when the file cannot be written (the
 * old file, if any, is untouched and no temporary file is left behind).
 */
int32 v2xpub_WriteFileData(const char* path, const void* data, uint32 len);

/*
 * The temporary file of v2xpub_WriteFileData is named after the target: the
 * target's name, ".tmp" and six letters or digits. A write cut short by a
 * crash leaves it behind. Removes such files from dir (not from directories
 * below it) and logs each; call it at start-up, before anything writes there.
 * Returns the number removed, -1 when dir cannot be read, -2 for a null or
 * empty dir.
 */
int32 v2xpub_RemoveStaleTempFiles(const char* dir);

#ifdef __cplusplus
}
#endif

#endif
