// The flash image of an executable: the bytes a programmer writes into the
// target's memory, as a plain binary file, Intel hex records or Motorola
// S-records.
//
// Making one is two steps. One walk over the executable finds its loadable
// pieces (collect_image): in ELF, every allocated section with contents that
// a PT_LOAD segment holds, placed at the segment's physical address plus the
// section's offset in the segment; in COFF, every section that is loaded
// (not bss, noload, dummy, copy or group sections) at its physical address
// times the size of the target's address unit, its memory page recorded.
// Pieces are kept one per section in address order, which is how the
// record formats are cut: each section's records start at the section. Then
// one encoder per format turns the pieces into bytes.
#pragma once

#include <cstdint>
#include <cstdio>
#include <optional>
#include <string>
#include <vector>

#include "objfile/of_file.h"

namespace tools {

enum IMAGE_FORMAT { IMAGE_NONE, IMAGE_BINARY, IMAGE_IHEX, IMAGE_SREC };

// "binary", "ihex", "srec"; IMAGE_NONE for any other name.
IMAGE_FORMAT image_format(const std::string &name);

// A section's bytes, or a fill: so many of the image's fill byte.
struct IMAGE_PIECE {
  uint64_t address;            // byte address in the image
  std::vector<uint8_t> bytes;  // a section's: never empty
  std::string section;         // for messages
  uint32_t page;               // the COFF memory page; 0 in ELF
  uint64_t fill = 0;           // a fill's size; 0 for a section

  uint64_t size() const { return bytes.size() + fill; }
};

struct FLASH_IMAGE {
  std::vector<IMAGE_PIECE> pieces;  // by address; a tie keeps section order
  uint64_t entry = 0;               // start address (byte address)
  uint8_t fill_byte = 0;            // what the pieces' fills hold
};

// What the image holds besides its sections, as GNU objcopy's --gap-fill
// and --pad-to give it: the gaps between pieces filled with `gap_fill`,
// when given, and the space after the last piece up to the byte address
// `pad_to` with `gap_fill` or zeros. Each fill is a piece of its own, whose
// records start where it starts.
struct IMAGE_FILL {
  std::optional<uint8_t> gap_fill;
  std::optional<uint64_t> pad_to;
};

// Adds the fills that `fill` asks for to the image's pieces.
void fill_image(FLASH_IMAGE &image, const IMAGE_FILL &fill);

// The executable's loadable pieces; false with a message when the file is
// not an executable or its COFF sections of different pages overlap.
[[nodiscard]] bool collect_image(OFE::OBJECT_FILE &object, FLASH_IMAGE &image);

// The encoders. A binary image runs from the lowest piece to the end of the
// highest, what no piece covers zero-filled; the records give every piece
// in chunks of 16 bytes from its start, with the start address behind
// them. `name` is the output file's name as given, which S-records carry
// in their header. False with a message when an address does not fit the
// format; a write the stream refuses is left in its error indicator.
[[nodiscard]] bool write_binary(const FLASH_IMAGE &image, FILE *out);
[[nodiscard]] bool write_ihex(const FLASH_IMAGE &image, FILE *out);
[[nodiscard]] bool write_srec(const FLASH_IMAGE &image, const std::string &name, FILE *out);

// Collects the image of `object`, fills it, and writes it in `format` to
// the output file `path` (through OUTPUT_FILE: whole or not at all). The
// exit status.
[[nodiscard]] int make_flash_image(OFE::OBJECT_FILE &object, IMAGE_FORMAT format, const IMAGE_FILL &fill,
                                   const std::string &input, const std::string &path);

}  // namespace tools
