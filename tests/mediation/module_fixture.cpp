#include "module_fixture.h"

#include <cmath>

#include "algorithm/med_analysis_algo.h"
#include "entry/medanlys_entry.h"
#include "stathost/universal_parser.h"
#include "syntax/command_description_builder.h"
#include "syntax/mediation_settings.h"

namespace testsupport {

using stathost::MeasureLevel;

std::vector<stathost::Column> mediationColumns() {
  std::vector<double> y, m, x, c1, f, w, ord, cnt, bin;
  std::vector<std::string> name;
  for (int i = 0; i < 20; ++i) {
    x.push_back(i % 2);
    m.push_back(0.1 * i + 0.3 * (i % 2));
    y.push_back(1.0 + 0.5 * i - 0.2 * (i % 3));
    c1.push_back(std::sin(i));
    f.push_back(1 + i % 3);
    w.push_back(1.0);
    ord.push_back(i % 4);
    cnt.push_back(i % 5);
    bin.push_back(i % 2 == 0 ? 1 : 0);
    name.push_back("n" + std::to_string(i));
  }
  return {numericColumn("y", y),
          numericColumn("m", m),
          numericColumn("x", x),
          numericColumn("c1", c1),
          numericColumn("f", f, MeasureLevel::kNominal),
          numericColumn("w", w),
          stringColumn("name", name),
          numericColumn("ord", ord, MeasureLevel::kOrdinal),
          numericColumn("cnt", cnt, MeasureLevel::kScale),
          numericColumn("bin", bin, MeasureLevel::kNominal)};
}

stathost::RunRecord ModuleTest::run(const std::string& command) {
  stathost::HostSession& session = stathost::HostSession::instance();
  session.setCurrentCommand(command, 1, "test");
  session.beginRun();
  MEDANLYS();
  return session.endRun();
}

std::string ModuleTest::errors(const stathost::RunRecord& record) {
  std::string out;
  for (const auto& m : record.messages) {
    if (m.level == stathost::MessageLevel::kError) out += m.text + "\n";
  }
  return out;
}

std::string validCommand(const std::string& variables, const std::string& medmodel,
                         const std::string& outmodel, const std::string& criteria,
                         const std::string& rest) {
  return "MEDIATION ANALYSIS " +
         (variables.empty() ? "OUTCOMEVAR=y MEDIATORVAR=m PREDICTORVAR=x(BLEVEL=0 ELEVEL=1)"
                            : variables) +
         "\n  /MEDMODEL " + (medmodel.empty() ? "DISTRIBUTION=NORMAL LINK=IDENTITY" : medmodel) +
         "\n  /OUTMODEL " + (outmodel.empty() ? "DISTRIBUTION=NORMAL LINK=IDENTITY" : outmodel) +
         "\n  /CRITERIA " +
         (criteria.empty() ? "CILEVEL=95 CITYPE=DELTA COVB=MODEL ANALYSISTYPE=CAUSAL" : criteria) +
         "\n  /PRINT" + rest + ".";
}

int analyseCommand(const std::string& command, medanlys::MediationCaseData& results) {
  using namespace medanlys;
  stathost::CommandDescriptor grammar("MEDIATION ANALYSIS");
  CommandDescriptionBuilder builder(grammar);
  for (int i = 0; i < CommandDescriptionBuilder::kSubcommandCount; ++i) builder.declare(i);
  stathost::STAX_TokenSequence tokens(command, 1);
  stathost::CommandSpec parsed;
  stathost::UniversalParser parser(tokens, parsed, grammar);
  if (parser.getCommandSpecifications() != 0) return 1;
  stathost::ProcedureDataSource source;
  MediationSettings settings(parsed, grammar, source);
  for (int i = 0; i < CommandDescriptionBuilder::kSubcommandCount; ++i) {
    if (!settings.prepareInputSetting(i)) return 1;
  }
  if (!settings.finalizeSettings()) return 1;
  MedAnalysisAlgo algo(settings, results);
  return algo.start();
}

}  // namespace testsupport
