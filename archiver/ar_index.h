// The symbol index, built from the members by the writer.
#pragma once

#include "archiver/ar_archive.h"

// Fills the symbol index from the members (run by the writer).
[[nodiscard]] bool build_symbol_index(ARCHIVE *ar);
