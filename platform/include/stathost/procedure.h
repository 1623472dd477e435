// The host's procedure object, the common output every procedure gets, and the converter
// that hands a procedure's document to the host.
#pragma once

#include <nlohmann/json.hpp>
#include <string>
#include <vector>

namespace stathost {

class ACAVarValidSpecs;
class ACAInputAdapter;
class ProcedureDataSource;

class BpProcedure {
 public:
  // outputCategory: the host's grouping of procedure output (kept in the notes).
  BpProcedure(std::string title, int outputCategory);
  const std::string& title() const { return title_; }
  int outputCategory() const { return category_; }
  void addNote(const std::string& label, const std::string& text);
  const std::vector<std::pair<std::string, std::string>>& notes() const { return notes_; }

 private:
  std::string title_;
  int category_;
  std::vector<std::pair<std::string, std::string>> notes_;
};

// Records the notes of a run on the procedure: data file, split group, command, cases and
// the analysis variables.
class OPSCommonOutput {
 public:
  OPSCommonOutput(ACAVarValidSpecs* specs, ProcedureDataSource& source, BpProcedure* procedure,
                  const ACAInputAdapter* adapter);
};

class StatJSONConverter {
 public:
  explicit StatJSONConverter(BpProcedure& procedure) : procedure_(procedure) {}
  // Hands the procedure document (StatJSONGenerator::getProcedureStatJSON) to the host,
  // preceded by the procedure's notes. Returns 0, or 1 when the text is not a document.
  int generateOutput(const std::string& procedureJson);

 private:
  BpProcedure& procedure_;
};

}  // namespace stathost
