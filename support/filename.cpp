#include "support/filename.h"

#include <cstdio>
#include <cstring>
#include <random>
#include <sys/random.h>

#include "support/safealloc.h"

char *spell_path(const char *operand) {
  size_t n = strlen(operand) + 1;
  auto *copy = static_cast<char *>(safe_malloc(n));
  memcpy(copy, operand, n);
  spell_path_in_place(copy);
  return copy;
}

void spell_path_in_place(char *) {
  // Case-sensitive file systems store every name as it is given.
}

const char *file_name_part(const char *path) {
  const char *name = path;
  for (const char *p = path; *p; p++)
    if (*p == '\\' || *p == '/' || *p == ':')
      name = p + 1;
  return name;
}

std::string guid_text() {
  unsigned char b[16];
  if (getrandom(b, sizeof b, 0) != static_cast<ssize_t>(sizeof b)) {
    std::random_device rd;
    for (unsigned char &c : b)
      c = static_cast<unsigned char>(rd());
  }
  b[6] = (b[6] & 0x0F) | 0x40;  // version 4: random
  b[8] = (b[8] & 0x3F) | 0x80;  // variant 1
  char text[40];
  snprintf(text, sizeof text,
           "{%02X%02X%02X%02X-%02X%02X-%02X%02X-%02X%02X-%02X%02X%02X%02X%02X%02X}",
           b[0], b[1], b[2], b[3], b[4], b[5], b[6], b[7], b[8], b[9], b[10], b[11], b[12],
           b[13], b[14], b[15]);
  return text;
}

std::string temp_path_beside(const std::string &path, const char *suffix) {
  size_t slash = path.find_last_of('/');
  std::string dir = slash == std::string::npos ? "" : path.substr(0, slash + 1);
  return dir + guid_text() + suffix;
}

std::string directory_of(const std::string &path) {
  size_t slash = path.find_last_of('/');
  if (slash == std::string::npos)
    return ".";
  return slash == 0 ? "/" : path.substr(0, slash);
}
