#include "archiver/fatal_signal.h"

#include <csignal>
#include <cstring>
#include <unistd.h>

#include "archiver/run_cleanup.h"
#include "archiver/stdout_buffer.h"
#include "support/ending_signals.h"

namespace {

// write(2) only: the handler may run in the middle of anything, stdio included.
void say(const char *text) {
  size_t n = strlen(text);
  while (n > 0) {
    ssize_t w = write(STDERR_FILENO, text, n);
    if (w <= 0)
      return;
    text += w;
    n -= static_cast<size_t>(w);
  }
}

const char *fault_description(int signal_number) {
  switch (signal_number) {
  case SIGILL: return "executed an illegal instruction";
  case SIGFPE: return "received a floating point exception";
  case SIGSEGV: return "experienced a segmentation fault";
  case SIGABRT: return "aborted";
  default: return nullptr;
  }
}

void fatal_signal(int signal_number) {
  const char *fault = fault_description(signal_number);
  if (signal_number == SIGTERM) {
    say("[received a terminate signal]\n");
    out_flush_from_signal();
  } else if (fault) {
    say("\nINTERNAL ERROR: ");
    say(fault);
    say("\n");
    out_flush_from_signal();
    say("\n\n");
    say("This is a serious problem.  Please contact Customer\n"
        "Support with this message and a copy of the input file\n"
        "and help us to continue to make the tools more robust.\n\n");
  } else if (signal_number != SIGPIPE) {
    out_flush_from_signal();  // a broken pipe would only raise it again
  }
  clean_up_run(true);
  if (signal_number == SIGTERM || fault)
    _exit(1);
  // The default action, now that the handler is gone (SA_RESETHAND).
  signal(signal_number, SIG_DFL);
  sigset_t only;
  sigemptyset(&only);
  sigaddset(&only, signal_number);
  sigprocmask(SIG_UNBLOCK, &only, nullptr);
  raise(signal_number);
  _exit(128 + signal_number);  // a default action that did not end the process
}

}  // namespace

void install_fatal_signal_handlers() {
  struct sigaction action;
  memset(&action, 0, sizeof action);
  action.sa_handler = fatal_signal;
  // One clean-up at a time: a second signal waits until the first is done.
  sigfillset(&action.sa_mask);
  // A fault inside the handler itself must not loop.
  action.sa_flags = SA_RESETHAND;
  ignore_file_size_signal();
  for (int s : ENDING_SIGNALS) {
    // The five with their own report are caught even when ignored.
    bool reported = s == SIGTERM || fault_description(s);
    struct sigaction old;
    if (!reported && sigaction(s, nullptr, &old) == 0 && old.sa_handler == SIG_IGN)
      continue;
    sigaction(s, &action, nullptr);
  }
}
