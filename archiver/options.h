// The options record: what one run of the archiver was asked to do.
#pragma once

#include <cstdint>
#include <cstdlib>
#include <deque>
#include <string>
#include <vector>

enum AR_COMMAND : uint32_t {
  CMD_ADD = 1,
  CMD_DELETE = 2,
  CMD_REPLACE = 4,
  CMD_TABLE = 8,
  CMD_EXTRACT = 16,
};

inline constexpr size_t ARCHIVE_NAME_LIMIT = 495;

struct OPTIONS {
  uint32_t command = 0;
  uint32_t output_format = 0;  // 0 not given, else the AR_FORMAT the digit selects
  bool update = false;
  bool symbols = false;
  bool verbose = false;
  bool quiet = false;
  std::string archive_name;
  // Member and file operands in command-line order. An entry becomes null once
  // it has been used, so what is left at the end was never found. Entries
  // point into `operand_text` or into the command file's text, which is
  // kept until the process ends.
  std::vector<char *> files;
  // Owns the operands' text; entries of `files` point into it.
  std::deque<std::string> operand_text;

  // Appends an operand allocated with malloc, taking it over.
  void add_operand(char *operand) {
    operand_text.emplace_back(operand);
    free(operand);
    files.push_back(operand_text.back().data());
  }
};
