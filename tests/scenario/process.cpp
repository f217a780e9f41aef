#include "process.h"

#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

Process::Process(const std::vector<std::string>& argv, const std::vector<std::string>& environment,
                 const std::string& outFile, const std::string& errFile) {
    std::vector<char*> arguments;
    for (const std::string& argument : argv) {
        arguments.push_back(const_cast<char*>(argument.c_str()));
    }
    arguments.push_back(nullptr);
    m_pid = fork();
    if (m_pid == 0) {
        prctl(PR_SET_PDEATHSIG, SIGKILL); // ends with the test
        for (const std::string& variable : environment) {
            putenv(const_cast<char*>(variable.c_str()));
        }
        dup2(open(outFile.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644), STDOUT_FILENO);
        dup2(open(errFile.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644), STDERR_FILENO);
        execv(arguments[0], arguments.data());
        _exit(127);
    }
}

Process::~Process() {
    if (!m_ended) {
        signal(SIGKILL);
        wait(10000);
    }
}

void Process::signal(int sig) const {
    if (!m_ended && m_pid > 0) {
        kill(m_pid, sig);
    }
}

bool Process::stop() {
    signal(SIGSTOP);
    const bool isTold = eventually([&] { return waitpid(m_pid, &m_status, WNOHANG | WUNTRACED) == m_pid; });
    m_ended = isTold && !WIFSTOPPED(m_status);
    return isTold && !m_ended;
}

int Process::wait(int milliseconds) {
    m_ended = m_ended || eventually([&] { return waitpid(m_pid, &m_status, WNOHANG) == m_pid; }, milliseconds);
    if (!m_ended) {
        return -1;
    }
    return WIFEXITED(m_status) ? WEXITSTATUS(m_status) : 128 + WTERMSIG(m_status);
}
