#include "objfile/coff/qvcoff_symbol.h"

#include <algorithm>
#include <cstring>
#include <iterator>

#include "objfile/coff/qvcoff_file.h"
#include "objfile/coff/qvcoff_string.h"
#include "objfile/data_map.h"
#include "support/name_table.h"

namespace OFE {

namespace {

struct STORAGE_CLASS {
  uint8_t value;
  const char *name;
  OF_SYMBOL_BINDING binding;
};

const STORAGE_CLASS STORAGE_CLASSES[] = {
    {C_NULL, "C_NULL", OF_BIND_UNKNOWN},       {C_AUTO, "C_AUTO", OF_BIND_LOCAL},
    {C_EXT, "C_EXT", OF_BIND_GLOBAL},          {C_STAT, "C_STAT", OF_BIND_LOCAL},
    {C_REG, "C_REG", OF_BIND_LOCAL},           {C_EXTREF, "C_EXTREF", OF_BIND_GLOBAL},
    {C_LABEL, "C_LABEL", OF_BIND_LOCAL},       {C_ULABEL, "C_ULABEL", OF_BIND_LOCAL},
    {C_MOS, "C_MOS", OF_BIND_LOCAL},           {C_ARG, "C_ARG", OF_BIND_LOCAL},
    {C_STRTAG, "C_STRTAG", OF_BIND_LOCAL},     {C_MOU, "C_MOU", OF_BIND_LOCAL},
    {C_UNTAG, "C_UNTAG", OF_BIND_LOCAL},       {C_TPDEF, "C_TPDEF", OF_BIND_LOCAL},
    {C_USTATIC, "C_USTATIC", OF_BIND_LOCAL},   {C_ENTAG, "C_ENTAG", OF_BIND_LOCAL},
    {C_MOE, "C_MOE", OF_BIND_LOCAL},           {C_REGPARM, "C_REGPARM", OF_BIND_LOCAL},
    {C_FIELD, "C_FIELD", OF_BIND_LOCAL},       {C_UEXT, "C_UEXT", OF_BIND_GLOBAL},
    {C_STATLAB, "C_STATLAB", OF_BIND_LOCAL},   {C_EXTLAB, "C_EXTLAB", OF_BIND_GLOBAL},
    {C_VREG, "C_VREG", OF_BIND_LOCAL},         {C_SYSTEM, "C_SYSTEM", OF_BIND_GLOBAL},
    {C_STATREG, "C_STATREG", OF_BIND_LOCAL},   {C_EXTREG, "C_EXTREG", OF_BIND_GLOBAL},
    {C_EXTREFREG, "C_EXTREFREG", OF_BIND_GLOBAL}, {C_VARARG, "C_VARARG", OF_BIND_LOCAL},
    {C_EXTDEF, "C_EXTDEF", OF_BIND_GLOBAL},    {C_USTATREG, "C_USTATREG", OF_BIND_LOCAL},
    {C_BLOCK, "C_BLOCK", OF_BIND_LOCAL},       {C_FCN, "C_FCN", OF_BIND_LOCAL},
    {C_EOS, "C_EOS", OF_BIND_LOCAL},           {C_FILE, "C_FILE", OF_BIND_LOCAL},
    {C_LINE, "C_LINE", OF_BIND_LOCAL},         {C_ALIAS, "C_ALIAS", OF_BIND_LOCAL},
    {C_PREF, "C_PREF", OF_BIND_LOCAL},         {C_GRPTAG, "C_GRPTAG", OF_BIND_LOCAL},
    {C_SMOG, "C_SMOG", OF_BIND_LOCAL},         {C_EMOG, "C_EMOG", OF_BIND_GLOBAL},
    {C_EOG, "C_EOG", OF_BIND_LOCAL},
};

const STORAGE_CLASS *find_storage_class(uint32_t value) {
  for (const STORAGE_CLASS &c : STORAGE_CLASSES)
    if (c.value == value)
      return &c;
  return nullptr;
}

// Indexed by the low four bits of the type word.
const char *const BASIC_TYPE_NAMES[] = {
    "void",   "signed char", "char",        "short",         "int",            "long",
    "float",  "double",      "struct",      "union",         "enum",           "long double",
    "unsigned char", "unsigned short", "unsigned int", "unsigned long",
};

const NAME_ENTRY DERIVED_TYPE_NAMES[] = {
    {DT_NON >> 4, "none"}, {DT_PTR >> 4, "pointer"}, {DT_FCN >> 4, "function"}, {DT_ARY >> 4, "array"}};

// Where a format keeps the symbol's size in its first auxiliary entry.
uint32_t *size_field(QVCOFF_AUX &aux) {
  if (auto *a = std::get_if<QVCOFF_AUX_TAG_RECORD>(&aux)) return &a->x_size;
  if (auto *a = std::get_if<QVCOFF_AUX_EOS_RECORD>(&aux)) return &a->x_size;
  if (auto *a = std::get_if<QVCOFF_AUX_FUNCTION_RECORD>(&aux)) return &a->x_fsize;
  if (auto *a = std::get_if<QVCOFF_AUX_ARRAY_RECORD>(&aux)) return &a->x_size;
  if (auto *a = std::get_if<QVCOFF_AUX_TYPEDEF_RECORD>(&aux)) return &a->x_size;
  if (auto *a = std::get_if<QVCOFF_AUX_SECTION_RECORD>(&aux)) return &a->x_scnlen;
  return nullptr;
}

bool has_size_field(QVCOFF_AUX_FORMAT format) {
  return format != AUX_NONE && format != AUX_SCOPE && format != AUX_FILE && format <= AUX_SECTION;
}

}  // namespace

QVCOFF_AUX_FORMAT qvcoff_aux_format(uint8_t storage_class, uint16_t type, uint8_t aux_count,
                                    OF_FORMAT_VERSION version) {
  if (aux_count == 0)
    return AUX_NONE;
  // Version "2" gives C_FILE no rule of its own: its symbols take the
  // format their type word asks for.
  if (storage_class == C_FILE && (version == OF_VERSION_COFF0 || version == OF_VERSION_COFF1))
    return AUX_FILE;
  switch (storage_class) {
  case C_BLOCK:
  case C_FCN: return AUX_SCOPE;
  case C_EOS: return AUX_EOS;
  case C_LABEL: return AUX_NONE;
  case C_STRTAG:
  case C_UNTAG:
  case C_ENTAG: return AUX_TAG;
  case C_TPDEF: return AUX_TYPEDEF;
  default: break;
  }
  switch (type & N_TMASK) {
  case DT_FCN: return AUX_FUNCTION;
  case DT_ARY: return AUX_ARRAY;
  default: return type != 0 ? AUX_TYPEDEF : AUX_SECTION;
  }
}

const char *storage_class_name(uint32_t storage_class) {
  const STORAGE_CLASS *c = find_storage_class(storage_class);
  return c ? c->name : "C_UNKNOWN";
}

OF_SYMBOL_BINDING storage_class_binding(uint8_t storage_class) {
  const STORAGE_CLASS *c = find_storage_class(storage_class);
  return c ? c->binding : OF_BIND_LOCAL;
}

const char *basic_type_name(uint32_t basic_type) {
  return basic_type < std::size(BASIC_TYPE_NAMES) ? BASIC_TYPE_NAMES[basic_type] : "T_UNKNOWN";
}

const char *derived_type_name(uint32_t derived_type) { return lookup_name(DERIVED_TYPE_NAMES, derived_type, "none"); }

QVCOFF_SYMBOL::QVCOFF_SYMBOL(QVCOFF_SYMBOL_TABLE *table, uint32_t index) : OF_SYMBOL(table, index) {}

OF_FORMAT_VERSION QVCOFF_SYMBOL::version() const {
  OBJECT_FILE *o = object();
  return o ? o->get_format_version() : OF_VERSION_UNKNOWN;
}

bool QVCOFF_SYMBOL::begin_change() { return begin_edit(); }

int QVCOFF_SYMBOL::set_name(const std::string &name) {
  return apply_change(begin_change(), [&] { name_ = name; });
}

int QVCOFF_SYMBOL::set_value(uint32_t value) {
  return apply_change(begin_change(), [&] { record_.n_value = value; });
}

bool QVCOFF_SYMBOL::is_defined_in_section() const {
  return record_.n_scnum != N_UNDEF && record_.n_scnum != N_ABS && record_.n_scnum != N_DEBUG;
}

OF_SYMBOL_KIND QVCOFF_SYMBOL::get_kind() const {
  if (is_defined_in_section())
    return OF_KIND_DEFINED;
  switch (record_.n_scnum) {
  case N_DEBUG: return OF_KIND_DEBUG;
  case N_UNDEF: return OF_KIND_UNDEFINED;
  case N_ABS: return OF_KIND_ABSOLUTE;
  default: return OF_KIND_UNKNOWN;
  }
}

int QVCOFF_SYMBOL::set_kind(uint32_t kind) {
  uint16_t section_number;
  switch (kind) {
  case OF_KIND_UNDEFINED: section_number = N_UNDEF; break;
  case OF_KIND_ABSOLUTE: section_number = N_ABS; break;
  case OF_KIND_DEBUG: section_number = N_DEBUG; break;
  case OF_KIND_DEFINED:
    object()->set_error(OF_ERR_INVALID_REQUEST, "To mark a symbol as being defined, you must use set_section() "
                                                "to set its section reference");
    return -1;
  default:
    object()->set_error(OF_ERR_INVALID_REQUEST, "Invalid symbol kind %x", kind);
    return -1;
  }
  return apply_change(begin_change(), [&] { record_.n_scnum = section_number; });
}

int QVCOFF_SYMBOL::set_section(uint16_t section_number) {
  return apply_change(begin_change(), [&] { record_.n_scnum = section_number; });
}

int QVCOFF_SYMBOL::set_binding(uint32_t binding) {
  switch (binding) {
  case OF_BIND_GLOBAL:
  case OF_BIND_LOCAL: break;
  case OF_BIND_WEAK:
    object()->set_error(OF_ERR_INVALID_REQUEST, "Weak symbol binding not supported for QV-COFF");
    return -1;
  default:
    object()->set_error(OF_ERR_INVALID_REQUEST, "Invalid symbol binding value 0x%x", binding);
    return -1;
  }
  return apply_change(begin_change(), [&] {
    if (binding == OF_BIND_GLOBAL)
      record_.n_sclass = record_.n_sclass == C_STATLAB ? C_EXTLAB : C_EXT;
    else
      record_.n_sclass = record_.n_sclass == C_EXTLAB ? C_STATLAB : C_STAT;
  });
}

int QVCOFF_SYMBOL::set_storage_class(uint8_t storage_class) {
  return apply_change(begin_change(), [&] { record_.n_sclass = storage_class; });
}

QVCOFF_AUX_FORMAT QVCOFF_SYMBOL::get_aux_format() const {
  return qvcoff_aux_format(record_.n_sclass, record_.n_type, record_.n_numaux, version());
}

OF_SYMBOL_TYPE QVCOFF_SYMBOL::get_type() const {
  if (record_.n_sclass == C_FILE)
    return OF_TYPE_FILE;
  if (get_aux_format() == AUX_SECTION)
    return OF_TYPE_SECTION;
  if (is_defined_in_section() && record_.n_sclass != C_LABEL)
    return OF_TYPE_OBJECT;
  return OF_TYPE_NONE;
}

int QVCOFF_SYMBOL::set_type(uint32_t) {
  if (OBJECT_FILE *o = object())
    o->set_error(OF_ERR_WRONG_FORMAT, "the type of a QV-COFF symbol follows from its storage class; "
                                      "it cannot be set directly");
  return -1;
}

uint32_t QVCOFF_SYMBOL::get_size() const {
  if (aux_.empty() || !has_size_field(get_aux_format()))
    return 0;
  QVCOFF_AUX first = aux_.front();
  uint32_t *size = size_field(first);
  return size ? *size : 0;
}

int QVCOFF_SYMBOL::set_size(uint32_t size) {
  QVCOFF_AUX_FORMAT format = get_aux_format();
  if (!has_size_field(format)) {
    if (OBJECT_FILE *o = object())
      o->set_error(OF_ERR_INVALID_REQUEST, "Cannot set size of symbols with storage class %s",
                   get_storage_class_name());
    return -1;
  }
  return apply_change(begin_change(), [&] {
    // An entry that the file did not hold in full starts out zero.
    if (aux_.empty() || size_field(aux_.front()) == nullptr) {
      uint8_t zeros[QVCOFF_AUX_SIZE] = {};
      QVCOFF_AUX fresh = decode_aux(zeros, format, BYTE_ORDERING::LITTLE);
      if (aux_.empty())
        aux_.push_back(fresh);
      else
        aux_.front() = fresh;
    }
    *size_field(aux_.front()) = size;
  });
}

void QVCOFF_SYMBOL::print_info(FILE *stream) const {
  OF_SYMBOL::print_info(stream);
  fprintf(stream, "  %-26s%s\n", "Storage Class:", get_storage_class_name());
  fprintf(stream, "  %-26s%s\n", "Basic Type:", get_basic_type_name());
  fprintf(stream, "  Derived Type %d:%*s%s\n", 1, 11, "", derived_type_name((record_.n_type & N_TMASK) >> 4));
  auto row = [stream](const char *label, uint32_t value) { fprintf(stream, "  %-26s%u\n", label, value); };
  for (const QVCOFF_AUX &aux : aux_) {
    if (auto *a = std::get_if<QVCOFF_AUX_TAG_RECORD>(&aux)) {
      row("Tag Index:", a->x_tagndx);
      row("CSU Size:", a->x_size);
      row("Next Symbol:", a->x_endndx);
    } else if (auto *a = std::get_if<QVCOFF_AUX_EOS_RECORD>(&aux)) {
      row("Tag Index:", a->x_tagndx);
      row("CSU Size:", a->x_size);
    } else if (auto *a = std::get_if<QVCOFF_AUX_FUNCTION_RECORD>(&aux)) {
      row("Tag Index:", a->x_tagndx);
      row("CSU Size:", a->x_fsize);
      row("Line Offset:", a->x_lnnoptr);
      row("Next Symbol:", a->x_endndx);
    } else if (auto *a = std::get_if<QVCOFF_AUX_SCOPE_RECORD>(&aux)) {
      row("Register Mask:", a->x_regmask);
      row("Line Number:", a->x_lnno);
      row("# Line Entries:", a->x_nlinent);
      row("Frame Size:", a->x_framesize);
      row("Next Symbol:", a->x_endndx);
    } else if (auto *a = std::get_if<QVCOFF_AUX_ARRAY_RECORD>(&aux)) {
      row("Tag Index:", a->x_tagndx);
      row("CSU Size:", a->x_size);
      fprintf(stream, "  %-26s[%d][%d][%d][%d]\n", "Dimensions:", a->x_dimen[0], a->x_dimen[1], a->x_dimen[2],
              a->x_dimen[3]);
    } else if (auto *a = std::get_if<QVCOFF_AUX_TYPEDEF_RECORD>(&aux)) {
      row("Tag Index:", a->x_tagndx);
      row("CSU Size:", a->x_size);
    } else if (auto *a = std::get_if<QVCOFF_AUX_FILE_RECORD>(&aux)) {
      const char *text = reinterpret_cast<const char *>(a->x_fname.data());
      fprintf(stream, "  %-26s%.*s\n", "File Name:", static_cast<int>(strnlen(text, a->x_fname.size())), text);
    } else if (auto *a = std::get_if<QVCOFF_AUX_SECTION_RECORD>(&aux)) {
      row("Section Length:", a->x_scnlen);
      row("# Relocs:", a->x_nreloc);
      row("# Line Entries:", a->x_nlinno);
    }
  }
}

QVCOFF_SYMBOL_TABLE::QVCOFF_SYMBOL_TABLE(QVCOFF_FILE *file, DATA_MAP *raw, uint32_t count)
    : OF_SYMBOL_TABLE(file), file_(file), raw_(raw) {
  set_count(count);
}

QVCOFF_SYMBOL *QVCOFF_SYMBOL_TABLE::get_qvcoff_symbol(uint32_t index) {
  return static_cast<QVCOFF_SYMBOL *>(get_symbol(index));
}

uint32_t QVCOFF_SYMBOL_TABLE::next_index(uint32_t index) {
  QVCOFF_SYMBOL *symbol = get_qvcoff_symbol(index);
  uint64_t next = uint64_t{index} + 1 + (symbol ? symbol->record_.n_numaux : 0);
  return next > UINT32_MAX ? UINT32_MAX : static_cast<uint32_t>(next);
}

int QVCOFF_SYMBOL_TABLE::select_for_removal(uint32_t index) {
  QVCOFF_SYMBOL *symbol = get_qvcoff_symbol(index);
  if (!symbol)
    return -1;
  for (uint32_t i = index; i < next_index(index) && i < get_count(); i++)
    if (OF_SYMBOL_TABLE::select_for_removal(i) != 0)
      return -1;
  return 0;
}

OF_SYMBOL *QVCOFF_SYMBOL_TABLE::insert_symbol(uint32_t index) {
  while (index < get_count() && !get_symbol(index))
    index++;
  return OF_SYMBOL_TABLE::insert_symbol(index);
}

void QVCOFF_SYMBOL_TABLE::find_aux_entries() {
  aux_found_ = true;
  uint32_t count = get_count();
  aux_entry_.assign(count, false);
  BYTE_ORDERING order = file_->byte_order();
  for (uint32_t i = 0; i < count;) {
    const uint8_t *bytes = raw_->slice(uint64_t{i} * QVCOFF_SYMBOL_SIZE, QVCOFF_SYMBOL_SIZE);
    if (!bytes)
      break;
    auto rec = decode<QVCOFF_SYMBOL_RECORD>(bytes, order);
    uint32_t aux = rec.n_numaux;
    // Entries of no known format count as none: the next one is read as a
    // symbol, as load_symbol does.
    if (aux != 0 && qvcoff_aux_format(rec.n_sclass, rec.n_type, rec.n_numaux, file_->get_format_version()) == AUX_NONE)
      aux = 0;
    for (uint32_t a = 1; a <= aux && i + a < count; a++)
      aux_entry_[i + a] = true;
    i += 1 + aux;
  }
}

void QVCOFF_SYMBOL_TABLE::load_for_writing() {
  if (in_memory_)
    return;
  for (uint32_t i = 0; i < get_count(); i++)
    if (QVCOFF_SYMBOL *s = get_qvcoff_symbol(i))
      (void)s->get_name();
  in_memory_ = true;
}

bool QVCOFF_SYMBOL_TABLE::prepare_for_writing() {
  load_for_writing();
  uint32_t count = get_count();
  std::vector<uint32_t> old_to_new(count, REMOVED);
  std::vector<QVCOFF_SYMBOL *> old(count);
  for (uint32_t i = 0; i < count; i++)
    old[i] = get_qvcoff_symbol(i);
  uint32_t at = 0;
  for (uint32_t i = 0; i < count; i++) {
    QVCOFF_SYMBOL *s = old[i];
    if (!s)
      continue;
    old_to_new[i] = at;
    for (uint32_t a = 1; a <= s->aux_.size(); a++)
      if (i + a < count && !old[i + a])
        old_to_new[i + a] = at + a;
    at += 1 + static_cast<uint32_t>(s->aux_.size());
  }
  OF_INDEX_MAP map(std::move(old_to_new), at);
  if (!can_renumber(map))
    return false;
  std::vector<std::unique_ptr<OF_SYMBOL>> taken = take_symbols(), renumbered;
  for (uint32_t i = 0; i < count; i++) {
    QVCOFF_SYMBOL *s = old[i];
    if (!s)
      continue;
    // Auxiliary entries cut off by the end of the table are not written.
    s->record_.n_numaux = static_cast<uint8_t>(s->aux_.size());
    renumbered.push_back(std::move(taken[i]));
    renumbered.resize(renumbered.size() + s->aux_.size());
  }
  reorder(std::move(renumbered), std::move(map));
  return true;
}

void QVCOFF_SYMBOL_TABLE::follow_sections(const OF_INDEX_MAP &map) {
  for (uint32_t i = 0; i < get_count(); i = next_index(i))
    if (QVCOFF_SYMBOL *s = get_qvcoff_symbol(i); s && s->is_defined_in_section())
      s->record_.n_scnum = static_cast<uint16_t>(map.follow(s->record_.n_scnum, 0xFFFF));
}

void QVCOFF_SYMBOL_TABLE::follow_symbols(const OF_SYMBOL_TABLE &symbols, const OF_INDEX_MAP &map) {
  if (&symbols != this)
    return;
  // The map knows every entry the table had.
  uint32_t old_count = static_cast<uint32_t>(map.size());
  auto follow = [&](uint32_t &index) {
    if (index != 0)
      index = index == old_count ? get_count() : map.follow(index);
  };
  for (QVCOFF_SYMBOL *s : qvcoff_symbols()) {
    for (QVCOFF_AUX &aux : s->aux_) {
      if (auto *a = std::get_if<QVCOFF_AUX_TAG_RECORD>(&aux)) {
        follow(a->x_tagndx);
        follow(a->x_endndx);
      } else if (auto *a = std::get_if<QVCOFF_AUX_EOS_RECORD>(&aux)) {
        follow(a->x_tagndx);
      } else if (auto *a = std::get_if<QVCOFF_AUX_FUNCTION_RECORD>(&aux)) {
        follow(a->x_tagndx);
        follow(a->x_endndx);
      } else if (auto *a = std::get_if<QVCOFF_AUX_SCOPE_RECORD>(&aux)) {
        follow(a->x_endndx);
      } else if (auto *a = std::get_if<QVCOFF_AUX_ARRAY_RECORD>(&aux)) {
        follow(a->x_tagndx);
      } else if (auto *a = std::get_if<QVCOFF_AUX_TYPEDEF_RECORD>(&aux)) {
        follow(a->x_tagndx);
      }
    }
  }
}

bool QVCOFF_SYMBOL_TABLE::encode(QVCOFF_STRING_TABLE *strings, std::vector<uint8_t> &out) {
  BYTE_ORDERING order = file_->byte_order();
  uint32_t count = get_count();
  out.assign(uint64_t{count} * QVCOFF_SYMBOL_SIZE, 0);
  // Empty names point at the empty string the table ends with, once every
  // other name is in it.
  std::vector<std::pair<uint32_t, QVCOFF_SYMBOL_RECORD>> unnamed;
  for (QVCOFF_SYMBOL *s : qvcoff_symbols()) {
    uint32_t i = s->get_index();
    QVCOFF_SYMBOL_RECORD rec = s->record_;
    const std::string &name = s->get_name();
    if (name.empty())
      unnamed.emplace_back(i, rec);
    if (name.size() <= 8) {
      rec.n_name = inline_name_field(name);
    } else {
      std::optional<uint32_t> offset = strings->add_string(name);
      if (!offset)
        return false;
      rec.n_name = string_name_field(*offset, order);
    }
    uint8_t *at = out.data() + uint64_t{i} * QVCOFF_SYMBOL_SIZE;
    ::encode(rec, order, at);
    for (uint32_t a = 0; a < s->aux_.size() && i + 1 + a < count; a++) {
      auto bytes = encode_aux(s->aux_[a], order);
      std::copy(bytes.begin(), bytes.end(), at + QVCOFF_SYMBOL_SIZE * (a + 1));
    }
  }
  if (unnamed.empty())
    return true;
  std::optional<uint32_t> offset = strings->empty_name_offset();
  if (!offset)
    return false;
  for (auto &[i, rec] : unnamed) {
    rec.n_name = string_name_field(*offset, order);
    ::encode(rec, order, out.data() + uint64_t{i} * QVCOFF_SYMBOL_SIZE);
  }
  return true;
}

std::unique_ptr<OF_SYMBOL> QVCOFF_SYMBOL_TABLE::new_symbol(uint32_t index) {
  return std::make_unique<QVCOFF_SYMBOL>(this, index);
}

std::unique_ptr<OF_SYMBOL> QVCOFF_SYMBOL_TABLE::load_symbol(uint32_t index) {
  if (in_memory_)
    return nullptr;
  if (!aux_found_)
    find_aux_entries();
  if (index < aux_entry_.size() && aux_entry_[index])
    return nullptr;
  const uint8_t *bytes = raw_->slice(uint64_t{index} * QVCOFF_SYMBOL_SIZE, QVCOFF_SYMBOL_SIZE);
  if (!bytes)
    return nullptr;
  BYTE_ORDERING order = file_->byte_order();
  auto symbol = std::make_unique<QVCOFF_SYMBOL>(this, index);
  QVCOFF_SYMBOL_RECORD &rec = symbol->record_;
  rec = decode<QVCOFF_SYMBOL_RECORD>(bytes, order);
  if (name_is_inline(rec.n_name)) {
    symbol->name_ = inline_name(rec.n_name);
  } else {
    symbol->name_ = file_->get_table_name(rec.n_name);
  }
  if (rec.n_numaux == 0)
    return symbol;
  QVCOFF_AUX_FORMAT format = symbol->get_aux_format();
  if (format == AUX_NONE) {
    file_->set_error(OF_ERR_MALFORMED, "unrecognized auxiliary entry for symbol \"%s\" (index = %ld, storage class = %s)",
                     symbol->name_.c_str(), static_cast<long>(index), symbol->get_storage_class_name());
    rec.n_numaux = 0;
    return symbol;
  }
  // Entries cut off by the end of the table are not made up.
  for (uint32_t a = 1; a <= rec.n_numaux; a++) {
    const uint8_t *aux = raw_->slice((uint64_t{index} + a) * QVCOFF_SYMBOL_SIZE, QVCOFF_AUX_SIZE);
    if (!aux)
      break;
    symbol->aux_.push_back(decode_aux(aux, format, order));
  }
  return symbol;
}

bool QVCOFF_SYMBOL_TABLE::check_scopes() {
  long blocks = 0, functions = 0;
  for (QVCOFF_SYMBOL *s : qvcoff_symbols()) {
    const std::string &name = s->get_name();
    if (s->get_storage_class() == C_BLOCK)
      blocks += name == ".bb" ? 1 : name == ".eb" ? -1 : 0;
    else if (s->get_storage_class() == C_FCN)
      functions += name == ".bf" ? 1 : name == ".ef" ? -1 : 0;
  }
  if (blocks == 0 && functions == 0)
    return true;
  file_->set_error(OF_ERR_MALFORMED, "debug symbols that delimit function and lexical block scopes are not balanced");
  return false;
}

}  // namespace OFE
