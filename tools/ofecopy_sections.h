// The section and strip options of ofecopy: what they ask for (parsed into
// one SECTION_PLAN) and the three steps that carry it out on an object, in
// this order: dump sections as read, remove sections and strip symbols,
// then add sections and set section flags.
#pragma once

#include <string>
#include <utility>
#include <vector>

namespace OFE {
class OBJECT_FILE;
class OF_SECTION;
}
namespace tools {
class SYMBOL_LISTS;
}

namespace ofecopy {

enum STRIP_LEVEL { STRIP_NONE, STRIP_DEBUG, STRIP_UNNEEDED, STRIP_ALL };
// Which local symbols go besides: none, the assembler's local labels (-X),
// or every local symbol and the debugging sections (-x).
enum DISCARD_LEVEL { DISCARD_NONE, DISCARD_LABELS, DISCARD_LOCALS };

struct SECTION_PLAN {
  std::vector<std::string> remove, only;                   // section name patterns
  std::vector<std::pair<std::string, std::string>> add;    // NAME=FILE
  std::vector<std::pair<std::string, std::string>> dump;   // NAME=FILE
  std::vector<std::pair<std::string, std::string>> flags;  // NAME=FLAGS
  STRIP_LEVEL strip = STRIP_NONE;
  DISCARD_LEVEL discard = DISCARD_NONE;

  // Takes the option `flag` (its long form) with its operand, split at the
  // '=' for the NAME=VALUE options (none for the strip and discard
  // switches); a bad FLAGS word is a usage error.
  void take(const std::string &flag, const std::string &name, const std::string &value);
  // Notes whether `what` ("section matching '.x*'", say) was found in one
  // more object: a name is an error only when it matched in none.
  void note(const std::string &what, bool found) const;
  // Whether every name and pattern matched in some object the plan was
  // carried out on; false with a message naming the first that did not
  // (`where` says where it was looked for).
  [[nodiscard]] bool all_matched(const std::string &where) const;

private:
  mutable std::vector<std::pair<std::string, bool>> matched_;  // in the order first looked for
};

// GNU's section flag words ("alloc,load,readonly") as the bits that
// set_section_flags takes; a usage error for any other word.
uint32_t parse_section_flags(const std::string &words);
// Sets the flag words `bits` on `s`: the format's flags the words speak of
// are replaced, its other flags stay. False with a message when the format
// has no flag for a word.
[[nodiscard]] bool set_section_flags(OFE::OBJECT_FILE &object, OFE::OF_SECTION &s, uint32_t bits);

// Each step: false with the message printed when an edit is refused or a
// name matches nothing. The strip step takes the symbols that `lists`
// names to strip (LIST_STRIP) and keeps those it names to keep (LIST_KEEP).
[[nodiscard]] bool dump_sections(OFE::OBJECT_FILE &object, const SECTION_PLAN &plan);
[[nodiscard]] bool remove_and_strip(OFE::OBJECT_FILE &object, const SECTION_PLAN &plan, tools::SYMBOL_LISTS &lists);
[[nodiscard]] bool add_and_flag(OFE::OBJECT_FILE &object, const SECTION_PLAN &plan);

}  // namespace ofecopy
