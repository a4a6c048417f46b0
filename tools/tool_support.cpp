#include "tools/tool_support.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "support/user_msg.h"

namespace tools {

namespace {

// The temporary output for the signal handler; a fixed buffer, since the
// handler may only call async-signal-safe functions.
char pending_temporary[4096];

void cleanup_and_reraise(int signal_number) {
  if (pending_temporary[0])
    unlink(pending_temporary);
  struct sigaction action = {};
  action.sa_handler = SIG_DFL;
  sigaction(signal_number, &action, nullptr);
  raise(signal_number);
}

}  // namespace

void install_signal_cleanup() {
  struct sigaction action = {};
  action.sa_handler = cleanup_and_reraise;
  sigemptyset(&action.sa_mask);
  for (int s : {SIGHUP, SIGINT, SIGQUIT, SIGPIPE, SIGTERM})
    sigaction(s, &action, nullptr);
}

OFE::OF_ERROR_HANDLER reporting_handler(REPORTS &reports) {
  return [&reports](OFE::OBJECT_FILE *object, uint32_t code, const char *text) {
    if (code == OFE::OF_ERR_WARNING || code == OFE::OF_ERR_LIMITATION) {
      reports.warnings++;
      if (*text)
        USER_MSG::instance().warning(1, "%s", text);
    } else {
      reports.errors++;
      if (*text)
        USER_MSG::instance().error("%s", text);
    }
    object->clear_error();
  };
}

OPENED_OBJECT::~OPENED_OBJECT() {
  object.reset();
  if (stream)
    fclose(stream);
}

FILE *open_input_file(const char *path) {
  struct stat st;
  if (stat(path, &st) != 0) {
    USER_MSG::instance().error("cannot open '%s': %s", path, strerror(errno));
    return nullptr;
  }
  if (!S_ISREG(st.st_mode)) {
    USER_MSG::instance().error("'%s' is not a regular file", path);
    return nullptr;
  }
  FILE *stream = fopen(path, "rb");
  if (!stream)
    USER_MSG::instance().error("cannot open '%s': %s", path, strerror(errno));
  return stream;
}

bool open_object_file(const char *path, REPORTS &reports, OPENED_OBJECT &opened) {
  opened.stream = open_input_file(path);
  if (!opened.stream)
    return false;
  opened.object.reset(OFE::open_object(opened.stream, 0, path, reporting_handler(reports)));
  if (!opened.object) {
    USER_MSG::instance().error("'%s' is not an ELF or QV-COFF object file", path);
    return false;
  }
  return true;
}

ATOMIC_OUTPUT::~ATOMIC_OUTPUT() { discard(); }

FILE *ATOMIC_OUTPUT::open() {
  std::string directory = ".";
  if (size_t slash = path_.rfind('/'); slash != std::string::npos)
    directory = slash == 0 ? "/" : path_.substr(0, slash);
  std::string base = path_.substr(path_.rfind('/') == std::string::npos ? 0 : path_.rfind('/') + 1);
  std::string pattern = directory + "/." + base + ".XXXXXX";
  int fd = mkstemp(pattern.data());
  if (fd < 0) {
    USER_MSG::instance().error("cannot create '%s': %s", path_.c_str(), strerror(errno));
    return nullptr;
  }
  temporary_ = pattern;
  snprintf(pending_temporary, sizeof pending_temporary, "%s", temporary_.c_str());
  // A new file gets the usual mode; a replaced one keeps its own.
  struct stat st;
  mode_t mode;
  if (stat(path_.c_str(), &st) == 0) {
    mode = st.st_mode & 07777;
  } else {
    mode_t mask = umask(0);
    umask(mask);
    mode = 0666 & ~mask;
  }
  (void)fchmod(fd, mode);
  stream_ = fdopen(fd, "wb");
  if (!stream_) {
    close(fd);
    USER_MSG::instance().error("cannot create '%s': %s", path_.c_str(), strerror(errno));
    discard();
  }
  return stream_;
}

bool ATOMIC_OUTPUT::commit() {
  bool ok = stream_ && fflush(stream_) == 0;
  if (stream_ && fclose(stream_) != 0)
    ok = false;
  stream_ = nullptr;
  if (ok && rename(temporary_.c_str(), path_.c_str()) != 0)
    ok = false;
  if (!ok) {
    USER_MSG::instance().error("cannot write '%s': %s", path_.c_str(), strerror(errno));
    discard();
    return false;
  }
  temporary_.clear();
  pending_temporary[0] = '\0';
  return true;
}

void ATOMIC_OUTPUT::discard() {
  if (stream_) {
    fclose(stream_);
    stream_ = nullptr;
  }
  if (!temporary_.empty()) {
    unlink(temporary_.c_str());
    temporary_.clear();
  }
  pending_temporary[0] = '\0';
}

}  // namespace tools
