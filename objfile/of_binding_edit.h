// Binding edits: which symbols localizing, globalizing and weakening are
// meant for, decided once for every format from the generic view of a
// symbol (binding, kind, type). The formats' binding setters keep their
// meaning; the edits only choose whether to call them.
#pragma once

#include "objfile/of_symbol.h"

namespace OFE {

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
