// The archive symbol index: rebuilt from the members on every write, never
// taken over from the old archive. Each member is opened through the
// object-file library, which reads only its header and symbol table; the
// member's global and weak definitions (defined, absolute or common) enter
// the index in member order, then symbol-table order, nothing sorted or
// merged. A member that is not an object contributes nothing, silently.
#include "archiver/ar_archive.h"
#include "archiver/ar_copy.h"
#include "archiver/ar_index.h"
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

static void collect_member_symbols(ARCHIVE *ar, AR_MEMBER *member, const AR_MEMBER_DATA &data) {
  AR_MEMBER_STREAM s;
  if (!ar_open_member_stream(ar, member, data, &s))
    return;  // unreadable or empty: no symbols
  if (OFE::OBJECT_FILE *object = OFE::open_object(s.stream, s.size, nullptr, nullptr)) {
    for (OFE::OF_SYMBOL *symbol : object->symbols())
      if (indexed(*symbol))
        append_entry(ar, symbol->get_name(), member);
    delete object;
  }
  ar_close_member_stream(&s);
}

bool build_symbol_index(ARCHIVE *ar) {
  ar->symbols_head = ar->symbols_tail = nullptr;
  ar->symbol_count = 0;
  ar->symbol_index_length = 0;
  for (AR_MEMBER *m = ar->head; m; m = m->next) {
    AR_MEMBER_DATA data;
    if (!ar_open_member_data(ar, m, &data))
      return false;
    if (m->size >= 1)
      collect_member_symbols(ar, m, data);
    ar_close_member_data(&data);
  }
  if (ar->symbol_count > 0)
    ar->symbol_index_length += 4;  // the count
  return true;
}
