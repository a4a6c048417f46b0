// The signals whose default action ends the process and which a handler may
// catch. Whatever writes a replacement file removes it on each of them
// before the process ends, so a run stopped from outside leaves no debris.
#pragma once

#include <csignal>

inline constexpr int ENDING_SIGNALS[] = {SIGILL,  SIGABRT, SIGFPE,  SIGSEGV, SIGTERM,   SIGHUP,  SIGINT,
                                         SIGQUIT, SIGPIPE, SIGBUS,  SIGTRAP, SIGSYS,    SIGALRM, SIGUSR1,
                                         SIGUSR2, SIGXCPU, SIGXFSZ, SIGVTALRM, SIGPROF, SIGSTKFLT, SIGPOLL,
                                         SIGPWR};
