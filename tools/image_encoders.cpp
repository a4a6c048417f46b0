// The three encoders of a flash image (see flash_image.h).
//
// Binary: the bytes from the lowest load address to the end of the highest
// piece, what no piece or fill covers zeros; nothing else.
//
// Intel hex: text records ":LLAAAATT<data>CC" in upper-case hex, each line
// ended by CR LF. LL counts the data bytes (at most 16 here), AAAA is the
// low 16 bits of the address, TT the record type, CC the two's complement
// of the sum of every byte before it. Type 0 is data and 1 the end; types 2
// and 4 set the upper address bits: an extended segment address (bits 4-19,
// used while every address stays below 1 MiB) or an extended linear
// address (bits 16-31). Types 3 and 5 give the start address, as a segment
// and offset below 1 MiB and linearly above it, and are left out when the
// start address is 0. No data record crosses a 64 KiB boundary.
//
// Motorola S-records: "S" + type + count + address + data + checksum (the
// ones' complement of the sum of the bytes from the count on), lines ended
// by CR LF. S0 is the header, carrying the first 40 characters of the
// output file's name; S1, S2 and S3 carry data at 16-, 24- and 32-bit
// addresses, one width for the whole file, the narrowest that reaches the
// last byte of data; S9, S8 and S7 end the file with the start address in
// the same width.
#include <sys/types.h>

#include <algorithm>
#include <cstdio>
#include <iterator>
#include <string>

#include "support/user_msg.h"
#include "tools/flash_image.h"

namespace tools {

namespace {

const size_t RECORD_DATA = 16;  // data bytes per record

// The byte after the end of the highest piece.
uint64_t image_end(const FLASH_IMAGE &image) {
  uint64_t end = 0;
  for (const IMAGE_PIECE &p : image.pieces)
    end = std::max(end, p.address + p.size());
  return end;
}

// `count` bytes of the piece from `from` on, its fill included; `buffer`
// holds them where they run into the fill.
const uint8_t *piece_bytes(const FLASH_IMAGE &image, const IMAGE_PIECE &p, uint64_t from, size_t count,
                           uint8_t (&buffer)[RECORD_DATA]) {
  if (from + count <= p.bytes.size())
    return p.bytes.data() + from;
  for (size_t i = 0; i < count; i++)
    buffer[i] = from + i < p.bytes.size() ? p.bytes[from + i] : image.fill_byte;
  return buffer;
}

bool fits_32_bits(const FLASH_IMAGE &image, const char *format) {
  uint64_t end = image_end(image);
  if (end <= 0x100000000ull && image.entry <= 0xFFFFFFFFull)
    return true;
  USER_MSG::instance().error("byte address 0x%llx is beyond the 32 bits of %s",
                             static_cast<unsigned long long>(std::max(end - 1, image.entry)), format);
  return false;
}

void put_hex(std::string &line, uint32_t value, int digits) {
  static const char HEX[] = "0123456789ABCDEF";
  for (int shift = (digits - 1) * 4; shift >= 0; shift -= 4)
    line += HEX[(value >> shift) & 0xF];
}

// ":LLAAAATT<data>CC\r\n".
void ihex_record(FILE *out, uint8_t type, uint16_t address, const uint8_t *data, size_t count) {
  std::string line = ":";
  uint32_t sum = static_cast<uint32_t>(count) + (address >> 8) + (address & 0xFF) + type;
  put_hex(line, static_cast<uint32_t>(count), 2);
  put_hex(line, address, 4);
  put_hex(line, type, 2);
  for (size_t i = 0; i < count; i++) {
    put_hex(line, data[i], 2);
    sum += data[i];
  }
  put_hex(line, (0x100 - (sum & 0xFF)) & 0xFF, 2);
  line += "\r\n";
  fwrite(line.data(), 1, line.size(), out);
}

void ihex_upper(FILE *out, uint8_t type, uint32_t bits) {
  const uint8_t word[2] = {static_cast<uint8_t>(bits >> 8), static_cast<uint8_t>(bits)};
  ihex_record(out, type, 0, word, 2);
}

// "S<type><count><address><data><checksum>\r\n" with an address of
// `address_bytes` bytes.
void srec_record(FILE *out, char type, uint32_t address, int address_bytes, const uint8_t *data, size_t count) {
  std::string line = {'S', type};
  uint32_t length = static_cast<uint32_t>(address_bytes + count + 1);
  uint32_t sum = length;
  put_hex(line, length, 2);
  for (int i = address_bytes - 1; i >= 0; i--)
    sum += (address >> (8 * i)) & 0xFF;
  put_hex(line, address, 2 * address_bytes);
  for (size_t i = 0; i < count; i++) {
    put_hex(line, data[i], 2);
    sum += data[i];
  }
  put_hex(line, ~sum & 0xFF, 2);
  line += "\r\n";
  fwrite(line.data(), 1, line.size(), out);
}

// `count` copies of `byte`.
void write_run(FILE *out, uint8_t byte, uint64_t count) {
  if (count == 0)
    return;
  uint8_t block[4096];
  std::fill(std::begin(block), std::end(block), byte);
  for (; count > 0;) {
    size_t n = static_cast<size_t>(std::min<uint64_t>(count, sizeof block));
    fwrite(block, 1, n, out);
    count -= n;
  }
}

}  // namespace

bool write_binary(const FLASH_IMAGE &image, FILE *out) {
  if (image.pieces.empty())
    return true;
  uint64_t low = image.pieces.front().address;
  uint64_t at = 0, end = 0;  // where the stream is, and how far it has been written
  for (const IMAGE_PIECE &p : image.pieces) {
    uint64_t target = p.address - low;
    if (target > end) {
      if (at != end)
        fseeko(out, static_cast<off_t>(end), SEEK_SET);
      write_run(out, 0, target - end);
    } else if (at != target) {
      fseeko(out, static_cast<off_t>(target), SEEK_SET);  // a later piece over an earlier one
    }
    if (!p.bytes.empty())  // a fill has none, and no buffer to name
      fwrite(p.bytes.data(), 1, p.bytes.size(), out);
    write_run(out, image.fill_byte, p.fill);
    at = target + p.size();
    end = std::max(end, at);
  }
  return true;
}

bool write_ihex(const FLASH_IMAGE &image, FILE *out) {
  if (!fits_32_bits(image, "Intel hex"))
    return false;
  uint64_t segment = 0, linear = 0;  // the upper address bits the last type 2 or 4 record set
  uint8_t buffer[RECORD_DATA];
  for (const IMAGE_PIECE &p : image.pieces) {
    uint64_t where = p.address;
    for (uint64_t done = 0; done < p.size();) {
      size_t now = static_cast<size_t>(std::min<uint64_t>(p.size() - done, RECORD_DATA));
      // A piece may start below the upper bits the one before it set: it
      // overlaps that one's end across a 64 KiB boundary.
      if (where < segment + linear || where > segment + linear + 0xFFFF) {
        if (linear == 0 && where <= 0xFFFFF) {
          segment = where & 0xF0000;
          ihex_upper(out, 2, static_cast<uint32_t>(segment >> 4));
        } else {
          // Some readers add a segment base to a linear one: clear it first.
          if (segment != 0) {
            ihex_upper(out, 2, 0);
            segment = 0;
          }
          linear = where & 0xFFFF0000;
          ihex_upper(out, 4, static_cast<uint32_t>(linear >> 16));
        }
      }
      uint32_t offset = static_cast<uint32_t>(where - (segment + linear));
      if (offset + now > 0x10000)
        now = 0x10000 - offset;
      ihex_record(out, 0, static_cast<uint16_t>(offset), piece_bytes(image, p, done, now, buffer), now);
      where += now;
      done += now;
    }
  }
  if (uint32_t start = static_cast<uint32_t>(image.entry)) {
    uint8_t word[4];
    if (start <= 0xFFFFF) {
      word[0] = static_cast<uint8_t>((start & 0xF0000) >> 12);  // CS: the segment of the 1 MiB space
      word[1] = 0;
    } else {
      word[0] = static_cast<uint8_t>(start >> 24);
      word[1] = static_cast<uint8_t>(start >> 16);
    }
    word[2] = static_cast<uint8_t>(start >> 8);
    word[3] = static_cast<uint8_t>(start);
    ihex_record(out, start <= 0xFFFFF ? 3 : 5, 0, word, 4);
  }
  ihex_record(out, 1, 0, nullptr, 0);
  return true;
}

bool write_srec(const FLASH_IMAGE &image, const std::string &name, FILE *out) {
  if (!fits_32_bits(image, "S-records"))
    return false;
  std::string header = name.substr(0, 40);
  srec_record(out, '0', 0, 2, reinterpret_cast<const uint8_t *>(header.data()), header.size());
  uint64_t last = image.pieces.empty() ? 0 : image_end(image) - 1;
  int width = last <= 0xFFFF ? 2 : last <= 0xFFFFFF ? 3 : 4;
  char data_type = static_cast<char>('1' + width - 2);
  uint8_t buffer[RECORD_DATA];
  for (const IMAGE_PIECE &p : image.pieces)
    for (uint64_t done = 0; done < p.size(); done += RECORD_DATA) {
      size_t now = static_cast<size_t>(std::min<uint64_t>(p.size() - done, RECORD_DATA));
      srec_record(out, data_type, static_cast<uint32_t>(p.address + done), width,
                  piece_bytes(image, p, done, now, buffer), now);
    }
  char end_type = static_cast<char>('9' - (width - 2));
  uint32_t mask = width == 4 ? 0xFFFFFFFF : (1u << (8 * width)) - 1;
  srec_record(out, end_type, static_cast<uint32_t>(image.entry) & mask, width, nullptr, 0);
  return true;
}

}  // namespace tools
