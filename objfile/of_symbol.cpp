#include "objfile/of_symbol.h"

#include "objfile/of_file.h"
#include "objfile/of_section.h"
#include "support/printable.h"

namespace OFE {

OBJECT_FILE *OF_SYMBOL::get_object() const { return table_ ? table_->get_object() : nullptr; }

int OF_SYMBOL::set_near_common(bool) {
  if (OBJECT_FILE *object = get_object())
    object->set_error(OF_ERR_INVALID_REQUEST, "symbol does not support setting near-common");
  return -1;
}

bool OF_SYMBOL::begin_edit() {
  // A change invalidates whatever was prepared, laid out or written: the
  // file goes back to "open", so the next write prepares everything again.
  OBJECT_FILE *object = get_object();
  if (object && object->get_state() > OF_STATE_OPEN && object->set_state(OF_STATE_OPEN) != 0)
    return false;
  set_changed();
  return true;
}

void OF_SYMBOL::print_info(FILE *stream) const {
  fprintf(stream, "  %-26s0x%08x\n", "Value:", get_value());
  fprintf(stream, "  %-26s%s\n", "Kind:", symbol_kind_name(get_kind()));
  fprintf(stream, "  %-26s%s\n", "Binding:", symbol_binding_name(get_binding()));
  fprintf(stream, "  %-26s%s\n", "Type:", symbol_type_name(get_type()));
}

OF_SYMBOL_TABLE::~OF_SYMBOL_TABLE() = default;

void OF_SYMBOL_TABLE::set_count(uint32_t count) {
  count_ = count;
  if (symbols_.size() > count)
    symbols_.resize(count);
  selected_.resize(count, false);
}

OF_SYMBOL *OF_SYMBOL_TABLE::get_symbol(uint32_t index) {
  if (index >= get_count())
    return nullptr;
  if (symbols_.size() < get_count())
    symbols_.resize(get_count());
  if (!symbols_[index])
    symbols_[index] = load_symbol(index);
  return symbols_[index].get();
}

OF_SYMBOL *OF_SYMBOL_TABLE::find_symbol(const std::string &name, uint32_t first) {
  for (OF_SYMBOL *symbol : symbols(first))
    if (symbol->get_name() == name)
      return symbol;
  return nullptr;
}

OF_SYMBOL *OF_SYMBOL_TABLE::add_symbol() {
  if (object_->require_state_at_most(OF_STATE_OPEN) != 0)
    return nullptr;
  uint32_t index = count_;
  std::unique_ptr<OF_SYMBOL> symbol = new_symbol(index);
  if (!symbol)
    return nullptr;
  symbols_.resize(index);
  symbols_.push_back(std::move(symbol));
  order_.push_back(index);
  selected_.push_back(false);
  count_++;
  OF_SYMBOL *added = symbols_[index].get();
  object_->get_machine_db()->symbol_added(added);
  return added;
}

OF_SYMBOL *OF_SYMBOL_TABLE::insert_symbol(uint32_t index) {
  if (index >= count_)
    return add_symbol();
  if (object_->require_state_at_most(OF_STATE_OPEN) != 0)
    return nullptr;
  std::unique_ptr<OF_SYMBOL> symbol = new_symbol(index);
  if (!symbol || !load_for_renumbering())
    return nullptr;
  // An insertion removes nothing, so no holder can refuse it.
  std::vector<uint32_t> old_to_new(count_);
  for (uint32_t i = 0; i < count_; i++)
    old_to_new[i] = i < index ? i : i + 1;
  symbols_.insert(symbols_.begin() + index, std::move(symbol));
  selected_.insert(selected_.begin() + index, false);
  for (uint32_t &o : order_)
    o = old_to_new[o];
  order_.push_back(index);
  count_++;
  for (uint32_t i = index + 1; i < count_; i++)
    if (symbols_[i])
      symbols_[i]->index_ = i;
  publish(OF_INDEX_MAP(std::move(old_to_new), count_));
  OF_SYMBOL *inserted = symbols_[index].get();
  object_->get_machine_db()->symbol_added(inserted);
  return inserted;
}

int OF_SYMBOL_TABLE::select_for_removal(uint32_t index) {
  if (index >= count_)
    return -1;
  selected_.resize(count_, false);
  selected_[index] = true;
  return 0;
}

int OF_SYMBOL_TABLE::remove_selected() {
  // A refused removal forgets the selection either way.
  auto refuse = [&] {
    selected_.assign(count_, false);
    return -1;
  };
  if (object_->require_state_at_most(OF_STATE_OPEN) != 0 || !load_for_renumbering())
    return refuse();
  selected_.resize(count_, false);
  std::vector<uint32_t> old_to_new(count_);
  uint32_t kept = 0;
  for (uint32_t i = 0; i < count_; i++)
    old_to_new[i] = selected_[i] ? REMOVED : kept++;
  OF_INDEX_MAP map(std::move(old_to_new));
  if (!can_renumber(map))
    return refuse();
  std::vector<std::unique_ptr<OF_SYMBOL>> symbols;
  for (uint32_t i = 0; i < count_; i++)
    if (!selected_[i])
      symbols.push_back(std::move(symbols_[i]));
  int removed = static_cast<int>(count_ - kept);
  reorder(std::move(symbols), std::move(map));
  return removed;
}

bool OF_SYMBOL_TABLE::can_renumber(const OF_INDEX_MAP &map) { return object_->can_follow_symbol_map(*this, map); }

void OF_SYMBOL_TABLE::reorder(std::vector<std::unique_ptr<OF_SYMBOL>> symbols, OF_INDEX_MAP map) {
  symbols_ = std::move(symbols);
  count_ = static_cast<uint32_t>(symbols_.size());
  for (uint32_t i = 0; i < count_; i++)
    if (symbols_[i])
      symbols_[i]->index_ = i;
  std::vector<uint32_t> order;
  for (uint32_t o : order_)
    if (map.keep(o))
      order.push_back(o);
  order_ = std::move(order);
  selected_.assign(count_, false);
  publish(std::move(map));
}

void OF_SYMBOL_TABLE::publish(OF_INDEX_MAP map) {
  index_map_ = std::move(map);
  renumbered_ = true;
  object_->follow_symbol_map(*this, index_map_);
}

bool OF_SYMBOL_TABLE::load_for_renumbering() {
  // Nothing may be left to decode at the old numbers: every holder of an
  // index is in memory before the entries move.
  if (!object_->load_everything())
    return false;
  load_all();
  return true;
}

void OF_SYMBOL_TABLE::load_all() {
  for (uint32_t i = 0; i < count_; i++)
    get_symbol(i);
}

void OF_SYMBOL_TABLE::unload_symbol(uint32_t index) {
  if (!object_->was_read_from_stream() || renumbered_ || index >= symbols_.size())
    return;
  if (symbols_[index] && !symbols_[index]->is_changed())
    symbols_[index].reset();
}

void OF_SYMBOL_TABLE::unload_all() {
  // Slot by slot: a walk would load each symbol again to find the next.
  for (uint32_t i = 0; i < symbols_.size(); i++)
    unload_symbol(i);
}

void OF_SYMBOL_TABLE::dump(FILE *stream) {
  fprintf(stream, "\n Symbol Table \"%s\"\n\n", printable(get_name()).c_str());
  const char *row = "  %-24s %-10s %-9s %-7s %-7s %s\n";
  fprintf(stream, row, "name", "value", "kind", "section", "binding", "type");
  fprintf(stream, row, "----", "-----", "----", "-------", "-------", "----");
  OF_SECTION_TABLE *sections = object_->get_section_table();
  for (OF_SYMBOL *symbol : symbols()) {
    char value[16], section[16] = "";
    snprintf(value, sizeof value, "0x%08x", symbol->get_value());
    bool defined = symbol->get_kind() == OF_KIND_DEFINED;
    if (defined)
      snprintf(section, sizeof section, "%u", symbol->get_section_index());
    const std::string &name = symbol->get_name();
    fprintf(stream, row, name.empty() ? "(no name)" : printable(name).c_str(), value,
            symbol_kind_name(symbol->get_kind()), section, symbol_binding_name(symbol->get_binding()),
            symbol_type_name(symbol->get_type()));
    if (defined) {
      OF_SECTION *s = sections ? sections->get_section(symbol->get_section_index()) : nullptr;
      fprintf(stream, "      defined in section \"%s\" (%u)\n", s ? printable(s->get_name()).c_str() : "",
              symbol->get_section_index());
    }
  }
}

OF_SYMBOL_BINDING edited_binding(const OF_SYMBOL &symbol, OF_BINDING_EDIT edit) {
  OF_SYMBOL_BINDING binding = symbol.get_binding();
  OF_SYMBOL_KIND kind = symbol.get_kind();
  bool definition = kind == OF_KIND_DEFINED || kind == OF_KIND_ABSOLUTE;
  switch (edit) {
  case OF_EDIT_LOCALIZE:
    return definition && (binding == OF_BIND_GLOBAL || binding == OF_BIND_WEAK) ? OF_BIND_LOCAL : binding;
  case OF_EDIT_GLOBALIZE: {
    OF_SYMBOL_TYPE type = symbol.get_type();
    return definition && binding == OF_BIND_LOCAL && type != OF_TYPE_FILE && type != OF_TYPE_SECTION ? OF_BIND_GLOBAL
                                                                                                      : binding;
  }
  case OF_EDIT_WEAKEN:
    // A binding without a generic name (a unique definition) is global to
    // the linker, so it is weakened as well.
    return (definition || kind == OF_KIND_UNDEFINED) && binding != OF_BIND_LOCAL && binding != OF_BIND_WEAK
               ? OF_BIND_WEAK
               : binding;
  }
  return binding;
}

int edit_binding(OF_SYMBOL &symbol, OF_BINDING_EDIT edit) {
  OF_SYMBOL_BINDING binding = edited_binding(symbol, edit);
  return binding == symbol.get_binding() ? 0 : symbol.set_binding(binding);
}

}  // namespace OFE
