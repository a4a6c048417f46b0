// Fuzzes the flash-image writers as ofecopy -O runs them: pieces at any
// address (overlapping ones too), gaps filled and the end padded or not,
// written as a binary image, Intel hex or S-records.
//
// The input: a flag byte (bit 0: --gap-fill, bit 1: --pad-to, bits 2-3:
// the format), the fill byte, the first piece's address and the start
// address (4 bytes each, little-endian), how far past the last piece to pad
// (10 bits of 2 bytes); then pieces, each a signed byte placing it after
// the end of the one before (negative: over it), a length byte and the
// bytes.
//
// The oracle reads the image back as a programmer would, with a reader of
// its own: every byte must be where the pieces and fills put it (a later
// one over an earlier one), nothing else may be there, and the records'
// start address must be the image's. Where no piece overlaps another,
// the fill is checked on its own terms too: with --gap-fill every byte
// from the first piece to the end is written, and the sections' bytes
// stay; with --pad-to the image reaches the pad address.
#include <sys/types.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <string>

#include "fuzz/fuzz_support.h"
#include "tools/flash_image.h"

namespace {

using MEMORY = std::map<uint64_t, uint8_t>;

uint32_t hex(const std::string &line, size_t at, size_t digits) {
  uint32_t value = 0;
  for (size_t i = at; i < at + digits; i++)
    value = value << 4 | static_cast<uint32_t>(line[i] <= '9' ? line[i] - '0' : line[i] - 'A' + 10);
  return value;
}

// Every CR LF line of `text`, checked for its lead character, its length
// against its count byte and its checksum; aborts on a bad one.
template <class F> void each_record(const std::string &text, char lead, size_t count_at, F take) {
  for (size_t at = 0, end; at < text.size(); at = end + 2) {
    end = text.find("\r\n", at);
    if (end == std::string::npos)
      abort();
    std::string line = text.substr(at, end - at);
    if (line.size() < count_at + 2 || line[0] != lead ||
        line.find_first_not_of("0123456789ABCDEF", 1) != std::string::npos)
      abort();
    uint32_t sum = 0;
    for (size_t i = count_at; i + 1 < line.size(); i += 2)
      sum += hex(line, i, 2);
    if ((line.size() - count_at) % 2 != 0 || (lead == ':' ? (sum & 0xFF) != 0 : (sum & 0xFF) != 0xFF))
      abort();
    take(line);
  }
}

MEMORY read_ihex(const std::string &text, uint64_t &start) {
  MEMORY memory;
  uint64_t base = 0;
  bool ended = false;
  each_record(text, ':', 1, [&](const std::string &line) {
    size_t n = hex(line, 1, 2);
    if (ended || line.size() != 11 + 2 * n)
      abort();
    uint32_t address = hex(line, 3, 4), type = hex(line, 7, 2);
    if (type == 0) {
      if (address + n > 0x10000)
        abort();  // a data record crosses 64 KiB
      for (size_t i = 0; i < n; i++)
        memory[base + address + i] = static_cast<uint8_t>(hex(line, 9 + 2 * i, 2));
    } else if (type == 1) {
      ended = true;
    } else if (type == 2 || type == 4) {
      base = uint64_t{hex(line, 9, 4)} << (type == 2 ? 4 : 16);
    } else if (type == 3) {
      start = (uint64_t{hex(line, 9, 4)} << 4) + hex(line, 13, 4);
    } else if (type == 5) {
      start = hex(line, 9, 8);
    } else {
      abort();
    }
  });
  if (!ended)
    abort();
  return memory;
}

MEMORY read_srec(const std::string &text, uint64_t &start) {
  MEMORY memory;
  int width = 0;
  each_record(text, 'S', 2, [&](const std::string &line) {
    char type = line[1];
    size_t count = hex(line, 2, 2);
    if (line.size() != 4 + 2 * count)
      abort();
    int bytes = type == '1' || type == '9' ? 2 : type == '2' || type == '8' ? 3 : type == '3' || type == '7' ? 4 : 2;
    if (type >= '1' && type <= '3') {
      if (width && width != bytes)
        abort();  // one width for the whole file
      width = bytes;
    }
    uint32_t address = hex(line, 4, static_cast<size_t>(2 * bytes));
    if (type >= '1' && type <= '3')
      for (size_t i = 0; i + bytes + 1 < count; i++)
        memory[address + i] = static_cast<uint8_t>(hex(line, 4 + 2 * bytes + 2 * i, 2));
    else if (type >= '7')
      start = address;
  });
  return memory;
}

// A file in memory that can seek, as the binary writer does to put a
// later piece over an earlier one.
struct MEMORY_FILE {
  std::string bytes;
  size_t at = 0;
};

FILE *memory_file(MEMORY_FILE &file) {
  cookie_io_functions_t io = {};
  io.write = [](void *cookie, const char *data, size_t size) -> ssize_t {
    auto *f = static_cast<MEMORY_FILE *>(cookie);
    if (f->bytes.size() < f->at + size)
      f->bytes.resize(f->at + size);
    f->bytes.replace(f->at, size, data, size);
    f->at += size;
    return static_cast<ssize_t>(size);
  };
  io.seek = [](void *cookie, off64_t *offset, int whence) -> int {
    auto *f = static_cast<MEMORY_FILE *>(cookie);
    if (whence != SEEK_SET || *offset < 0)
      return -1;
    f->at = static_cast<size_t>(*offset);
    return 0;
  };
  return fopencookie(&file, "w", io);
}

uint32_t u32(const uint8_t *p) { return p[0] | p[1] << 8 | p[2] << 16 | uint32_t{p[3]} << 24; }

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  (void)fuzz_sink();
  if (size < 12)
    return 0;
  uint8_t flags = data[0];
  tools::IMAGE_FILL fill;
  if (flags & 1)
    fill.gap_fill = data[1];
  uint64_t address = u32(data + 2);
  tools::FLASH_IMAGE image;
  image.entry = u32(data + 6);
  uint64_t pad = data[10] | (data[11] & 3) << 8;
  bool overlaps = false;
  uint64_t end = address;
  for (size_t at = 12; at + 2 < size && image.pieces.size() < 64;) {
    int8_t delta = static_cast<int8_t>(data[at]);
    size_t length = std::min<size_t>(data[at + 1] + 1u, size - at - 2);
    if (delta < 0 && end < static_cast<uint64_t>(-delta))
      delta = 0;
    address = end + delta;
    overlaps = overlaps || delta < 0;
    image.pieces.push_back({address, std::vector<uint8_t>(data + at + 2, data + at + 2 + length), "s", 0});
    end = address + length;
    at += 2 + length;
  }
  if (image.pieces.empty())
    return 0;
  std::stable_sort(image.pieces.begin(), image.pieces.end(),
                   [](const tools::IMAGE_PIECE &a, const tools::IMAGE_PIECE &b) { return a.address < b.address; });
  const std::vector<tools::IMAGE_PIECE> sections = image.pieces;
  uint64_t low = sections.front().address, sections_end = 0;
  for (const tools::IMAGE_PIECE &p : sections)
    sections_end = std::max(sections_end, p.address + p.size());
  if (flags & 2)
    fill.pad_to = sections_end + pad;
  tools::fill_image(image, fill);

  // What a programmer must find: the pieces in order, later over earlier.
  MEMORY expected;
  uint64_t image_end = 0;
  for (const tools::IMAGE_PIECE &p : image.pieces) {
    for (uint64_t i = 0; i < p.size(); i++)
      expected[p.address + i] = i < p.bytes.size() ? p.bytes[i] : image.fill_byte;
    image_end = std::max(image_end, p.address + p.size());
  }
  if (!overlaps) {
    for (const tools::IMAGE_PIECE &p : sections)
      for (size_t i = 0; i < p.bytes.size(); i++)
        if (expected[p.address + i] != p.bytes[i])
          abort();  // a fill over a section
    if (fill.gap_fill && expected.size() != image_end - low)
      abort();  // a gap left open
    if (image_end != std::max(sections_end, fill.pad_to.value_or(0)))
      abort();
  }

  MEMORY_FILE file;
  FILE *out = memory_file(file);
  if (!out)
    return 0;
  int format = (flags >> 2) & 3;
  bool fits = image_end <= 0x100000000ull && image.entry <= 0xFFFFFFFFull;
  bool ok = format == 0   ? tools::write_binary(image, out)
            : format == 1 ? tools::write_ihex(image, out)
                          : tools::write_srec(image, "image", out);
  fclose(out);
  const std::string &text = file.bytes;
  if (format != 0 && ok != fits)
    abort();  // refused what fits, or wrote what does not
  if (!ok || !fits)
    return 0;
  uint64_t start = 0;
  if (format == 0) {
    if (text.size() != image_end - low)
      abort();
    for (size_t i = 0; i < text.size(); i++) {
      auto it = expected.find(low + i);
      if (static_cast<uint8_t>(text[i]) != (it == expected.end() ? 0 : it->second))
        abort();
    }
    return 0;
  }
  MEMORY read = format == 1 ? read_ihex(text, start) : read_srec(text, start);
  if (read != expected)
    abort();
  // Intel hex leaves out a start address of 0; S-records give it in the
  // data's width.
  if (format == 1 ? start != image.entry : start != (image.entry & (image_end - 1 <= 0xFFFF     ? 0xFFFF
                                                                    : image_end - 1 <= 0xFFFFFF ? 0xFFFFFF
                                                                                                 : 0xFFFFFFFF)))
    abort();
  return 0;
}
