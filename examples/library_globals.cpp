// library_globals: lists the global symbols that the members of an object
// library define, one "member: symbol" line each, in member order and then
// symbol-table order (the order of a library's symbol index).
//
//   library_globals LIBRARY
//
// The library layout is walked here (the object-file library reads objects,
// not libraries): the 8-byte magic, then per member a 60-byte text header
// (name, date, owner, group, mode, size, "`\n") and the data, padded to an
// even offset. "/" and "/SYM64/" are symbol indexes, "//" holds long names
// that a member refers to as "/offset". Every other member is handed to
// open_object at its offset with its size; one that is not an object file
// gives null and is passed over.
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include <ofe/objfile/of_file.h>
#include <ofe/objfile/of_symbol.h>

namespace {

// Whether a symbol is one a linker could take from the member.
bool defines_global(const OFE::OF_SYMBOL &symbol) {
  OFE::OF_SYMBOL_BINDING binding = symbol.get_binding();
  OFE::OF_SYMBOL_KIND kind = symbol.get_kind();
  return (binding == OFE::OF_BIND_GLOBAL || binding == OFE::OF_BIND_WEAK) &&
         (kind == OFE::OF_KIND_DEFINED || kind == OFE::OF_KIND_ABSOLUTE || kind == OFE::OF_KIND_COMMON);
}

// The member's name: from the header, or from the long-name table.
std::string member_name(const char *header, const std::string &long_names) {
  std::string name(header, 16);
  if (name[0] == '/' && name[1] >= '0' && name[1] <= '9') {
    size_t offset = strtoul(name.c_str() + 1, nullptr, 10);
    name = offset < long_names.size() ? long_names.substr(offset) : "";
    name = name.substr(0, name.find('\n'));
  }
  name = name.substr(0, name.find_last_not_of(' ') + 1);
  if (!name.empty() && name.back() == '/')
    name.pop_back();
  return name;
}

}  // namespace

int main(int argc, char **argv) {
  if (argc != 2) {
    fprintf(stderr, "usage: library_globals LIBRARY\n");
    return 2;
  }
  FILE *stream = fopen(argv[1], "rb");
  char magic[8];
  if (!stream || fread(magic, 1, 8, stream) != 8 || memcmp(magic, "!<arch>\n", 8) != 0) {
    fprintf(stderr, "library_globals: '%s' is not a library\n", argv[1]);
    return 1;
  }
  std::string long_names;
  char header[60];
  long offset = 8;
  while (fseek(stream, offset, SEEK_SET) == 0 && fread(header, 1, 60, stream) == 60) {
    unsigned long size = strtoul(std::string(header + 48, 10).c_str(), nullptr, 10);
    long data = offset + 60;
    offset = data + static_cast<long>(size) + static_cast<long>(size & 1);
    std::string raw(header, 16);
    if (raw.rfind("// ", 0) == 0) {
      long_names.resize(size);
      if (fread(long_names.data(), 1, size, stream) != size)
        break;
      continue;
    }
    if (raw.rfind("/ ", 0) == 0 || raw.rfind("/SYM64/ ", 0) == 0)
      continue;
    // The stream stands at the member's data: open the object there.
    std::string name = member_name(header, long_names);
    OFE::OBJECT_FILE *object = OFE::open_object(stream, static_cast<uint32_t>(size), name.c_str(), nullptr);
    if (!object)
      continue;
    OFE::OF_SYMBOL_TABLE *table = object->get_symbol_table();
    for (uint32_t i = 0; table && i < table->get_count(); i = table->next_index(i))
      if (OFE::OF_SYMBOL *symbol = table->get_symbol(i); symbol && defines_global(*symbol))
        printf("%s: %s\n", name.c_str(), symbol->get_name().c_str());
    if (object->get_error_code() != OFE::OF_ERR_NONE)
      fprintf(stderr, "library_globals: %s: %s\n", name.c_str(), object->get_error_text().c_str());
    delete object;
  }
  fclose(stream);
  return 0;
}
