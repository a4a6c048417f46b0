#include "objfile/of_recognize.h"

#include "objfile/data_map.h"

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

void set_order(OF_DESCRIPTOR &d, DATA_MAP &head, bool little) {
  d.endian = little ? OF_ENDIAN_LITTLE : OF_ENDIAN_BIG;
  head.set_byte_order(little ? BYTE_ORDERING::LITTLE : BYTE_ORDERING::BIG);
}

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

  // Never past the object's end: in an archive the next member follows.
  DATA_MAP head;
  head.attach(d.stream, d.offset, d.size < 24 ? d.size : 24);
  bool elf = head.get_byte(0) == 0x7F && head.get_byte(1) == 'E' && head.get_byte(2) == 'L' && head.get_byte(3) == 'F';
  if (elf) {
    d.format = OF_FORMAT_ELF;
    set_order(d, head, head.get_byte(5) == 1);
    head.set_position(20);
    d.version = head.read_u32() == 1 ? OF_VERSION_ELF1 : OF_VERSION_UNKNOWN;
    head.set_position(18);
    d.machine = machine_from_elf(head.read_u16());
  } else {
    const uint8_t word[2] = {head.get_byte(0), head.get_byte(1)};
    uint16_t little = read_u16(word, BYTE_ORDERING::LITTLE);
    uint16_t big = read_u16(word, BYTE_ORDERING::BIG);
    for (const COFF_MAGIC &m : COFF_MAGICS) {
      if ((m.little ? little : big) != m.magic)
        continue;
      d.format = OF_FORMAT_COFF;
      d.version = m.version;
      set_order(d, head, m.little);
      head.set_position(20);
      d.machine = machine_from_coff_target(head.read_u16());
      break;
    }
    if (d.format == OF_FORMAT_UNKNOWN && (is_coff0_target(little) || is_coff0_target(big))) {
      d.format = OF_FORMAT_COFF;
      d.version = OF_VERSION_COFF0;
      set_order(d, head, is_coff0_target(little));
      d.machine = machine_from_coff_target(is_coff0_target(little) ? little : big);
    }
  }
  // The head is read in place; a read through the stream has moved it.
  return pfseek(d.stream, offset, SEEK_SET) == 0;
}

}  // namespace OFE
