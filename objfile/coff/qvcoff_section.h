// QVCOFF_SECTION and QVCOFF_SECTION_TABLE: the section headers of a QV-COFF
// file.
//
// The header table starts behind the file header and the optional header
// (at file header size + optional header size, whatever that size is) and
// holds f_nscns headers of 40 bytes (versions "0"/"1") or 48 bytes (version
// "2"). Sections are numbered from 1, as symbols refer to them. Loading the
// table reads the headers only; a section's contents are read when someone
// asks for them.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "objfile/coff/qvcoff_rw.h"
#include "objfile/data_map.h"
#include "objfile/of_section.h"

namespace OFE {

class QVCOFF_FILE;

class QVCOFF_SECTION : public OF_SECTION {
public:
  QVCOFF_SECTION(QVCOFF_FILE *file, uint32_t index, const QVCOFF_SECTION_HEADER &header);

  // Inline, or from the string table when a version "2" name says so.
  std::string get_name() const override;
  uint32_t get_index() const override { return index_; }
  uint32_t get_size() const override { return header_.s_size; }
  // The raw data, read on first use; null when the section has none in
  // the file or it lies outside the file.
  DATA_MAP *get_data() override;

  const QVCOFF_SECTION_HEADER &get_header() const { return header_; }
  // Size of the raw data in octets: size x address unit bits / 8.
  uint64_t get_raw_size() const;

private:
  QVCOFF_FILE *file_;
  uint32_t index_;
  QVCOFF_SECTION_HEADER header_;
  mutable std::string name_;
  mutable bool name_resolved_ = false;
  DATA_MAP data_;
  bool data_mapped_ = false;
};

class QVCOFF_SECTION_TABLE : public OF_SECTION_TABLE {
public:
  explicit QVCOFF_SECTION_TABLE(QVCOFF_FILE *file) : file_(file) {}

  // Reads the headers; the ones that lie outside the file are reported and
  // left out.
  void load();
  uint32_t get_count() override { return static_cast<uint32_t>(sections_.size()); }
  // By section number, 1 to get_count(); null otherwise.
  OF_SECTION *get_section(uint32_t number) override;
  QVCOFF_SECTION *get_qvcoff_section(uint32_t number);
  OF_SECTION *find_section(const std::string &name) override;

  // Where the string table of a file without symbols begins: behind the
  // piece of section data (raw data, relocations or line numbers) that
  // starts furthest into the file, searching from `start`.
  uint64_t end_of_furthest_data(uint64_t start) const;

private:
  QVCOFF_FILE *file_;
  std::vector<std::unique_ptr<QVCOFF_SECTION>> sections_;
};

}  // namespace OFE
