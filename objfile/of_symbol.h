// OF_SYMBOL and OF_SYMBOL_TABLE: the generic symbols of any object file.
//
// A table is an indexed collection whose entries are built only when first
// asked for (get_symbol → load_symbol), so walking a member's globals costs
// one record decode per symbol touched. Some formats interleave entries that
// are not symbols in their own right (COFF auxiliary entries); next_index()
// steps over them, and every client walks a table through its range, which
// follows next_index() and yields symbols only:
//
//   for (OF_SYMBOL *symbol : table->symbols())
//     use(symbol);
//
// A format subclasses both: the symbol supplies value, kind, binding, type
// and size from its record; the table supplies new_symbol/load_symbol and,
// when its entries are not all symbols, next_index.
#pragma once

#include <cstdint>
#include <cstdio>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "objfile/of_index_map.h"
#include "objfile/of_range.h"
#include "objfile/of_types.h"

namespace OFE {

class OBJECT_FILE;
class OF_SYMBOL;
class OF_SYMBOL_TABLE;

// How a symbol table is walked: from entry 0 along next_index().
struct OF_SYMBOL_WALK {
  using TABLE = OF_SYMBOL_TABLE;
  static uint32_t first(TABLE &) { return 0; }
  static uint32_t next(TABLE &table, uint32_t index);
  static uint32_t end(TABLE &table);
  static OF_SYMBOL *get(TABLE &table, uint32_t index);
};
using OF_SYMBOL_RANGE = OF_RANGE<OF_SYMBOL, OF_SYMBOL_WALK>;

class OF_SYMBOL {
public:
  OF_SYMBOL(OF_SYMBOL_TABLE *table, uint32_t index) : table_(table), index_(index) {}
  virtual ~OF_SYMBOL() = default;
  OF_SYMBOL(const OF_SYMBOL &) = delete;
  OF_SYMBOL &operator=(const OF_SYMBOL &) = delete;

  // The empty text when the symbol has no name.
  const std::string &get_name() const { return name_; }
  // Renames the symbol; formats undo a laid-out file's build state first.
  // 0, or -1 with the error pending.
  [[nodiscard]] virtual int set_name(const std::string &name) {
    name_ = name;
    return 0;
  }

  // The value (in a relocatable file, its offset in its section).
  virtual uint32_t get_value() const = 0;
  // Sets the value; 0, or -1 with the error pending.
  [[nodiscard]] virtual int set_value(uint32_t value) = 0;
  // Whether the symbol is defined in one of the file's sections.
  [[nodiscard]] virtual bool is_defined_in_section() const = 0;
  // The index of its section in the section table (meaningful when defined in one).
  virtual uint32_t get_section_index() const = 0;
  // The size of the object or function it names, or 0.
  virtual uint32_t get_size() const = 0;
  // Sets the size; 0, or -1 with the error pending.
  [[nodiscard]] virtual int set_size(uint32_t size) = 0;
  // Undefined, defined, absolute, common or debug.
  virtual OF_SYMBOL_KIND get_kind() const = 0;
  // Kind 2 (defined) is refused: a symbol becomes defined only through its
  // section reference.
  [[nodiscard]] virtual int set_kind(uint32_t kind) = 0;
  // Local, global or weak.
  virtual OF_SYMBOL_BINDING get_binding() const = 0;
  // Sets the binding (OF_SYMBOL_BINDING); -1 when the format cannot express it.
  [[nodiscard]] virtual int set_binding(uint32_t binding) = 0;
  // What it names: object, function, section, file ...
  virtual OF_SYMBOL_TYPE get_type() const = 0;
  // Sets the type (OF_SYMBOL_TYPE); 0, or -1 with the error pending.
  [[nodiscard]] virtual int set_type(uint32_t type) = 0;
  // Refused with error 5 unless the format supports near-common symbols.
  [[nodiscard]] virtual int set_near_common(bool near);
  // The rows "Value:", "Kind:", "Binding:" and "Type:".
  virtual void print_info(FILE *stream) const;

  // A changed symbol survives OF_SYMBOL_TABLE::unload_symbol.
  [[nodiscard]] bool is_changed() const { return changed_; }
  // Marks the symbol changed, or not.
  void set_changed(bool changed = true) { changed_ = changed; }
  // Its index in the symbol table.
  uint32_t get_index() const { return index_; }
  // The table that owns it.
  OF_SYMBOL_TABLE *get_table() const { return table_; }
  // The object file that owns it.
  OBJECT_FILE *get_object() const;

protected:
  // The one rule of every format's setters: a change first invalidates the
  // file's build state (a prepared, laid-out or written file goes back to
  // "open", so the next write prepares the change too); the symbol is then
  // marked changed. False, with the error pending, when the file refuses to
  // revert.
  [[nodiscard]] bool begin_edit();

  std::string name_;

private:
  friend class OF_SYMBOL_TABLE;
  OF_SYMBOL_TABLE *table_;
  uint32_t index_;
  bool changed_ = false;
};

// A symbol table is itself a holder of indexes: a format whose symbols
// name sections, or whose entries name other entries, follows the maps.
class OF_SYMBOL_TABLE : public OF_INDEX_HOLDER {
public:
  // Published in index maps for entries that were removed.
  static constexpr uint32_t REMOVED = OF_INDEX_MAP::REMOVED;

  explicit OF_SYMBOL_TABLE(OBJECT_FILE *object) : OF_INDEX_HOLDER(object), object_(object) {}
  virtual ~OF_SYMBOL_TABLE();
  OF_SYMBOL_TABLE(const OF_SYMBOL_TABLE &) = delete;
  OF_SYMBOL_TABLE &operator=(const OF_SYMBOL_TABLE &) = delete;

  // The table's section name (".symtab"), or empty.
  virtual std::string get_name() const { return ""; }
  // The number of entries; walk them with next_index().
  virtual uint32_t get_count() const { return count_; }
  // Null at or past the count; otherwise the entry, loaded on first use.
  virtual OF_SYMBOL *get_symbol(uint32_t index);
  // The index of the entry after `index` that is a symbol in its own right.
  virtual uint32_t next_index(uint32_t index) { return index + 1; }
  // Every symbol, or those from index `from` on, in index order.
  OF_SYMBOL_RANGE symbols() { return OF_SYMBOL_RANGE(this); }
  OF_SYMBOL_RANGE symbols(uint32_t from) { return OF_SYMBOL_RANGE(this, from); }
  // The first symbol from `first` on (along next_index) whose name is
  // exactly `name`, or null. Linear.
  virtual OF_SYMBOL *find_symbol(const std::string &name, uint32_t first = 0);

  // Editing; each requires the object's state to be at most "open".
  virtual OF_SYMBOL *add_symbol();
  // Inserts before `index`, moving later symbols up; at or past the count
  // it is add_symbol.
  virtual OF_SYMBOL *insert_symbol(uint32_t index);
  // Marks the symbol at `index` for remove_selected(); 0, or -1.
  [[nodiscard]] virtual int select_for_removal(uint32_t index);
  // Removes the selected symbols, every holder of an index into the table
  // following; returns the number removed, or -1 with the error pending,
  // nothing removed and the selection forgotten (a relocation names one of
  // them, say).
  [[nodiscard]] virtual int remove_selected();

  // Frees an unchanged symbol of a table read from a file; it is loaded
  // again on the next get_symbol.
  virtual void unload_symbol(uint32_t index);
  // unload_symbol() for every symbol.
  virtual void unload_all();

  // "\n Symbol Table" listing.
  virtual void dump(FILE *stream);

  // The old-to-new map of the latest renumbering (empty: none yet), which
  // every holder of an index into the table has followed; for indexes a
  // caller keeps of its own.
  const OF_INDEX_MAP &get_index_map() const { return index_map_; }
  // The new index of an old one after that renumbering (REMOVED: removed).
  uint32_t map_index(uint32_t old_index) const { return index_map_.keep(old_index) ? old_index : REMOVED; }
  // Indices in the order symbols were appended.
  const std::vector<uint32_t> &get_order() const { return order_; }
  // The object file that owns the table.
  OBJECT_FILE *get_object() const { return object_; }

protected:
  // An empty symbol of the format, for add/insert.
  virtual std::unique_ptr<OF_SYMBOL> new_symbol(uint32_t index) = 0;
  // Symbol `index` decoded from the file.
  virtual std::unique_ptr<OF_SYMBOL> load_symbol(uint32_t index) = 0;

  // For formats: the number of entries found in the file.
  void set_count(uint32_t count);
  // For formats renumbering before writing: whether every holder of an
  // index into the table can follow `map` (false, with the error pending);
  // asked before anything moves.
  [[nodiscard]] bool can_renumber(const OF_INDEX_MAP &map);
  // Puts `symbols` in their new order by the old-to-new `map` (REMOVED for
  // dropped entries), and every holder follows.
  void reorder(std::vector<std::unique_ptr<OF_SYMBOL>> symbols, OF_INDEX_MAP map);
  // Hands the entries over for reorder(), one per index (empty where none
  // is loaded).
  std::vector<std::unique_ptr<OF_SYMBOL>> take_symbols() {
    symbols_.resize(count_);
    return std::move(symbols_);
  }
  // Keeps the map of a renumbering, and every holder follows it.
  void publish(OF_INDEX_MAP map);
  // Loads every entry not yet loaded.
  void load_all();
  // Before entries move: the whole file in memory (OBJECT_FILE::
  // load_everything), so that every holder can follow. False, with the
  // error pending, when it cannot be loaded.
  [[nodiscard]] bool load_for_renumbering();

private:
  OBJECT_FILE *object_;
  std::vector<std::unique_ptr<OF_SYMBOL>> symbols_;
  std::vector<uint32_t> order_;
  std::vector<bool> selected_;
  OF_INDEX_MAP index_map_;
  uint32_t count_ = 0;
  bool renumbered_ = false;  // entries no longer sit where the file has them
};

inline uint32_t OF_SYMBOL_WALK::next(TABLE &table, uint32_t index) { return table.next_index(index); }
inline uint32_t OF_SYMBOL_WALK::end(TABLE &table) { return table.get_count(); }
inline OF_SYMBOL *OF_SYMBOL_WALK::get(TABLE &table, uint32_t index) { return table.get_symbol(index); }

// A table without symbols, for files that have none.
class OF_EMPTY_SYMBOL_TABLE : public OF_SYMBOL_TABLE {
public:
  using OF_SYMBOL_TABLE::OF_SYMBOL_TABLE;

protected:
  std::unique_ptr<OF_SYMBOL> new_symbol(uint32_t) override { return nullptr; }
  std::unique_ptr<OF_SYMBOL> load_symbol(uint32_t) override { return nullptr; }
};

// Binding edits: which symbols localizing, globalizing and weakening are
// meant for, decided once for every format from the generic view of a
// symbol (binding, kind, type). The formats' binding setters keep their
// meaning; the edits only choose whether to call them.
//
// Localize takes global and weak definitions (a symbol defined in a section
// or absolute): a local reference or a local common would resolve to
// nothing. Globalize takes local definitions other than file and section
// symbols, so a weak symbol stays weak. Weaken takes every symbol that is
// neither local, weak nor common, references included. Any other symbol is
// left as it is, and so is one whose binding would not change: a format may
// keep more than the binding where its setter writes one (a COFF storage
// class says file, label or scope besides local).
enum OF_BINDING_EDIT { OF_EDIT_LOCALIZE, OF_EDIT_GLOBALIZE, OF_EDIT_WEAKEN };

// The binding `edit` gives `symbol`: its own when the edit is not meant for it.
OF_SYMBOL_BINDING edited_binding(const OF_SYMBOL &symbol, OF_BINDING_EDIT edit);
// Sets the binding `edit` gives `symbol` when that is a change. 0, or -1 with
// the setter's error pending.
[[nodiscard]] int edit_binding(OF_SYMBOL &symbol, OF_BINDING_EDIT edit);

}  // namespace OFE
