#include "objfile/coff/qvcoff_lnno.h"

#include <string>

#include "objfile/coff/qvcoff_file.h"
#include "objfile/coff/qvcoff_section.h"
#include "objfile/coff/qvcoff_symbol.h"
#include "support/record_codec.h"
#include "support/xml_writer.h"

namespace OFE {

QVCOFF_FILE *QVCOFF_LNNO_TABLE::file() const { return section_->get_file(); }

void QVCOFF_LNNO_TABLE::load() {
  if (loaded_)
    return;
  loaded_ = true;
  const QVCOFF_SECTION_HEADER &h = section_->get_header();
  QVCOFF_FILE *f = file();
  if (!f->was_read_from_stream() || h.s_nlnno == 0 || section_->is_new())
    return;
  DATA_MAP map;
  (void)f->map_file_region(h.s_lnnoptr, uint64_t{h.s_nlnno} * QVCOFF_LINENO_SIZE, map,
                           section_->describe("line number table"), QVCOFF_LINENO_SIZE);
  uint64_t count = map.size() / QVCOFF_LINENO_SIZE;
  entries_.reserve(count);
  for (uint64_t i = 0; i < count; i++)
    entries_.push_back(map.read_record<QVCOFF_LINENO_RECORD>());
}

uint32_t QVCOFF_LNNO_TABLE::get_count() {
  load();
  return static_cast<uint32_t>(entries_.size());
}

const QVCOFF_LINENO_RECORD *QVCOFF_LNNO_TABLE::get_entry(uint32_t index) {
  load();
  if (index >= entries_.size()) {
    file()->set_error(OF_ERR_INVALID_REQUEST, "request for line number entry %ld which does not exist",
                      static_cast<long>(index));
    return nullptr;
  }
  return &entries_[index];
}

int QVCOFF_LNNO_TABLE::add_entry(uint32_t address_or_symbol, uint16_t line) {
  load();
  return apply_change(section_->begin_change(), [&] { entries_.push_back({address_or_symbol, line}); });
}

int QVCOFF_LNNO_TABLE::clear() {
  load();
  return apply_change(section_->begin_change(), [&] { entries_.clear(); });
}

QVCOFF_LNNO_TABLE::QVCOFF_LNNO_TABLE(QVCOFF_SECTION *section) : OF_INDEX_HOLDER(section->get_file()), section_(section) {}

void QVCOFF_LNNO_TABLE::follow_symbols(const OF_SYMBOL_TABLE &symbols, const OF_INDEX_MAP &map) {
  if (&symbols != file()->get_symbol_table())
    return;
  load();
  for (QVCOFF_LINENO_RECORD &e : entries_)
    if (e.l_lnno == 0)
      e.l_addr = map.follow(e.l_addr);
}

std::vector<uint8_t> QVCOFF_LNNO_TABLE::encode(uint32_t count) {
  load();
  BYTE_ORDERING order = file()->byte_order();
  std::vector<uint8_t> out(uint64_t{count} * QVCOFF_LINENO_SIZE);
  for (uint32_t i = 0; i < count && i < entries_.size(); i++)
    ::encode(entries_[i], order, out.data() + uint64_t{i} * QVCOFF_LINENO_SIZE);
  return out;
}

std::optional<uint32_t> QVCOFF_LNNO_TABLE::function_first_line(uint32_t index) {
  QVCOFF_SYMBOL_TABLE *symbols = file()->get_qvcoff_symbol_table();
  // The function's ".bf" is the first C_FCN symbol behind it.
  for (QVCOFF_SYMBOL *s : symbols->qvcoff_symbols(symbols->next_index(index))) {
    if (s->get_storage_class() != C_FCN)
      continue;
    if (s->get_name() != ".bf" || s->get_aux().empty())
      return std::nullopt;
    if (auto *scope = std::get_if<QVCOFF_AUX_SCOPE_RECORD>(&s->get_aux().front()))
      return scope->x_lnno;
    return std::nullopt;
  }
  return std::nullopt;
}

namespace {

// The name of the last C_FILE symbol before `index`, or "".
std::string file_of(QVCOFF_SYMBOL_TABLE *symbols, uint32_t index) {
  std::string name;
  for (QVCOFF_SYMBOL *s : symbols->qvcoff_symbols()) {
    if (s->get_index() >= index)
      break;
    if (s->get_storage_class() == C_FILE)
      name = s->get_name();
  }
  return name;
}

}  // namespace

void QVCOFF_LNNO_TABLE::dump(FILE *stream) {
  load();
  fprintf(stream, "\n Line Number Table for Section %u (\"%s\")\n\n", section_->get_index(),
          section_->get_name().c_str());
  const char *row = "  %-16s %-24s %-10s %s\n";
  fprintf(stream, row, "file", "function", "address", "line");
  fprintf(stream, row, "----", "--------", "-------", "----");
  QVCOFF_SYMBOL_TABLE *symbols = file()->get_qvcoff_symbol_table();
  std::string file_name, function = "(none)";
  std::optional<uint32_t> first;
  for (const QVCOFF_LINENO_RECORD &e : entries_) {
    char address[16] = "", line[16] = "";
    if (e.l_lnno == 0) {
      QVCOFF_SYMBOL *s = symbols->get_qvcoff_symbol(e.l_addr);
      function = s ? s->get_name() : "";
      file_name = file_of(symbols, e.l_addr);
      first = function_first_line(e.l_addr);
    } else {
      snprintf(address, sizeof address, "0x%08x", e.l_addr);
    }
    // The function's own row too: its entry's line 0 is relative like the
    // others.
    if (first)
      snprintf(line, sizeof line, "%d", static_cast<int>(e.l_lnno + *first) - 1);
    fprintf(stream, row, file_name.c_str(), function.c_str(), address, line);
  }
}

void QVCOFF_LNNO_TABLE::dump_xml(XML_WRITER &xml) {
  load();
  xml.open("line_numbers", {{"description", "Line number entries"}});
  bool open = false;
  for (const QVCOFF_LINENO_RECORD &e : entries_) {
    if (e.l_lnno == 0 || !open) {
      if (open)
        xml.close();
      QVCOFF_SYMBOL *s = e.l_lnno == 0 ? file()->get_qvcoff_symbol_table()->get_qvcoff_symbol(e.l_addr) : nullptr;
      xml.open("function", {{"description", "Line number entries for one function"}, {"name", s ? s->get_name() : ""}});
      open = true;
      if (e.l_lnno == 0)
        continue;
    }
    xml.open("line_entry", {{"description", "Line number entry"}});
    xml.element("line", std::to_string(e.l_lnno), {{"description", "Source line number"}});
    xml.element("addr", XML_WRITER::hex(e.l_addr), {{"description", "PC address"}});
    xml.close();
  }
  if (open)
    xml.close();
  xml.close();
}

}  // namespace OFE
