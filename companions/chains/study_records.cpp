#include "chains/study_records.h"

#include "formats/byte_file.h"
#include "shared/indexing.h"
#include "shared/toml_parser.h"

#include <array>
#include <ctime>
#include <fmt/format.h>
#include <fstream>
#include <limits>
#include <unistd.h>

namespace zeph::chains {
namespace {

// Reads keys of a table; the first that is missing or of another kind is kept as the fault.
struct key_reader {
  const toml::table* table = nullptr;
  std::string title;
  std::string* fault = nullptr;

  void wrong(std::string_view key) const {
    if (fault->empty()) *fault = fmt::format("key \"{}\"{} is missing or damaged", key, title);
  }
  template <class T> T integer(std::string_view key) const {
    const auto value = (*table)[key].value<std::int64_t>();
    if (!value || *value < std::numeric_limits<T>::min() || *value > std::numeric_limits<T>::max()) {
      wrong(key);
      return {};
    }
    return static_cast<T>(*value);
  }
  std::string text(std::string_view key) const {
    const auto value = (*table)[key].value<std::string>();
    if (!value) wrong(key);
    return value.value_or("");
  }
  bool flag(std::string_view key) const {
    const auto value = (*table)[key].value<bool>();
    if (!value) wrong(key);
    return value.value_or(false);
  }
  seed_pair seeds(std::string_view key) const {
    const toml::array* pair = (*table)[key].as_array();
    if (pair == nullptr || pair->size() != 2 || !pair->is_homogeneous<std::int64_t>()) {
      wrong(key);
      return {};
    }
    const auto number = [&](std::size_t i) {
      return static_cast<std::int32_t>(pair->get(i)->value<std::int64_t>().value_or(0));
    };
    return {number(0), number(1)};
  }
  std::vector<std::string> texts(std::string_view key) const {
    std::vector<std::string> out;
    const toml::array* list = (*table)[key].as_array();
    if (list == nullptr) {
      wrong(key);
      return out;
    }
    for (const toml::node& item : *list) {
      const auto value = item.value<std::string>();
      if (!value) wrong(key);
      out.push_back(value.value_or(""));
    }
    return out;
  }
  // Calls read(key_reader) for each table of an array of tables, which has one at least.
  template <class Read> void tables(std::string_view key, Read&& read) const {
    const toml::array* list = (*table)[key].as_array();
    if (list == nullptr || list->empty()) return wrong(key);
    for (const toml::node& item : *list) {
      if (!item.is_table()) return wrong(key);
      read(key_reader{item.as_table(), fmt::format(" of [[{}]]", key), fault});
    }
  }
};

bool parse(const fs::path& path, toml::table& table, std::string& fault) {
  std::string text;
  if (!read_text(path, text)) {
    fault = fmt::format("can't read {}", path.string());
    return false;
  }
  toml::parse_result parsed = toml::parse(text);
  if (!parsed) {
    fault = fmt::format("{}:{}: {}", path.string(), parsed.error().source().begin.line,
                        parsed.error().description());
    return false;
  }
  table = std::move(parsed).table();
  return true;
}

// A basic string of TOML.
std::string toml_string(std::string_view text) {
  std::string out = "\"";
  for (const char c : text) {
    const auto byte = static_cast<unsigned char>(c);
    if (c == '"' || c == '\\')
      out += {'\\', c};
    else if (byte < 0x20 || byte == 0x7f)
      out += fmt::format("\\u{:04X}", byte);
    else
      out += c;
  }
  return out + "\"";
}

std::string list_of(const std::vector<std::string>& texts) {
  std::string out;
  for (const std::string& text : texts) out += (out.empty() ? "" : ", ") + toml_string(text);
  return "[" + out + "]";
}

std::string study_text(const study& s) {
  std::string out = fmt::format(
      "# Several chains of one model. Written by zeph-chains; read by zeph-watch and zeph-report.\n"
      "version = {}\nwork = {}\nprogram = {}\nprogram_sha256 = {}\ndirective = {}\nanalysis = {}\n"
      "burnin = {}\nrounds = {}\ninterval = {}\nseeds_given = [{}, {}]\n",
      toml_string(s.version), toml_string(s.work), toml_string(s.program), toml_string(s.program_sha256),
      toml_string(s.directive), s.analysis, s.burnin, s.rounds, s.interval, s.seeds_given.A, s.seeds_given.B);
  for (const input_record& i : s.inputs)
    out += fmt::format("\n[[input]]\nfile = {}\nbytes = {}\nsha256 = {}\n", toml_string(i.file), i.bytes,
                       toml_string(i.sha256));
  for (const chain_record& c : s.chains)
    out += fmt::format("\n[[chain]]\nnumber = {}\nseeds = [{}, {}]\nlast = {}\n", c.number, c.seeds.A,
                       c.seeds.B, c.last);
  for (const start_record& t : s.starts)
    out += fmt::format(
        "\n[[start]]\ncommand = {}\ntime = {}\nwhere = {}\njobs = {}\noptions = {}\njob_ids = {}\n"
        "program_sha256 = {}\n",
        toml_string(t.command), toml_string(t.time), toml_string(t.where), t.jobs, toml_string(t.options),
        list_of(t.job_ids), toml_string(t.program_sha256));
  return out;
}

std::string segment_text(const segment_record& r) {
  std::string out = fmt::format(
      "chain = {}\nsegment = {}\nseeds = [{}, {}]\nburnin = {}\nrounds = {}\ninterval = {}\n"
      "first = {}\nshift = {}\ncounts = {}\n",
      r.chain, r.segment, r.seeds.A, r.seeds.B, r.burnin, r.rounds, r.interval, r.first, r.shift, r.counts);
  for (const resume_record& again : r.resumes)
    out += fmt::format("\n[[resume]]\ntime = {}\nafter = {}\nrounds = {}\n", toml_string(again.time),
                       again.after, again.rounds);
  return out;
}

void take_tables(const key_reader& keys, study& s) {
  keys.tables("input", [&](const key_reader& k) {
    s.inputs.push_back({k.text("file"), k.integer<std::int64_t>("bytes"), k.text("sha256")});
  });
  keys.tables("chain", [&](const key_reader& k) {
    s.chains.push_back({k.integer<int>("number"), k.seeds("seeds"), k.integer<std::int64_t>("last")});
    if (s.chains.back().number != static_cast<int>(s.chains.size())) k.wrong("number");
  });
  keys.tables("start", [&](const key_reader& k) {
    s.starts.push_back({k.text("command"), k.text("time"), k.text("where"), k.integer<int>("jobs"),
                        k.text("options"), k.text("program_sha256"), k.texts("job_ids")});
  });
}

} // namespace

bool read_text(const fs::path& path, std::string& text) {
  text.clear();
  byte_source file;
  if (!file.open(path.string())) return false;
  std::array<char, 65536> piece{};
  std::int64_t n = 0;
  do { // the size is no measure: files of /proc have none, others grow
    n = file.read(piece.data(), std::ssize(piece));
    text.append(piece.data(), from0(n));
  } while (n == std::ssize(piece));
  if (file.failed()) text.clear();
  return !file.failed();
}

std::string text_of(const fs::path& path) {
  std::string text;
  read_text(path, text);
  return text;
}

std::string time_now() {
  const std::time_t now = std::time(nullptr);
  std::tm t{};
  localtime_r(&now, &t);
  return fmt::format("{:04}-{:02}-{:02} {:02}:{:02}:{:02}", t.tm_year + 1900, t.tm_mon + 1, t.tm_mday,
                     t.tm_hour, t.tm_min, t.tm_sec);
}

bool replace_file(const fs::path& path, const std::string& text) {
  const fs::path part = path.string() + fmt::format(".{}.part", ::getpid());
  std::ofstream out(part, std::ios::binary | std::ios::trunc);
  out << text;
  out.close();
  std::error_code fault;
  if (out) fs::rename(part, path, fault);
  if (out && !fault) return true;
  fs::remove(part, fault);
  return false;
}

bool read_study(const fs::path& runs, study& s, std::string& fault) {
  const fs::path path = runs / chains_name;
  std::error_code ignored;
  if (!fs::exists(path, ignored)) {
    fault = fmt::format("{} holds no chains: {} is missing; `zeph-chains run WORK` begins them",
                        runs.string(), chains_name);
    return false;
  }
  toml::table table;
  if (!parse(path, table, fault)) return false;
  std::string damage;
  const key_reader keys{&table, "", &damage};
  s = {};
  s.version = keys.text("version");
  s.work = keys.text("work");
  s.program = keys.text("program");
  s.program_sha256 = keys.text("program_sha256");
  s.directive = keys.text("directive");
  s.analysis = keys.integer<std::int32_t>("analysis");
  s.burnin = keys.integer<std::int32_t>("burnin");
  s.rounds = keys.integer<std::int32_t>("rounds");
  s.interval = keys.integer<std::int32_t>("interval");
  s.seeds_given = keys.seeds("seeds_given");
  take_tables(keys, s);
  if (damage.empty()) return true;
  fault = fmt::format("{}: {}", path.string(), damage);
  return false;
}

bool write_study(const fs::path& runs, const study& s, std::string& fault) {
  if (replace_file(runs / chains_name, study_text(s))) return true;
  fault = fmt::format("can't write {}", (runs / chains_name).string());
  return false;
}

bool read_segment(const fs::path& directory, segment_record& r, std::string& fault) {
  const fs::path path = directory / segment_name;
  toml::table table;
  if (!parse(path, table, fault)) return false;
  std::string damage;
  const key_reader keys{&table, "", &damage};
  r.chain = keys.integer<int>("chain");
  r.segment = keys.integer<int>("segment");
  r.seeds = keys.seeds("seeds");
  r.burnin = keys.integer<std::int32_t>("burnin");
  r.rounds = keys.integer<std::int32_t>("rounds");
  r.interval = keys.integer<std::int32_t>("interval");
  r.first = keys.integer<std::int64_t>("first");
  r.shift = keys.integer<std::int64_t>("shift");
  r.counts = keys.flag("counts");
  r.resumes.clear();
  if (table.contains("resume"))
    keys.tables("resume", [&](const key_reader& k) {
      r.resumes.push_back(
          {k.text("time"), k.integer<std::int64_t>("after"), k.integer<std::int32_t>("rounds")});
    });
  if (damage.empty()) return true;
  fault = fmt::format("{}: {}", path.string(), damage);
  return false;
}

bool write_segment(const fs::path& directory, const segment_record& r, std::string& fault) {
  if (replace_file(directory / segment_name, segment_text(r))) return true;
  fault = fmt::format("can't write {}", (directory / segment_name).string());
  return false;
}

} // namespace zeph::chains
