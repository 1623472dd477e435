// Small .sav files written with ReadStat's own writer, for tests of what the host makes of
// a system file.
#pragma once

#include <string>

namespace testsupport {

struct SavFile {
  // A value label and a string value carry Latin-1 bytes ("caf\xE9", "na\xEFve") while the
  // file says it is UTF-8.
  bool latin1Text = false;
  // The file names wt as its case weight.
  bool weight = false;
  // The header gives the case count as -1 (unknown); the file is written uncompressed.
  bool unknownCaseCount = false;
};

// Writes `cases` cases of x (1, 2, 1, ... labelled), the mediator m, the outcome y, wt = 2
// and the string s; returns false when the file cannot be written.
bool writeSavFile(const std::string& path, const SavFile& options, int cases = 3);

}  // namespace testsupport
