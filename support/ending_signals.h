// The signals whose default action ends the process and which a handler may
// catch. Whatever writes a replacement file removes it on each of them
// before the process ends, so a run stopped from outside leaves no debris.
#pragma once

#include <csignal>

// SIGXFSZ is not among them: a tool ignores it (ignore_file_size_signal), so
// that a write past the file-size limit fails with EFBIG and is reported as
// the write error it is, where the default action would end the run
// without a word.
inline constexpr int ENDING_SIGNALS[] = {SIGILL,  SIGABRT, SIGFPE,  SIGSEGV, SIGTERM,   SIGHUP,  SIGINT,
                                         SIGQUIT, SIGPIPE, SIGBUS,  SIGTRAP, SIGSYS,    SIGALRM, SIGUSR1,
                                         SIGUSR2, SIGXCPU, SIGVTALRM, SIGPROF, SIGSTKFLT, SIGPOLL, SIGPWR};

inline void ignore_file_size_signal() { signal(SIGXFSZ, SIG_IGN); }
