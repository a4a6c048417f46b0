// DATA_MAP: the byte buffer through which all object-file reading and writing
// goes.
//
// A growable array of bytes with a cursor and a byte order, optionally backed
// by a region of an open stream that is read on first access only, so that
// opening an archive member costs nothing until its bytes are asked for. The
// logical size may exceed the bytes in memory; reads past either end never
// fail but yield zeros (or an empty string) and still move the cursor, so
// callers detect truncation by comparing position and size.
//
// Beside it, the checked stdio wrappers pfread ... pftello: they refuse bad
// arguments and report every failure through USER_MSG as an application error.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <cstdio>
#include <vector>

#include "support/byte_order.h"
#include "support/file_offset.h"
#include "support/record_codec.h"

namespace OFE {

// fread that reports a null buffer or stream through USER_MSG.
size_t pfread(void *buffer, size_t size, size_t count, FILE *stream);
// fwrite that reports bad arguments, and a short write unless quiet, through USER_MSG.
size_t pfwrite(const void *buffer, size_t size, size_t count, FILE *stream, bool quiet = false);
// fseek that reports a null stream or a negative SEEK_SET offset through USER_MSG.
[[nodiscard]] int pfseek(FILE *stream, long offset, int origin);
// fseeko that reports a null stream or a negative SEEK_SET offset through USER_MSG.
[[nodiscard]] int pfseeko(FILE *stream, off_t offset, int origin);
// ftell that reports a null stream or a failure through USER_MSG.
long pftell(FILE *stream);
// ftello that reports a null stream or a failure through USER_MSG.
off_t pftello(FILE *stream);

// Printed name of a byte order: "little endian", "big endian".
const char *byte_ordering_name(BYTE_ORDERING order);

// Not a map from keys to values: a byte buffer with a cursor and a byte
// order, optionally standing for a region of a stream.
class DATA_MAP {
public:
  explicit DATA_MAP(BYTE_ORDERING order = BYTE_ORDERING::LITTLE) : big_endian_(order == BYTE_ORDERING::BIG) {}

  // Backs the map with `count` bytes of `stream` from `file_offset`; nothing
  // is read until the first access. The stream stays the caller's.
  void attach(FILE *stream, FILE_OFFSET file_offset, FILE_OFFSET count);
  // Copies `count` bytes in; the map is then loaded and unmodified.
  void assign(const void *bytes, size_t count);
  // Empties the map (size 0, cursor 0, no stream); the byte order stays.
  void clear();
  // Drops the bytes of an unmodified stream-backed map so that they are read
  // again on demand; any other map keeps them.
  void unload();

  // The cursor, in bytes from the start of the map.
  FILE_OFFSET get_position() const { return position_; }
  // Moves the cursor.
  void set_position(FILE_OFFSET position) { position_ = position; }
  // The number of bytes in the map.
  FILE_OFFSET size() const { return size_; }
  // Changes the logical size; growing zero-fills, shrinking drops bytes.
  void resize(FILE_OFFSET size);

  // The byte order multi-byte reads and writes use.
  BYTE_ORDERING byte_order() const { return big_endian_ ? BYTE_ORDERING::BIG : BYTE_ORDERING::LITTLE; }
  // Reads and writes in `order` from now on: for a buffer whose owner
  // changes its byte order (a section of a file being converted).
  void set_byte_order(BYTE_ORDERING order) { big_endian_ = order == BYTE_ORDERING::BIG; }

  // Whether the bytes are in memory (a stream-backed map reads them on first access).
  [[nodiscard]] bool is_loaded() const { return loaded_; }
  // Whether the bytes were written to since they were read.
  [[nodiscard]] bool is_modified() const { return modified_; }
  // Whether the map stands for a region of a stream.
  [[nodiscard]] bool is_file_backed() const { return file_backed_; }
  // Counts the bytes as unmodified again.
  void clear_modified() { modified_ = false; }

  // Reads at the cursor, advancing it by the width even when nothing could
  // be read (the result is then 0).
  uint8_t read_u8() { return static_cast<uint8_t>(read_uint(1)); }
  uint16_t read_u16() { return static_cast<uint16_t>(read_uint(2)); }
  uint32_t read_u32() { return static_cast<uint32_t>(read_uint(4)); }
  uint64_t read_uint(unsigned width);
  // All `count` bytes, or `count` zero bytes when they are not all there.
  void read_bytes(void *destination, size_t count);
  // The NUL-terminated text at the cursor, or "" when it does not end within
  // the map; the cursor moves past the NUL either way.
  const char *read_cstring();
  uint64_t read_uleb128();
  // The byte at cursor + index, without moving the cursor; 0 when absent.
  uint8_t get_byte(FILE_OFFSET index);
  // Bounds-checked view of `size` bytes at `offset`, or null when they are
  // not all in memory. The only way to get a pointer into the bytes.
  const uint8_t *slice(FILE_OFFSET offset, FILE_OFFSET size);

  // Writes at the cursor, growing the map as needed.
  void write_u8(uint8_t value) { write_uint(value, 1); }
  // Writes at the cursor in the map's byte order, advancing it.
  void write_u16(uint16_t value) { write_uint(value, 2); }
  // Writes at the cursor in the map's byte order, advancing it.
  void write_u32(uint32_t value) { write_uint(value, 4); }
  // Writes `width` bytes of `value` at the cursor in the map's byte order.
  void write_uint(uint64_t value, unsigned width);
  // Writes bytes as they are at the cursor, growing the map as needed.
  void write_bytes(const void *bytes, size_t count);
  // Writes the text and its terminating NUL at the cursor.
  void write_cstring(const char *text);
  // Writes `value` as an unsigned LEB128 number at the cursor.
  void write_uleb128(uint32_t value);

  // A record at the cursor in the map's byte order (see record_codec.h).
  template <class R> R read_record() {
    uint8_t raw[record_size<R>()];
    read_bytes(raw, sizeof raw);
    return decode<R>(raw, byte_order());
  }
  template <class R> void write_record(const R &rec) {
    auto raw = encode(rec, byte_order());
    write_bytes(raw.data(), raw.size());
  }

  // Writes `count` bytes from the cursor, zero bytes beyond the data; 0 on
  // success, -1 on failure (and, deliberately, when nothing but padding was
  // written).
  [[nodiscard]] int save(FILE *stream, FILE_OFFSET count);
  // A hexadecimal listing of `count` bytes from the cursor, offsets relative
  // to the cursor; -1 for counts of 4 GB and more.
  [[nodiscard]] int dump_hex(FILE *stream, FILE_OFFSET count);

private:
  void load();
  uint8_t *grow_for_write(FILE_OFFSET width);

  std::vector<uint8_t> buffer_;
  FILE_OFFSET size_ = 0;
  FILE_OFFSET position_ = 0;
  FILE *file_ = nullptr;
  FILE_OFFSET file_offset_ = 0;
  FILE_OFFSET load_count_ = 0;
  bool loaded_ = false;
  bool modified_ = false;
  bool file_backed_ = false;
  bool big_endian_ = false;
};

}  // namespace OFE
