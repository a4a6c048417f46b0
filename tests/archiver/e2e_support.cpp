#include "archiver/e2e_support.h"

#include <cstdio>
#include <fcntl.h>
#include <stdexcept>
#include <sys/stat.h>

namespace e2e {

RUN_RESULT arvela(const std::vector<std::string> &args, const std::filesystem::path &cwd) {
  std::vector<std::string> argv{testing_support::arvela_path()};
  argv.insert(argv.end(), args.begin(), args.end());
  return testing_support::run(argv, cwd);
}

std::string header(const std::string &name_field, uint64_t date, uint64_t owner, uint64_t size) {
  char text[128];
  int n = snprintf(text, sizeof text, "%-16s%-12llu%-6llu%-6d%-8o%-10llu%-2s", name_field.c_str(),
                   static_cast<unsigned long long>(date), static_cast<unsigned long long>(owner), 0,
                   0u, static_cast<unsigned long long>(size), "`\n");
  if (n != 60)
    throw std::logic_error("test header is not 60 bytes: " + name_field);
  return std::string(text, 60);
}

std::string member(const std::string &name_field, uint64_t date, const std::string &data,
                   uint64_t owner) {
  std::string m = header(name_field, date, owner, data.size()) + data;
  if (data.size() % 2)
    m += '\n';
  return m;
}

void set_mtime(const std::filesystem::path &path, int64_t seconds) {
  timespec times[2] = {{static_cast<time_t>(seconds), 0}, {static_cast<time_t>(seconds), 0}};
  if (utimensat(AT_FDCWD, path.c_str(), times, 0) != 0)
    throw std::runtime_error("utimensat failed: " + path.string());
}

int64_t mtime_of(const std::filesystem::path &path) {
  struct stat st;
  if (stat(path.c_str(), &st) != 0)
    throw std::runtime_error("stat failed: " + path.string());
  return st.st_mtime;
}

std::filesystem::path write_dated(const TEMP_DIR &dir, const std::string &name,
                                  const std::string &bytes, int64_t date) {
  std::filesystem::path p = dir.write(name, bytes);
  set_mtime(p, date);
  return p;
}

std::string table_row(uint64_t size, int64_t date, const std::string &name) {
  // The child inherits this process's TZ, so local time here is local time there.
  time_t when = static_cast<time_t>(date);
  tm local{};
  localtime_r(&when, &local);
  char stamp[64];
  strftime(stamp, sizeof stamp, "%a %b %e %H:%M:%S %Y", &local);
  char row[512];
  snprintf(row, sizeof row, "  %8llu   %s    %s\n", static_cast<unsigned long long>(size), stamp,
           name.c_str());
  return row;
}

std::string status(const std::string &verb, const std::string &name) {
  return "  ==>  " + verb + " '" + name + "'\n";
}

std::string error_line(const std::string &text) { return "  -->  error: " + text + "\n"; }

bool make_object(const TEMP_DIR &dir, const std::string &name, const std::string &symbol) {
  if (!have_program("cc"))
    return false;
  std::string source = name + ".c";
  dir.write(source, "int " + symbol + "(void) { return 7; }\nint " + symbol + "_data = 3;\n");
  RUN_RESULT r = testing_support::run({"cc", "-c", "-o", name, source}, dir.path());
  std::filesystem::remove(dir / source);
  return r.status == 0;
}

}  // namespace e2e
