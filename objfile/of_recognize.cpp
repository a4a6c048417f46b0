// Opening an object file: recognition of the format, version, byte order
// and target from its first bytes, and open_object() and create_object(),
// the one place that chooses a format class for what was recognised.
#include "objfile/of_recognize.h"

#include <algorithm>
#include <array>

#include "objfile/coff/qvcoff_file.h"
#include "objfile/coff/qvcoff_rw.h"
#include "objfile/data_map.h"
#include "objfile/elf/elf32_rw.h"
#include "objfile/elf/elf_file.h"
#include "objfile/elf/elf_types.h"
#include "support/user_msg.h"

namespace OFE {

namespace {

struct MACHINE_ID {
  uint16_t id;
  OF_MACHINE machine;
};

// 142 is reserved for Pyxis but deliberately not recognised.
const MACHINE_ID ELF_MACHINE_TABLE[] = {
    {40, OF_MACHINE_ARM},    {105, OF_MACHINE_FORNAX}, {140, OF_MACHINE_CARINA}, {141, OF_MACHINE_VELA},
    {143, OF_MACHINE_LUPUS}, {144, OF_MACHINE_GRUS},   {145, OF_MACHINE_DORADO},
};

// 0xA2 is shared by Indus and Lupus and reads back as Lupus.
const MACHINE_ID COFF_TARGET_TABLE[] = {
    {0x97, OF_MACHINE_ARM},    {0x98, OF_MACHINE_LYRA},   {0x99, OF_MACHINE_CARINA}, {0x9C, OF_MACHINE_PYXIS},
    {0x9D, OF_MACHINE_VELA},   {0xA0, OF_MACHINE_FORNAX}, {0xA1, OF_MACHINE_NORMA},  {0xA2, OF_MACHINE_LUPUS},
};

template <size_t N> OF_MACHINE lookup_machine(const MACHINE_ID (&table)[N], uint16_t id) {
  for (const MACHINE_ID &m : table)
    if (m.id == id)
      return m.machine;
  return OF_MACHINE_UNKNOWN;
}

// Tried in this order, so a word that reads as a magic both ways is taken
// little-endian, and version 2 before version 1.
struct COFF_MAGIC {
  uint16_t magic;
  bool little;
  OF_FORMAT_VERSION version;
};
const COFF_MAGIC COFF_MAGICS[] = {
    {0x00C2, true, OF_VERSION_COFF2},
    {0x00C2, false, OF_VERSION_COFF2},
    {0x00C1, true, OF_VERSION_COFF1},
    {0x00C1, false, OF_VERSION_COFF1},
};

bool is_coff0_target(uint16_t word) { return word >= 0x0090 && word <= 0x00A3; }

BYTE_ORDERING set_order(OF_DESCRIPTOR &d, bool little) {
  d.endian = little ? OF_ENDIAN_LITTLE : OF_ENDIAN_BIG;
  return little ? BYTE_ORDERING::LITTLE : BYTE_ORDERING::BIG;
}

// As many bytes of the object as the larger file header has, zeros past the
// object's end: in an archive the next member follows.
constexpr size_t HEAD_SIZE = std::max(record_size<ELF32_HEADER_RECORD>(), record_size<QVCOFF_FILE_HEADER_RECORD>());

uint32_t next_serial = 0;  // shared by all objects

}  // namespace

OF_MACHINE machine_from_elf(uint16_t e_machine) { return lookup_machine(ELF_MACHINE_TABLE, e_machine); }
OF_MACHINE machine_from_coff_target(uint16_t target_id) { return lookup_machine(COFF_TARGET_TABLE, target_id); }

bool recognize_object(OF_DESCRIPTOR &d) {
  long offset = pftell(d.stream);
  if (offset < 0)
    return false;
  if (d.size == 0) {
    bool ended = pfseek(d.stream, 0, SEEK_END) == 0;
    long end = ended ? pftell(d.stream) : -1;
    if (pfseek(d.stream, offset, SEEK_SET) != 0 || end < 0)
      return false;
    d.size = static_cast<FILE_OFFSET>(end);
  }
  d.offset = static_cast<FILE_OFFSET>(offset);
  d.format = OF_FORMAT_UNKNOWN;
  d.version = OF_VERSION_UNKNOWN;
  d.endian = OF_ENDIAN_UNKNOWN;
  d.machine = OF_MACHINE_UNKNOWN;

  std::array<uint8_t, HEAD_SIZE> head{};
  DATA_MAP map;
  map.attach(d.stream, d.offset, std::min<FILE_OFFSET>(d.size, HEAD_SIZE));
  map.read_bytes(head.data(), static_cast<size_t>(map.size()));
  if (head[0] == 0x7F && head[1] == 'E' && head[2] == 'L' && head[3] == 'F') {
    d.format = OF_FORMAT_ELF;
    auto h = decode<ELF32_HEADER_RECORD>(head.data(), set_order(d, head[EI_DATA] == ELFDATA2LSB));
    d.version = h.e_version == 1 ? OF_VERSION_ELF1 : OF_VERSION_UNKNOWN;
    d.machine = machine_from_elf(h.e_machine);
  } else {
    uint16_t little = read_u16(head.data(), BYTE_ORDERING::LITTLE);
    uint16_t big = read_u16(head.data(), BYTE_ORDERING::BIG);
    for (const COFF_MAGIC &m : COFF_MAGICS) {
      if ((m.little ? little : big) != m.magic)
        continue;
      d.format = OF_FORMAT_COFF;
      d.version = m.version;
      d.machine = machine_from_coff_target(
          decode<QVCOFF_FILE_HEADER_RECORD>(head.data(), set_order(d, m.little)).f_target_id);
      break;
    }
    if (d.format == OF_FORMAT_UNKNOWN && (is_coff0_target(little) || is_coff0_target(big))) {
      d.format = OF_FORMAT_COFF;
      d.version = OF_VERSION_COFF0;
      d.machine = machine_from_coff_target(
          decode<QVCOFF_FILE_HEADER_V0_RECORD>(head.data(), set_order(d, is_coff0_target(little))).f_magic);
    }
  }
  // The head is read in place; a read through the stream has moved it.
  return pfseek(d.stream, offset, SEEK_SET) == 0;
}

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
