#include "objfile/of_types.h"

#include "support/name_table.h"

namespace OFE {

namespace {

const NAME_ENTRY FORMAT_NAMES[] = {
    {OF_FORMAT_UNKNOWN, "UNKNOWN"}, {OF_FORMAT_COFF, "QV-COFF"}, {OF_FORMAT_ELF, "ELF"}};

const NAME_ENTRY VERSION_NAMES[] = {
    {OF_VERSION_COFF0, "0"}, {OF_VERSION_COFF1, "1"}, {OF_VERSION_COFF2, "2"}, {OF_VERSION_ELF1, "1"}};

const NAME_ENTRY ENDIAN_NAMES[] = {{OF_ENDIAN_LITTLE, "little endian"}, {OF_ENDIAN_BIG, "big endian"}};

const NAME_ENTRY MACHINE_NAMES[] = {
    {OF_MACHINE_ARM, "Advanced RISC Machines ARM"},
    {OF_MACHINE_FORNAX, "Fornax"},
    {OF_MACHINE_VELA, "QV Vela"},
    {OF_MACHINE_LYRA, "QV Lyra"},
    {OF_MACHINE_PYXIS, "QV Pyxis"},
    {OF_MACHINE_CARINA, "QV Carina"},
    {OF_MACHINE_NORMA, "QV Norma"},
    {OF_MACHINE_INDUS, "Indus Target"},
    {OF_MACHINE_LUPUS, "QV Lupus"},
    {OF_MACHINE_GRUS, "QV Grus"},
    {OF_MACHINE_DORADO, "QV Dorado"},
};

const NAME_ENTRY FILE_TYPE_NAMES[] = {
    {OF_FILE_TYPE_RELOCATABLE, "relocatable file"},
    {OF_FILE_TYPE_EXECUTABLE, "executable file"},
    {OF_FILE_TYPE_SHARED, "shared object file"},
    {OF_FILE_TYPE_CORE, "core file"},
};

const NAME_ENTRY KIND_NAMES[] = {
    {OF_KIND_UNKNOWN, "unknown"}, {OF_KIND_UNDEFINED, "undefined"}, {OF_KIND_DEFINED, "defined"},
    {OF_KIND_ABSOLUTE, "absolute"}, {OF_KIND_COMMON, "common"}, {OF_KIND_DEBUG, "debug"},
};

const NAME_ENTRY BINDING_NAMES[] = {
    {OF_BIND_UNKNOWN, "unknown"}, {OF_BIND_LOCAL, "local"}, {OF_BIND_GLOBAL, "global"}, {OF_BIND_WEAK, "weak"},
};

const NAME_ENTRY TYPE_NAMES[] = {
    {OF_TYPE_NONE, "none"}, {OF_TYPE_OBJECT, "object"}, {OF_TYPE_FUNCTION, "function"},
    {OF_TYPE_SECTION, "section"}, {OF_TYPE_FILE, "file"}, {OF_TYPE_COMMON, "common"}, {OF_TYPE_TLS, "tls"},
};

}  // namespace

const char *format_name(uint32_t v) { return lookup_name(FORMAT_NAMES, v, "UNKNOWN"); }
const char *format_version_name(uint32_t v) { return lookup_name(VERSION_NAMES, v, "unknown format version"); }
const char *endian_name(uint32_t v) { return lookup_name(ENDIAN_NAMES, v, "unknown endianness"); }
const char *machine_name(uint32_t v) { return lookup_name(MACHINE_NAMES, v, "unknown machine"); }
const char *file_type_name(uint32_t v) { return lookup_name(FILE_TYPE_NAMES, v, "unknown file type"); }
const char *symbol_kind_name(uint32_t v) { return lookup_name(KIND_NAMES, v, "unknown"); }
const char *symbol_binding_name(uint32_t v) { return lookup_name(BINDING_NAMES, v, "unknown"); }
const char *symbol_type_name(uint32_t v) { return lookup_name(TYPE_NAMES, v, "unknown"); }

}  // namespace OFE
