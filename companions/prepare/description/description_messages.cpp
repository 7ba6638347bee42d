#include "prepare/description/description_messages.h"

#include "shared/indexing.h"

namespace zeph::prepare {

namespace {

source_place source_of(const model_description& d, text_place at) { return {d.path, at.line, at.column}; }

std::string line_at(const model_description& d, text_place at) {
  if (at.line < 1 || at.line > static_cast<int>(d.lines.size())) return {};
  return d.lines[from0(at.line) - 1];
}

message& at_place(const model_description& d, message& m, text_place at) {
  m.source_line = line_at(d, at);
  return m;
}

} // namespace

message& error_at(const model_description& d, message_log& log, text_place at, std::string text) {
  return at_place(d, add_error(log, source_of(d, at), std::move(text)), at);
}

message& warning_at(const model_description& d, message_log& log, text_place at, std::string text) {
  return at_place(d, add_warning(log, source_of(d, at), std::move(text)), at);
}

message& note_at(const model_description& d, message_log& log, text_place at, std::string text) {
  return at_place(d, add_note(log, source_of(d, at), std::move(text)), at);
}

} // namespace zeph::prepare
