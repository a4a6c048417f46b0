#include "objfile/of_file.h"

#include <cerrno>
#include <cstdarg>
#include <cstring>

#include "objfile/of_index_map.h"
#include "objfile/of_section.h"
#include "objfile/of_symbol.h"
#include "support/xml_writer.h"
#include "support/printable.h"

namespace OFE {

namespace {

struct DUMP_KEYWORD {
  const char *keyword;
  uint32_t part;
  const char *description;
};

const DUMP_KEYWORD DUMP_KEYWORDS[] = {
    {"header", OF_DUMP_HEADER, "file header"},
    {"optheader", OF_DUMP_OPTHEADER, "COFF optional file header"},
    {"sections", OF_DUMP_SECTIONS, "sections"},
    {"rawdata", OF_DUMP_RAWDATA, "section raw data"},
    {"relocs", OF_DUMP_RELOCS, "relocation entries"},
    {"symbols", OF_DUMP_SYMBOLS, "symbols"},
    {"strings", OF_DUMP_STRINGS, "string tables"},
    {"lnnos", OF_DUMP_LNNOS, "COFF line number entries"},
    {"groups", OF_DUMP_GROUPS, "ELF groups"},
    {"segments", OF_DUMP_SEGMENTS, "ELF segments"},
    {"dynamic", OF_DUMP_DYNAMIC, "ELF .dynamic section"},
    {"symhash", OF_DUMP_SYMHASH, "ELF symbol hash table"},
    {"symver", OF_DUMP_SYMVER, "Symbol version information"},
    {"battrs", OF_DUMP_BATTRS, "build attributes"},
};

const DUMP_KEYWORD *find_keyword(const char *keyword) {
  for (const DUMP_KEYWORD &k : DUMP_KEYWORDS)
    if (strcmp(k.keyword, keyword) == 0)
      return &k;
  return nullptr;
}

// Warnings (4, 6) give way to everything else, the soft error 8 to the hard
// codes; a hard code (1, 2, 3, 5, 7) is never replaced.
bool keeps_pending(uint32_t pending, uint32_t incoming) {
  bool incoming_warning = is_warning(incoming);
  switch (pending) {
  case OF_ERR_WARNING:
  case OF_ERR_LIMITATION:
    return incoming_warning;
  case OF_ERR_SOFT:
    return incoming_warning || incoming == OF_ERR_SOFT;
  default:
    return true;
  }
}

}  // namespace

uint32_t dump_part(const char *keyword) {
  const DUMP_KEYWORD *k = find_keyword(keyword);
  return k ? k->part : 0;
}

const char *dump_part_description(const char *keyword) {
  const DUMP_KEYWORD *k = find_keyword(keyword);
  return k ? k->description : nullptr;
}

std::vector<const char *> dump_part_keywords() {
  std::vector<const char *> keywords;
  for (const DUMP_KEYWORD &k : DUMP_KEYWORDS)
    keywords.push_back(k.keyword);
  return keywords;
}

OBJECT_FILE::OBJECT_FILE(const OF_DESCRIPTOR &descriptor)
    : OF_STATE_MACHINE(this), descriptor_(descriptor),
      machine_db_(create_machine_db(this, descriptor.machine)) {}

OBJECT_FILE::~OBJECT_FILE() {
  if (descriptor_.owns_stream && descriptor_.stream)
    fclose(descriptor_.stream);
}

void OBJECT_FILE::set_error(uint32_t code, const char *format, ...) {
  if (error_code_ != OF_ERR_NONE && handler_)
    handler_(this, error_code_, error_text_.c_str());
  if (error_code_ != OF_ERR_NONE && keeps_pending(error_code_, code))
    return;
  char text[4096];
  va_list args;
  va_start(args, format);
  vsnprintf(text, sizeof text, format, args);
  va_end(args);
  error_code_ = code;
  error_text_ = text;
  if (code != OF_ERR_NONE && handler_)
    handler_(this, error_code_, error_text_.c_str());
}

void OBJECT_FILE::clear_error() {
  error_code_ = OF_ERR_NONE;
  error_text_.clear();
}

void OBJECT_FILE::set_error_handler(OF_ERROR_HANDLER handler) {
  handler_ = std::move(handler);
  if (handler_ && error_code_ != OF_ERR_NONE)
    handler_(this, error_code_, error_text_.c_str());
}

// Every table that holds section or symbol indexes is on its file's list
// while it lives, so that every renumbering can hand it its map.
OF_INDEX_HOLDER::OF_INDEX_HOLDER(OBJECT_FILE *file) : file_(file) {
  if (file_)
    file_->add_index_holder(this);
}

OF_INDEX_HOLDER::~OF_INDEX_HOLDER() {
  if (file_)
    file_->remove_index_holder(this);
}

void OBJECT_FILE::remove_index_holder(OF_INDEX_HOLDER *holder) { std::erase(index_holders_, holder); }

// Renumbering sections or symbols hands its map to every registered index
// holder as it happens, so that a format lists no table by hand.
void OBJECT_FILE::follow_section_map(const OF_INDEX_MAP &map) {
  if (map.is_identity())
    return;
  // A copy: following never adds or drops a table, but the list must not
  // move under the walk if it did.
  for (OF_INDEX_HOLDER *holder : std::vector<OF_INDEX_HOLDER *>(index_holders_))
    holder->follow_sections(map);
}

bool OBJECT_FILE::can_follow_symbol_map(const OF_SYMBOL_TABLE &symbols, const OF_INDEX_MAP &map) {
  for (OF_INDEX_HOLDER *holder : std::vector<OF_INDEX_HOLDER *>(index_holders_))
    if (!holder->can_follow_symbols(symbols, map))
      return false;
  return true;
}

void OBJECT_FILE::follow_symbol_map(const OF_SYMBOL_TABLE &symbols, const OF_INDEX_MAP &map) {
  if (map.is_identity())
    return;
  for (OF_INDEX_HOLDER *holder : std::vector<OF_INDEX_HOLDER *>(index_holders_))
    holder->follow_symbols(symbols, map);
}

void OBJECT_FILE::note_short_read(const char *what, FILE_OFFSET offset) {
  if (!short_read_.empty())
    return;
  char at[32];
  snprintf(at, sizeof at, " at offset 0x%llx", static_cast<unsigned long long>(offset));
  short_read_ = std::string("the ") + what + at;
}

void OBJECT_FILE::set_write_error(const char *what) {
  int reason = errno ? errno : EIO;
  set_error(OF_ERR_OPEN, "%s: cannot write %s: %s", message_name(), what, strerror(reason));
}

int OBJECT_FILE::get_file_data(FILE_OFFSET offset, FILE_OFFSET size, DATA_MAP &map) {
  if (!descriptor_.stream) {
    set_error(OF_ERR_INTERNAL, "illegal call to OBJECT_FILE::get_file_data() when the OBJECT_FILE object was "
                               "not read from an input file");
    return -1;
  }
  map.attach(descriptor_.stream, descriptor_.offset + offset, size);
  return 0;
}

int OBJECT_FILE::refuse_without_output() {
  set_error(OF_ERR_INTERNAL,
            "illegal call to OBJECT_FILE::put_file_data() when a valid output file pointer is not present");
  return -1;
}

int OBJECT_FILE::put_file_data(DATA_MAP &map, FILE_OFFSET count) {
  return output_ ? map.save(output_, count) : refuse_without_output();
}

bool OBJECT_FILE::select_dump(const char *keyword, bool on) {
  uint32_t part = strcmp(keyword, "all") == 0 ? OF_DUMP_ALL : dump_part(keyword);
  if (!part)
    return false;
  dump_parts_ = on ? dump_parts_ | part : dump_parts_ & ~part;
  return true;
}

int OBJECT_FILE::dump(FILE *stream) {
  if (is_dump_selected(OF_DUMP_HEADER)) {
    fputs("\n Object File Information\n\n", stream);
    print_info(stream);
  }
  dump_format(stream);
  return 0;
}

int OBJECT_FILE::to_path(const char *path, const char *mode, const char *what,
                         const std::function<int(FILE *)> &body) {
  FILE *stream = fopen(path, mode);
  if (!stream) {
    set_error(OF_ERR_OPEN, "%s", "");
    return -1;
  }
  int result = body(stream);
  // The close flushes what is still buffered: a refusal there is as much a
  // lost write as one along the way.
  if (fclose(stream) != 0 && result == 0) {
    set_write_error(what);
    result = -1;
  }
  return result;
}

int OBJECT_FILE::dump_to_path(const char *path) {
  return to_path(path, "w", "the listing", [this](FILE *stream) { return dump(stream); });
}

int OBJECT_FILE::dump_xml(FILE *stream) {
  XML_WRITER xml(stream);
  return dump_xml(xml);
}

int OBJECT_FILE::dump_xml(XML_WRITER &xml) {
  xml.open("object_file", {{"name", get_file_name()}, {"format", format_name(get_format())}});
  dump_format_xml(xml);
  xml.close();
  return 0;
}

int OBJECT_FILE::dump_xml_to_path(const char *path) {
  return to_path(path, "w", "the listing", [this](FILE *stream) {
    XML_WRITER(stream).declaration();
    return dump_xml(stream);
  });
}

int OBJECT_FILE::attach_file(const OF_DESCRIPTOR &descriptor) {
  if (descriptor_.owns_stream && descriptor_.stream && descriptor_.stream != descriptor.stream)
    fclose(descriptor_.stream);
  descriptor_.stream = descriptor.stream;
  descriptor_.name = descriptor.name;
  descriptor_.offset = descriptor.offset;
  descriptor_.size = descriptor.size;
  descriptor_.owns_stream = descriptor.owns_stream;
  if (descriptor_.stream)
    return pfseeko(descriptor_.stream, platform_offset(descriptor_.offset), SEEK_SET);
  return 0;
}

void OBJECT_FILE::print_info(FILE *stream) {
  auto row = [stream](const char *label, const char *value) { fprintf(stream, "  %-26s%s\n", label, value); };
  char buf[64];
  row("File Name:", descriptor_.name.empty() ? "(unknown file)" : printable(descriptor_.name).c_str());
  std::string format = std::string(format_name(get_format())) + " Version " + format_version_name(get_format_version());
  row("Format:", format.c_str());
  row("File Type:", file_type_name(get_file_type()));
  snprintf(buf, sizeof buf, "%u", get_time_stamp());
  row("Time Stamp:", buf);
  row("Machine:", machine_name(get_machine()));
  row("Machine Endian:", endian_name(get_endian()));
  snprintf(buf, sizeof buf, "0x%08x", get_entry_point());
  row("Entry Point:", buf);
  row("Vendor:", get_vendor());
  row("Producer:", get_producer().c_str());
  std::string version_label = std::string(format_name(get_format())) + " Version:";
  row(version_label.c_str(), format_version_name(get_format_version()));
  OF_SECTION_TABLE *sections = get_section_table();
  snprintf(buf, sizeof buf, "%u", sections ? sections->get_count() : 0);
  row("Number of Sections:", buf);
  snprintf(buf, sizeof buf, "%llu", static_cast<unsigned long long>(descriptor_.size));
  row("File Length:", buf);
  snprintf(buf, sizeof buf, "0x%llx", static_cast<unsigned long long>(descriptor_.offset));
  row("File Offset in Archive:", buf);
}

}  // namespace OFE
