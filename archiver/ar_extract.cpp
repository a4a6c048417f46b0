// Extraction. Creating a file is most of what extracting a small member
// costs, nearly all of it kernel work that two processors can do side by
// side. So where there are many members and a second processor, a helper
// thread creates and writes files ahead of their turn while the main thread
// does the same further on, and the main thread accepts each file in member
// order: it prints its status line then, and whatever the fast way left
// undone (a name that already exists, a failed write, a large member, a name
// that another member shares) it does itself at that point the one-at-a-time
// way. Messages, their order and the files left behind, by an error or a
// signal too, are those of extracting one member after another: files made
// ahead of a member that stops the run are removed.
#include <algorithm>
#include <atomic>
#include <cctype>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <memory>
#include <pthread.h>
#include <sched.h>
#include <signal.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>
#include <unordered_map>
#include <vector>

#include "archiver/ar_edit.h"
#include "archiver/ar_match.h"
#include "archiver/file_window.h"
#include "archiver/stdout_buffer.h"
#include "support/filename.h"
#include "support/replacement_file.h"

static bool write_all(int fd, const char *p, uint64_t n) {
  while (n > 0) {
    ssize_t w = write(fd, p, n);
    if (w < 0 && errno == EINTR)
      continue;
    if (w <= 0)
      return false;
    p += w;
    n -= static_cast<uint64_t>(w);
  }
  return true;
}

// The member's bytes into the new file: straight from memory when they are
// there, else through a stream (and the kernel's copy, for large members).
static void write_extracted(ARCHIVE *ar, AR_MEMBER *m, int fd, const char *path, bool verbose) {
  AR_MEMBER_DATA data;
  check_reported(ar_open_member_data(ar, m, &data));
  FILE *out = nullptr;
  if (!data.memory) {
    int dup_fd = dup(fd);
    out = dup_fd >= 0 ? fdopen(dup_fd, "wb") : nullptr;
    if (!out)
      error("cannot create '%s'", path);
  }
  if (verbose)
    status("extract", path);
  if (!out) {
    if (!write_all(fd, data.memory, m->size))
      error("write error");
    ar_close_member_data(&data);
    return;
  }
  int result = ar_copy_data(data, out, m->size, false);
  if (result == AR_ERR_WRITE)
    error("write error");
  if (result == AR_ERR_READ)
    error("read error");
  ar_close_member_data(&data);
  if (fclose(out) != 0)
    error("write error");
}

// Signals held back while a file is being created: one that came then would
// find the file not yet recorded as made by this run, and leave it behind.
class SIGNAL_HOLD {
public:
  SIGNAL_HOLD() { sigfillset(&all_); }
  ~SIGNAL_HOLD() { release(); }
  SIGNAL_HOLD(const SIGNAL_HOLD &) = delete;
  SIGNAL_HOLD &operator=(const SIGNAL_HOLD &) = delete;

  void hold() {
    if (!on_)
      pthread_sigmask(SIG_BLOCK, &all_, &old_);
    on_ = true;
    files_ = 0;
  }
  void release() {
    if (on_)
      pthread_sigmask(SIG_SETMASK, &old_, nullptr);
    on_ = false;
  }
  // Held over a few files at a time when many are made in a row (two system
  // calls a file would cost more than the kernel's copy of a small member):
  // every few files the held signals are let through.
  void before_file() {
    if (on_ && ++files_ < FILES)
      return;
    release();
    hold();
  }

private:
  static constexpr unsigned FILES = 16;
  sigset_t all_, old_;
  bool on_ = false;
  unsigned files_ = 0;
};

// A new file at `path`, or -1 where anything at all stands there: O_EXCL
// never follows a link.
static int create_new(const char *path) {
  return open(path, O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC | O_NOCTTY, 0666);
}

// Where nothing stands at the output path yet (the common case), the file is
// created there directly, so nothing needs looking at first. Until it is
// complete the file is recorded as the one to remove (in the shape of a
// replacement's temporary name), so a failure or a signal removes it.
static bool create_in_place(REPLACEMENT_FILE *output, const char *path) {
  size_t length = strlen(path);
  if (length >= sizeof output->temp_path)
    return false;
  int fd = create_new(path);
  if (fd < 0)
    return false;
  memcpy(output->temp_path, path, length + 1);
  output->fd = fd;
  output->replaced = false;
  return true;
}

// Otherwise the extraction writes a new file beside the output path and
// renames it over the name: whatever stood there (a symbolic link planted to
// lead elsewhere, say) is replaced, never written through, and a failed or
// interrupted extraction leaves no partial file.
static void extract_member(ARCHIVE *ar, AR_MEMBER *m, const char *path, bool verbose) {
  static REPLACEMENT_FILE output;
  SIGNAL_HOLD hold;
  hold.hold();
  bool in_place = create_in_place(&output, path);
  if (in_place)
    ar->extracting = &output;
  hold.release();
  if (!in_place) {
    // Renaming over the archive (or a link to it) would replace the library.
    struct stat st;
    if (ar_is_archive_file(ar, path, &st))
      error("cannot extract over the archive itself: '%s'", path);
    if (S_ISDIR(st.st_mode) || !replacement_create(&output, path))
      error("cannot create '%s'", path);
  }
  ar->extracting = &output;
  write_extracted(ar, m, output.fd, path, verbose);
  // The new file already has the mode a file opened by name gets (the mask
  // or the directory's default access list applied to 0666).
  if (in_place)
    output.temp_path[0] = '\0';  // complete: it stays
  else if (!replacement_commit(&output, path))
    error("cannot create '%s'", path);
  ar->extracting = nullptr;
  replacement_close(&output);
}

// --- Creating files ahead of their turn

namespace {

// How far past the next member to accept files may be made ahead: bounds
// what an early stop has to remove.
constexpr size_t AHEAD_WINDOW = 64;
// Below this many members that may go ahead a second thread does not pay
// for itself.
constexpr size_t AHEAD_MIN_MEMBERS = 32;

enum JOB_STATE : uint8_t {
  JOB_FREE,             // nobody has taken it yet
  JOB_SERIAL,           // only the one-at-a-time way, at its turn
  JOB_CREATING_MAIN,    // being created by the main thread
  JOB_CREATING_HELPER,  // being created by the helper
  JOB_WRITING,          // its file exists, made by this run, being written
  JOB_DONE,             // its file is complete
  JOB_FAILED,           // nothing was left behind; to be done again at its turn
  JOB_ACCEPTED,
};

thread_local bool on_helper = false;

}  // namespace

struct AR_EXTRACT_AHEAD {
  std::vector<AR_MEMBER *> members;  // in member order; each is its own path
  std::unique_ptr<std::atomic<uint8_t>[]> state;
  std::atomic<size_t> accepted{0};   // members before this one are accepted
  std::atomic<bool> stop{false};
  int source_fd = -1;                // the archive's, duplicated: each thread maps its own window
  uint64_t source_size = 0;
  pthread_t helper{};
  bool has_helper = false;
  bool abandoned = false;            // cleaned up; kept until the run ends
};

// Creates and writes member `j`'s file where nothing stands at its name yet,
// reading the member through the calling thread's own window of the archive;
// false, with nothing left behind, when that does not work out.
static bool extract_fast(AR_EXTRACT_AHEAD *x, size_t j, FILE_WINDOW *window) {
  const AR_MEMBER *m = x->members[j];
  const char *data = window_view(window, x->source_fd, x->source_size, m->data_offset, m->size);
  if (!data)
    return false;
  int fd = create_new(m->name);
  if (fd < 0)
    return false;
  x->state[j].store(JOB_WRITING);
  bool ok = write_all(fd, data, m->size);
  ok = close(fd) == 0 && ok;
  if (!ok)
    unlink(m->name);
  return ok;
}

// Takes member `j` if nobody has, and makes its file; false when it was
// taken and could not be made.
static bool take(AR_EXTRACT_AHEAD *x, size_t j, uint8_t creating, FILE_WINDOW *window) {
  uint8_t expected = JOB_FREE;
  if (!x->state[j].compare_exchange_strong(expected, creating))
    return true;
  // Checked after taking it: a clean-up that stops the run either sees the
  // member taken (and waits for its file) or is seen here.
  if (x->stop.load()) {
    x->state[j].store(JOB_FREE);
    return true;
  }
  bool made = extract_fast(x, j, window);
  x->state[j].store(made ? JOB_DONE : JOB_FAILED);
  return made;
}

static void pause_briefly(unsigned &idle) {
  if (idle++ < 64) {
    sched_yield();
    return;
  }
  struct timespec wait = {0, 50 * 1000};
  nanosleep(&wait, nullptr);
}

static void *helper_main(void *argument) {
  on_helper = true;
  auto *x = static_cast<AR_EXTRACT_AHEAD *>(argument);
  FILE_WINDOW window;
  unsigned idle = 0;
  for (size_t j = 0; !x->stop.load();) {
    size_t first = x->accepted.load();
    j = std::max(j, first);
    if (j >= x->members.size())
      break;
    if (j >= first + AHEAD_WINDOW) {
      pause_briefly(idle);
      continue;
    }
    idle = 0;
    take(x, j++, JOB_CREATING_HELPER, &window);
  }
  window_release(&window);
  return nullptr;
}

// The key a case-insensitive directory would file a name under (ASCII
// letters folded); names that share a key are treated as one. None for a
// name beyond plain ASCII: such a directory may fold it onto any other
// (a Kelvin sign onto "k").
static bool folded_key(const char *name, uint64_t *key) {
  uint64_t hash = 14695981039346656037ull;
  for (const unsigned char *p = reinterpret_cast<const unsigned char *>(name); *p; p++) {
    if (*p >= 0x80)
      return false;
    hash = (hash ^ static_cast<unsigned char>(tolower(*p))) * 1099511628211ull;
  }
  *key = hash;
  return true;
}

// Which members may have their files made in any order: small ones (read
// whole) under a name that no other member shares, case ignored. Every
// member of a shared name, the first one met included, waits for its turn,
// so that each replaces the one before it in list order. A name beyond plain
// ASCII might share its file with any other, so then none goes ahead.
static std::vector<bool> members_ahead(const std::vector<AR_MEMBER *> &members) {
  std::vector<uint64_t> keys(members.size());
  std::unordered_map<uint64_t, uint32_t> uses;
  uses.reserve(members.size());
  for (size_t j = 0; j < members.size(); j++) {
    if (!folded_key(members[j]->name, &keys[j]))
      return std::vector<bool>(members.size(), false);
    uses[keys[j]]++;
  }
  std::vector<bool> ahead(members.size());
  for (size_t j = 0; j < members.size(); j++)
    ahead[j] = members[j]->size <= AR_SMALL_MEMBER && !members[j]->source_file && uses[keys[j]] == 1;
  return ahead;
}

static bool second_processor() {
  cpu_set_t set;
  return sched_getaffinity(0, sizeof set, &set) == 0 && CPU_COUNT(&set) >= 2;
}

// Sets the extraction up with its helper; null where it would not pay.
static AR_EXTRACT_AHEAD *start_ahead(ARCHIVE *ar, std::vector<AR_MEMBER *> &members) {
  if (members.size() < AHEAD_MIN_MEMBERS || !ar->source.file || !second_processor())
    return nullptr;
  std::unique_ptr<std::atomic<uint8_t>[]> state(new std::atomic<uint8_t>[members.size()]);
  std::vector<bool> ahead = members_ahead(members);
  size_t may = 0;
  for (size_t j = 0; j < members.size(); j++) {
    state[j].store(ahead[j] ? JOB_FREE : JOB_SERIAL);
    may += ahead[j];
  }
  FILE *s = may >= AHEAD_MIN_MEMBERS ? managed_stream(ar->source.file) : nullptr;
  int fd = s ? dup(fileno(s)) : -1;
  struct stat st;
  if (fd < 0 || fstat(fd, &st) != 0) {
    if (fd >= 0)
      close(fd);
    return nullptr;
  }
  auto *x = new AR_EXTRACT_AHEAD;
  x->source_fd = fd;
  x->source_size = static_cast<uint64_t>(st.st_size);
  x->members.swap(members);
  x->state = std::move(state);
  ar->extract_ahead = x;
  // Signals are for the main thread alone: the helper starts with all blocked.
  SIGNAL_HOLD hold;
  hold.hold();
  x->has_helper = pthread_create(&x->helper, nullptr, helper_main, x) == 0;
  return x;
}

static void finish_ahead(ARCHIVE *ar, AR_EXTRACT_AHEAD *x) {
  x->stop.store(true);
  if (x->has_helper)
    pthread_join(x->helper, nullptr);
  close(x->source_fd);
  ar->extract_ahead = nullptr;
  delete x;
}

// The main thread holds signals back while it makes files, and lets them
// through before anything else: a status line, a member done the
// one-at-a-time way, a wait. The file-size limit's signal belongs to the
// member whose write crosses the limit, at its turn: a write ahead that fails takes its signal back, and the
// member is written again at its turn, the signal let through.
static void extract_ahead(ARCHIVE *ar, AR_EXTRACT_AHEAD *x, bool verbose) {
  FILE_WINDOW window;
  SIGNAL_HOLD hold;
  sigset_t size_signal;
  sigemptyset(&size_signal);
  sigaddset(&size_signal, SIGXFSZ);
  auto make = [&](size_t j) {
    hold.before_file();
    if (!take(x, j, JOB_CREATING_MAIN, &window)) {
      struct timespec now = {0, 0};
      while (sigtimedwait(&size_signal, nullptr, &now) == SIGXFSZ) {
      }
    }
  };
  size_t count = x->members.size(), ahead = 0;
  unsigned idle = 0;
  for (size_t i = 0; i < count;) {
    AR_MEMBER *m = x->members[i];
    uint8_t s = x->state[i].load();
    if (s == JOB_FREE) {
      make(i);
      continue;
    }
    if (s == JOB_DONE || s == JOB_FAILED || s == JOB_SERIAL) {
      if (s != JOB_DONE || verbose)
        hold.release();
      if (s != JOB_DONE)
        extract_member(ar, m, m->name, verbose);
      else if (verbose)
        status("extract", m->name);
      x->state[i].store(JOB_ACCEPTED);
      x->accepted.store(++i);
      idle = 0;
      continue;
    }
    // The helper is making this one: meanwhile make one further on.
    ahead = std::max(ahead, i + 1);
    while (ahead < count && ahead < i + AHEAD_WINDOW && x->state[ahead].load() != JOB_FREE)
      ahead++;
    if (ahead < count && ahead < i + AHEAD_WINDOW) {
      make(ahead++);
    } else {
      hold.release();
      pause_briefly(idle);
    }
  }
  window_release(&window);
}

void ar_extract_abandon(ARCHIVE *ar, bool from_signal) {
  AR_EXTRACT_AHEAD *x = ar->extract_ahead;
  if (!x || x->abandoned)
    return;
  x->stop.store(true);
  if (!from_signal && x->has_helper) {
    pthread_join(x->helper, nullptr);
    x->has_helper = false;
  }
  size_t first = x->accepted.load();
  size_t end = std::min(x->members.size(), first + AHEAD_WINDOW);
  for (size_t j = first; j < end; j++) {
    uint8_t s;
    // A file the helper is creating now is waited for, so that it is not
    // made after this look. (A fault on the helper itself cannot wait for it.)
    while ((s = x->state[j].load()) == JOB_CREATING_HELPER && !on_helper)
      sched_yield();
    if (s == JOB_WRITING || s == JOB_DONE) {
      unlink(x->members[j]->name);
      x->state[j].store(JOB_FAILED);
    }
  }
  // The run ends now; the main thread may still be inside the extraction.
  x->abandoned = true;
}

void ar_extract(ARCHIVE *ar, OPTIONS &options) {
  OPERAND_MATCHER matcher(options);
  bool by_member_name = options.files.empty();
  std::vector<AR_MEMBER *> members;
  std::vector<const char *> paths;
  AR_MEMBER *unsafe = nullptr;
  for (AR_MEMBER *m = ar->head; m; m = m->next) {
    const char *path = matcher.match(m->name);
    if (!path)
      continue;
    // A name from the archive must not lead the file anywhere but here.
    if (by_member_name && (strchr(m->name, '/') || strcmp(m->name, ".") == 0 || strcmp(m->name, "..") == 0)) {
      unsafe = m;
      break;
    }
    members.push_back(m);
    paths.push_back(path);
  }
  AR_EXTRACT_AHEAD *x = by_member_name ? start_ahead(ar, members) : nullptr;
  if (x) {
    extract_ahead(ar, x, options.verbose);
    finish_ahead(ar, x);
  } else {
    for (size_t j = 0; j < members.size(); j++)
      extract_member(ar, members[j], paths[j], options.verbose);
  }
  if (unsafe)
    error("unsafe member name '%s'", printable(unsafe->name).c_str());
}
