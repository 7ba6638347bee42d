// Messages about a place of the description: file, line, column, the source line and the caret.
#pragma once

#include "prepare/description/description_records.h"
#include "prepare/messages/messages.h"

#include <string>

namespace zeph::prepare {

// Add a message at a place; {0, 0}: at the file as a whole.
message& error_at(const model_description& description, message_log& log, text_place at, std::string text);
message& warning_at(const model_description& description, message_log& log, text_place at, std::string text);
message& note_at(const model_description& description, message_log& log, text_place at, std::string text);

} // namespace zeph::prepare
