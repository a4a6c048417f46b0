// Fuzzes the command-file tokenizer, both as it reads a stream and as it
// cuts tokens out of a whole file in memory (the way the archiver reads
// one). Files that end inside a comment or a quote end the run by design;
// the hook brings the fuzzer back instead, and the tokenizer has freed its
// own buffer by then, so leak checking stays on.
#include <csetjmp>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "archiver/cmdfile.h"

static jmp_buf g_back;

static void back_to_fuzzer() { longjmp(g_back, 1); }

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  set_malformed_command_file_hook(back_to_fuzzer);
  FILE *stream = fmemopen(const_cast<uint8_t *>(data), size, "r");
  if (stream) {
    if (setjmp(g_back) == 0) {
      while (char *token = next_token(stream))
        free(token);
    }
    fclose(stream);
  }

  // Set before setjmp and not changed after it, so still valid after a jump.
  char *const copy = static_cast<char *>(malloc(size + 1));
  if (size > 0)
    memcpy(copy, data, size);
  if (setjmp(g_back) == 0) {
    COMMAND_TEXT text{copy, size, 0, 0};
    while (char *token = next_token(text))
      if (token < copy || token + strlen(token) > copy + size)
        abort();  // a token outside the text it was cut from
  }
  free(copy);
  return 0;
}
