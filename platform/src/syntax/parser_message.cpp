#include "stathost/parser_message.h"

#include "stathost/host_session.h"
#include "stathost/string_table.h"

namespace stathost {
namespace {

void post(MessageLevel level, const ParserMessage& sink, const std::string& text, int line = 0,
          int column = 0) {
  HostMessage m;
  m.level = level;
  m.command = sink.commandName();
  m.title = sink.procedureTitle();
  m.text = text;
  m.line = line;
  m.column = column;
  if (line > 0) m.file = HostSession::instance().commandSource();
  HostSession::instance().addMessage(std::move(m));
}

}  // namespace

std::string ParserMessage::substitute(const std::string& text, const std::string& arg1,
                                      const std::string& arg2, const std::string& arg3,
                                      const std::string& arg4) {
  const std::string* args[] = {&arg1, &arg2, &arg3, &arg4};
  std::string out;
  out.reserve(text.size());
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (text[i] == '^' && i + 1 < text.size() && text[i + 1] >= '1' && text[i + 1] <= '4') {
      out += *args[text[i + 1] - '1'];
      ++i;
    } else {
      out += text[i];
    }
  }
  return out;
}

void ParserMessage::GenericError(const std::string& text, const std::string& arg1,
                                 const std::string& arg2, const std::string& arg3,
                                 const std::string& arg4) const {
  post(MessageLevel::kError, *this, substitute(text, arg1, arg2, arg3, arg4));
}

void ParserMessage::GenericWarning(const std::string& text, const std::string& arg1,
                                   const std::string& arg2, const std::string& arg3,
                                   const std::string& arg4) const {
  post(MessageLevel::kWarning, *this, substitute(text, arg1, arg2, arg3, arg4));
}

void ParserMessage::GenericNote(const std::string& text, const std::string& arg1) const {
  post(MessageLevel::kNote, *this, substitute(text, arg1, "", "", ""));
}

void ParserMessage::NoCovariateAfterKeyword(const std::string& keyword) const {
  GenericError(FacSTDictionary::instance().getString("NoCovariateAfterKeyword"), keyword);
}

void ParserMessage::NoFactorAfterKeyword(const std::string& keyword) const {
  GenericError(FacSTDictionary::instance().getString("NoFactorAfterKeyword"), keyword);
}

void ParserMessage::ErrorAt(int line, int column, const std::string& text) const {
  post(MessageLevel::kError, *this, text, line, column);
}

}  // namespace stathost
