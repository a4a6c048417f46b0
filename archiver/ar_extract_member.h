// Extracting one member at its turn, and the pieces of it that making files
// ahead of their turn shares.
#pragma once

#include <cstdint>
#include <pthread.h>
#include <signal.h>

#include "archiver/ar_archive.h"

// Signals held back while a file is being created: one that came then would
// find the file not yet recorded as made by this run, and leave it behind.
class SIGNAL_HOLD {
public:
  SIGNAL_HOLD() { sigfillset(&all_); }
  ~SIGNAL_HOLD() { release(); }
  SIGNAL_HOLD(const SIGNAL_HOLD &) = delete;
  SIGNAL_HOLD &operator=(const SIGNAL_HOLD &) = delete;

  void hold() {
    if (!on_)
      pthread_sigmask(SIG_BLOCK, &all_, &old_);
    on_ = true;
    files_ = 0;
  }
  void release() {
    if (on_)
      pthread_sigmask(SIG_SETMASK, &old_, nullptr);
    on_ = false;
  }
  // Held over a few files at a time when many are made in a row (two system
  // calls a file would cost more than the kernel's copy of a small member):
  // every few files the held signals are let through.
  void before_file() {
    if (on_ && ++files_ < FILES)
      return;
    release();
    hold();
  }

private:
  static constexpr unsigned FILES = 16;
  sigset_t all_, old_;
  bool on_ = false;
  unsigned files_ = 0;
};

// Writes all `n` bytes; false on a failed write.
[[nodiscard]] bool write_all(int fd, const char *p, uint64_t n);

// A new file at `path`, or -1 where anything at all stands there: O_EXCL
// never follows a link.
[[nodiscard]] int create_new(const char *path);

// Extracts member `m` to `path`, replacing whatever stands there, with the
// "extract" status line when `verbose`; every failure goes to the error
// routine.
void extract_member(ARCHIVE *ar, AR_MEMBER *m, const char *path, bool verbose);

// Removes the file an extraction is writing; from a signal handler, without
// closing it.
void ar_extract_member_abandon(ARCHIVE *ar, bool from_signal);
