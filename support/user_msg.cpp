#include "support/user_msg.h"

#include <cstdlib>
#include <cstring>
#include <string_view>

namespace {

// Severity of the last message that was not a continuation, printed or not.
uint32_t last_severity = MSG_DEBUG;

const char *prefix_for(uint32_t severity) {
  switch (severity) {
  case MSG_DEBUG: return ">>   debug: ";
  case MSG_REMARK: return ">>  remark: ";
  case MSG_WARNING: return ">> warning: ";
  case MSG_ERROR: return ">>   error: ";
  case MSG_USAGE: return ">>   usage: ";
  case MSG_APPLICATION_ERROR: return ">> application error: ";
  case MSG_FATAL_ERROR: return ">> fatal error: ";
  case MSG_INTERNAL_ERROR: return ">> internal error: ";
  default: return "";  // warnings of levels 2-5 have no prefix of their own
  }
}

bool is_valid_severity(uint32_t severity) {
  switch (severity) {
  case MSG_DEBUG: case MSG_REMARK: case MSG_ERROR: case MSG_USAGE:
  case MSG_APPLICATION_ERROR: case MSG_FATAL_ERROR: case MSG_INTERNAL_ERROR:
    return true;
  default:
    return severity >= 32 && severity <= 37;
  }
}

}  // namespace

USER_MSG &USER_MSG::instance() {
  static USER_MSG *the_instance = new USER_MSG();
  return *the_instance;
}

USER_MSG::USER_MSG() = default;
USER_MSG::~USER_MSG() = default;

void USER_MSG::set_streams(FILE *out, FILE *err) {
  out_ = out;
  err_ = err;
}

void USER_MSG::set_min_severity(uint32_t code) { min_severity_ = static_cast<int32_t>(code); }

void USER_MSG::set_warning_level(uint32_t level) {
  uint32_t code = 31 + level;
  if (level == 0 || level >= 6) {
    char text[64];
    snprintf(text, sizeof text, "invalid warning level %d", static_cast<int>(code));
    fprintf(err_ ? err_ : stderr, ">> internal error: %s\n", text);
    end_process(false);
  }
  min_severity_ = static_cast<int32_t>(code);
}

void USER_MSG::set_error_limit(uint32_t limit) { error_limit_ = static_cast<int32_t>(limit); }
int32_t USER_MSG::error_count() const { return error_count_; }
int32_t USER_MSG::min_severity() const { return min_severity_; }

#define FORWARD(severity)                               \
  do {                                                  \
    va_list args;                                       \
    va_start(args, format);                             \
    message_core((severity), args, format, false);      \
    va_end(args);                                       \
  } while (0)

void USER_MSG::debug(const char *format, ...) { FORWARD(MSG_DEBUG); }
void USER_MSG::continuation(const char *format, ...) { FORWARD(MSG_CONTINUATION); }
void USER_MSG::remark(const char *format, ...) { FORWARD(MSG_REMARK); }
void USER_MSG::error(const char *format, ...) { FORWARD(MSG_ERROR); }
void USER_MSG::application_error(const char *format, ...) { FORWARD(MSG_APPLICATION_ERROR); }
void USER_MSG::fatal_error(const char *format, ...) { FORWARD(MSG_FATAL_ERROR); }
void USER_MSG::usage(const char *format, ...) { FORWARD(MSG_USAGE); }
void USER_MSG::message(uint32_t severity, const char *format, ...) { FORWARD(severity); }

void USER_MSG::warning(uint32_t level, const char *format, ...) {
  if (level == 0 || level >= 6)
    set_warning_level(level);  // reports the bad level and ends the process
  FORWARD(31 + level);
}

#undef FORWARD

void USER_MSG::internal_error(const char *where, const char *what) {
  message(MSG_INTERNAL_ERROR, "%s: %s", where, what);
}

void USER_MSG::end_process(bool abort_process) {
  fflush(out_ ? out_ : stdout);
  fflush(err_ ? err_ : stderr);
  if (abort_process)
    abort();
  exit(1);
}

void USER_MSG::message_core(uint32_t severity, va_list args, const char *format, bool abort_process) {
  const char *prefix;
  bool continued = severity == MSG_CONTINUATION;
  if (continued) {
    severity = last_severity;
    prefix = "            ";
  } else {
    last_severity = severity;
    prefix = prefix_for(severity);
  }
  if (static_cast<int64_t>(severity) < min_severity_)
    return;

  FILE *err = err_ ? err_ : stderr;
  if (!is_valid_severity(severity)) {
    fprintf(err, ">> internal error: USER_MSG::message:  invalid error severity %u\n", severity);
    end_process(abort_process);
  }
  FILE *stream = severity >= 32 ? err : (out_ ? out_ : stdout);
  if ((severity == MSG_ERROR || severity == MSG_APPLICATION_ERROR) && !continued)
    error_count_++;

  char buffer[BUFFER_SIZE];
  int prefix_length = static_cast<int>(strlen(prefix));
  memcpy(buffer, prefix, static_cast<size_t>(prefix_length) + 1);
  va_list copy;
  va_copy(copy, args);
  int length = vsnprintf(buffer + prefix_length, sizeof buffer - static_cast<size_t>(prefix_length), format, copy);
  va_end(copy);
  if (length > BUFFER_SIZE - 1 - prefix_length) {
    fprintf(err, ">> internal error: USER_MSG::message:  attempt to generate a message > %d bytes, "
                 "which would result in a buffer overflow; terminating program.\n",
            BUFFER_SIZE - 1);
    end_process(abort_process);
  }

  write_wrapped(stream, buffer, prefix_length);

  if (error_count_ >= error_limit_) {
    fputs("too many errors; aborting\n", err);
    end_process(abort_process);
  }
  if (severity >= MSG_FATAL_ERROR)
    end_process(abort_process);
}

// Breaks at the last blank at or before column 78; later lines are indented
// by the prefix length so that they line up under the first line's text.
void USER_MSG::write_wrapped(FILE *stream, const char *text, int prefix_length) {
  std::string_view rest(text);
  const size_t width = LINE_WIDTH - 1;
  if (rest.size() < static_cast<size_t>(LINE_WIDTH)) {
    fprintf(stream, "%.*s\n", static_cast<int>(rest.size()), rest.data());
    return;
  }
  const size_t indent = static_cast<size_t>(prefix_length);
  bool first = true;
  for (;;) {
    size_t limit = first ? width : width - indent;
    if (!first && rest.size() <= limit) {
      fprintf(stream, "%*s%.*s\n", static_cast<int>(indent), "", static_cast<int>(rest.size()), rest.data());
      return;
    }
    size_t cut = limit;
    while (cut > 0 && rest[cut] != ' ')
      cut--;
    int pad = first ? 0 : static_cast<int>(indent);
    if (cut == 0) {
      fprintf(stream, "%*s%.*s\n", pad, "", static_cast<int>(rest.size()), rest.data());
      return;
    }
    fprintf(stream, "%*s%.*s\n", pad, "", static_cast<int>(cut), rest.data());
    rest.remove_prefix(cut + 1);
    first = false;
  }
}
