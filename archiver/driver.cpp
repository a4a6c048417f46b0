#include "archiver/driver.h"

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <unistd.h>
#include <string>

#include "archiver/ar_edit.h"
#include "archiver/ar_extract.h"
#include "archiver/ar_read.h"
#include "archiver/banner.h"
#include "archiver/cmdfile.h"
#include "archiver/fatal_signal.h"
#include "archiver/report.h"
#include "archiver/run_cleanup.h"
#include "archiver/stdout_buffer.h"
#include "archiver/toolname.h"
#include "support/filename.h"
#include "support/regular_file.h"

// The one options record; it lives, with the operands the archive's members
// point to, until the process ends.
static OPTIONS g_options;

// The archive layer's failures: put the old archive back, then report.
// A write the system refused goes on to say which file and why, on a line
// of its own under the message.
static void archive_error(ARCHIVE *ar, int error_class, const char *text) {
  ar_emergency_cleanup(ar);
  std::string refusal = ar_write_refusal(ar, error_class);
  if (!refusal.empty())
    error("%s", (std::string(text) + "\n              " + refusal).c_str());
  error("%s", text);
}

void usage(bool full) {
  print_banner(stdout);
  printf("\n Syntax : %s [%s][%s][012] archive files ...\n", TOOL_EXE_NAME, TOOL_COMMAND_LETTERS,
         TOOL_OPTION_LETTERS);
  printf("          %s @command_file\n", TOOL_EXE_NAME);
  if (full) {
    printf("\n Commands : (only one may be selected)");
    printf("\n    a - Add file                   r - Replace file");
    printf("\n    x - Extract file               d - Delete file");
    printf("\n    t - Print table of contents\n");
    printf("\n Options :");
    printf("\n    q - Quiet mode - Normal status messages suppressed");
    printf("\n    u - Update with newer files (use with 'r' command)");
    printf("\n    s - Print symbol table contents");
    printf("\n    v - Verbose");
    printf("\n    h - This help\n");
    printf("\n Output format options:");
    printf("\n    0 - Original AR format");
    printf("\n    1 - QV long-name format (obsolescent)");
    printf("\n    2 - POSIX format (default for newly created files)\n\n");
  }
  exit(1);
}

// A listing or report that did not reach standard output (a full disk, a
// closed pipe) is a failed run, not an empty one.
static void check_standard_output() {
  if (!out_finish())
    error("cannot write standard output: %s", strerror(errno));
}

void scan_key_letters(const char *word, OPTIONS &options) {
  if (word && strcmp(word, "--toolversion") == 0) {
    print_version_report(stdout);
    check_standard_output();
    exit(0);
  }
  if (!word || !*word)
    usage(false);
  uint32_t commands = 0;
  for (const char *p = word; *p; p++) {
    switch (*p) {
    case '-': break;
    case 'a': case 'A': commands |= CMD_ADD; break;
    case 'd': case 'D': commands |= CMD_DELETE; break;
    case 'r': case 'R': commands |= CMD_REPLACE; break;
    case 't': case 'T': commands |= CMD_TABLE; break;
    case 'x': case 'X': commands |= CMD_EXTRACT; break;
    case 'u': case 'U': options.update = true; commands |= CMD_REPLACE; break;
    case 's': case 'S': options.symbols = true; break;
    case 'v': case 'V': options.verbose = true; break;
    case 'q': case 'Q': options.quiet = true; break;
    case '0': options.output_format = AR_FORMAT_ORIGINAL; break;
    case '1': options.output_format = AR_FORMAT_QV; break;
    case '2': options.output_format = AR_FORMAT_POSIX; break;
    case 'h': case '?': usage(true);
    default: error("bad option '%.1s'", p);
    }
  }
  if (commands == 0)
    usage(false);
  if (commands & (commands - 1))
    error("only one of [arxdt] allowed");
  options.command = commands;
}

void set_archive_name(OPTIONS &options, const char *name) {
  std::string n(name, strnlen(name, ARCHIVE_NAME_LIMIT));
  size_t dot = n.find_last_of('.');
  if (dot == std::string::npos || n.find_first_of("\\/", dot) != std::string::npos)
    n += ".lib";
  options.archive_name = n;
}

// Operands from a command file: options there are not honoured, only reported.
// The operand's text lives as long as the process (it is the command file's).
static void add_file(OPTIONS &options, char *operand) {
  if (operand[0] == '-') {
    out_printf("  -->  warning: option %s ignored in file list\n", operand);
    return;
  }
  options.files.push_back(operand);
}

// The whole file is read into memory and its tokens are cut out of it in
// place: a command file costs about its own size, however it is made up. A
// FIFO or device (which could give text without end) is refused.
static void scan_command_file(const char *path, OPTIONS &options) {
  REGULAR_FILE file;
  switch (open_regular_file(path, &file)) {
  case REGULAR_OK: break;
  case REGULAR_NOT_REGULAR: error("'%s' is not a regular file", path);
  default: error("cannot open '%s'", path);
  }
  // The text lives until the process ends: the operands point into it (held
  // here too, so that a run that kept no operand does not count it lost).
  static COMMAND_TEXT text;
  text = read_command_text(file.fd, static_cast<size_t>(file.st.st_size));
  close(file.fd);
  if (!text.data)
    error("cannot open '%s'", path);
  char *key_letters = next_token(text);
  char *archive = key_letters ? next_token(text) : nullptr;
  if (!archive)
    usage(false);
  set_archive_name(options, archive);
  scan_key_letters(key_letters, options);
  while (char *token = next_token(text)) {
    spell_path_in_place(token);
    add_file(options, token);
  }
}

void scan_arguments(int argc, char **argv, OPTIONS &options) {
  if (argc < 2)
    usage(false);
  const char *first = argv[1];
  if (first[0] == '@' || (first[0] == '-' && first[1] == '@')) {
    scan_command_file(first + (first[0] == '@' ? 1 : 2), options);
    return;
  }
  scan_key_letters(first, options);
  if (argc < 3)
    error("must specify an archive");
  set_archive_name(options, argv[2]);
  for (int i = 3; i < argc; i++)
    options.add_operand(spell_path(argv[i]));
}

// A standard stream the run was started without would be the next file
// opened, and status lines would be written into a library: each such
// descriptor is taken by /dev/null first (open gives the lowest free one,
// and those below it are open by then).
static void occupy_standard_descriptors() {
  for (int fd = 0; fd <= 2; fd++)
    if (fcntl(fd, F_GETFD) < 0 && open("/dev/null", O_RDWR) < 0)
      return;
}

// Runs the command the options select.
static void dispatch(ARCHIVE *ar, OPTIONS &options) {
  switch (options.command) {
  case CMD_ADD: ar_add(ar, options); break;
  case CMD_DELETE: ar_delete(ar, options); break;
  case CMD_REPLACE: ar_replace(ar, options); break;
  case CMD_TABLE: ar_table(ar, options); break;
  case CMD_EXTRACT: ar_extract(ar, options); break;
  default: break;
  }
}

int run_archiver(int argc, char **argv) {
  occupy_standard_descriptors();
  install_fatal_signal_handlers();
  set_error_cleanup([] { clean_up_run(false); });
  atexit(out_flush);
  OPTIONS &options = g_options;
  scan_arguments(argc, argv, options);
  const char *name = options.archive_name.c_str();

  bool writes = options.command == CMD_ADD || options.command == CMD_REPLACE || options.command == CMD_DELETE;
  ARCHIVE *ar = ar_create(name, archive_error, writes ? AR_WRITE : AR_READ);
  set_run_archive(ar);
  // A FIFO would hold the run forever, a device or pseudo-file would be read
  // as an endless or empty library: only a plain file is an archive.
  if (ar->open_result == AR_OPEN_NOT_REGULAR)
    error("'%s' is not a regular file", name);
  bool may_be_new = options.command == CMD_ADD || options.command == CMD_REPLACE;
  if (ar->open_result == AR_OPEN_UNREADABLE || (!may_be_new && ar->open_result == AR_OPEN_MISSING))
    error("cannot open archive: '%s'", name);
  if (!may_be_new && !ar_test_magic(ar))
    error("'%s' is not an archive", name);
  check_reported(ar_read_special_members(ar, false) && ar_load_members(ar));

  dispatch(ar, options);

  bool unfound = false;
  for (const char *f : options.files)
    if (f) {
      out_flush();
      fprintf(stderr, "  -->  error: '%s' not found\n", f);
      unfound = true;
    }
  check_standard_output();
  return unfound ? 1 : 0;
}
