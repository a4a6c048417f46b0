// Recognition of an object file from its first bytes.
//
//   ELF:       7F 'E' 'L' 'F'; byte 5 = 1 little-endian, anything else big;
//              u32 version at 20, u16 machine at 18.
//   COFF v2/1: first u16 0x00C2 / 0x00C1 (little-endian reading tried
//              before big-endian); u16 target id at 20.
//   COFF v0:   first u16 is itself a target id, 0x0090-0x00A3.
#pragma once

#include <cstdint>

#include "objfile/of_file.h"

namespace OFE {

// Fills format, version, byte order, machine, offset and size of `d` from
// its stream (at most the first 24 bytes are read) and leaves the stream at
// the object's first byte. Reports nothing: an unknown format is left as
// OF_FORMAT_UNKNOWN. False when the stream's position cannot be told.
[[nodiscard]] bool recognize_object(OF_DESCRIPTOR &d);

// The recognition tables: e_machine and COFF target id to machine.
OF_MACHINE machine_from_elf(uint16_t e_machine);
OF_MACHINE machine_from_coff_target(uint16_t target_id);

}  // namespace OFE
