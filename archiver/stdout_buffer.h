// Standard output of the commands, kept in a buffer of our own rather than
// in stdio's: a signal handler can then flush it with write(2), which it may
// call, where fflush is not safe to call from a handler.
#pragma once

#include <cstddef>
#include <string>

#include "support/printable.h"

// Appends formatted text; flushed when the buffer fills, at exit, or at once
// when standard output is a terminal.
void out_printf(const char *format, ...) __attribute__((format(printf, 1, 2)));

// Appends text as it stands.
void out_write(const char *text, size_t length);

// Appends the text as printable() gives it.
void out_write_printable(const char *text);

// Writes out what the buffer holds.
void out_flush();

// The same, for a signal handler: write(2) only.
void out_flush_from_signal();

// Writes out what this buffer and stdio's hold; false, with errno saying
// why, when any text meant for standard output was lost on the way.
[[nodiscard]] bool out_finish();

