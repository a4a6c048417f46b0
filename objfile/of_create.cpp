// Creating object files: open_object() and create_object(), the one place
// that chooses a format class.
#include "objfile/coff/qvcoff_file.h"
#include "objfile/elf/elf_file.h"
#include "objfile/of_file.h"
#include "objfile/of_recognize.h"
#include "support/user_msg.h"

namespace OFE {

namespace {
uint32_t next_serial = 0;  // shared by all objects
}  // namespace

OBJECT_FILE *open_object(FILE *stream, FILE_OFFSET size, const char *name, OF_ERROR_HANDLER handler) {
  long position = pftell(stream);
  if (position < 0)
    return nullptr;
  if (position != 0 && size == 0) {
    USER_MSG::instance().error(
        "a file size must be specified when reading an archive member; OBJECT_FILE not created");
    return nullptr;
  }
  OF_DESCRIPTOR d;
  d.stream = stream;
  d.name = name ? name : "";
  d.size = size;
  return create_object(d, std::move(handler));
}

OBJECT_FILE *create_object(OF_DESCRIPTOR d, OF_ERROR_HANDLER handler) {
  if (d.stream && !recognize_object(d))
    return nullptr;
  OBJECT_FILE *object;
  switch (d.format) {
  case OF_FORMAT_COFF: object = new QVCOFF_FILE(d); break;
  case OF_FORMAT_ELF: object = new ELF_FILE(d); break;
  default: return nullptr;
  }
  if (handler)
    object->set_error_handler(std::move(handler));
  if (d.stream)
    (void)object->read(d);  // a failure stays on the object as its pending error
  object->set_serial(next_serial++);
  object->get_machine_db()->file_loaded();
  return object;
}

}  // namespace OFE
