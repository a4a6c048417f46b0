#include "objfile/of_binding_edit.h"

namespace OFE {

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
