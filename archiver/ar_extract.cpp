// The extract command: the members the operands name (all, without
// operands), in member order, each to the path its operand gives or to its
// own name. A member name that would lead out of the directory stops the
// run once the members before it are out.
#include "archiver/ar_extract.h"

#include <cstring>
#include <vector>

#include "archiver/ar_extract_ahead.h"
#include "archiver/ar_extract_member.h"
#include "archiver/ar_match.h"
#include "archiver/report.h"
#include "archiver/stdout_buffer.h"

void ar_extract(ARCHIVE *ar, OPTIONS &options) {
  OPERAND_MATCHER matcher(options);
  bool by_member_name = options.files.empty();
  std::vector<AR_MEMBER *> members;
  std::vector<const char *> paths;
  AR_MEMBER *unsafe = nullptr;
  for (AR_MEMBER *m = ar->head; m; m = m->next) {
    const char *path = matcher.match(m->name);
    if (!path)
      continue;
    // A name from the archive must not lead the file anywhere but here.
    if (by_member_name && (strchr(m->name, '/') || strcmp(m->name, ".") == 0 || strcmp(m->name, "..") == 0)) {
      unsafe = m;
      break;
    }
    members.push_back(m);
    paths.push_back(path);
  }
  if (!by_member_name || !ar_extract_ahead(ar, members, options.verbose))
    for (size_t j = 0; j < members.size(); j++)
      extract_member(ar, members[j], paths[j], options.verbose);
  if (unsafe)
    error("unsafe member name '%s'", printable(unsafe->name).c_str());
}
