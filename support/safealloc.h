// Allocation that never returns null: running out of memory ends the process
// with "ERROR: out of memory" and status 1, so callers need no null checks.
#pragma once

#include <cstddef>

void *safe_malloc(size_t size);
// A null pointer allocates, as realloc does.
void *safe_realloc(void *pointer, size_t size);
