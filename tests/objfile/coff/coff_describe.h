// Everything the library decodes from a COFF file, as text: headers (file
// offsets left out, as a copy lays the file out anew), sections with their
// contents, relocation and line-number entries and groups, and symbols with
// their auxiliary entries. Two files that decode alike describe alike, so a
// failing comparison shows where they differ.
#pragma once

#include <gtest/gtest.h>

#include <cstdio>
#include <sstream>
#include <string>

#include "objfile/coff/coff_open.h"
#include "objfile/coff/qvcoff_group.h"
#include "objfile/coff/qvcoff_lnno.h"
#include "objfile/coff/qvcoff_reloc.h"
#include "objfile/of_build_attr.h"

namespace testing_support {

inline std::string hex_bytes(const uint8_t *bytes, size_t size) {
  std::string out;
  char buf[4];
  for (size_t i = 0; i < size; i++) {
    snprintf(buf, sizeof buf, "%02x", bytes[i]);
    out += buf;
  }
  return out;
}

// Writes the object through the pipeline and returns the bytes.
inline std::string write_to_string(OFE::OBJECT_FILE *object) {
  FILE *stream = tmpfile();
  int result = object->write(stream);
  EXPECT_EQ(result, 0) << object->get_error_text();
  std::string bytes;
  rewind(stream);
  char buf[4096];
  size_t n;
  while ((n = fread(buf, 1, sizeof buf, stream)) > 0)
    bytes.append(buf, n);
  fclose(stream);
  return bytes;
}

inline std::string describe(OFE::QVCOFF_FILE *f) {
  using namespace OFE;
  std::ostringstream o;
  const QVCOFF_FILE_HEADER &h = f->get_file_header();
  o << "header version=" << h.f_version << " nscns=" << h.f_nscns << " time=" << h.f_timdat << " nsyms=" << h.f_nsyms
    << " opthdr=" << h.f_opthdr << " flags=" << h.f_flags << " target=" << h.f_target_id << "\n";
  if (f->has_optional_header()) {
    const QVCOFF_OPT_HEADER_RECORD &p = f->get_optional_header();
    o << "optional " << p.magic << " " << p.tool_version << " " << p.text_size << " " << p.data_size << " "
      << p.bss_size << " " << p.entry_point << " " << p.text_start << " " << p.data_start << "\n";
  }
  QVCOFF_SECTION_TABLE *sections = f->get_qvcoff_section_table();
  for (uint32_t i = 1; i <= sections->get_count(); i++) {
    QVCOFF_SECTION *s = sections->get_qvcoff_section(i);
    const QVCOFF_SECTION_HEADER &sh = s->get_header();
    o << "section " << i << " '" << s->get_name() << "' paddr=" << sh.s_paddr << " vaddr=" << sh.s_vaddr
      << " size=" << sh.s_size << " nreloc=" << sh.s_nreloc << " nlnno=" << sh.s_nlnno << " flags=" << sh.s_flags
      << " mwidth=" << int(sh.s_mwidth) << " page=" << sh.s_page << "\n";
    // Groups and build attributes are words in the file's byte order: they
    // are described by value below.
    bool by_value = (sh.s_flags & 0x00080000) || s->get_name() == "$build.attributes";
    if (DATA_MAP *d = s->get_data(); d && !by_value)
      o << "  data " << hex_bytes(d->slice(0, d->size()), d->slice(0, d->size()) ? d->size() : 0) << "\n";
    QVCOFF_RELOC_TABLE *r = s->relocations();
    for (uint32_t j = 0; j < r->get_count(); j++) {
      QVCOFF_RELOC *e = r->get_qvcoff_reloc(j);
      OF_SYMBOL *sym = e->get_symbol();
      o << "  reloc " << e->get_address() << " type=" << e->get_type() << " word=" << e->get_symbol_index()
        << " second=" << e->get_second_word() << " field=" << int(e->get_field_offset()) << "/"
        << int(e->get_field_size()) << "/" << int(e->get_field_word_size()) << " disp=" << e->get_displacement()
        << " symbol=" << (sym ? sym->get_name() : "-") << "\n";
    }
    QVCOFF_LNNO_TABLE *l = s->line_numbers();
    for (uint32_t j = 0; j < l->get_count(); j++)
      o << "  line " << l->get_entry(j)->l_addr << " " << l->get_entry(j)->l_lnno << "\n";
    if (QVCOFF_GROUP_TABLE *g = s->group()) {
      OF_SYMBOL *sig = g->get_signature();
      o << "  group flag=" << g->get_flag() << " signature=" << (sig ? sig->get_name() : "-") << " members";
      for (uint32_t j = 0; j < g->get_count(); j++)
        o << " " << g->get_member_index(j);
      o << "\n";
    }
  }
  if (f->has_build_attributes()) {
    o << "build attributes";
    for (uint32_t i : f->get_build_attr_list_indexes("vela28abi", OFE::OFBA_SCOPE_SYMBOL, 0))
      o << " " << i;
    o << "\n";
  }
  QVCOFF_SYMBOL_TABLE *t = f->get_qvcoff_symbol_table();
  for (uint32_t i = 0; i < t->get_count(); i = t->next_index(i)) {
    QVCOFF_SYMBOL *s = t->get_qvcoff_symbol(i);
    if (!s) {
      o << "symbol " << i << " missing\n";
      continue;
    }
    o << "symbol " << i << " '" << s->get_name() << "' value=" << s->get_value() << " scnum=" << s->get_section_number()
      << " type=" << s->get_type_word() << " class=" << int(s->get_storage_class()) << " naux=" << int(s->get_aux_count())
      << "\n";
    for (const QVCOFF_AUX &a : s->get_aux()) {
      auto bytes = encode_aux(a, BYTE_ORDERING::BIG);
      o << "  aux " << a.index() << " " << hex_bytes(bytes.data(), bytes.size()) << "\n";
    }
  }
  return o.str();
}

}  // namespace testing_support
