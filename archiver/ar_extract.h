// The extract command.
#pragma once

#include "archiver/ar_archive.h"
#include "archiver/options.h"

void ar_extract(ARCHIVE *ar, OPTIONS &options);
