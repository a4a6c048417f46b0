// The ELF steps of the write pipeline (OBJECT_FILE::promote_state):
//
//   load      every section header, name and table into memory, so that
//             nothing is decoded from the file after indexes have moved
//   sections  renumbered class by class; every table that holds section
//             indexes follows the map (sh_link, sh_info, symbols' st_shndx,
//             group members, segments, attribute lists, e_shstrndx)
//   symbols   renumbered (null, locals, the rest); every table that holds
//             symbol indexes follows each table's map (r_info, group
//             signatures, aliases, attribute lists); a relocation whose
//             symbol was removed is refused
//   tables    relocations and groups encoded into their sections
//   strings   section and symbol names put into rebuilt string tables,
//             symbols encoded with their st_name
//   lay out   the program header table after the file header, contents in
//             section order, each at its alignment, the segments over
//             them, then the section header table (4-aligned); a read
//             executable or shared object keeps its allocated sections and
//             program headers where they are and places the rest after
//             its highest allocated byte
//   write     the header, the program headers, the contents and the
//             section headers in file order with zero padding, laid over
//             a read image's own bytes
#include <algorithm>
#include <cstring>
#include <set>

#include "objfile/elf/elf_dynamic.h"
#include "objfile/elf/elf_file.h"
#include "objfile/elf/elf_group.h"
#include "objfile/elf/elf_reloc.h"
#include "objfile/elf/elf_scnattr.h"
#include "objfile/elf/elf_section.h"
#include "objfile/elf/elf_segattr.h"
#include "objfile/elf/elf_segment.h"
#include "objfile/elf/elf_string.h"
#include "objfile/elf/elf_symbol.h"
#include "objfile/elf/elf_types.h"
#include "objfile/elf/elf_verdef.h"
#include "objfile/elf/elf_verneed.h"

namespace OFE {

namespace {

uint64_t align_up(uint64_t position, uint32_t alignment) {
  if (alignment <= 1)
    return position;
  return (position + alignment - 1) / alignment * alignment;
}

}  // namespace

bool ELF_FILE::load_for_writing() {
  ELF_SECTION_TABLE *sections = get_section_table();
  if (!sections || (was_read_from_stream() && !readable_))
    return false;
  if (was_read_from_stream() && shoff_ != 0 && sections->get_count() == 0 && get_error_code() != OF_ERR_NONE)
    return false;  // the section header table could not be read
  sections->load_all();
  for (uint32_t i = 0; i < sections->get_count(); i++) {
    ELF_SECTION *s = sections->get_section(i);
    s->get_name();  // before the name table is rebuilt
    s->get_data();
    if (ELF_SYMBOL_TABLE *symbols = s->symbols()) {
      symbols->load_for_writing();
      (void)symbols->get_extended_index_section();  // made now, so that it is named and numbered
    }
    if (ELF_RELOC_TABLE *relocs = s->relocations())
      relocs->get_count();
    (void)s->group();
  }
  // The tables that refer to sections and symbols by index are read before
  // anything moves; attribute sections that will be needed are made now,
  // so that they are named and numbered with the rest.
  load_section_attributes();
  for (uint32_t kind : {ELF_SCN_ATTR_FLAGS, ELF_SCN_ATTR_PAGE}) {
    bool used = false;
    for (uint32_t i = 0; i < sections->get_count() && !used; i++)
      used = sections->get_section(i)->get_attribute(kind) != 0;
    if (used)
      find_special_section(kind, true);
  }
  (void)get_build_attributes(false);
  (void)get_alias_table();
  if (!load_image_for_writing())
    return false;
  return !has_failed();
}

bool ELF_FILE::load_image_for_writing() {
  // The tables the write encodes again are read before it; a file without
  // program headers or segment attributes (most relocatable files) has
  // none of them to read.
  bool image = header_.e_type == ET_EXEC || header_.e_type == ET_DYN;
  if ((image || segments_ || header_.e_phnum != 0) && !get_segment_table())
    return false;
  if (seg_attrs_ || get_section_table()->find_section_by_type(SHT_QV_PHATTRS))
    get_seg_attr_db();
  if (!image)
    return true;
  get_dynamic_table();
  get_verdef_table();
  get_verneed_table();
  if (!keeps_image())
    return true;
  // Everything up to the highest allocated byte is the loader's image; the
  // writer lays what it places over these bytes, so gaps keep theirs. The
  // header counts as the one the write gives (an e_ehsize read from the file
  // would keep bytes that no later copy keeps).
  ELF_SECTION_TABLE *sections = get_section_table();
  uint64_t high = record_size<ELF32_HEADER_RECORD>();
  if (header_.e_phnum != 0)
    high = std::max<uint64_t>(high, header_.e_phoff + static_cast<uint64_t>(header_.e_phnum) * header_.e_phentsize);
  for (uint32_t i = 0; i < segments_->get_count(); i++) {
    const ELF32_PROGRAM_HEADER_RECORD &p = segments_->get_segment(i)->header();
    high = std::max<uint64_t>(high, static_cast<uint64_t>(p.p_offset) + p.p_filesz);
  }
  for (uint32_t i = 1; i < sections->get_count(); i++) {
    const ELF32_SECTION_HEADER_RECORD &h = sections->get_section(i)->header();
    if ((h.sh_flags & SHF_ALLOC) && h.sh_type != SHT_NOBITS)
      high = std::max<uint64_t>(high, static_cast<uint64_t>(h.sh_offset) + h.sh_size);
  }
  image_bytes_.set_byte_order(file_byte_order());
  return file_region(0, high, image_bytes_, "loaded image");
}

bool ELF_FILE::prepare_sections() {
  // Stored again so that an index that fits e_shstrndx goes there, whether
  // or not the sections move.
  ELF_SECTION_TABLE *sections = get_section_table();
  sections->set_name_table_index(sections->get_name_table_index());
  // The dynamic and version tables may make their sections: that happens
  // before the sections are put in order, or the first write of a built
  // shared object would number them differently from every later one.
  if (dynamic_ && !dynamic_->prepare())
    return false;
  if (verdefs_)
    verdefs_->prepare();
  if (verneeds_)
    verneeds_->prepare();
  return get_section_table()->prepare() == 0;
}

bool ELF_FILE::rewrites_symbols(ELF_SECTION *s) const {
  // The dynamic symbols of a loaded image stay where the image has them.
  uint32_t type = s->get_type();
  return s->symbols() && (type == SHT_SYMTAB || (type == SHT_DYNSYM && !keeps_image()));
}

bool ELF_FILE::prepare_symbols() {
  ELF_SECTION_TABLE *sections = get_section_table();
  for (uint32_t i = 1; i < sections->get_count(); i++) {
    ELF_SECTION *s = sections->get_section(i);
    if (rewrites_symbols(s) && s->symbols()->prepare_for_writing() != 0)
      return false;
  }
  return true;
}

bool ELF_FILE::prepare_dependents() {
  ELF_SECTION_TABLE *sections = get_section_table();
  if (seg_attrs_)
    seg_attrs_->write();
  for (uint32_t i = 1; i < sections->get_count(); i++) {
    ELF_SECTION *s = sections->get_section(i);
    // An image's dynamic relocations are part of what the loader reads.
    bool image = keeps_image() && (s->get_flags() & SHF_ALLOC);
    if (ELF_RELOC_TABLE *relocs = s->relocations(); relocs && !image)
      relocs->write();
    // A group without its signature symbol is reported and keeps its
    // contents; the rest of the file is still written.
    if (ELF_GROUP_TABLE *group = s->group())
      (void)group->write();
  }
  // Extended attribute sections: one value per section, in the new order.
  OF_MACHINE_DB *db = get_machine_db();
  for (uint32_t kind : {ELF_SCN_ATTR_FLAGS, ELF_SCN_ATTR_PAGE}) {
    ELF_SECTION *s = find_special_section(kind, false);
    if (!s)
      continue;
    std::vector<uint32_t> values(sections->get_count());
    for (uint32_t i = 0; i < values.size(); i++)
      values[i] = sections->get_section(i)->get_attribute(kind);
    DATA_MAP &data = s->new_contents({});
    ELF_SCN_ATTR_TABLE::write(data, values);
    s->set_format({}, db->get_special_section(kind)->type, s->get_alignment() ? s->get_alignment() : 1,
                  s->get_entsize());
  }
  if (aliases_) {
    ELF_SECTION *s = find_special_section(OF_SPECIAL_SYMBOL_ALIAS, false);
    DATA_MAP &data = s->new_contents({});
    aliases_->write(data);
    uint32_t type = db->get_special_section(OF_SPECIAL_SYMBOL_ALIAS)->type;
    s->set_format({}, type ? type : s->get_type(), s->get_alignment(), 8);
  }
  // Build attributes keep the bytes they were read from unless something
  // in them changed or the byte order did.
  if (build_attributes_ && (build_attributes_->is_modified() || byte_order() != file_byte_order() ||
                            !was_read_from_stream())) {
    DATA_MAP &data = build_attribute_section_->new_contents({});
    build_attributes_->write(data);
  }
  return true;
}

bool ELF_FILE::prepare_strings() {
  ELF_SECTION_TABLE *sections = get_section_table();
  if (sections->get_count() == 0)
    return true;
  ELF_STRING_TABLE *names = sections->get_name_table(true);
  // Tables of names this file owns are rebuilt from the names in use; a
  // loaded image's tables keep their bytes.
  std::set<ELF_STRING_TABLE *> rebuilt;
  auto rebuild = [&rebuilt](ELF_STRING_TABLE *table) {
    if (table && !(table->get_section()->get_flags() & SHF_ALLOC) && rebuilt.insert(table).second)
      table->reset();
  };
  rebuild(names);
  // A symbol table that will be written without a string table gets one
  // now, so that its section is named with the rest.
  for (uint32_t i = 1; i < sections->get_count(); i++)
    if (ELF_SECTION *s = sections->get_section(i); rewrites_symbols(s)) {
      ELF_STRING_TABLE *strings = s->symbols()->get_string_table(true);
      if (s->get_type() == SHT_SYMTAB)
        rebuild(strings);
    }
  sections->get_section(0)->set_name_offset({}, 0);
  for (uint32_t i = 1; i < sections->get_count(); i++) {
    ELF_SECTION *s = sections->get_section(i);
    std::optional<uint32_t> offset = names->add_string(s->get_name());
    if (!offset)
      return false;
    s->set_name_offset({}, *offset);
  }
  for (uint32_t i = 1; i < sections->get_count(); i++) {
    ELF_SECTION *s = sections->get_section(i);
    if (rewrites_symbols(s) && s->symbols()->write() != 0)
      return false;
  }
  for (uint32_t i = 1; i < sections->get_count(); i++) {
    ELF_SECTION *s = sections->get_section(i);
    // A hash table is built anew on every write: names, order and byte
    // order may all have changed. A loaded image keeps its own, with the
    // dynamic symbols it indexes.
    // One whose link names no symbol table has nothing to be built from:
    // its bytes go out as they were read.
    if (s->get_type() == SHT_HASH && !keeps_image())
      (void)ELF_SYMBOL_HASH(this, s).build(get_symbol_table_of(s->get_link()));
    if (s->get_type() != SHT_NOBITS)
      s->contents_encoded({});
  }
  return true;
}

uint64_t ELF_FILE::lay_out_image(uint64_t position) {
  // Allocated sections stay where the image has them; the program header
  // table stays unless it grew; the rest follows the highest image byte.
  ELF_SECTION_TABLE *sections = get_section_table();
  uint64_t high = std::max<uint64_t>(position, image_bytes_.size());
  uint32_t count = segments_->get_count();
  uint64_t table = static_cast<uint64_t>(count) * record_size<ELF32_PROGRAM_HEADER_RECORD>();
  if (count == 0) {
    header_.e_phoff = 0;
  } else if (header_.e_phoff == 0 || count > header_.e_phnum) {
    header_.e_phoff = static_cast<uint32_t>(align_up(high, 4));
    high = header_.e_phoff + table;
  }
  for (uint32_t i = 1; i < sections->get_count(); i++) {
    ELF_SECTION *s = sections->get_section(i);
    if (s->get_flags() & SHF_ALLOC)
      continue;
    high = align_up(high, s->get_alignment());
    s->place({}, static_cast<uint32_t>(high));
    if (s->get_type() != SHT_NOBITS)
      high += s->get_size();
  }
  return high;
}

bool ELF_FILE::lay_out() {
  ELF_SECTION_TABLE *sections = get_section_table();
  uint32_t count = sections->get_count();
  uint64_t position = is_headerless() ? 0 : record_size<ELF32_HEADER_RECORD>();
  uint32_t segment_count = segments_ ? segments_->get_count() : 0;
  if (keeps_image()) {
    position = lay_out_image(position);
  } else {
    // The program header table first, then the contents in section order.
    header_.e_phoff = segment_count ? static_cast<uint32_t>(align_up(position, 4)) : 0;
    if (segments_)
      position = segments_->lay_out_table(position);
    for (uint32_t i = 1; i < count; i++) {
      ELF_SECTION *s = sections->get_section(i);
      position = align_up(position, s->get_alignment());
      s->place({}, static_cast<uint32_t>(position));
      if (s->get_type() != SHT_NOBITS)
        position += s->get_size();
    }
    if (segments_)
      segments_->complete_layout();
  }
  if (segments_)
    segments_->check_layout();
  position = align_up(position, 4);
  header_.e_shoff = count ? static_cast<uint32_t>(position) : 0;
  position += static_cast<uint64_t>(count) * record_size<ELF32_SECTION_HEADER_RECORD>();
  if (position > 0xFFFFFFFFull) {
    set_error(OF_ERR_LIMITATION, "%s: the file would be larger than 4 GB", message_name());
    return false;
  }
  if (count > 0)
    sections->get_section(0)->set_extended_count({}, count > ELF_MAX_DIRECT_SECTIONS ? count : 0);
  header_.e_shnum = count > ELF_MAX_DIRECT_SECTIONS ? 0 : static_cast<uint16_t>(count);
  header_.e_shentsize = record_size<ELF32_SECTION_HEADER_RECORD>();
  header_.e_ehsize = record_size<ELF32_HEADER_RECORD>();
  header_.e_phnum = static_cast<uint16_t>(segment_count);
  header_.e_phentsize = segment_count ? record_size<ELF32_PROGRAM_HEADER_RECORD>() : 0;
  header_.e_ident[EI_CLASS] = ELFCLASS32;
  header_.e_ident[EI_DATA] = byte_order() == BYTE_ORDERING::BIG ? ELFDATA2MSB : ELFDATA2LSB;
  if (header_.e_ident[EI_VERSION] == 0)
    header_.e_ident[EI_VERSION] = 1;
  if (header_.e_version == 0)
    header_.e_version = 1;
  file_size_ = position;
  if (keeps_image() && image_overlaps_headers())
    return false;
  return !dynamic_ || dynamic_->format();
}

// The allocated sections of a kept image stay where the image has them,
// and the header and its tables are written afresh; a section that lies
// over them would be written over the new header (or have it written over
// its bytes), so such a file is refused rather than copied wrong.
bool ELF_FILE::image_overlaps_headers() {
  ELF_SECTION_TABLE *sections = get_section_table();
  uint32_t count = sections->get_count();
  const struct {
    const char *what;
    uint64_t offset, size;
  } tables[] = {
      {"the file header", 0, is_headerless() ? 0 : record_size<ELF32_HEADER_RECORD>()},
      {"the program header table", header_.e_phoff,
       static_cast<uint64_t>(header_.e_phnum) * record_size<ELF32_PROGRAM_HEADER_RECORD>()},
      {"the section header table", header_.e_shoff,
       static_cast<uint64_t>(count) * record_size<ELF32_SECTION_HEADER_RECORD>()},
  };
  for (uint32_t i = 1; i < count; i++) {
    ELF_SECTION *s = sections->get_section(i);
    const ELF32_SECTION_HEADER_RECORD &h = s->header();
    if (h.sh_type == SHT_NOBITS || h.sh_size == 0)
      continue;
    for (const auto &t : tables)
      if (t.size != 0 && h.sh_offset < t.offset + t.size && t.offset < uint64_t{h.sh_offset} + h.sh_size) {
        set_error(OF_ERR_MALFORMED, "%s: section %u (\"%s\") at offset 0x%x overlaps %s; it cannot be written "
                  "without changing one of them", message_name(), i, s->get_name().c_str(), h.sh_offset, t.what);
        return true;
      }
  }
  return false;
}

bool ELF_FILE::write_out(FILE *stream) {
  // A read image's bytes are composed in memory with what lies over them
  // (the header, the program headers, the allocated sections); everything
  // after them is written in file order with zeros between, so that a
  // large gap costs no memory.
  ELF_SECTION_TABLE *sections = get_section_table();
  struct PIECE {
    uint64_t offset;
    const uint8_t *bytes;  // null: zeros
    uint64_t size;
  };
  std::vector<PIECE> pieces;
  auto header = encode(header_, byte_order());
  if (!is_headerless())
    pieces.push_back({0, header.data(), header.size()});
  std::vector<uint8_t> table;
  if (segments_ && segments_->get_count() != 0) {
    table.resize(static_cast<size_t>(segments_->get_count()) * record_size<ELF32_PROGRAM_HEADER_RECORD>());
    segments_->encode_table(table.data());
    pieces.push_back({header_.e_phoff, table.data(), table.size()});
  }
  for (uint32_t i = 1; i < sections->get_count(); i++) {
    ELF_SECTION *s = sections->get_section(i);
    const ELF32_SECTION_HEADER_RECORD &h = s->header();
    if (h.sh_type != SHT_NOBITS && h.sh_size != 0)
      pieces.push_back({h.sh_offset, s->get_data()->slice(0, h.sh_size), h.sh_size});
  }
  std::vector<uint8_t> headers;
  for (uint32_t i = 0; i < sections->get_count(); i++) {
    auto bytes = encode(sections->get_section(i)->header(), byte_order());
    headers.insert(headers.end(), bytes.begin(), bytes.end());
  }
  if (!headers.empty())
    pieces.push_back({header_.e_shoff, headers.data(), headers.size()});

  std::vector<uint8_t> image(std::min<uint64_t>(image_bytes_.size(), file_size_));
  if (!image.empty())
    memcpy(image.data(), image_bytes_.slice(0, image.size()), image.size());
  std::vector<PIECE> after;
  bool ok = true;
  for (const PIECE &p : pieces) {
    if (p.offset >= image.size()) {
      after.push_back(p);
    } else if (p.size > image.size() - p.offset) {
      ok = false;
    } else if (p.bytes) {
      memcpy(image.data() + p.offset, p.bytes, p.size);
    } else {
      memset(image.data() + p.offset, 0, p.size);
    }
  }
  std::stable_sort(after.begin(), after.end(), [](const PIECE &a, const PIECE &b) { return a.offset < b.offset; });
  static const uint8_t zeros[65536] = {};
  uint64_t position = 0;
  auto put = [&](const uint8_t *bytes, uint64_t size) {
    while (ok && size != 0) {
      size_t n = static_cast<size_t>(std::min<uint64_t>(size, bytes ? size : sizeof zeros));
      if (fwrite(bytes ? bytes : zeros, 1, n, stream) != n) {
        set_write_error();
        return false;
      }
      position += n;
      size -= n;
      if (bytes)
        bytes += n;
    }
    return ok;
  };
  if (!ok)
    set_error(OF_ERR_INTERNAL, "%s: a part of the file overlaps the loaded image", message_name());
  ok = ok && put(image.data(), image.size());
  for (const PIECE &p : after) {
    if (p.offset < position) {
      set_error(OF_ERR_INTERNAL, "%s: two parts of the file overlap at offset 0x%llx", message_name(),
                static_cast<unsigned long long>(p.offset));
      return false;
    }
    ok = ok && put(nullptr, p.offset - position) && put(p.bytes, p.size);
  }
  return ok && put(nullptr, file_size_ > position ? file_size_ - position : 0);
}

}  // namespace OFE
