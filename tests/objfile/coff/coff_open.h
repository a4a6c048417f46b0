// Opening a built COFF image as an archive member would be opened: behind
// eight bytes of "archive" and followed by bytes of the next member, so that
// any read outside the member shows up.
#pragma once

#include <cstdio>
#include <memory>
#include <string>

#include "objfile/coff/qvcoff_file.h"
#include "objfile/coff/qvcoff_section.h"
#include "objfile/coff/qvcoff_string.h"
#include "objfile/coff/qvcoff_symbol.h"

namespace testing_support {

struct OPENED_COFF {
  FILE *stream = nullptr;
  std::unique_ptr<OFE::OBJECT_FILE> object;

  explicit OPENED_COFF(const std::string &image, const std::string &name = "") {
    stream = tmpfile();
    // The next member's bytes are all 0xEE: never part of a valid answer.
    std::string all = "!<arch>\n" + image + std::string(64, '\xEE');
    fwrite(all.data(), 1, all.size(), stream);
    fseek(stream, 8, SEEK_SET);
    object.reset(OFE::open_object(stream, static_cast<uint32_t>(image.size()), name.empty() ? nullptr : name.c_str(),
                                  nullptr));
  }
  ~OPENED_COFF() {
    object.reset();
    fclose(stream);
  }
  OPENED_COFF(const OPENED_COFF &) = delete;
  OPENED_COFF &operator=(const OPENED_COFF &) = delete;

  OFE::QVCOFF_FILE *file() const { return dynamic_cast<OFE::QVCOFF_FILE *>(object.get()); }
  OFE::QVCOFF_SYMBOL_TABLE *symbols() const { return file() ? file()->get_qvcoff_symbol_table() : nullptr; }
  OFE::QVCOFF_SYMBOL *symbol(uint32_t i) const { return symbols() ? symbols()->get_qvcoff_symbol(i) : nullptr; }
  std::string error() const { return object ? object->get_error_text() : "(no object)"; }
  uint32_t error_code() const { return object ? object->get_error_code() : 99; }
};

}  // namespace testing_support
