// MSG_CAPTURE: collects what USER_MSG prints while it lives, and puts the
// reporter back to its state after creation when it goes, so that messages
// of one test neither leak onto the console nor count against another
// test's error limit.
#pragma once

#include <cstdio>
#include <cstdlib>
#include <functional>
#include <string>

#include "support/user_msg.h"

namespace testing_support {

class MSG_CAPTURE {
public:
  MSG_CAPTURE() {
    out_ = open_memstream(&out_buf_, &out_len_);
    err_ = open_memstream(&err_buf_, &err_len_);
    USER_MSG::instance().set_streams(out_, err_);
  }
  ~MSG_CAPTURE() {
    USER_MSG &m = USER_MSG::instance();
    m.set_streams(nullptr, nullptr);
    m.set_min_severity(MSG_REMARK);
    m.set_error_limit(100);
    m.clear_error_count();
    fclose(out_);
    fclose(err_);
    free(out_buf_);
    free(err_buf_);
  }
  MSG_CAPTURE(const MSG_CAPTURE &) = delete;
  MSG_CAPTURE &operator=(const MSG_CAPTURE &) = delete;

  std::string out() { fflush(out_); return std::string(out_buf_, out_len_); }
  std::string err() { fflush(err_); return std::string(err_buf_, err_len_); }

private:
  char *out_buf_ = nullptr, *err_buf_ = nullptr;
  size_t out_len_ = 0, err_len_ = 0;
  FILE *out_ = nullptr, *err_ = nullptr;
};

// What `print` writes to the stream it is given.
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

}  // namespace testing_support
