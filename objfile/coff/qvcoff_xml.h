// The QV-COFF XML listings give many elements a description attribute.
#pragma once

#include <string>

#include "support/xml_writer.h"

namespace OFE {

inline void described(XML_WRITER &xml, const char *name, const std::string &text, const char *description) {
  xml.element(name, text, {{"description", description}});
}

}  // namespace OFE
