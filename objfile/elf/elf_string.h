// ELF_STRING_TABLE: the contents of a SHT_STRTAB section (".strtab",
// ".dynstr", ".shstrtab"): NUL-terminated strings named by their byte
// offset, the empty string at offset 0. Only whole strings are shared when
// adding; a tail of an existing string is appended again, which keeps the
// layout easy to predict.
//
// ELF_SYMBOL_HASH: a SHT_HASH section for a symbol table, words in the
// file's byte order:
//
//   word 0                   nbucket
//   word 1                   nchain (= number of symbols)
//   words 2 .. 2+nbucket-1   bucket heads (symbol index, 0 = empty)
//   then nchain words        chain links (next symbol in the bucket, 0 = end)
#pragma once

#include <functional>

#include <cstdint>
#include <cstdio>
#include <string>

#include "objfile/of_string.h"

class XML_WRITER;

namespace OFE {

class ELF_FILE;
class ELF_SECTION;
class ELF_SYMBOL_TABLE;
class OF_SYMBOL_TABLE;

class ELF_STRING_TABLE : public OF_STRING_TABLE {
public:
  // The table of `section`, whose contents are read on first use.
  // `bytes` are the section's contents, which the table reads and grows.
  ELF_STRING_TABLE(ELF_FILE *file, ELF_SECTION *section, DATA_MAP *bytes);

  std::string get_name() const override;
  // Discards the contents and starts again with the empty string.
  void reset();
  // Grows the section's contents and size.
  [[nodiscard]] std::optional<uint32_t> add_string(const std::string &text) override;
  ELF_SECTION *get_section() const { return section_; }

private:
  void sync_size();
  ELF_SECTION *section_;
};

// The System V symbol hash, except that each name byte is taken as a signed
// 8-bit value; names of bytes below 0x80 hash as usual.
uint32_t elf_symbol_hash(const char *name);
// The bucket count for `n` symbols: the smallest prime not below n (n below
// 3 is used as it stands).
uint32_t elf_hash_bucket_count(uint32_t n);

class ELF_SYMBOL_HASH {
public:
  ELF_SYMBOL_HASH(ELF_FILE *file, ELF_SECTION *section) : file_(file), section_(section) {}

  // The symbol table named by the hash section's sh_link, or null.
  ELF_SYMBOL_TABLE *get_symbol_table();
  // Fills the section from `symbols`; chains list their symbols in
  // ascending index order. False when `symbols` is not an ELF table.
  [[nodiscard]] bool build(OF_SYMBOL_TABLE *symbols);
  // The bucket table with the names of each chain.
  void dump(FILE *stream);
  // The same as a "symbol_hash" element, one "bucket" per bucket.
  void dump_xml(::XML_WRITER &xml);

private:
  // Calls `row` with each bucket, then `entry` with each symbol of its
  // chain. A link beyond the symbol table is reported (error 3) and ends
  // the chain; chains that hold more entries than there are symbols (loops
  // or shared tails) are reported and end the walk.
  void walk(const std::function<void(uint32_t bucket)> &row,
            const std::function<void(uint32_t index, const std::string &name)> &entry);

  ELF_FILE *file_;
  ELF_SECTION *section_;
};

}  // namespace OFE
