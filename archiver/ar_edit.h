// Four of the commands: add, delete, replace (with update) and table of
// contents. Each edits the member list and, for the first three, ends by
// rewriting the archive.
#pragma once

#include "archiver/ar_archive.h"
#include "archiver/options.h"

void ar_add(ARCHIVE *ar, OPTIONS &options);
void ar_delete(ARCHIVE *ar, OPTIONS &options);
void ar_replace(ARCHIVE *ar, OPTIONS &options);
void ar_table(ARCHIVE *ar, OPTIONS &options);
