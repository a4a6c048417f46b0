// Fuzzes the archive reader as "t" and "x" use it: magic, special members
// (with the old index loaded too), name table, member list, member data.
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <unistd.h>

#include "archiver/ar_archive.h"
#include "archiver/ar_copy.h"
#include "archiver/ar_read.h"

static void ignore_error(ARCHIVE *, int, const char *) {}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  static std::string path = [] {
    char name[] = "/tmp/arvela-fuzz-XXXXXX";
    close(mkstemp(name));
    return std::string(name);
  }();
  static FILE *sink = fopen("/dev/null", "wb");

  FILE *f = fopen(path.c_str(), "wb");
  fwrite(data, 1, size, f);
  fclose(f);

  ARCHIVE *ar = ar_create(path.c_str(), ignore_error, AR_READ);
  if (ar_test_magic(ar) && ar_read_special_members(ar, true) && ar_load_members(ar)) {
    for (AR_MEMBER *m = ar->head; m; m = m->next) {
      AR_MEMBER_DATA data;
      if (ar_open_member_data(ar, m, &data)) {
        if (ar_copy_data(data, sink, m->size, false) != 0)
          fputs("(short)", sink);
        ar_close_member_data(&data);
      }
    }
    for (AR_SYMBOL *s = ar->symbols_head; s; s = s->next)
      fputs(s->name, sink);
  }
  ar_destroy(ar);
  return 0;
}
