// ofecopy on a library. The input is read by the archiver's own reader and
// the output is written by its own writer, so a copied library is what
// `arvela` would make of the same members: the member list in its order,
// names and dates as they were, the symbol index rebuilt from the members
// as every write rebuilds it, and the input's way of storing long names.
//
// Each member that the object-file library recognises is copied by the same
// routine that copies an object file of its own, into memory; the copy then
// takes the member's place in the list. Every other member is kept byte for
// byte, read from the input's locked descriptor only when the new library is
// written. The output is locked from before the input is read until the new
// library stands in its place, written as a replacement for it (with its
// identity) that a signal or any failure removes; a library copied onto
// itself is opened once, for writing.
#include "tools/ofecopy_library.h"

#include <sys/stat.h>

#include <cstdlib>
#include <cstring>
#include <string>

#include "archiver/ar_archive.h"
#include "archiver/ar_copy.h"
#include "archiver/ar_members.h"
#include "archiver/ar_read.h"
#include "archiver/ar_write.h"
#include "support/user_msg.h"

namespace tools {

namespace {

USER_MSG &msg() { return USER_MSG::instance(); }

// The archive layer's failures are reported as they happen; the operation
// that failed then returns false. A write the system refused says which
// file and why, on a line of its own under the message.
void archive_error(ARCHIVE *ar, int error_class, const char *text) {
  msg().error("%s", text);
  std::string refusal = ar_write_refusal(ar, error_class);
  if (!refusal.empty())
    msg().continuation("%s", refusal.c_str());
}

bool same_file(const char *a, const char *b) {
  struct stat sa, sb;
  return stat(a, &sa) == 0 && stat(b, &sb) == 0 && sa.st_dev == sb.st_dev && sa.st_ino == sb.st_ino;
}

// Whether the archive could be opened as a library; says why not.
bool opened(const ARCHIVE *ar, const char *path, bool may_be_missing) {
  switch (ar->open_result) {
  case AR_OPEN_OK: return true;
  case AR_OPEN_MISSING:
    if (may_be_missing)
      return true;
    break;
  case AR_OPEN_NOT_REGULAR: tools::error("'%s' is not a regular file", path); return false;
  case AR_OPEN_UNREADABLE: break;
  }
  tools::error("cannot open '%s'", path);
  return false;
}

// Copies the member `m` of `in` with `copy` when it holds an object (and
// counts it); the copy's bytes become those of `target`, its entry in the
// new library.
bool copy_member(ARCHIVE *in, AR_MEMBER *m, AR_MEMBER *target, const COPY_OBJECT &copy, uint32_t *objects) {
  AR_MEMBER_DATA data;
  if (!ar_open_member_data(in, m, &data))
    return false;
  AR_MEMBER_STREAM member;
  bool readable = ar_open_member_stream(in, m, data, &member);
  ar_close_member_data(&data);
  if (!readable)
    return m->size == 0 || ar_fail(in, AR_ERR_READ, "Cannot read file: '%s'", in->name);

  std::string name = std::string(in->name) + "(" + m->name + ")";
  REPORTS reports;
  OFE::OBJECT_FILE *object = OFE::open_object(member.stream, member.size, name.c_str(), reporting_handler(reports));
  if (!object) {
    ar_close_member_stream(&member);
    return true;  // not an object: kept as it is
  }
  ++*objects;
  char *bytes = nullptr;
  size_t size = 0;
  FILE *out = open_memstream(&bytes, &size);
  bool ok = out && reports.errors == 0 && copy(*object, reports, out);
  if ((!out || fclose(out) != 0) && reports.errors == 0) {
    tools::error("cannot copy '%s': out of memory", name.c_str());
    ok = false;
  }
  delete object;
  ar_close_member_stream(&member);
  if (!ok) {
    free(bytes);
    return false;
  }
  // The bytes live until the new library is written, then with the process.
  target->source_file = in->name;
  target->source_fd = -1;
  target->kept = bytes;
  target->size = size;
  return true;
}

}  // namespace

namespace {
// Both archives live until the process ends, as the archiver's own do.
ARCHIVE *library_out = nullptr, *library_in = nullptr;
}  // namespace

bool copy_library(const char *input, const char *output, const COPY_OBJECT &copy, const CHECK_EDITS &check) {
  bool onto_itself = same_file(input, output);
  ARCHIVE *&out = library_out;
  out = ar_create(output, archive_error, AR_WRITE);
  if (!opened(out, output, true))
    return false;
  ARCHIVE *&in = library_in;
  in = out;
  if (!onto_itself) {
    in = ar_create(input, archive_error, AR_READ);
    if (!opened(in, input, false))
      return false;
  }
  if (!ar_test_magic(in)) {
    tools::error("'%s' is not a library", input);
    return false;
  }
  if (!ar_read_special_members(in, false) || !ar_load_members(in))
    return false;
  uint32_t objects = 0;
  for (AR_MEMBER *m = in->head; m; m = m->next)
    if (!copy_member(in, m, onto_itself ? m : ar_append_library_member(out, in, m), copy, &objects))
      return false;
  if (!check(objects))
    return false;
  discard_on_signal(&out->rewrite.output);
  bool written = ar_write(out, in->format);
  if (!written)
    ar_emergency_cleanup(out);
  discard_on_signal(nullptr);
  return written;
}

}  // namespace tools
