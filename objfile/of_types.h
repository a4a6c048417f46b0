// The format-independent enumerations of the object-file library. Their
// numeric values are shared by every format class and must not change.
#pragma once

#include <cstdint>

namespace OFE {

enum OF_FORMAT : uint32_t {
  OF_FORMAT_UNKNOWN = 0,
  OF_FORMAT_COFF = 1,
  OF_FORMAT_ELF = 2,
};

enum OF_FORMAT_VERSION : uint32_t {
  OF_VERSION_UNKNOWN = 0,
  OF_VERSION_COFF0 = 1,  // the magic word is itself a target id
  OF_VERSION_COFF1 = 2,  // magic word 0x00C1
  OF_VERSION_COFF2 = 3,  // magic word 0x00C2
  OF_VERSION_ELF1 = 4,   // header version field equal to 1
};

enum OF_ENDIAN : uint32_t {
  OF_ENDIAN_UNKNOWN = 0,
  OF_ENDIAN_LITTLE = 1,
  OF_ENDIAN_BIG = 2,
};

enum OF_MACHINE : uint32_t {
  OF_MACHINE_UNKNOWN = 0,
  OF_MACHINE_ARM = 1,
  OF_MACHINE_FORNAX = 2,
  OF_MACHINE_VELA = 3,
  OF_MACHINE_LYRA = 4,
  OF_MACHINE_PYXIS = 5,
  OF_MACHINE_CARINA = 6,
  OF_MACHINE_NORMA = 7,
  OF_MACHINE_INDUS = 8,
  OF_MACHINE_LUPUS = 9,
  OF_MACHINE_GRUS = 10,
  OF_MACHINE_DORADO = 11,
};

enum OF_FILE_TYPE : uint32_t {
  OF_FILE_TYPE_NONE = 0,
  OF_FILE_TYPE_RELOCATABLE = 1,
  OF_FILE_TYPE_EXECUTABLE = 2,
  OF_FILE_TYPE_SHARED = 3,
  OF_FILE_TYPE_CORE = 4,
};

enum OF_SYMBOL_KIND : uint32_t {
  OF_KIND_UNKNOWN = 0,
  OF_KIND_UNDEFINED = 1,
  OF_KIND_DEFINED = 2,
  OF_KIND_ABSOLUTE = 3,
  OF_KIND_COMMON = 4,
  OF_KIND_DEBUG = 5,
};

enum OF_SYMBOL_BINDING : uint32_t {
  OF_BIND_UNKNOWN = 0,
  OF_BIND_LOCAL = 1,
  OF_BIND_GLOBAL = 2,
  OF_BIND_WEAK = 3,
};

enum OF_SYMBOL_TYPE : uint32_t {
  OF_TYPE_NONE = 0,
  OF_TYPE_OBJECT = 1,
  OF_TYPE_FUNCTION = 2,
  OF_TYPE_SECTION = 3,
  OF_TYPE_FILE = 4,
  OF_TYPE_COMMON = 5,
  OF_TYPE_TLS = 6,
};

// Codes of an object's pending error. The ranking between them is
// OBJECT_FILE::set_error's business.
enum OF_ERROR_CODE : uint32_t {
  OF_ERR_NONE = 0,
  OF_ERR_WRONG_FORMAT = 1,     // request not valid for this format
  OF_ERR_OPEN = 2,             // file could not be opened
  OF_ERR_MALFORMED = 3,        // malformed or foreign file
  OF_ERR_WARNING = 4,
  OF_ERR_INVALID_REQUEST = 5,
  OF_ERR_LIMITATION = 6,       // the format cannot express the request
  OF_ERR_INTERNAL = 7,         // internal misuse
  OF_ERR_SOFT = 8,             // ranked between the warnings and the rest
};

// The codes that only warn (4 and 6): what they report was done, or done
// as near as the format allows.
constexpr bool is_warning(uint32_t code) { return code == OF_ERR_WARNING || code == OF_ERR_LIMITATION; }

// Printed names. Values outside an enumeration print as its "unknown" text.
const char *format_name(uint32_t format);           // "ELF", "QV-COFF", "UNKNOWN"
const char *format_version_name(uint32_t version);  // "0", "1", "2", "1", "unknown format version"
const char *endian_name(uint32_t endian);           // "little endian", ..., "unknown endianness"
const char *machine_name(uint32_t machine);         // "QV Vela", ..., "unknown machine"
const char *file_type_name(uint32_t type);          // "relocatable file", ..., "unknown file type"
// The printed name of an OF_SYMBOL_KIND.
const char *symbol_kind_name(uint32_t kind);
// The printed name of an OF_SYMBOL_BINDING.
const char *symbol_binding_name(uint32_t binding);
// The printed name of an OF_SYMBOL_TYPE.
const char *symbol_type_name(uint32_t type);

}  // namespace OFE
