// File-name services: the spelling of file operands, the file-name part of a
// path, and fresh names for temporary files beside an archive.
#pragma once

#include <string>

// The operand with each existing component spelled as the file system stores
// it, newly allocated. File systems here are case-sensitive, so the stored
// spelling is the one given and the operand comes back unchanged.
char *spell_path(const char *operand);

// The same rule applied to the operand itself: the stored spelling differs
// from the given one in letter case only, so it always fits in place.
void spell_path_in_place(char *operand);

// The text after the last "\", "/" or ":".
const char *file_name_part(const char *path);

// A freshly generated random GUID in its registry form,
// {XXXXXXXX-XXXX-XXXX-XXXX-XXXXXXXXXXXX}.
std::string guid_text();

// The directory part of `path`: "." when it has none, "/" for the root.
std::string directory_of(const std::string &path);

// A path in the same directory as `path` whose file name is a new GUID text
// followed by `suffix`; beside the current directory when `path` has none.
std::string temp_path_beside(const std::string &path, const char *suffix = "");
