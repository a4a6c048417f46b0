// The archiver's start-to-exit sequence and the pieces of it that both the
// command line and command files go through.
#pragma once

#include "archiver/ar_archive.h"
#include "archiver/options.h"

// Prints the usage (the full help when `full`) and exits with status 1.
[[noreturn]] void usage(bool full);

// Scans the key-letter word into the options. Handles "--toolversion", help
// and every key-letter error itself.
void scan_key_letters(const char *word, OPTIONS &options);

// Copies at most 495 characters of `name` and appends ".lib" unless the
// name's last component already has an extension.
void set_archive_name(OPTIONS &options, const char *name);

// Fills the options from the command line (or the command file it names).
void scan_arguments(int argc, char **argv, OPTIONS &options);

// The whole run; returns the exit status.
[[nodiscard]] int run_archiver(int argc, char **argv);
