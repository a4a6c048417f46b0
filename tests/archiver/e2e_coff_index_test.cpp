// The archive symbol index built from COFF members: objects of every layout
// version and byte order are archived by the real binary, and the "/" member
// is checked byte for byte against the index these members must produce.
#include <gtest/gtest.h>

#include "archiver/e2e_support.h"
#include "common/bytes.h"
#include "common/coff_image.h"

using namespace e2e;
using testing_support::BIG;
using testing_support::BYTES;
using testing_support::COFF_IMAGE;
using testing_support::LITTLE;
using testing_support::run;
using testing_support::TEST_ORDER;

namespace {

constexpr uint8_t C_EXT = 2, C_STAT = 3, C_LABEL = 6, C_FILE = 103, C_FCN = 101, C_EXTDEF = 28;
constexpr uint16_t N_ABS = 0xFFFF, N_DEBUG = 0xFFFE;

// One object that defines `global` (a function with an auxiliary entry)
// and `absolute`, and holds a local, an undefined reference, a debug symbol
// and a label that must all stay out of the index.
std::string object(int version, TEST_ORDER order, const std::string &global, const std::string &absolute) {
  COFF_IMAGE c(version, order);
  c.sections.push_back({.name = ".text", .size = 2, .data = "abcd"});  // Vela: 16-bit units
  c.symbols.push_back({.name = "file.c", .scnum = N_DEBUG, .sclass = C_FILE, .aux = {std::string(18, 'f')}});
  c.symbols.push_back({.name = global, .scnum = 1, .type = 0x24, .sclass = C_EXT, .aux = {c.aux_size(4)}});
  c.symbols.push_back({.name = ".bf", .scnum = 1, .sclass = C_FCN, .aux = {std::string(18, '\0')}});
  c.symbols.push_back({.name = "local_fn", .scnum = 1, .sclass = C_STAT});
  c.symbols.push_back({.name = "printf", .scnum = 0, .sclass = C_EXT});
  c.symbols.push_back({.name = "dbg", .scnum = N_DEBUG, .sclass = C_EXT});
  c.symbols.push_back({.name = "lbl", .scnum = 1, .sclass = C_LABEL});
  if (!absolute.empty())
    c.symbols.push_back({.name = absolute, .value = 0x1234, .scnum = N_ABS, .sclass = C_EXTDEF});
  return c.build();
}

struct MEMBER {
  std::string name;   // file name
  std::string bytes;
  std::vector<std::string> symbols;  // what it contributes to the index
};

std::string round_even(std::string s) {
  if (s.size() % 2)
    s.push_back('\0');
  return s;
}

// The archive the members must give: index, long-name table, members.
std::string expected_archive(const std::vector<MEMBER> &members, int64_t date, std::string *index_out) {
  std::string names_table, bodies_without_index;
  std::vector<std::string> fields;
  for (const MEMBER &m : members) {
    if (m.name.size() > 15) {
      fields.push_back("/" + std::to_string(names_table.size()));
      names_table += m.name + "/\n";
    } else {
      fields.push_back(m.name + "/");
    }
  }
  std::vector<std::string> syms;
  uint32_t index_length = 4;
  for (const MEMBER &m : members)
    for (const std::string &s : m.symbols)
      index_length += static_cast<uint32_t>(s.size()) + 5;
  uint64_t offset = 8 + 60 + index_length + (index_length & 1);
  // The name table is padded like any member, with a newline.
  std::string table = names_table.empty() ? "" : header("//", 0, 0, names_table.size()) + names_table +
                                                     (names_table.size() % 2 ? "\n" : "");
  offset += table.size();
  BYTES count(BIG), offsets(BIG);
  std::string names;
  std::string bodies;
  uint32_t n = 0;
  for (size_t i = 0; i < members.size(); i++) {
    for (const std::string &s : members[i].symbols) {
      offsets.u32(static_cast<uint32_t>(offset));
      names += s + '\0';
      n++;
    }
    std::string body = member(fields[i], date, members[i].bytes);
    offset += body.size();
    bodies += body;
  }
  count.u32(n);
  std::string index = round_even(count.bytes() + offsets.bytes() + names);
  *index_out = index;
  return std::string(MAGIC) + header("/", 0, 0, index.size()) + index + table + bodies;
}

TEST(CoffIndex, EveryVersionAndByteOrderFeedsTheIndexByteForByte) {
  TEMP_DIR dir;
  const int64_t date = 1700000000;
  std::string good = object(2, LITTLE, "whole", "");
  std::vector<MEMBER> members = {
      {"v0le.obj", object(0, LITTLE, "init", "ABS_ZERO"), {"init", "ABS_ZERO"}},
      {"notes.txt", "plain text, not an object\n", {}},
      {"v0be.obj", object(0, BIG, "v0_big_global", ""), {"v0_big_global"}},
      {"empty.obj", "", {}},
      {"v1le.obj", object(1, LITTLE, "v1_le", ""), {"v1_le"}},
      {"a_very_long_object_name.obj", object(1, BIG, "init", ""), {"init"}},
      {"trunc.obj", good.substr(0, 61), {}},
      {"weird.obj", std::string("\x12\x34", 2) + good.substr(2), {}},
      {"v2le.obj", object(2, LITTLE, "v2_little_endian_global", "abs2"), {"v2_little_endian_global", "abs2"}},
      {"v2be.obj", object(2, BIG, "v2_be", ""), {"v2_be"}},
  };
  std::vector<std::string> args = {"as", "lib.lib"};
  for (const MEMBER &m : members) {
    write_dated(dir, m.name, m.bytes, date);
    args.push_back(m.name);
  }
  RUN_RESULT r = arvela(args, dir.path());
  ASSERT_EQ(r.status, 0) << r.err;
  EXPECT_EQ(r.err, "") << "members that are not objects are passed over silently";

  std::string index;
  std::string expected = expected_archive(members, date, &index);
  std::string actual = dir.read("lib.lib");
  EXPECT_EQ(actual, expected);
  // Spot checks that name what the comparison above covers.
  EXPECT_EQ(actual.substr(8, 16), "/               ");
  EXPECT_EQ(index.size() % 2, 0u);
  EXPECT_EQ(actual.find("//              "), 8 + 60 + index.size()) << "the name table follows the index";
  // Each offset leads to the header of the member that defines the symbol.
  uint32_t count = static_cast<uint32_t>(static_cast<uint8_t>(index[3]));
  ASSERT_EQ(count, 8u);
  for (uint32_t i = 0; i < count; i++) {
    const uint8_t *p = reinterpret_cast<const uint8_t *>(index.data()) + 4 + 4 * i;
    uint32_t at = uint32_t{p[0]} << 24 | uint32_t{p[1]} << 16 | uint32_t{p[2]} << 8 | p[3];
    ASSERT_LT(at + 60u, actual.size());
    EXPECT_EQ(actual.substr(at + 58, 2), "`\n") << i;
  }

  std::string lines;
  for (const MEMBER &m : members)
    for (const std::string &s : m.symbols)
      lines += status("symbol defined:", s);
  size_t building = r.out.find(status("building archive", "lib.lib"));
  ASSERT_NE(building, std::string::npos) << r.out;
  EXPECT_EQ(r.out.substr(building), status("building archive", "lib.lib") + lines);

  // Other archivers still read the library, index and all.
  for (const char *tool : {"ar", "llvm-ar"}) {
    if (!have_program(tool))
      continue;
    RUN_RESULT t = run({tool, "t", "lib.lib"}, dir.path());
    EXPECT_EQ(t.status, 0) << tool << t.err;
    std::string listed;
    for (const MEMBER &m : members)
      listed += m.name + "\n";
    EXPECT_EQ(t.out, listed) << tool;
  }
}

TEST(CoffIndex, RewritingRebuildsTheIndexFromTheMembersLeft) {
  TEMP_DIR dir;
  const int64_t date = 1600000000;
  std::vector<MEMBER> members = {{"a.obj", object(2, BIG, "init", ""), {"init"}},
                                 {"b.obj", object(0, LITTLE, "init", "b_abs"), {"init", "b_abs"}}};
  for (const MEMBER &m : members)
    write_dated(dir, m.name, m.bytes, date);
  ASSERT_EQ(arvela({"a", "lib.lib", "a.obj", "b.obj"}, dir.path()).status, 0);
  std::string index;
  EXPECT_EQ(dir.read("lib.lib"), expected_archive(members, date, &index));
  // Deleting the first member moves the second one's header: its entries
  // follow it.
  RUN_RESULT r = arvela({"ds", "lib.lib", "a.obj"}, dir.path());
  ASSERT_EQ(r.status, 0) << r.err;
  members.erase(members.begin());
  std::string after = dir.read("lib.lib");
  EXPECT_EQ(after, expected_archive(members, date, &index));
  // 23 bytes of index (count, two offsets, "init", "b_abs"): one zero pad,
  // and the header's size field says 24.
  EXPECT_EQ(after.substr(8 + 48, 10), "24        ");
  EXPECT_EQ(after[8 + 60 + 23], '\0');
  EXPECT_NE(r.out.find(status("symbol defined:", "init") + status("symbol defined:", "b_abs")), std::string::npos)
      << r.out;
}

TEST(CoffIndex, AnArchiveOfTextFilesHasNoIndex) {
  TEMP_DIR dir;
  const int64_t date = 1500000000;
  write_dated(dir, "a.txt", "alpha\n", date);
  write_dated(dir, "b.txt", "beta", date);
  RUN_RESULT r = arvela({"as", "lib.lib", "a.txt", "b.txt"}, dir.path());
  ASSERT_EQ(r.status, 0) << r.err;
  EXPECT_EQ(r.out.find("symbol defined"), std::string::npos);
  EXPECT_EQ(dir.read("lib.lib"), std::string(MAGIC) + member("a.txt/", date, "alpha\n") + member("b.txt/", date, "beta"));
  for (const char *tool : {"ar", "llvm-ar"}) {
    if (!have_program(tool))
      continue;
    RUN_RESULT t = run({tool, "t", "lib.lib"}, dir.path());
    EXPECT_EQ(t.out, "a.txt\nb.txt\n") << tool << t.err;
  }
}

}  // namespace
