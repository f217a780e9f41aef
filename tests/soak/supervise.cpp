#include "supervise.h"

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include "log_faults.h"
#include "process.h"

namespace {

constexpr int PASSED_ON[] = {SIGINT, SIGQUIT, SIGTERM, SIGHUP};

// Waits also for the child's children that are left when it has ended.
int waitForAll(pid_t child, const sigset_t& awaited) {
    int status = 0;
    bool isRunning = true;
    for (;;) {
        int ended = 0;
        const pid_t pid = waitpid(-1, &ended, WNOHANG);
        if (pid == child) {
            status = ended;
            isRunning = false;
        } else if (pid < 0 && errno == ECHILD) {
            return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
        } else if (pid == 0) {
            const int sig = sigwaitinfo(&awaited, nullptr);
            if (isRunning && sig > 0 && sig != SIGCHLD) {
                kill(child, sig);
            }
        }
    }
}

} // namespace

int supervise(Program program, int argc, char** argv) {
    sigset_t awaited;
    sigset_t before;
    sigemptyset(&awaited);
    sigaddset(&awaited, SIGCHLD);
    for (const int sig : PASSED_ON) {
        sigaddset(&awaited, sig);
    }
    sigprocmask(SIG_BLOCK, &awaited, &before);
    prctl(PR_SET_CHILD_SUBREAPER, 1);
    const TempFolder base;
    const pid_t child = fork();
    if (child == 0) {
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        sigprocmask(SIG_SETMASK, &before, nullptr);
        setenv("TMPDIR", base.path().c_str(), 1);
        exit(program(argc, argv)); // leaves the folder to the parent
    }
    const int status = child > 0 ? waitForAll(child, awaited) : 1;
    setAllWritable(base.path());
    return status;
}
