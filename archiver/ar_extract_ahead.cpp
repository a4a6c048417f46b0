// Making files ahead of their turn. Creating a file is most of what
// extracting a small member costs, nearly all of it kernel work that two
// processors can do side by side. So where there are many members and a
// second processor, a helper thread creates and writes files ahead of their
// turn while the main thread does the same further on, and the main thread
// accepts each file in member order: it prints its status line then, and
// whatever the fast way left undone (a name that already exists, a failed
// write, a large member, a name that another member shares) it does itself at
// that point the one-at-a-time way. Messages, their order and the files left
// behind, by an error or a signal too, are those of extracting one member
// after another: files made ahead of a member that stops the run are removed.
#include "archiver/ar_extract_ahead.h"

#include <algorithm>
#include <atomic>
#include <cctype>
#include <cstdint>
#include <memory>
#include <pthread.h>
#include <sched.h>
#include <signal.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>
#include <unordered_map>

#include "archiver/ar_extract_member.h"
#include "archiver/file_window.h"
#include "archiver/report.h"

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

bool ar_extract_ahead(ARCHIVE *ar, std::vector<AR_MEMBER *> &members, bool verbose) {
  AR_EXTRACT_AHEAD *x = start_ahead(ar, members);
  if (!x)
    return false;
  extract_ahead(ar, x, verbose);
  finish_ahead(ar, x);
  return true;
}
