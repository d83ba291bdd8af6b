// Kernel calls and atomic words.
#include <atomic.h>
#include <sys/neutrino.h>

#include <unistd.h>
#include <cerrno>
#include <csignal>

// Nothing here needs privileges beyond a process's own, so the request is granted as it stands.
int ThreadCtl(int command, void*) {
    if (command == _NTO_TCTL_IO) return 0;
    errno = EINVAL;
    return -1;
}

int SchedGet(pid_t pid, int tid, sched_param* parameters) {
    if (!parameters || pid < 0 || tid < 0) {
        errno = EINVAL;
        return -1;
    }
    const pid_t process = pid ? pid : getpid();
    const pid_t thread = tid ? tid : pid ? pid : gettid();
    if (tgkill(process, thread, 0) != 0 && errno != EPERM) return -1;  // ESRCH: no such thread in the process
    if (sched_getparam(thread, parameters) != 0) return -1;
    return sched_getscheduler(thread);
}

unsigned atomic_add_value(volatile unsigned* word, unsigned value) {
    return __atomic_fetch_add(word, value, __ATOMIC_SEQ_CST);
}
