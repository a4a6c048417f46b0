// Lists the named symbols of one object file through the installed OFE
// library, one "<binding> <kind> <name>" line each, in symbol-table order.
#include <cstdio>

#include <ofe/objfile/of_file.h>
#include <ofe/objfile/of_symbol.h>

namespace {

const char *binding_word(OFE::OF_SYMBOL_BINDING binding) {
  switch (binding) {
  case OFE::OF_BIND_LOCAL: return "local";
  case OFE::OF_BIND_GLOBAL: return "global";
  case OFE::OF_BIND_WEAK: return "weak";
  default: return "?";
  }
}

const char *kind_word(OFE::OF_SYMBOL_KIND kind) {
  switch (kind) {
  case OFE::OF_KIND_UNDEFINED: return "undefined";
  case OFE::OF_KIND_DEFINED: return "defined";
  case OFE::OF_KIND_ABSOLUTE: return "absolute";
  case OFE::OF_KIND_COMMON: return "common";
  case OFE::OF_KIND_DEBUG: return "debug";
  default: return "?";
  }
}

}  // namespace

int main(int argc, char **argv) {
  if (argc != 2) {
    fprintf(stderr, "usage: list_symbols OBJECT\n");
    return 2;
  }
  FILE *stream = fopen(argv[1], "rb");
  if (!stream) {
    perror(argv[1]);
    return 1;
  }
  OFE::OBJECT_FILE *object = OFE::open_object(stream, 0, argv[1], nullptr);
  if (!object) {
    fprintf(stderr, "%s: not an object file\n", argv[1]);
    fclose(stream);
    return 1;
  }
  for (OFE::OF_SYMBOL *symbol : object->symbols())
    if (!symbol->get_name().empty())
      printf("%s %s %s\n", binding_word(symbol->get_binding()), kind_word(symbol->get_kind()),
             symbol->get_name().c_str());
  delete object;
  fclose(stream);
  return 0;
}
