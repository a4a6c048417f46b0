// ofedump: lists what the object-file library sees in object files and in
// whole libraries, as text or as one XML document.
//
// Objects are opened with open_object. Sections, segments, symbols,
// relocations and raw data are shown as compact tables (ofedump_tables.cpp);
// the other categories, and all of them with --full, are listed by
// OBJECT_FILE::dump or dump_xml; a category that does not apply to a format
// is simply not printed by that format. Libraries are read through the
// archiver's own reader, so member names and the symbol index come out
// exactly as the archiver resolves them. The library's messages go to
// standard error through USER_MSG, the tool's own begin with its name; a
// file that could not be read completely still lists what could be read,
// the remaining files are still listed, and the exit status is 1.

#include <array>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <string>
#include <vector>

#include "archiver/ar_archive.h"
#include "archiver/ar_copy.h"
#include "archiver/ar_header.h"
#include "archiver/ar_read.h"
#include "objfile/of_file.h"
#include "support/ending_signals.h"
#include "support/printable.h"
#include "support/tool_name.h"
#include "support/user_msg.h"
#include "support/xml_writer.h"
#include "tools/ofedump_tables.h"
#include "tools/tool_support.h"

namespace {

const char USAGE[] =
    "usage: ofedump [-d LIST]... [--full | --xml] [--index] [--size] FILE...\n"
    "\n"
    "Lists the contents of ELF and QV-COFF object files. A FILE that is a\n"
    "library lists every member in order.\n"
    "\n"
    "  -d LIST    comma-separated listings to print; several -d add up\n"
    "             (default header,sections,symbols):\n"
    "%s"
    "             all         every listing\n"
    "             rawdata=NAME and relocs=NAME: only those of section NAME\n"
    "  --full     the labelled listing of every field instead of the tables\n"
    "             of sections, segments, symbols, relocations and raw data\n"
    "  --xml      one XML document for the whole run\n"
    "  --index    a library's symbol index: one \"SYMBOL in MEMBER\" line each\n"
    "  --size     text, data and bss sizes of each object, and their totals\n"
    "             (alone, or with -d for the listings too)\n"
    "  --version  print the version\n"
    "  --help     print this text\n";

const char DEFAULT_LISTINGS[] = "header,sections,symbols";

USER_MSG &msg() { return USER_MSG::instance(); }

std::string keyword_help() {
  std::string text;
  for (const char *keyword : OFE::dump_part_keywords()) {
    char line[128];
    snprintf(line, sizeof line, "             %-11s %s\n", keyword, OFE::dump_part_description(keyword));
    text += line;
  }
  return text;
}

struct OPTIONS {
  std::vector<std::string> listings;  // keywords, without their section names
  tools::TABLE_CHOICE tables;         // the section filters, and later the compact views
  bool full = false;
  bool xml = false;
  bool index = false;
  bool size = false;
  std::vector<std::string> files;
};

// Splits LIST and checks every keyword; an unknown one ends the run with
// the list of the valid ones. "rawdata" and "relocs" may name a section.
void parse_listings(const std::string &list, OPTIONS &options) {
  size_t start = 0;
  for (;;) {
    size_t comma = list.find(',', start);
    std::string keyword = list.substr(start, comma == std::string::npos ? std::string::npos : comma - start);
    size_t equals = keyword.find('=');
    std::string section = equals == std::string::npos ? "" : keyword.substr(equals + 1);
    keyword = keyword.substr(0, equals);
    if (keyword != "all" && OFE::dump_part(keyword.c_str()) == 0) {
      std::string valid;
      for (const char *k : OFE::dump_part_keywords())
        valid += std::string(k) + ", ";
      tools::usage_error("ofedump", "unknown listing '%s' (valid: %sall)", keyword.c_str(), valid.c_str());
    }
    if (equals != std::string::npos) {
      if (keyword != "rawdata" && keyword != "relocs")
        tools::usage_error("ofedump", "only rawdata and relocs take a section name, not '%s'", keyword.c_str());
      if (section.empty())
        tools::usage_error("ofedump", "no section name after '%s='", keyword.c_str());
      (keyword == "rawdata" ? options.tables.rawdata_section : options.tables.relocs_section) = section;
    }
    options.listings.push_back(keyword);
    if (comma == std::string::npos)
      return;
    start = comma + 1;
  }
}

OPTIONS parse(int argc, char **argv) {
  OPTIONS options;
  std::vector<std::string> lists;
  bool operands_only = false;
  for (int i = 1; i < argc; i++) {
    std::string arg = argv[i];
    if (operands_only || arg.empty() || arg[0] != '-' || arg == "-") {
      options.files.push_back(arg);
    } else if (arg == "--") {
      operands_only = true;
    } else if (arg == "--help" || arg == "-h") {
      fprintf(stdout, USAGE, keyword_help().c_str());
      tools::exit_after_output();
    } else if (arg == "--version") {
      tools::print_version();
    } else if (arg == "--xml") {
      options.xml = true;
    } else if (arg == "--full") {
      options.full = true;
    } else if (arg == "--index") {
      options.index = true;
    } else if (arg == "--size") {
      options.size = true;
    } else if (arg == "-d") {
      if (++i == argc)
        tools::usage_error("ofedump", "option '-d' needs a LIST of listings");
      lists.push_back(argv[i]);
    } else if (arg.compare(0, 2, "-d") == 0) {
      lists.push_back(arg.substr(2));
    } else {
      tools::usage_error("ofedump", "unknown option '%s'", arg.c_str());
    }
  }
  if (options.files.empty())
    tools::usage_error("ofedump", "no FILE to list");
  if (options.xml && (options.full || options.index || options.size))
    tools::usage_error("ofedump", "--xml takes no --full, --index or --size");
  // --index and --size alone print only what they ask for.
  if (lists.empty() && !options.index && !options.size)
    lists.push_back(DEFAULT_LISTINGS);
  for (const std::string &list : lists)
    parse_listings(list, options);
  bool filtered = !options.tables.rawdata_section.empty() || !options.tables.relocs_section.empty();
  if (filtered && (options.full || options.xml))
    tools::usage_error("ofedump", "a section name after rawdata= or relocs= needs the tables, not --full or --xml");
  return options;
}

// The messages of the archive reader, for the file being listed.
bool archive_failed = false;

void archive_error(ARCHIVE *, int, const char *text) {
  msg().error("%s", text);
  archive_failed = true;
}

class LISTER {
public:
  explicit LISTER(const OPTIONS &options) : options_(options), xml_(stdout) {}

  // Lists every file; true when all of them could be read.
  bool run() {
    if (options_.xml) {
      xml_.declaration();
      xml_.open("ofedump");
    }
    bool ok = true;
    for (const std::string &file : options_.files)
      ok = list_file(file) && ok;
    if (options_.xml)
      xml_.close();
    // Totals count what was listed: when every file failed, there is none.
    if (options_.size && (ok || size_heading_printed_)) {
      size_heading();
      tools::print_size_row(stdout, total_size_, "(TOTALS)");
    }
    fflush(stdout);
    return ok;
  }

private:
  bool list_file(const std::string &path) {
    FILE *stream = tools::open_input_file(path.c_str());
    if (!stream) {
      if (options_.xml)
        xml_.empty("unreadable", {{"name", path}});
      return false;
    }
    named_found_ = {false, false};
    bool library = tools::is_library(stream);
    if (options_.index && !library)
      tools::warning("'%s' is not a library: it has no symbol index", path.c_str());
    bool ok;
    if (library) {
      fclose(stream);
      ok = list_archive(path);
    } else {
      if (listing() && !options_.xml)
        printf("\nFile: %s\n", printable(path).c_str());
      ok = list_object(stream, 0, path, path, false);
      fclose(stream);
    }
    // A section name that matched nothing would otherwise list nothing and
    // say nothing, as if the section were empty.
    auto named = named_sections();
    for (size_t i = 0; i < named.size(); i++)
      if (ok && !named[i]->empty() && !named_found_[i])
        tools::warning("no section named '%s' in %s'%s'", named[i]->c_str(), library ? "any member of " : "",
                       path.c_str());
    return ok;
  }

  bool list_archive(const std::string &path) {
    archive_failed = false;
    ARCHIVE *ar = ar_create(path.c_str(), archive_error, AR_READ);
    if (options_.xml)
      xml_.open("archive", {{"name", path}});
    else if (listing())
      printf("\nArchive: %s\n", printable(path).c_str());
    // A damaged member list still lists the members read before the damage.
    if (ar_test_magic(ar) && ar_read_special_members(ar, options_.index))
      (void)ar_load_members(ar);
    bool ok = !archive_failed;
    if (options_.index)
      list_index(ar, path);
    for (AR_MEMBER *m = ar->head; m; m = m->next) {
      std::string name = path + "(" + m->name + ")";
      AR_MEMBER_DATA data;
      FILE *stream = nullptr;
      if (m->size != 0) {
        // The member is read through a stream of its own over the library's
        // descriptor, positioned at its first byte.
        int fd = ar_open_member_data(ar, m, &data) ? dup(data.fd) : -1;
        stream = fd >= 0 ? fdopen(fd, "rb") : nullptr;
        if (!stream && fd >= 0)
          close(fd);
        if (stream && fseeko(stream, platform_offset(data.offset), SEEK_SET) != 0) {
          fclose(stream);
          stream = nullptr;
        }
        ar_close_member_data(&data);
        if (!stream) {
          ok = false;
          break;
        }
      }
      if (options_.xml)
        xml_.open("member", {{"name", m->name}, {"offset", XML_WRITER::hex(m->data_offset)}});
      else if (listing())
        printf("\nFile: %s\n", printable(name).c_str());
      std::string size_name = std::string(m->name) + " (ex " + path + ")";
      ok = (stream ? list_object(stream, m->size, name, size_name, true) : list_not_object(name)) && ok;
      if (stream)
        fclose(stream);
      if (options_.xml)
        xml_.close();
    }
    if (options_.xml)
      xml_.close();
    ar_destroy(ar);
    return ok;
  }

  // The column names, once, above the first row of sizes.
  void size_heading() {
    if (!size_heading_printed_)
      tools::print_size_heading(stdout);
    size_heading_printed_ = true;
  }

  // Whether the listings of -d are printed (--index and --size alone print
  // only theirs).
  bool listing() const { return !options_.listings.empty(); }

  // "SYMBOL in MEMBER" for each entry of the library's symbol index, in
  // its order; the entries name their member by its header's offset.
  void list_index(ARCHIVE *ar, const std::string &path) {
    if (!ar->symbols_head) {
      // Nothing to print is not the same as nothing to say: a linker finds
      // no member of this library by name.
      tools::warning("'%s' has no symbol index, or an empty one", path.c_str());
      return;
    }
    std::map<FILE_OFFSET, const char *> members;
    for (AR_MEMBER *m = ar->head; m; m = m->next)
      members[m->data_offset - AR_HEADER_SIZE] = m->name;
    printf("\nArchive index:\n");
    for (AR_SYMBOL *s = ar->symbols_head; s; s = s->next) {
      auto member = members.find(s->header_offset);
      printf("%s in %s\n", printable(s->name).c_str(),
             member == members.end() ? "(no member at that offset)" : printable(member->second).c_str());
    }
    printf("\n");
  }

  // A member that holds no object is part of a valid library: one line, no
  // error. Sizes alone print no line for it, so a warning says that the
  // totals leave it out.
  bool list_not_object(const std::string &name) {
    if (options_.xml)
      xml_.empty("not_object_file");
    else if (listing())
      printf("  not an object file\n");
    else if (options_.size)
      tools::warning("'%s' is not an object file: it has no sizes to count", name.c_str());
    return true;
  }

  // The listings of -d: the header first, then the compact tables (or the
  // library's labelled listing of them with --full), then the rest.
  void list_parts(OFE::OBJECT_FILE &object) {
    uint32_t parts = 0;
    for (const std::string &keyword : options_.listings)
      parts |= keyword == "all" ? OFE::OF_DUMP_ALL : OFE::dump_part(keyword.c_str());
    const uint32_t table_parts = OFE::OF_DUMP_SECTIONS | OFE::OF_DUMP_SEGMENTS | OFE::OF_DUMP_SYMBOLS |
                                 OFE::OF_DUMP_RELOCS | OFE::OF_DUMP_RAWDATA;
    if (options_.xml || options_.full) {
      select(object, parts);
      if (options_.xml)
        (void)object.dump_xml(xml_);  // a failed write shows on stdout, checked at the end
      else
        (void)object.dump(stdout);  // likewise
      return;
    }
    const uint32_t header_parts = OFE::OF_DUMP_HEADER | OFE::OF_DUMP_OPTHEADER;
    if (parts & header_parts) {
      select(object, parts & header_parts);
      (void)object.dump(stdout);  // a failed write shows on stdout, checked at the end
    }
    tools::TABLE_CHOICE choice = options_.tables;
    choice.sections = parts & OFE::OF_DUMP_SECTIONS;
    choice.segments = parts & OFE::OF_DUMP_SEGMENTS;
    choice.symbols = parts & OFE::OF_DUMP_SYMBOLS;
    choice.relocs = parts & OFE::OF_DUMP_RELOCS;
    choice.rawdata = parts & OFE::OF_DUMP_RAWDATA;
    tools::print_tables(stdout, object, choice);
    OFE::OF_SECTION_TABLE *sections = object.get_section_table();
    auto named = named_sections();
    for (size_t i = 0; i < named.size(); i++)
      named_found_[i] = named_found_[i] || (!named[i]->empty() && sections && sections->find_section(*named[i]));
    if (uint32_t rest = parts & ~(header_parts | table_parts)) {
      select(object, rest);
      (void)object.dump(stdout);
    }
  }

  // The keywords are the library's own: none is refused.
  static void select(OFE::OBJECT_FILE &object, uint32_t parts) {
    (void)object.select_dump("all", false);
    for (const char *keyword : OFE::dump_part_keywords())
      if (parts & OFE::dump_part(keyword))
        (void)object.select_dump(keyword);
  }

  bool list_object(FILE *stream, FILE_OFFSET size, const std::string &name, const std::string &size_name,
                   bool member) {
    tools::REPORTS reports;
    std::unique_ptr<OFE::OBJECT_FILE> object(
        OFE::open_object(stream, size, name.c_str(), tools::reporting_handler(reports)));
    if (!object) {
      if (member)
        return list_not_object(name);
      tools::error("'%s' is not an ELF or QV-COFF object file", name.c_str());
      if (options_.xml)
        xml_.empty("unreadable", {{"name", name}});
      return false;
    }
    // An object whose file header could not be read has nothing to list.
    if (reports.errors != 0 && options_.xml)
      xml_.empty("unreadable", {{"name", name}});
    if (reports.errors == 0 && listing())
      list_parts(*object);
    if (reports.errors == 0 && options_.size) {
      tools::SIZE_SPLIT split = tools::size_split(*object);
      size_heading();
      tools::print_size_row(stdout, split, size_name);
      total_size_ += split;
    }
    if (reports.errors != 0)
      tools::error("'%s' could not be read completely", name.c_str());
    else if (!object->was_read_completely())
      tools::error("'%s' could not be read completely: %s runs past the end of the file", name.c_str(),
                  object->get_short_read().c_str());
    return reports.errors == 0 && object->was_read_completely();
  }

  const OPTIONS &options_;
  XML_WRITER xml_;
  tools::SIZE_SPLIT total_size_;
  bool size_heading_printed_ = false;
  // The sections that rawdata= and relocs= name (empty: none), and whether
  // each was in an object of the file being listed.
  std::array<const std::string *, 2> named_sections() const {
    return {&options_.tables.rawdata_section, &options_.tables.relocs_section};
  }
  std::array<bool, 2> named_found_ = {};
};

}  // namespace

int main(int argc, char **argv) {
  set_tool_name("ofedump");  // the program the library's messages tell the user to update
  tools::keep_output_errors();
  OPTIONS options = parse(argc, argv);
  ignore_file_size_signal();
  // A damaged library may report many errors; every file is still listed.
  msg().set_error_limit(0x7FFFFFFF);
  bool ok = LISTER(options).run();
  return tools::output_written() && ok ? 0 : 1;
}
