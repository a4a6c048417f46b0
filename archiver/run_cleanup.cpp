#include "archiver/run_cleanup.h"

#include "archiver/ar_extract_ahead.h"
#include "archiver/ar_extract_member.h"

// Read by the signal handler: set once, before anything needs undoing.
static ARCHIVE *g_archive = nullptr;

void set_run_archive(ARCHIVE *ar) { g_archive = ar; }

void clean_up_run(bool from_signal) {
  if (!g_archive)
    return;
  ar_emergency_cleanup(g_archive, from_signal);
  ar_extract_abandon(g_archive, from_signal);
  ar_extract_member_abandon(g_archive, from_signal);
}
