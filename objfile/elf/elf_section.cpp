#include "objfile/elf/elf_section.h"

#include <new>

#include "objfile/elf/elf_file.h"
#include "objfile/elf/elf_group.h"
#include "objfile/elf/elf_names.h"
#include "objfile/elf/elf_reloc.h"
#include "objfile/elf/elf_scnattr.h"
#include "objfile/elf/elf_string.h"
#include "objfile/elf/elf_symbol.h"
#include "objfile/elf/elf_types.h"
#include "support/printable.h"

namespace OFE {

ELF_SECTION::ELF_SECTION(ELF_SECTION_TABLE *table, uint32_t index, const ELF32_SECTION_HEADER_RECORD &header)
    : table_(table), index_(index), header_(header) {}

ELF_SECTION::~ELF_SECTION() = default;

OBJECT_FILE *ELF_SECTION::get_object() const { return table_->get_file(); }

std::string ELF_SECTION::get_name() const {
  if (!named_) {
    named_ = true;
    // Section 0 is the null section; asking the name table for its name
    // would make the name table look itself up.
    ELF_STRING_TABLE *names = index_ == 0 ? nullptr : table_->get_name_table(false);
    const char *text = names ? names->get_string(header_.sh_name) : nullptr;
    name_ = text ? text : "";
  }
  return name_;
}

DATA_MAP &ELF_SECTION::new_contents(ELF_LAYOUT_KEY) {
  data_ready_ = true;
  data_.clear();
  data_.set_byte_order(table_->get_file()->byte_order());
  return data_;
}

DATA_MAP *ELF_SECTION::get_data() {
  if (!data_ready_) {
    data_ready_ = true;
    ELF_FILE *file = table_->get_file();
    data_.set_byte_order(file->was_read_from_stream() ? file->file_byte_order() : file->byte_order());
    // Section 0 has no contents: its sh_size is the section count of a file
    // with too many sections for e_shnum, however much it says.
    if (index_ != 0 && header_.sh_type != SHT_NOBITS && header_.sh_size != 0 && file->was_read_from_stream()) {
      char what[48];
      snprintf(what, sizeof what, "contents of section %u", index_);
      if (!file->file_region(header_.sh_offset, header_.sh_size, data_, what))
        data_.clear();
    }
  }
  return &data_;
}

DATA_MAP *ELF_SECTION::get_raw_data() {
  if (header_.sh_type == SHT_NOBITS || (get_attribute(ELF_SCN_ATTR_FLAGS) & QV_SHF_NOINIT))
    get_file()->set_error(OF_ERR_WARNING,
                          "accessing the raw data of section \"%s\" which is uninitialized according to its section "
                          "attributes; changes to raw data may be lost",
                          get_name().c_str());
  return get_data();
}

bool ELF_SECTION::begin_change() { return get_file()->begin_change(); }

int ELF_SECTION::set_name(const std::string &name) {
  return apply_change(begin_change(), [&] {
    get_name();  // a later lookup must not overwrite the new name
    name_ = name;
    named_ = true;
  });
}

int ELF_SECTION::set_data(const void *bytes, uint32_t size) {
  return apply_change(begin_change(), [&] {
    get_data();
    data_.assign(bytes, size);
    data_.set_position(0);
    header_.sh_size = size;
  });
}

int ELF_SECTION::set_type(uint32_t type) {
  return apply_change(begin_change(), [&] {
    // The type as read says whether the contents are in the file, so they
    // are taken before it changes. A section with no bytes in the file
    // holds zeros, and those are its contents once its type gives it some:
    // as many as its size says, which no file bounds.
    DATA_MAP *data = get_data();
    if (header_.sh_type == SHT_NOBITS && type != SHT_NOBITS) {
      try {
        data->resize(header_.sh_size);
      } catch (const std::bad_alloc &) {
        get_file()->set_error(OF_ERR_INVALID_REQUEST, "section \"%s\" would hold %u bytes, more than memory can",
                              get_name().c_str(), header_.sh_size);
        return -1;
      }
    }
    header_.sh_type = type;
    return 0;
  });
}

#define ELF_SECTION_SETTER(function, field) \
  int ELF_SECTION::function(uint32_t value) { return apply_change(begin_change(), [&] { header_.field = value; }); }
ELF_SECTION_SETTER(set_flags, sh_flags)
ELF_SECTION_SETTER(set_address, sh_addr)
ELF_SECTION_SETTER(set_link, sh_link)
ELF_SECTION_SETTER(set_info, sh_info)
ELF_SECTION_SETTER(set_entsize, sh_entsize)
#undef ELF_SECTION_SETTER

int ELF_SECTION::set_alignment(uint32_t alignment) {
  if (alignment == 0 || (alignment & (alignment - 1)) != 0) {
    get_file()->set_error(OF_ERR_INVALID_REQUEST, "only powers of 2 are valid alignment values");
    return -1;
  }
  return apply_change(begin_change(), [&] { header_.sh_addralign = alignment; });
}

void ELF_SECTION::contents_encoded(ELF_LAYOUT_KEY, std::optional<uint32_t> entsize) {
  header_.sh_size = static_cast<uint32_t>(get_data()->size());
  if (entsize)
    header_.sh_entsize = *entsize;
}

void ELF_SECTION::set_format(ELF_LAYOUT_KEY, uint32_t type, uint32_t alignment, uint32_t entsize) {
  header_.sh_type = type;
  header_.sh_addralign = alignment;
  header_.sh_entsize = entsize;
}

void ELF_SECTION::set_links(ELF_LAYOUT_KEY, uint32_t link, uint32_t info) {
  header_.sh_link = link;
  header_.sh_info = info;
}

int ELF_SECTION::set_page(uint32_t page) {
  ELF_FILE *file = get_file();
  const OF_SPECIAL_SECTION *special = file->get_machine_db()->get_special_section(OF_SPECIAL_SECTION_PAGE);
  if (!special || !special->name) {
    file->set_error(OF_ERR_INVALID_REQUEST, "%s files have no section page attribute",
                    machine_name(file->get_machine()));
    return -1;
  }
  get_file()->load_section_attributes();
  return apply_change(begin_change(), [&] { attributes_[ELF_SCN_ATTR_PAGE] = page; });
}

uint32_t ELF_SECTION::get_attribute(uint32_t kind) const {
  get_file()->load_section_attributes();
  return kind < ELF_SCN_ATTR_KIND_COUNT ? attributes_[kind] : 0;
}

void ELF_SECTION::set_attribute(uint32_t kind, uint32_t value) {
  get_file()->load_section_attributes();  // a later load must not overwrite the value
  if (kind < ELF_SCN_ATTR_KIND_COUNT && begin_change())
    attributes_[kind] = value;
}

ELF_SYMBOL_TABLE *ELF_SECTION::symbols() {
  if (!symbols_ && (header_.sh_type == SHT_SYMTAB || header_.sh_type == SHT_DYNSYM))
    symbols_ = std::make_unique<ELF_SYMBOL_TABLE>(get_file(), this, get_data());
  return symbols_.get();
}

ELF_STRING_TABLE *ELF_SECTION::strings() {
  if (!strings_ && index_ != 0) {
    strings_ = std::make_unique<ELF_STRING_TABLE>(get_file(), this, get_data());
    if (strings_->size() == 0)
      strings_->reset();  // a new table starts with the empty string
  }
  return strings_.get();
}

ELF_RELOC_TABLE *ELF_SECTION::relocations() {
  if (!relocations_ && (header_.sh_type == SHT_REL || header_.sh_type == SHT_RELA))
    relocations_ = std::make_unique<ELF_RELOC_TABLE>(this);
  return relocations_.get();
}

ELF_GROUP_TABLE *ELF_SECTION::group() {
  if (!group_ && header_.sh_type == SHT_GROUP)
    group_ = std::make_unique<ELF_GROUP_TABLE>(this, *get_data());
  return group_.get();
}

OF_GROUP_TABLE *ELF_SECTION::get_group() { return group(); }

uint32_t ELF_SECTION::get_reloc_table_count() {
  uint32_t n = 0;
  for (uint32_t i = 1; i < table_->get_count(); i++) {
    ELF_SECTION *s = table_->get_section(i);
    if (s->relocations() && s->header_.sh_info == index_)
      n++;
  }
  return n;
}

OF_RELOC_TABLE *ELF_SECTION::get_reloc_table(uint32_t which) {
  for (uint32_t i = 1; i < table_->get_count(); i++) {
    ELF_SECTION *s = table_->get_section(i);
    if (s->relocations() && s->header_.sh_info == index_ && which-- == 0)
      return s->relocations();
  }
  return nullptr;
}

ELF_SECTION *ELF_SECTION::get_relocation_section(bool rela) {
  uint32_t type = rela ? SHT_RELA : SHT_REL;
  for (uint32_t i = 1; i < table_->get_count(); i++) {
    ELF_SECTION *s = table_->get_section(i);
    if (s->header_.sh_type == type && s->header_.sh_info == index_)
      return s;
  }
  ELF_SYMBOL_TABLE *symbols = get_file()->get_elf_symbol_table();
  if (!symbols)
    return nullptr;
  std::string name = get_name();  // before the table grows
  ELF_SECTION *s = table_->create_section((rela ? ".rela" : ".rel") + name, {type, SHF_INFO_LINK, 4, rela ? 12u : 8u},
                                          symbols->get_section()->get_index());
  s->header_.sh_info = index_;
  return s;
}

void ELF_SECTION::dump(FILE *stream) {
  auto row = [stream](const char *label, const std::string &value) {
    fprintf(stream, "  %-26s%s\n", label, value.c_str());
  };
  auto num = [](const char *format, uint32_t value) {
    char text[32];
    snprintf(text, sizeof text, format, value);
    return std::string(text);
  };
  ELF_FILE *file = get_file();
  fprintf(stream, "\n Section %u \"%s\"\n\n", index_, printable(get_name()).c_str());
  row("Section Type:", elf_section_type_name(file, header_.sh_type));
  row("Address:", num("0x%08x", header_.sh_addr));
  row("Offset:", num("0x%08x", header_.sh_offset));
  row("Size:", num("%u", header_.sh_size));
  row("Alignment:", num("%u", header_.sh_addralign));
  row("Entry Size:", num("%u", header_.sh_entsize));
  row("Link:", num("%u", header_.sh_link));
  row("Info:", num("%u", header_.sh_info));
  ELF_SECTION *linked = header_.sh_link ? table_->get_section(header_.sh_link) : nullptr;
  if (linked)
    row("Linked Scn:", "\"" + linked->get_name() + "\"");
  if (ELF_SYMBOL_TABLE *symbols = this->symbols()) {
    row("String Table:", linked ? "\"" + linked->get_name() + "\"" : "");
    row("# Symbols:", num("%u", symbols->get_count()));
    row("# Local Symbols:", num("%u", header_.sh_info));
    row("Symbol Size:", num("%d bytes", 16));
  }
  if (ELF_RELOC_TABLE *relocs = relocations()) {
    ELF_SECTION *target = relocs->get_target();
    row("Symbol Table:", linked ? "\"" + linked->get_name() + "\"" : "");
    row("Section Relocated:", target ? "\"" + target->get_name() + "\"" : "");
    row("Reloc Size:", num("%d bytes", static_cast<int>(relocs->get_entry_size())));
  }
  if (header_.sh_type == SHT_GROUP) {
    row("Symbol Table:", linked ? "\"" + linked->get_name() + "\"" : "");
    row("Group Symbol ID:", num("%u", header_.sh_info));
  }
  row("Page:", num("%u", get_attribute(ELF_SCN_ATTR_PAGE)));
  row("ELF sh_flags:", num("0x%08x", header_.sh_flags));
  for (const std::string &flag : elf_section_flag_names(header_.sh_flags))
    row("ELF sh_flag:", flag);
  row("QV ext_flags:", num("0x%x", get_attribute(ELF_SCN_ATTR_FLAGS)));
  for (const std::string &flag : elf_ext_flag_names(file->get_machine_db(), get_attribute(ELF_SCN_ATTR_FLAGS)))
    row("QV ext_flag:", flag);
}

ELF_SECTION_TABLE::ELF_SECTION_TABLE(ELF_FILE *file) : OF_INDEX_HOLDER(file), file_(file) {}
ELF_SECTION_TABLE::~ELF_SECTION_TABLE() = default;

void ELF_SECTION_TABLE::load(DATA_MAP headers, uint32_t entsize, uint32_t count) {
  sections_.clear();
  symbol_table_ = nullptr;
  if (count == 0)
    return;
  headers_ = std::move(headers);
  entsize_ = entsize;
  sections_.resize(count);
}

void ELF_SECTION_TABLE::load_all() {
  for (uint32_t i = 0; i < get_count(); i++)
    get_section(i);
}

ELF_SECTION *ELF_SECTION_TABLE::get_section(uint32_t index) {
  if (index >= sections_.size())
    return nullptr;
  if (!sections_[index]) {
    ELF32_SECTION_HEADER_RECORD header{};
    // The region was checked when the table was loaded, so this only fails
    // for sections that were created rather than read.
    if (entsize_ != 0)
      (void)elf32_read(headers_, static_cast<uint64_t>(index) * entsize_, header);
    sections_[index] = std::make_unique<ELF_SECTION>(this, index, header);
  }
  return sections_[index].get();
}

ELF_SECTION *ELF_SECTION_TABLE::find_section_by_type(uint32_t type, uint32_t link) {
  for (uint32_t i = 1; i < get_count(); i++) {
    ELF_SECTION *s = get_section(i);
    if (s->get_type() == type && (link == ~0u || s->get_link() == link))
      return s;
  }
  return nullptr;
}

ELF_SECTION *ELF_SECTION_TABLE::find_symbol_table_section() {
  // Its type may have been changed since; a new one is only ever appended.
  if (!symbol_table_ || symbol_table_->get_type() != SHT_SYMTAB)
    symbol_table_ = find_section_by_type(SHT_SYMTAB);
  return symbol_table_;
}

ELF_SECTION *ELF_SECTION_TABLE::find_elf_section(const std::string &name) {
  return static_cast<ELF_SECTION *>(find_section(name));
}

ELF_SECTION *ELF_SECTION_TABLE::create_section(const std::string &name, uint32_t type) {
  if (sections_.empty())
    sections_.push_back(std::make_unique<ELF_SECTION>(this, 0, ELF32_SECTION_HEADER_RECORD{}));
  load_all();  // a read header must not be looked for in a slot that moved
  ELF32_SECTION_HEADER_RECORD header{};
  header.sh_type = type;
  uint32_t index = get_count();
  auto section = std::make_unique<ELF_SECTION>(this, index, header);
  section->name_ = name;
  section->named_ = true;
  section->data_ready_ = true;
  section->data_.set_byte_order(file_->byte_order());
  sections_.push_back(std::move(section));
  return sections_.back().get();
}

ELF_SECTION *ELF_SECTION_TABLE::create_section(const std::string &name, const ELF_SECTION_FORMAT &format,
                                               uint32_t link) {
  ELF_SECTION *s = create_section(name, format.type);
  s->header_.sh_flags = format.flags;
  s->header_.sh_addralign = format.alignment;
  s->header_.sh_entsize = format.entsize;
  s->header_.sh_link = link;
  return s;
}

int ELF_SECTION_TABLE::prepare() {
  load_all();
  uint32_t n = get_count();
  if (n == 0)
    return 0;
  std::vector<std::unique_ptr<ELF_SECTION>> order;
  std::vector<uint32_t> old_to_new(n, OF_INDEX_MAP::REMOVED);
  if (sections_[0]->get_type() != SHT_NULL) {
    file_->set_error(OF_ERR_INTERNAL, "section 0 is not a NULL section");
    order.push_back(std::make_unique<ELF_SECTION>(this, 0, ELF32_SECTION_HEADER_RECORD{}));
    order.back()->named_ = true;
    order.back()->data_ready_ = true;
  } else {
    old_to_new[0] = 0;
    order.push_back(std::move(sections_[0]));
  }
  // The class of each section, in the order the classes are written.
  auto section_class = [this](ELF_SECTION &s) {
    // A loaded image keeps its order: its dynamic symbols, version sections
    // and segments name sections by index.
    if (file_->keeps_image())
      return 0;
    uint32_t type = s.get_type();
    if (type == SHT_GROUP)
      return 0;
    if (file_->is_pinned_by_dynamic(s))
      return 1;
    if (type == SHT_NOBITS || (type == SHT_PROGBITS && !file_->is_special_section(s)))
      return 2;
    return 3;
  };
  for (int cls = 0; cls < 4; cls++) {
    for (uint32_t i = 0; i < n; i++) {
      if (!sections_[i] || (i == 0 && old_to_new[0] == 0) || section_class(*sections_[i]) != cls)
        continue;
      old_to_new[i] = static_cast<uint32_t>(order.size());
      order.push_back(std::move(sections_[i]));
    }
  }
  sections_ = std::move(order);
  for (uint32_t i = 0; i < sections_.size(); i++)
    sections_[i]->index_ = i;
  file_->follow_section_map(OF_INDEX_MAP(std::move(old_to_new), static_cast<uint32_t>(sections_.size())));
  return 0;
}

std::set<uint32_t> ELF_SECTION_TABLE::own_tables(const std::set<uint32_t> &sections) {
  std::set<uint32_t> tables;
  for (uint32_t i = 1; i < get_count(); i++) {
    uint32_t type = get_section(i)->get_type(), target = get_section(i)->get_info();
    if ((type == SHT_REL || type == SHT_RELA) && target != 0 && target != i && sections.count(target))
      tables.insert(i);
  }
  return tables;
}

bool ELF_SECTION_TABLE::refuse_removal(const std::set<uint32_t> &gone) {
  // A symbol or string table goes only when no section that stays links to
  // it (relocations name their symbol table, a symbol table its strings):
  // the last step of taking every symbol away.
  std::set<uint32_t> linked{get_name_table_index()};
  for (uint32_t i = 1; i < get_count(); i++)
    if (!gone.count(i))
      linked.insert(get_section(i)->get_link());
  // In a loaded image only what none of its kept bytes refers to may go: a
  // section that is not loaded, with no loaded section after it (those the
  // image's own tables name by number would be renumbered).
  uint32_t last_loaded = 0;
  for (uint32_t i = 1; file_->keeps_image() && i < get_count(); i++)
    if (get_section(i)->get_flags() & SHF_ALLOC)
      last_loaded = i;
  for (uint32_t index : gone) {
    ELF_SECTION *s = get_section(index);
    uint32_t type = s->get_type();
    if (index <= last_loaded || type == SHT_DYNSYM || type == SHT_SYMTAB_SHNDX || type == SHT_GNU_versym ||
        ((type == SHT_SYMTAB || type == SHT_STRTAB) && linked.count(index)) || file_->is_held_by_dynamic_tables(*s)) {
      file_->set_error(OF_ERR_INVALID_REQUEST, "%s: section %s cannot be removed", file_->message_name(),
                       s->get_name().c_str());
      return true;
    }
  }
  return false;
}

int ELF_SECTION_TABLE::remove_sections(const std::set<uint32_t> &indexes) {
  if (indexes.empty())
    return 0;
  if (!begin_removal(file_, indexes))
    return -1;
  std::set<uint32_t> gone = own_tables(indexes);
  gone.insert(indexes.begin(), indexes.end());
  if (refuse_removal(gone))
    return -1;
  // The members of a group that goes stay, as sections of no group unless
  // another group lists them, and the file forgets what it read from each
  // section that goes. (Before any section moves: a slot moved from would
  // be read afresh.)
  std::vector<OF_GROUP_TABLE *> grouped = groups_that_stay(*this, gone);
  for (uint32_t i : gone) {
    if (ELF_GROUP_TABLE *group = get_section(i)->group())
      for (uint32_t m = 0; m < group->get_count(); m++)
        if (ELF_SECTION *member = get_section(group->get_member_index(m)); member && !grouped[member->get_index()])
          member->header_.sh_flags &= ~SHF_GROUP;
    file_->forget_section(*get_section(i));
  }
  std::vector<std::unique_ptr<ELF_SECTION>> kept;
  for (uint32_t i = 0; i < get_count(); i++) {
    ELF_SECTION *s = get_section(i);
    if (!gone.count(i)) {
      kept.push_back(std::move(sections_[i]));
      continue;
    }
    if (s == symbol_table_)
      symbol_table_ = nullptr;
  }
  uint32_t count = get_count();
  sections_ = std::move(kept);
  for (uint32_t i = 0; i < sections_.size(); i++)
    sections_[i]->index_ = i;
  follow_removal(file_, gone, count);
  return 0;
}

uint32_t ELF_SECTION_TABLE::get_name_table_index() {
  uint16_t field = file_->header().e_shstrndx;
  if (field != SHN_XINDEX)
    return field;
  ELF_SECTION *zero = get_section(0);
  return zero ? zero->get_link() : 0;
}

void ELF_SECTION_TABLE::set_name_table_index(uint32_t index) {
  ELF_SECTION *zero = get_section(0);
  // Without sections there is no section 0 to hold an escaped index, and
  // nothing an index could name: SHN_XINDEX there would name what the
  // next read takes from nowhere.
  if (!zero && index > ELF_MAX_DIRECT_SECTIONS)
    index = SHN_UNDEF;
  if (index > ELF_MAX_DIRECT_SECTIONS) {
    file_->set_shstrndx_field({}, SHN_XINDEX);
    zero->set_links({}, index, zero->get_info());
  } else {
    if (file_->header().e_shstrndx == SHN_XINDEX && zero)
      zero->set_links({}, 0, zero->get_info());
    file_->set_shstrndx_field({}, static_cast<uint16_t>(index));
  }
}

ELF_STRING_TABLE *ELF_SECTION_TABLE::get_name_table(bool create) {
  uint32_t index = get_name_table_index();
  // Only a string table names the sections: a header that points at a
  // section of another kind (a group, say) would have names appended to
  // that section's contents on every write.
  if (index == 0 || index >= get_count() || get_section(index)->get_type() != SHT_STRTAB) {
    if (!create)
      return nullptr;
    ELF_SECTION *found = find_elf_section(".shstrtab");
    index = found && found->get_type() == SHT_STRTAB ? found->get_index()
                                                      : create_section(".shstrtab", SHT_STRTAB)->get_index();
    set_name_table_index(index);
  }
  return get_section(index)->strings();
}

void ELF_SECTION_TABLE::follow_sections(const OF_INDEX_MAP &map) {
  set_name_table_index(map.follow(get_name_table_index()));
  for (uint32_t i = 1; i < get_count(); i++) {
    ELF32_SECTION_HEADER_RECORD &h = get_section(i)->header_;
    h.sh_link = map.follow(h.sh_link);
    if (h.sh_type == SHT_REL || h.sh_type == SHT_RELA || (h.sh_flags & SHF_INFO_LINK))
      h.sh_info = map.follow(h.sh_info);
  }
}

}  // namespace OFE
