// A description and its files in a scratch directory, prepared in memory.
#pragma once

#include "prepare/description/model_description.h"
#include "prepare/messages/messages.h"
#include "prepare/model/model_assembly.h"
#include "support/scratch_directory.h"

#include <map>
#include <string>

namespace zeph_test {

struct prepared_case {
  scratch_directory place;
  zeph::prepare::message_log log;
  zeph::prepare::model_description description;
  zeph::prepare::prepared_model p;

  prepared_case(const std::string& toml, const std::map<std::string, std::string>& files,
                bool prune = false) {
    for (const auto& [name, text] : files) place.write(name, text);
    place.write("model.toml", toml);
    description = zeph::prepare::read_description(place / "model.toml", log);
    if (zeph::prepare::exit_code(log) != 0) return;
    p = zeph::prepare::assemble_model(description, {prune, {1, 2, 2003, 4, 5, 6}}, log);
  }
  std::string messages() const { return zeph::prepare::full_text(log); }
  bool says(const std::string& text) const { return messages().find(text) != std::string::npos; }
};

} // namespace zeph_test
