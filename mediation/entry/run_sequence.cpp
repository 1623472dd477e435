#include "entry/run_sequence.h"

#include <exception>
#include <optional>
#include <stdexcept>
#include <string>

#include "algorithm/med_analysis_algo.h"
#include "output/mediation_output.h"
#include "stathost/procedure.h"
#include "stathost/universal_parser.h"
#include "syntax/command_description_builder.h"
#include "syntax/mediation_settings.h"

namespace medanlys {
namespace {

int describe(CommandDescriptionBuilder& builder) {
  try {
    for (int index = 0; index < CommandDescriptionBuilder::kSubcommandCount; ++index) {
      if (builder.declare(index) == 1) return 1;
    }
  } catch (...) {
    // The parser then judges the command against the subcommands declared so far.
    return 0;
  }
  return 0;
}

int configure(MediationSettings& settings) {
  try {
    for (int index = 0; index < CommandDescriptionBuilder::kSubcommandCount; ++index) {
      if (!settings.prepareInputSetting(index)) {
        throw std::runtime_error("prepareInputSetting failed at index " + std::to_string(index));
      }
    }
    if (!settings.finalizeSettings()) throw std::runtime_error("finalizeSettings failed.");
  } catch (...) {
    return 1;
  }
  return 0;
}

}  // namespace

int runMediationAnalysis() {
  // Objects live in this frame and are destroyed in reverse order of construction; the
  // optional ones only exist once their step is reached.
  stathost::BpProcedure procedure("Mediation Analysis", 10);
  stathost::ProcedureDataSource source;
  stathost::CommandDescriptor command("MEDIATION ANALYSIS");
  stathost::STAX_TokenSequence tokens(true);
  CommandDescriptionBuilder builder(command);
  std::optional<stathost::CommandSpec> parsed;
  std::optional<stathost::UniversalParser> parser;
  std::optional<MediationSettings> settings;
  std::optional<MediationCaseData> results;
  std::optional<MedAnalysisAlgo> algo;

  if (describe(builder) != 0) return 1;

  parsed.emplace();
  parser.emplace(tokens, *parsed, command);
  if (parser->getCommandSpecifications() != 0) return 1;

  settings.emplace(*parsed, command, source);
  if (configure(*settings) != 0) return 1;

  results.emplace();
  algo.emplace(*settings, *results);
  if (algo->start() != 0) return 1;

  MediationOutput output(&procedure, &source, &*settings, &*results);
  return output.emit();
}

}  // namespace medanlys
