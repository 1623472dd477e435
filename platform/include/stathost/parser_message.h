// The message sink of the command parser: errors and warnings to the user.
#pragma once

#include <string>

namespace stathost {

class ParserMessage {
 public:
  ParserMessage() = default;
  void SetCommandName(const char* name) { command_ = name ? name : ""; }
  void SetProcedureTitle(const char* title) { title_ = title ? title : ""; }
  const std::string& commandName() const { return command_; }
  const std::string& procedureTitle() const { return title_; }

  // The text may carry the placeholders "^1" to "^4", replaced by the arguments.
  void GenericError(const std::string& text, const std::string& arg1 = "",
                    const std::string& arg2 = "", const std::string& arg3 = "",
                    const std::string& arg4 = "") const;
  void GenericWarning(const std::string& text, const std::string& arg1 = "",
                      const std::string& arg2 = "", const std::string& arg3 = "",
                      const std::string& arg4 = "") const;
  void GenericNote(const std::string& text, const std::string& arg1 = "") const;

  // A keyword that must be followed by variables stands last or before a "/".
  void NoCovariateAfterKeyword(const std::string& keyword = "WITH") const;
  void NoFactorAfterKeyword(const std::string& keyword = "BY") const;

  // A message that points into the command text.
  void ErrorAt(int line, int column, const std::string& text) const;

  static std::string substitute(const std::string& text, const std::string& arg1,
                                const std::string& arg2, const std::string& arg3,
                                const std::string& arg4);

 private:
  std::string command_;
  std::string title_;
};

}  // namespace stathost
