// Fuzzes the command-file tokenizer. Files that end inside a comment or a
// quote end the run by design; the hook brings the fuzzer back instead.
#include <csetjmp>
#include <cstdint>
#include <cstdio>
#include <cstdlib>

#include "archiver/cmdfile.h"

static jmp_buf g_back;

static void back_to_fuzzer() { longjmp(g_back, 1); }

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  set_malformed_command_file_hook(back_to_fuzzer);
  FILE *stream = fmemopen(const_cast<uint8_t *>(data), size, "r");
  if (!stream)
    return 0;
  if (setjmp(g_back) == 0) {
    while (char *token = next_token(stream))
      free(token);
  }
  fclose(stream);
  return 0;
}
