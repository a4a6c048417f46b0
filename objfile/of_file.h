// OBJECT_FILE: the abstract object file.
//
// Created by open_object()/create_object() from a stream positioned at the
// first byte of an object (a file of its own or an archive member), which is
// recognised as ELF or one of the three COFF layout versions; the concrete
// ELF_FILE or QVCOFF_FILE then supplies the format operations. Tables are
// created on first request and owned by the object.
//
// Failures never stop the program: they become the object's pending error
// (code + text), which is handed to an optional error handler, while the
// operation returns none, 0, an empty string or -1. The first error of the
// highest rank sticks (see set_error).
#pragma once

#include <cstdint>
#include <cstdio>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "objfile/data_map.h"
#include "objfile/of_index_map.h"
#include "objfile/of_mach.h"
#include "objfile/of_section.h"
#include "objfile/of_state.h"
#include "objfile/of_symbol.h"
#include "objfile/of_types.h"

class XML_WRITER;

namespace OFE {

// What creation hands to the format classes, copied into the object.
struct OF_DESCRIPTOR {
  FILE *stream = nullptr;
  std::string name;  // may be empty
  OF_FORMAT format = OF_FORMAT_UNKNOWN;
  OF_FORMAT_VERSION version = OF_VERSION_UNKNOWN;
  OF_ENDIAN endian = OF_ENDIAN_UNKNOWN;
  OF_MACHINE machine = OF_MACHINE_UNKNOWN;
  FILE_OFFSET offset = 0;  // stream offset of the file's first byte
  FILE_OFFSET size = 0;    // 0: to the end of the stream
  bool owns_stream = false;
};

class OBJECT_FILE;
using OF_ERROR_HANDLER = std::function<void(OBJECT_FILE *object, uint32_t code, const char *text)>;

// Parts of the dump() listing, selected by keyword.
enum OF_DUMP_PART : uint32_t {
  OF_DUMP_HEADER = 1u << 0,
  OF_DUMP_OPTHEADER = 1u << 1,
  OF_DUMP_SECTIONS = 1u << 2,
  OF_DUMP_RAWDATA = 1u << 3,
  OF_DUMP_RELOCS = 1u << 4,
  OF_DUMP_SYMBOLS = 1u << 5,
  OF_DUMP_STRINGS = 1u << 6,
  OF_DUMP_LNNOS = 1u << 7,
  OF_DUMP_GROUPS = 1u << 8,
  OF_DUMP_SEGMENTS = 1u << 9,
  OF_DUMP_DYNAMIC = 1u << 10,
  OF_DUMP_SYMHASH = 1u << 11,
  OF_DUMP_SYMVER = 1u << 12,
  OF_DUMP_BATTRS = 1u << 13,
  OF_DUMP_ALL = (1u << 14) - 1,
};

// The part a keyword ("header", "symbols", ...) selects, or 0.
uint32_t dump_part(const char *keyword);
// Its description ("file header", ...), or null.
const char *dump_part_description(const char *keyword);
// Every keyword dump_part() knows, in the listing's order ("all" is not one).
std::vector<const char *> dump_part_keywords();

class OBJECT_FILE : public OF_STATE_MACHINE {
public:
  explicit OBJECT_FILE(const OF_DESCRIPTOR &descriptor);
  ~OBJECT_FILE() override;
  OBJECT_FILE(const OBJECT_FILE &) = delete;
  OBJECT_FILE &operator=(const OBJECT_FILE &) = delete;

  // Format operations. The setters of file type, entry point and byte order
  // require a state at most "locked" (require_state_at_most) before changing
  // anything.
  virtual OF_FORMAT_VERSION get_format_version() const = 0;
  // Relocatable, executable, shared object or core (OF_FILE_TYPE).
  virtual OF_FILE_TYPE get_file_type() const = 0;
  [[nodiscard]] virtual int set_file_type(uint32_t type) = 0;  // "invalid file type" outside 1-4
  // The target the file is built for.
  virtual OF_MACHINE get_machine() const = 0;
  // Whether the file names an entry point.
  [[nodiscard]] virtual bool has_entry_point() const { return get_entry_point() != 0; }
  // The entry point address, or 0.
  virtual uint32_t get_entry_point() const = 0;
  // Sets the entry point address; 0, or -1 with the error pending.
  [[nodiscard]] virtual int set_entry_point(uint32_t address) = 0;
  // The byte order the file is written in.
  virtual OF_ENDIAN get_endian() const = 0;
  [[nodiscard]] virtual int set_endian(uint32_t endian) = 0;  // "invalid endian setting" unless 1 or 2
  // The byte order of the section contents (the file's, unless the format says otherwise).
  virtual OF_ENDIAN get_data_endian() const = 0;
  // Back to the open state with no pending error.
  [[nodiscard]] virtual int reset() = 0;
  // The sections, read on first request and owned by the object.
  virtual OF_SECTION_TABLE *get_section_table() = 0;
  // The symbols, read on first request and owned by the object.
  virtual OF_SYMBOL_TABLE *get_symbol_table() = 0;
  // Every section and every symbol (of get_symbol_table()), in index order,
  // whatever the format's numbering; empty when the table is missing.
  OF_SECTION_RANGE sections() { return OF_SECTION_RANGE(get_section_table()); }
  OF_SYMBOL_RANGE symbols() { return OF_SYMBOL_RANGE(get_symbol_table()); }
  // Writes the whole object file through the write pipeline: the object
  // goes back to "open" and up to "saved" again, so every edit is
  // prepared, laid out and written. 0, or -1 with the error pending.
  [[nodiscard]] virtual int write(FILE *stream);
  // write() into a new file ("wb"); error 2 and -1 when it cannot be made.
  [[nodiscard]] virtual int write_to_path(const char *path);
  // The XML listing, and its path form.
  [[nodiscard]] virtual int dump_xml(FILE *stream);
  // The XML listing as one element of a larger document.
  [[nodiscard]] int dump_xml(::XML_WRITER &xml);
  // dump_xml() into a new file; error 2 and -1 when it cannot be opened.
  [[nodiscard]] virtual int dump_xml_to_path(const char *path);
  // Reads the file from the descriptor's stream region.
  [[nodiscard]] virtual int read(const OF_DESCRIPTOR &descriptor) = 0;

  // Generic operations, with neutral answers that formats may refine.
  virtual const char *get_vendor() const { return ""; }
  // The tool that made the file, when the format records it.
  virtual std::string get_producer() { return ""; }
  // The file's time stamp, when the format records one.
  virtual uint32_t get_time_stamp() const { return 0; }
  // "\n Object File Information\n\n" and print_info() when "header" is
  // selected, then the format's listings (dump_format).
  [[nodiscard]] virtual int dump(FILE *stream);
  // dump() into a new file; error 2 and -1 when it cannot be opened.
  [[nodiscard]] virtual int dump_to_path(const char *path);
  // Adopts a new stream, name, offset and size and positions the stream.
  [[nodiscard]] virtual int attach_file(const OF_DESCRIPTOR &descriptor);
  // The information listing.
  virtual void print_info(FILE *stream);

  // ---- Build attributes (of_build_attr_access.cpp) -------------------------
  // The format hook: the file's build-attribute table, read from its section
  // on first request; with `create`, an empty table when the file has none
  // yet. Null when the format or target carries no build attributes. (The
  // elaborated name declares the class in OFE, keeping this block whole.)
  virtual class OF_BUILD_ATTR_TABLE *get_build_attributes(bool /*create*/) { return nullptr; }

  // Everything below is generic, built on that hook. Vendors are named;
  // `scope` is OFBA_SCOPE_FILE, _SECTION or _SYMBOL, and `list` picks among
  // the vendor's lists of that scope (0 for the file scope). Getters answer
  // 0 or "" when the attribute is absent (the has_ queries tell absence
  // apart); setters answer 0, or -1 with error 5 when the request cannot be
  // met.
  //
  // Queries of the file's own vendor (the machine database's), then the
  // whole-table query:
  [[nodiscard]] bool has_vendor_build_attributes();
  [[nodiscard]] bool has_vendor_build_attr(uint32_t tag);
  [[nodiscard]] uint32_t get_vendor_build_attr(uint32_t tag);
  [[nodiscard]] std::string get_vendor_build_attr_string(uint32_t tag);
  [[nodiscard]] bool has_build_attributes();
  // Vendors:
  [[nodiscard]] uint32_t get_build_attr_vendor_count();
  [[nodiscard]] std::string get_build_attr_vendor_name(uint32_t position);
  [[nodiscard]] int add_build_attr_vendor(const std::string &vendor);
  [[nodiscard]] int remove_build_attr_vendor(const std::string &vendor);
  // File scope:
  [[nodiscard]] uint32_t get_build_attr_count(const std::string &vendor);
  [[nodiscard]] uint32_t get_build_attr_tag(const std::string &vendor, uint32_t position);
  [[nodiscard]] bool has_build_attr(const std::string &vendor, uint32_t tag);
  [[nodiscard]] uint32_t get_build_attr(const std::string &vendor, uint32_t tag);
  [[nodiscard]] std::string get_build_attr_string(const std::string &vendor, uint32_t tag);
  [[nodiscard]] int set_build_attr(const std::string &vendor, uint32_t tag, uint32_t value);
  [[nodiscard]] int set_build_attr_string(const std::string &vendor, uint32_t tag, const std::string &value);
  [[nodiscard]] int remove_build_attr(const std::string &vendor, uint32_t tag);
  // Section- and symbol-scope lists (and the file scope's, by position):
  [[nodiscard]] uint32_t get_build_attr_list_count(const std::string &vendor, uint32_t scope);
  [[nodiscard]] std::vector<uint32_t> get_build_attr_list_indexes(const std::string &vendor, uint32_t scope,
                                                                  uint32_t list);
  // The new list's position among the vendor's lists of that scope, or -1.
  [[nodiscard]] int add_build_attr_list(const std::string &vendor, uint32_t scope,
                                        const std::vector<uint32_t> &indexes);
  [[nodiscard]] int remove_build_attr_list(const std::string &vendor, uint32_t scope, uint32_t list);
  [[nodiscard]] uint32_t get_list_build_attr_count(const std::string &vendor, uint32_t scope, uint32_t list);
  [[nodiscard]] uint32_t get_list_build_attr_tag(const std::string &vendor, uint32_t scope, uint32_t list,
                                                 uint32_t position);
  [[nodiscard]] bool has_list_build_attr(const std::string &vendor, uint32_t scope, uint32_t list, uint32_t tag);
  [[nodiscard]] uint32_t get_list_build_attr(const std::string &vendor, uint32_t scope, uint32_t list,
                                             uint32_t tag);
  [[nodiscard]] std::string get_list_build_attr_string(const std::string &vendor, uint32_t scope, uint32_t list,
                                                       uint32_t tag);
  [[nodiscard]] int set_list_build_attr(const std::string &vendor, uint32_t scope, uint32_t list, uint32_t tag,
                                        uint32_t value);
  [[nodiscard]] int set_list_build_attr_string(const std::string &vendor, uint32_t scope, uint32_t list,
                                               uint32_t tag, const std::string &value);
  [[nodiscard]] int remove_list_build_attr(const std::string &vendor, uint32_t scope, uint32_t list,
                                           uint32_t tag);
  // The EABI bitfield layout (Tag_bitfield_layout of the file's own vendor);
  // ELF only: any other format gets error 1.
  [[nodiscard]] uint32_t get_eabi_bitfield_layout();
  // ---- end of build attributes ---------------------------------------------

  // Pending error. See the ranking in of_file.cpp.
  void set_error(uint32_t code, const char *format, ...) __attribute__((format(printf, 3, 4)));
  // Error 2 for a write to the output that the system refused, with the
  // system's reason (errno, as the failed call left it); `what` names the
  // output ("the object file", "the listing").
  void set_write_error(const char *what = "the object file");
  uint32_t get_error_code() const { return error_code_; }
  // Whether an error other than a warning is pending.
  [[nodiscard]] bool has_failed() const { return error_code_ != OF_ERR_NONE && !is_warning(error_code_); }
  // The pending error's text; empty when none is pending.
  const std::string &get_error_text() const { return error_text_; }
  // Forgets the pending error.
  void clear_error();
  // Installs the handler; an error already pending is handed to it at once.
  void set_error_handler(OF_ERROR_HANDLER handler);

  // A table that runs past the end of the file is read as far as the file
  // goes, the rest as zeros, so that listings show what is there; the first
  // such short read is recorded here (what was cut, where), for the callers
  // that must not pass on a file they could not read whole, the write
  // pipeline among them. Not an error: the object stays usable.
  void note_short_read(const char *what, FILE_OFFSET offset);
  [[nodiscard]] bool was_read_completely() const { return short_read_.empty(); }
  // "the symbol table at offset 0x40", or empty.
  const std::string &get_short_read() const { return short_read_; }

  // Attaches `map` to `size` bytes of the file from `offset` (relative to
  // the object's first byte); error 7 and -1 when the object was not read.
  [[nodiscard]] int get_file_data(FILE_OFFSET offset, FILE_OFFSET size, DATA_MAP &map);
  // Saves `count` bytes of `map` from its cursor to the output stream.
  [[nodiscard]] int put_file_data(DATA_MAP &map, FILE_OFFSET count);
  // The stream the write pipeline writes to (write() sets it).
  void set_output_stream(FILE *stream) { output_ = stream; }
  FILE *get_output_stream() const { return output_; }

  // Stream, name, format, offset and size the object was opened with.
  const OF_DESCRIPTOR &get_descriptor() const { return descriptor_; }
  // ELF or QV-COFF.
  OF_FORMAT get_format() const { return descriptor_.format; }
  // The name given to open_object (used in messages).
  const std::string &get_file_name() const { return descriptor_.name; }
  // The name for messages: "(unknown file)" when the file has none.
  const char *message_name() const {
    return descriptor_.name.empty() ? "(unknown file)" : descriptor_.name.c_str();
  }
  // The stream the object reads from; the opener's, not the object's, unless it owns it.
  FILE *get_stream() const { return descriptor_.stream; }
  // Whether the object was read from a stream (not built from nothing).
  [[nodiscard]] bool was_read_from_stream() const { return descriptor_.stream != nullptr; }
  // What the library knows of the file's target (relocation types, attributes).
  OF_MACHINE_DB *get_machine_db() const { return machine_db_.get(); }
  uint32_t get_serial() const { return serial_; }
  // A number of the caller's choosing, kept with the object.
  void set_serial(uint32_t serial) { serial_ = serial; }

  // Whether the file is written without a file header.
  [[nodiscard]] bool is_headerless() const { return headerless_; }
  // Writes the file without its file header.
  void set_headerless(bool headerless) { headerless_ = headerless; }

  // Listing selection: a keyword of dump_part(), or "all".
  [[nodiscard]] bool select_dump(const char *keyword, bool on = true);
  // Whether dump() prints that part (OF_DUMP_...).
  [[nodiscard]] bool is_dump_selected(uint32_t part) const { return (dump_parts_ & part) != 0; }

  // The build steps of the write pipeline, run in this order by
  // promote_state: into "locked" every table is brought into memory and
  // prepared (sections, then symbols, then the tables that depend on them,
  // strings last), into "formatted" the file is laid out, into "saved" it
  // is written to the output stream. Each format supplies the steps; a step
  // it has not built fails with error 7.
  [[nodiscard]] bool promote_state(uint32_t target) override;

  // Brings every table into memory (the first write step), so that an edit
  // that renumbers leaves nothing to decode at the old indexes.
  [[nodiscard]] bool load_everything() { return load_for_writing(); }
  // The tables that hold section or symbol indexes (OF_INDEX_HOLDER
  // registers and leaves through these).
  void add_index_holder(OF_INDEX_HOLDER *holder) { index_holders_.push_back(holder); }
  void remove_index_holder(OF_INDEX_HOLDER *holder);
  // A renumbering of the sections, handed to every holder as it happens.
  void follow_section_map(const OF_INDEX_MAP &map);
  // A renumbering of `symbols`, in two steps around moving the entries:
  // every holder is asked first (false, with the error pending, when one
  // refuses: nothing may move), then every holder follows.
  [[nodiscard]] bool can_follow_symbol_map(const OF_SYMBOL_TABLE &symbols, const OF_INDEX_MAP &map);
  void follow_symbol_map(const OF_SYMBOL_TABLE &symbols, const OF_INDEX_MAP &map);

protected:
  [[nodiscard]] virtual bool load_for_writing();
  [[nodiscard]] virtual bool prepare_sections();
  [[nodiscard]] virtual bool prepare_symbols();
  [[nodiscard]] virtual bool prepare_dependents();
  [[nodiscard]] virtual bool prepare_strings();
  [[nodiscard]] virtual bool lay_out();
  [[nodiscard]] virtual bool write_out(FILE *stream);
  // After loading: error 3, and false, when a table ran past the end of
  // the file (note_short_read).
  [[nodiscard]] bool read_whole();
  // Error 7 naming a pipeline step the format has not built; false.
  [[nodiscard]] bool missing_step(const char *step);

  // The format's own listings, after the information listing.
  virtual void dump_format(FILE *) {}
  // The format's own XML listings inside the file's element.
  virtual void dump_format_xml(::XML_WRITER &) {}
  OF_DESCRIPTOR descriptor_;

private:
  // Error 7 for bytes to be written with no output stream; always -1.
  [[nodiscard]] int refuse_without_output();
  // The path forms: `body` on a new file at `path`, opened with `mode`;
  // error 2 with no text when it cannot be opened, a write error naming
  // `what` when the system refuses its bytes at the close.
  [[nodiscard]] int to_path(const char *path, const char *mode, const char *what,
                            const std::function<int(FILE *)> &body);

  uint32_t error_code_ = OF_ERR_NONE;
  std::string error_text_;
  std::string short_read_;
  OF_ERROR_HANDLER handler_;
  bool headerless_ = false;
  std::unique_ptr<OF_MACHINE_DB> machine_db_;
  FILE *output_ = nullptr;
  uint32_t dump_parts_ = OF_DUMP_ALL;
  uint32_t serial_ = 0;
  std::vector<OF_INDEX_HOLDER *> index_holders_;
};

// Opens the object at the stream's position. At a non-zero position (an
// archive member) the size is required. Returns null, silently, for a
// stream that holds no recognised object.
OBJECT_FILE *open_object(FILE *stream, FILE_OFFSET size, const char *name, OF_ERROR_HANDLER handler);
// Recognises the descriptor's stream, when it has one, and builds the
// format's class; null for an unknown format.
OBJECT_FILE *create_object(OF_DESCRIPTOR descriptor, OF_ERROR_HANDLER handler);

}  // namespace OFE
