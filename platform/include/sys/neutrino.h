/* Kernel calls: I/O privileges and scheduling parameters. */
#ifndef SYS_NEUTRINO_H
#define SYS_NEUTRINO_H

#include <sched.h>
#include <sys/types.h>

#include <platform_export.h>

#ifdef __cplusplus
extern "C" {
#endif

#define _NTO_TCTL_IO 1

/* Requests I/O privileges for the calling thread. Returns 0, or -1 with errno (EINVAL: unknown command). */
PLATFORM_API int ThreadCtl(int command, void* data);

/*
 * Scheduling policy and parameters of a thread; pid 0 and tid 0 mean the caller's. Returns the policy, or -1
 * with errno (EINVAL: null parameters, ESRCH: no such thread). Thread-safety: any thread.
 */
PLATFORM_API int SchedGet(pid_t pid, int tid, struct sched_param* parameters);

#ifdef __cplusplus
}
#endif
#endif
