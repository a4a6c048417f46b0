// MSG_CAPTURE: collects what USER_MSG prints while it lives, and puts the
// reporter back to its state after creation when it goes, so that messages
// of one test neither leak onto the console nor count against another
// test's error limit. printed(): what a call writes to the stream it is given.
#pragma once

#include <cstdio>
#include <cstdlib>
#include <functional>
#include <string>

#include "support/user_msg.h"

namespace testing_support {

inline std::string printed(const std::function<void(FILE *)> &print) {
  char *buf = nullptr;
  size_t len = 0;
  FILE *f = open_memstream(&buf, &len);
  print(f);
  fclose(f);
  std::string text(buf, len);
  free(buf);
  return text;
}

class MSG_CAPTURE {
public:
  MSG_CAPTURE() { USER_MSG::instance().set_streams(out_.f, err_.f); }
  ~MSG_CAPTURE() {
    USER_MSG &m = USER_MSG::instance();
    m.set_streams(nullptr, nullptr);
    m.set_min_severity(MSG_REMARK);
    m.set_error_limit(100);
    m.clear_error_count();
  }
  MSG_CAPTURE(const MSG_CAPTURE &) = delete;
  MSG_CAPTURE &operator=(const MSG_CAPTURE &) = delete;

  std::string out() { return out_.text(); }
  std::string err() { return err_.text(); }

private:
  struct MEMSTREAM {
    char *buf = nullptr;
    size_t len = 0;
    FILE *f = open_memstream(&buf, &len);
    ~MEMSTREAM() { fclose(f), free(buf); }
    std::string text() { return fflush(f), std::string(buf, len); }
  } out_, err_;
};

}  // namespace testing_support
