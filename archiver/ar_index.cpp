// The archive symbol index: rebuilt from the members on every write, never
// taken over from the old archive. Each member is opened through the
// object-file library, which reads only its header and symbol table; the
// member's global and weak definitions (defined, absolute or common) enter
// the index in member order, then symbol-table order, nothing sorted or
// merged. A member that is not an object contributes nothing, silently.
#include "archiver/ar_archive.h"
#include "objfile/of_file.h"
#include "objfile/of_symbol.h"

static bool indexed(const OFE::OF_SYMBOL &symbol) {
  OFE::OF_SYMBOL_BINDING binding = symbol.get_binding();
  OFE::OF_SYMBOL_KIND kind = symbol.get_kind();
  return (binding == OFE::OF_BIND_GLOBAL || binding == OFE::OF_BIND_WEAK) &&
         (kind == OFE::OF_KIND_DEFINED || kind == OFE::OF_KIND_ABSOLUTE || kind == OFE::OF_KIND_COMMON);
}

static void append_entry(ARCHIVE *ar, const std::string &name, AR_MEMBER *member) {
  auto *entry = ar->pool.make<AR_SYMBOL>();
  entry->name = ar->pool.strdup(name);
  entry->member = member;
  if (ar->symbols_tail)
    ar->symbols_tail->next = entry;
  else
    ar->symbols_head = entry;
  ar->symbols_tail = entry;
  ar->symbol_count++;
  ar->symbol_index_length += static_cast<uint32_t>(name.size()) + 5;  // offset, name, zero byte
}

// Members up to this size are read whole, with one read, and parsed from
// memory: the library's several small reads of a member would each cost a
// system call. Larger members are read lazily, headers and tables only.
static constexpr uint32_t READ_WHOLE_LIMIT = 64 * 1024;

static void collect_member_symbols(ARCHIVE *ar, AR_MEMBER *member, FILE *data) {
  static char whole[READ_WHOLE_LIMIT];
  FILE *in_memory = nullptr;
  uint32_t size = member->size;
  if (size <= READ_WHOLE_LIMIT) {
    size = static_cast<uint32_t>(fread(whole, 1, size, data));
    in_memory = size > 0 ? fmemopen(whole, size, "rb") : nullptr;
    if (!in_memory)
      return;  // unreadable or empty: no symbols
    data = in_memory;
  }
  OFE::OBJECT_FILE *object = OFE::open_object(data, size, nullptr, nullptr);
  if (!object) {
    if (in_memory)
      fclose(in_memory);
    return;
  }
  if (OFE::OF_SYMBOL_TABLE *table = object->get_symbol_table()) {
    for (uint32_t i = 0; i < table->get_count();) {
      if (OFE::OF_SYMBOL *symbol = table->get_symbol(i); symbol && indexed(*symbol))
        append_entry(ar, symbol->get_name(), member);
      uint32_t next = table->next_index(i);
      if (next <= i)
        break;  // a hostile table must not hold the walk in place
      i = next;
    }
  }
  delete object;
  if (in_memory)
    fclose(in_memory);
}

bool build_symbol_index(ARCHIVE *ar) {
  ar->symbols_head = ar->symbols_tail = nullptr;
  ar->symbol_count = 0;
  ar->symbol_index_length = 0;
  for (AR_MEMBER *m = ar->head; m; m = m->next) {
    MANAGED_FILE *data = ar_open_member_data(ar, m);
    if (!data)
      return false;
    if (m->size >= 1)
      collect_member_symbols(ar, m, managed_stream(data));
    if (ar_member_from_file(m))
      managed_close(data);
  }
  if (ar->symbol_count > 0)
    ar->symbol_index_length += 4;  // the count
  return true;
}
