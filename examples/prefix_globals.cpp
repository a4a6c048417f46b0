// prefix_globals: copies an object file, putting a prefix before the name of
// every global and weak symbol, defined or not, so that a set of objects
// edited alike still links together while its names stay out of the way of
// other code.
//
//   prefix_globals PREFIX INPUT OUTPUT
//
// The object is opened, edited through the symbols' setters and written with
// write_to_path, which prepares every table again: the string tables are
// rebuilt with the new names, and relocations keep pointing at their
// symbols. An operation that fails says so by its result (-1 here) and
// leaves its reason pending on the object.
#include <cstdio>
#include <string>

#include <ofe/objfile/of_file.h>
#include <ofe/objfile/of_symbol.h>

int main(int argc, char **argv) {
  if (argc != 4) {
    fprintf(stderr, "usage: prefix_globals PREFIX INPUT OUTPUT\n");
    return 2;
  }
  const std::string prefix = argv[1];
  FILE *stream = fopen(argv[2], "rb");
  if (!stream) {
    perror(argv[2]);
    return 1;
  }
  OFE::OBJECT_FILE *object = OFE::open_object(stream, 0, argv[2], nullptr);
  if (!object) {
    fprintf(stderr, "prefix_globals: '%s' is not an object file\n", argv[2]);
    fclose(stream);
    return 1;
  }

  bool ok = true;
  OFE::OF_SYMBOL_TABLE *table = object->get_symbol_table();
  for (uint32_t i = 0; table && i < table->get_count(); i = table->next_index(i)) {
    OFE::OF_SYMBOL *symbol = table->get_symbol(i);
    if (!symbol || symbol->get_name().empty())
      continue;
    OFE::OF_SYMBOL_BINDING binding = symbol->get_binding();
    if ((binding == OFE::OF_BIND_GLOBAL || binding == OFE::OF_BIND_WEAK) &&
        symbol->set_name(prefix + symbol->get_name()) != 0) {
      ok = false;
      break;
    }
  }

  // The input stream stays open until the object is written: what was not
  // edited is copied from it.
  if (ok)
    ok = object->write_to_path(argv[3]) == 0;
  if (!ok)
    fprintf(stderr, "prefix_globals: %s\n", object->get_error_text().c_str());
  delete object;
  fclose(stream);
  return ok ? 0 : 1;
}
