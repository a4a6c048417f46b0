#include "objfile/elf/elf_string.h"

#include "objfile/elf/elf_file.h"
#include "objfile/elf/elf_section.h"
#include "objfile/elf/elf_symbol.h"
#include "objfile/elf/elf_types.h"
#include "support/xml_writer.h"
#include "support/printable.h"

namespace OFE {

ELF_STRING_TABLE::ELF_STRING_TABLE(ELF_FILE *file, ELF_SECTION *section, DATA_MAP *bytes)
    : OF_STRING_TABLE(file), section_(section) {
  bind(bytes);
}

std::string ELF_STRING_TABLE::get_name() const { return section_->get_name(); }

void ELF_STRING_TABLE::reset() {
  OF_STRING_TABLE_MANAGER::clear();
  (void)OF_STRING_TABLE_MANAGER::add_string("");
  sync_size();
}

std::optional<uint32_t> ELF_STRING_TABLE::add_string(const std::string &text) {
  std::optional<uint32_t> offset = OF_STRING_TABLE::add_string(text);
  sync_size();
  return offset;
}

void ELF_STRING_TABLE::sync_size() { section_->contents_encoded({}); }

uint32_t elf_symbol_hash(const char *name) {
  uint32_t h = 0;
  if (!name)
    return 0;
  for (const char *p = name; *p; p++) {
    // Deliberately signed: a byte of 0x80 or above is added as a negative
    // number, so such names hash differently from the usual unsigned rule.
    h = (h << 4) + static_cast<uint32_t>(static_cast<int32_t>(static_cast<int8_t>(*p)));
    uint32_t g = h & 0xF0000000u;
    if (g != 0)
      h ^= g >> 24;
    h &= ~g;
  }
  return h;
}

uint32_t elf_hash_bucket_count(uint32_t n) {
  if (n < 3)
    return n;
  for (uint64_t candidate = n; candidate <= 0xFFFFFFFFull; candidate++) {
    bool prime = true;
    // Divisors above the square root add nothing; the answer is the same as
    // trying every number below the candidate.
    for (uint64_t d = 2; d * d <= candidate; d++) {
      if (candidate % d == 0) {
        prime = false;
        break;
      }
    }
    if (prime)
      return static_cast<uint32_t>(candidate);
  }
  return n;
}

ELF_SYMBOL_TABLE *ELF_SYMBOL_HASH::get_symbol_table() { return file_->get_symbol_table_of(section_->get_link()); }

bool ELF_SYMBOL_HASH::build(OF_SYMBOL_TABLE *symbols) {
  if (!symbols || !get_elf_interface(symbols->get_object()))
    return false;
  uint32_t n = symbols->get_count();
  uint32_t nbucket = elf_hash_bucket_count(n);
  DATA_MAP &data = section_->new_contents({});
  data.resize(4ull * (2ull + nbucket + n));
  data.set_position(0);
  data.write_u32(nbucket);
  data.write_u32(n);
  auto word = [&data](uint64_t index) -> uint32_t {
    data.set_position(4 * index);
    return data.read_u32();
  };
  auto set_word = [&data](uint64_t index, uint32_t value) {
    data.set_position(4 * index);
    data.write_u32(value);
  };
  for (uint32_t i = 0; i < n; i++) {
    OF_SYMBOL *symbol = symbols->get_symbol(i);
    uint32_t b = elf_symbol_hash(symbol ? symbol->get_name().c_str() : nullptr) % nbucket;
    uint64_t link = 2 + b;  // the word that will point at symbol i
    // Appending at the end of the chain keeps each chain in index order.
    while (word(link) != 0)
      link = 2ull + nbucket + word(link);
    set_word(link, i);
  }
  section_->contents_encoded({}, 4);
  return true;
}

void ELF_SYMBOL_HASH::walk(const std::function<void(uint32_t bucket)> &row,
                           const std::function<void(uint32_t index, const std::string &name)> &entry) {
  DATA_MAP &data = *section_->get_data();
  ELF_SYMBOL_TABLE *symbols = get_symbol_table();
  uint32_t count = symbols ? symbols->get_count() : 0;
  data.set_position(0);
  uint32_t nbucket = data.read_u32();
  // Words past the section's end read as 0 (an empty bucket or the end of a
  // chain), so a short section cannot run the walk off its bytes.
  auto word = [&data](uint64_t index) -> uint32_t {
    data.set_position(4 * index);
    return data.read_u32();
  };
  // Every symbol sits in one chain, so all chains together hold at most
  // `count` entries: more means chains that share or loop, which would
  // otherwise cost buckets times symbols steps.
  uint64_t entries = 0;
  for (uint32_t b = 0; b < nbucket && 4ull * (2ull + b) < data.size(); b++) {
    row(b);
    for (uint32_t i = word(2ull + b); i != 0; i = word(2ull + nbucket + i)) {
      if (i >= count) {
        file_->set_error(OF_ERR_MALFORMED, "symbol index %ld in \"%s\" is beyond the end of symbol table \"%s\"",
                         static_cast<long>(i), section_->get_name().c_str(),
                         symbols ? symbols->get_name().c_str() : "");
        break;
      }
      if (++entries > count) {
        file_->set_error(OF_ERR_MALFORMED, "the chains of \"%s\" hold more entries than symbol table \"%s\"",
                         section_->get_name().c_str(), symbols ? symbols->get_name().c_str() : "");
        return;
      }
      OF_SYMBOL *symbol = symbols->get_symbol(i);
      entry(i, symbol ? symbol->get_name() : "");
    }
  }
}

void ELF_SYMBOL_HASH::dump(FILE *stream) {
  fprintf(stream, " Symbol Hash Table in \"%s\"\n\n\n", printable(section_->get_name()).c_str());
  fprintf(stream, "  %-8s %s\n  %-8s %s\n", "Row", "Symbol Name(s)", "---", "--------------");
  bool open_row = false;
  const char *separator = "";
  walk(
      [&](uint32_t bucket) {
        fprintf(stream, "%s  %-8u ", open_row ? "\n" : "", bucket);
        open_row = true;
        separator = "";
      },
      [&](uint32_t, const std::string &name) {
        fprintf(stream, "%s\"%s\"", separator, printable(name).c_str());
        separator = ", ";
      });
  if (open_row)
    fputc('\n', stream);
}

void ELF_SYMBOL_HASH::dump_xml(XML_WRITER &xml) {
  xml.open("symbol_hash", {{"name", section_->get_name()}});
  bool open_row = false;
  walk(
      [&](uint32_t bucket) {
        if (open_row)
          xml.close();
        xml.open("bucket", {{"id", std::to_string(bucket)}});
        open_row = true;
      },
      [&](uint32_t index, const std::string &name) {
        xml.empty("symbol", {{"index", std::to_string(index)}, {"name", name}});
      });
  if (open_row)
    xml.close();
  xml.close();
}

}  // namespace OFE
