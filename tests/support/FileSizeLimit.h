// Runs a piece of a test in a forked child process under a file-size limit (RLIMIT_FSIZE), with SIGXFSZ
// ignored so that a write past the limit fails with EFBIG instead of killing the process: the way a full
// quota or a small file-size limit looks to the library. The limit never touches the test process itself.
#pragma once

#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <functional>

namespace pxtest {

// Runs body in a child process whose files may grow to at most `bytes` bytes and returns the child's exit
// code: body's result (0..255), 254 when the limit could not be set, 255 when the child did not exit
// normally. The child leaves with _exit, so neither its test framework state nor its buffers reach the
// parent.
inline int inChildWithFileSizeLimit(rlim_t bytes, const std::function<int()> &body) {
    const pid_t child = fork();
    if (child == 0) {
        std::signal(SIGXFSZ, SIG_IGN);
        const rlimit limit{bytes, bytes};
        if (setrlimit(RLIMIT_FSIZE, &limit) != 0)
            _exit(254);
        _exit(body() & 0xFF);
    }
    int status = 0;
    if (child < 0 || waitpid(child, &status, 0) != child || !WIFEXITED(status))
        return 255;
    return WEXITSTATUS(status);
}

} // namespace pxtest
