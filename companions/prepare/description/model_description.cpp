#include "prepare/description/model_description.h"

#include "input/run_records.h"
#include "input/trait_kinds.h"
#include "prepare/description/description_checks.h"
#include "prepare/description/description_keys.h"
#include "prepare/description/description_messages.h"
#include "prepare/description/description_words.h"
#include "prepare/description/toml_values.h"
#include "prepare/tables/readable_file.h"

#include <algorithm>
#include <fmt/format.h>
#include <fstream>
#include <iterator>

namespace zeph::prepare {

namespace {

constexpr std::size_t largest_file = std::size_t{1} << 24; // bytes
constexpr int most_dots = 16;                              // of one dotted key

// The view of table `key` of `t`, its keys checked.
table_view open_table(const table_view& t, std::string_view key, key_section section, std::string title) {
  table_view inner{read_table(t, key), std::move(title), t.description, t.log};
  refuse_unknown_keys(inner, keys_of(section), table_of_key);
  return inner;
}

// Where table `key` begins: its name in the header line.
text_place place_of_table(const table_view& t, std::string_view key) {
  if (t.table == nullptr) return {};
  for (const auto& [name, node] : entries_by_place(*t.table))
    if (name->str() == key) return place_of(*name);
  return {};
}

message& error_in(const table_view& t, text_place at, std::string text) {
  return error_at(*t.description, *t.log, at, std::move(text));
}

// ---- [data]

stated<char> read_separator(const table_view& t, bool decimal_comma) {
  const std::vector<std::string> words = {",", ";", "tab", "blanks", "\t", " "};
  constexpr std::string_view signs = ",;\t \t ";
  const stated<std::size_t> word = read_word(t, "separator", std::span(words).first(4), 0);
  if (word.given) return {signs[word.value], word.at, true};
  return {decimal_comma ? ';' : ',', {}, false};
}

// Names of the columns of a file without a line of names.
std::vector<text_value> read_columns(const table_view& t) {
  std::vector<text_value> columns = read_texts(t, "columns");
  for (std::size_t i = 0; i < columns.size(); ++i)
    for (std::size_t j = 0; j < i; ++j)
      if (columns[i].value == columns[j].value)
        error_in(t, columns[i].at, fmt::format("{} columns names \"{}\" twice", t.title, columns[i].value));
  return columns;
}

void read_data(const table_view& top) {
  model_description& d = *top.description;
  const table_view t = open_table(top, "data", key_section::data, "[data]");
  if (find(top, "data") == nullptr)
    error_in(top, {}, "there is no table [data] that names the file of the records");
  if (t.table == nullptr) return;
  d.data.at = place_of_table(top, "data");
  d.data.file = read_text(t, "file");
  if (find(t, "file") == nullptr) error_in(t, d.data.at, "[data] needs file = \"...\"");
  d.data.missing =
      find(t, "missing") == nullptr ? std::vector<text_value>{{"NA", {}, false}} : read_codes(t, "missing");
  const std::vector<std::string> decimals = {".", ","};
  const stated<std::size_t> decimal = read_word(t, "decimal", decimals, 0);
  d.data.decimal = {decimals[decimal.value].front(), decimal.at, decimal.given};
  d.data.separator = read_separator(t, d.data.decimal.value == ',');
  if (d.data.decimal.value == ',' && d.data.separator.value == ',')
    error_in(t, d.data.separator.at, "[data] separator and decimal can't both be a comma");
  d.data.columns = read_columns(t);
}

// ---- [factor.NAME]

void read_groups(const table_view& t, pedigree_source& p) {
  const toml::node* groups = find(t, "groups");
  if (groups == nullptr) return;
  if (groups->is_string())
    p.group_pattern = read_text(t, "groups");
  else
    p.group_codes = read_codes(t, "groups");
}

// A code has one meaning.
void refuse_common_codes(const table_view& t, const std::vector<text_value>& codes, const char* first,
                         const std::vector<text_value>& others, const char* second) {
  for (const text_value& a : codes)
    for (const text_value& b : others)
      if (a.value == b.value)
        error_in(t, a.at,
                 fmt::format("{}: \"{}\" is in {} and in {}", t.title, shown(a.value), first, second));
}

pedigree_source read_pedigree(const table_view& factor, const toml::node& node) {
  pedigree_source p;
  if (!node.is_string() && !node.is_table()) {
    wrong_type(factor, node, factor.title + " pedigree", "a file name or a table { file = .. }");
    return p;
  }
  table_view t{node.as_table(), factor.title + " pedigree", factor.description, factor.log};
  refuse_unknown_keys(t, keys_of(key_section::pedigree), table_of_key);
  p.file = node.is_string() ? read_text(factor, "pedigree") : read_text(t, "file");
  if (node.is_table() && find(t, "file") == nullptr)
    error_in(t, place_of(node), t.title + " needs file = \"...\"");
  p.animal = read_text(t, "animal", "animal");
  p.sire = read_text(t, "sire", "sire");
  p.dam = read_text(t, "dam", "dam");
  p.columns = read_columns(t);
  p.selfing = read_truth(t, "selfing", false);
  read_groups(t, p);
  if (node.is_string()) return p;
  p.unknown = read_codes(t, "unknown");
  p.founders = read_codes(t, "founders");
  refuse_common_codes(t, p.unknown, "unknown", p.founders, "founders");
  refuse_common_codes(t, p.unknown, "unknown", p.group_codes, "groups");
  refuse_common_codes(t, p.founders, "founders", p.group_codes, "groups");
  return p;
}

void read_blend(const table_view& t, matrix_source& m) {
  m.blend = read_number(t, "blend", 0.0);
  if (m.blend.given && !(m.blend.value >= 0.0 && m.blend.value < 1.0))
    error_in(t, m.blend.at, t.title + " blend must be from 0 to below 1");
  if (m.blend.given && m.holds_inverse.value)
    error_in(t, m.blend.at, t.title + " blend needs the matrix, not its inverse");
}

matrix_source read_matrix_source(const table_view& factor, const toml::node& node, relationship_kind kind) {
  matrix_source m;
  const bool inverse = kind == relationship_kind::inverse;
  const std::string key = word_of(kind), what = fmt::format("{} {}", factor.title, key);
  m.holds_inverse.value = inverse;
  if (!node.is_string() && !node.is_table()) {
    wrong_type(factor, node, what, "a file name or a table { file = .. }");
    return m;
  }
  const bool either = !inverse && kind != relationship_kind::relationship;
  const key_section known = inverse  ? key_section::inverse
                            : either ? key_section::matrix_or_inverse
                                     : key_section::relationship;
  const table_view t{node.as_table(), what, factor.description, factor.log};
  refuse_unknown_keys(t, keys_of(known), table_of_key);
  m.file = node.is_string() ? read_text(factor, key) : read_text(t, "file");
  if (node.is_table() && find(t, "file") == nullptr)
    error_in(t, place_of(node), what + " needs file = \"...\"");
  const std::vector<std::string> forms = {"triplets", "dense"}, contents = {"matrix", "inverse"};
  const stated<std::size_t> form = read_word(t, "form", forms, 0);
  m.form = {form.value == 0 ? matrix_form::triplets : matrix_form::dense, form.at, form.given};
  if (!form.given) m.form.value = matrix_form::by_columns;
  if (either) {
    const stated<std::size_t> holds = read_word(t, "holds", contents, 0);
    m.holds_inverse = {holds.value == 1, holds.at, holds.given};
  }
  if (!inverse) read_blend(t, m);
  return m;
}

// The key that gives the relationship of the levels; more than one is an error.
void read_relationship(const table_view& t, factor_section& f) {
  for (std::size_t k = 1; k < kinds.size(); ++k) {
    const toml::node* node = find(t, kinds[k]);
    if (node == nullptr) continue;
    const auto kind = static_cast<relationship_kind>(k);
    const text_place at = place_of_table(t, kinds[k]);
    if (f.kind != relationship_kind::identity) {
      error_in(t, at,
               fmt::format("{} has both {} and {}; a factor takes one of them", t.title, word_of(f.kind),
                           kinds[k]));
      continue;
    }
    f.kind = kind;
    f.kind_at = at;
    if (kind == relationship_kind::genotypes || kind == relationship_kind::single_step)
      error_in(t, at, fmt::format("{} {} is not yet supported by this version", t.title, kinds[k]));
    else if (kind == relationship_kind::pedigree)
      f.pedigree = read_pedigree(t, *node);
    else
      f.matrix = read_matrix_source(t, *node, kind);
  }
}

matrix_value read_start(const table_view& t) {
  const toml::node* node = find(t, "start");
  return node == nullptr ? matrix_value{} : matrix_of(t, *node, t.title + " start");
}

prior_degrees read_degrees(const table_view& t) {
  const toml::node* node = find(t, "prior_df");
  if (node == nullptr || !node->is_floating_point())
    return {read_whole(t, "prior_df", 0, 0, largest_prior_df)};
  const double df = node->as_floating_point()->get();
  if (!(df >= 0.0 && df <= largest_prior_df)) {
    error_in(t, place_of(*node),
             fmt::format("{} prior_df must be a whole number from 0 to {}", t.title, largest_prior_df));
    return {};
  }
  const auto whole = static_cast<std::int32_t>(df);
  return {{whole, place_of(*node), true}, df - whole};
}

// Opens the tables [section.NAME] one after the other, in the order of the file.
template <typename Section, typename Read>
void read_named(const table_view& top, const std::string& section, key_section known,
                std::vector<Section>& sections, Read read) {
  const table_view t{read_table(top, section), fmt::format("[{}]", section), top.description, top.log};
  if (t.table == nullptr) return;
  for (const auto& [key, node] : entries_by_place(*t.table)) {
    Section s;
    s.name = std::string(key->str());
    s.at = place_of(*key);
    table_view inner{node->as_table(), fmt::format("[{}.{}]", section, s.name), t.description, t.log};
    if (s.name.empty()) error_in(t, s.at, fmt::format("[{}] holds a table without a name", section));
    if (inner.table == nullptr) {
      wrong_type(t, *node, inner.title, "a table");
      continue;
    }
    refuse_unknown_keys(inner, keys_of(known), table_of_key);
    read(inner, s);
    sections.push_back(std::move(s));
  }
}

void read_factor(const table_view& t, factor_section& f) {
  read_relationship(t, f);
  f.start = read_start(t);
  f.prior_df = read_degrees(t);
  f.model_prior = read_numbers(t, "model_prior");
  f.order = read_texts(t, "order");
  const std::vector<std::string> deviations = {"none", "own", "progeny"};
  const stated<std::size_t> word = read_word(t, "deviations", deviations, 0);
  f.deviations = {static_cast<deviation_kind>(word.value), word.at, word.given};
  f.deviations_every = read_whole(t, "deviations_every", 0, 0);
  f.deviations_above = read_whole(t, "deviations_above", 0, 0);
}

// ---- [trait.NAME]

void read_trait(const table_view& t, trait_section& s) {
  s.formula_text = read_text(t, "formula");
  if (find(t, "formula") == nullptr) error_in(t, s.at, fmt::format("{} needs formula = \"...\"", t.title));
  s.column = read_text(t, "column", s.name);
  const stated<std::size_t> kind = read_word(t, "kind", words_of_kinds(), 0);
  s.kind = {static_cast<trait_kind>(kind_rows[kind.value].number), kind.at, kind.given};
  s.weight = read_text(t, "weight");
  s.categories = read_codes(t, "categories");
  const table_view limits = open_table(t, "limits", key_section::limits, t.title + " limits");
  s.limits_code = read_text(limits, "code");
  s.limits_event = read_text(limits, "event");
  s.limits_upper = read_text(limits, "upper");
  const table_view first = open_table(t, "first", key_section::first, t.title + " first");
  s.first_upper = read_number(first, "upper", 0.0);
  s.first_of = read_text(first, "of");
  s.subject = read_text(t, "subject");
  s.position = read_text(t, "position");
  s.of = read_text(t, "of");
}

// ---- [covariable.NAME]

void read_range(const table_view& t, covariable_section& s) {
  const toml::node* node = find(t, "range");
  if (node == nullptr) return;
  const toml::array* list = node->as_array();
  if (list == nullptr || list->size() != 2) {
    error_in(t, place_of(*node), t.title + " range must be a list of two numbers, [low, high]");
    return;
  }
  s.low = number_of(t, *list->get(0), t.title + " range");
  s.high = number_of(t, *list->get(1), t.title + " range");
  if (s.low.given && s.high.given && s.low.value < s.high.value) return;
  if (s.low.given && s.high.given)
    error_in(t, place_of(*node),
             fmt::format("{} range: {} is not below {}", t.title, s.low.value, s.high.value));
  s.low = s.high = {};
}

void read_center(const table_view& t, covariable_section& s) {
  const toml::node* node = find(t, "center");
  if (node == nullptr) return;
  if (node->is_boolean()) {
    const bool on = node->as_boolean()->get();
    s.center = {on ? centering::mean : centering::none, place_of(*node), true};
  } else if (node->is_number()) {
    const stated<double> x = number_of(t, *node, t.title + " center");
    if (!x.given) return;
    s.center = {centering::value, x.at, true};
    s.center_value = x.value;
  } else {
    wrong_type(t, *node, t.title + " center", "true, false or a number");
  }
}

void read_covariable(const table_view& t, covariable_section& s) {
  s.column = read_text(t, "column", s.name);
  read_range(t, s);
  read_center(t, s);
  s.solution = read_text(t, "solution");
  s.times = read_text(t, "times");
  s.standardize = read_truth(t, "standardize", false);
}

// ---- [residual]

// One of two trait names; -1 after a fault.
int trait_number(const table_view& t, const toml::node& node, const std::vector<std::string>& names,
                 const std::string& what) {
  const text_value name = text_of(t, node, what);
  if (!name.given) return -1;
  const auto found = std::find(names.begin(), names.end(), name.value);
  if (found != names.end()) return static_cast<int>(found - names.begin());
  error_in(t, name.at, fmt::format("{}: there is no trait \"{}\"", what, name.value)).hint =
      nearest_hint(name.value, names);
  return -1;
}

// Pairs of trait names; the numbers are found once the traits are read.
void read_pairs(const table_view& t, std::string_view key, const std::vector<trait_section>& traits,
                std::vector<trait_pair>& out) {
  const toml::node* node = find(t, key);
  if (node == nullptr) return;
  const std::string what = fmt::format("[residual] {}", key);
  std::vector<std::string> names;
  for (const trait_section& s : traits) names.push_back(s.name);
  const toml::array* list = node->as_array();
  if (list == nullptr) return wrong_type(t, *node, what, "a list of pairs, [[\"a\", \"b\"]]");
  for (const toml::node& element : *list) {
    const toml::array* pair = element.as_array();
    if (pair == nullptr || pair->size() != 2) {
      error_in(t, place_of(element), what + " must be a list of pairs of traits, [[\"a\", \"b\"]]");
      continue;
    }
    const int first = trait_number(t, *pair->get(0), names, what);
    const int second = trait_number(t, *pair->get(1), names, what);
    if (first < 0 || second < 0) continue;
    if (first == second)
      error_in(t, place_of(element), what + ": a pair needs two different traits");
    else
      out.push_back({std::min(first, second), std::max(first, second), place_of(element)});
  }
}

void read_residual(const table_view& top) {
  model_description& d = *top.description;
  residual_section& r = d.residual;
  const table_view t = open_table(top, "residual", key_section::residual, "[residual]");
  r.at = place_of_table(top, "residual");
  r.start = read_start(t);
  r.prior_df = read_degrees(t);
  read_pairs(t, "zero", d.traits, r.zero);
  read_pairs(t, "free", d.traits, r.free);
  r.groups = read_text(t, "groups");
  const table_view groups{read_table(t, "start_by_group"), "[residual] start_by_group", t.description, t.log};
  if (groups.table == nullptr) return;
  for (const auto& [key, node] : entries_by_place(*groups.table)) {
    group_start g;
    g.code = std::string(key->str());
    g.at = place_of(*key);
    g.start = matrix_of(groups, *node, fmt::format("[residual] start_by_group {}", g.code));
    r.start_by_group.push_back(std::move(g));
  }
}

// ---- [derive], [keep], [run]

void read_derive(const table_view& top) {
  const table_view t{read_table(top, "derive"), "[derive]", top.description, top.log};
  if (t.table == nullptr) return;
  for (const auto& [key, node] : entries_by_place(*t.table)) {
    derived_value v;
    v.name = std::string(key->str());
    v.at = place_of(*key);
    v.text = text_of(t, *node, "[derive] " + v.name);
    top.description->derive.push_back(std::move(v));
  }
}

void read_keep(const table_view& top) {
  keep_section& k = top.description->keep;
  const table_view t = open_table(top, "keep", key_section::keep, "[keep]");
  k.at = place_of_table(top, "keep");
  k.residuals = read_truth(t, "residuals", false);
  const toml::node* node = find(t, "solutions");
  if (node == nullptr) return;
  k.solutions = {kept_solutions::none, place_of(*node), true};
  if (node->is_boolean())
    k.solutions.value = node->as_boolean()->get() ? kept_solutions::all : kept_solutions::none;
  else if (node->is_array() || node->is_string()) {
    k.effects = read_texts(t, "solutions");
    k.solutions.value = k.effects.empty() ? kept_solutions::none : kept_solutions::listed;
  } else
    wrong_type(t, *node, "[keep] solutions", "true, false or a list of effects");
}

void read_seeds(const table_view& t, run_section& r) {
  constexpr std::int32_t largest_a = 31328, largest_b = 30081; // limits of the lagged-Fibonacci generator
  const toml::node* node = find(t, "seeds");
  if (node == nullptr) return;
  const toml::array* list = node->as_array();
  if (list == nullptr || list->size() != 2) {
    error_in(t, place_of(*node), "[run] seeds must be a list of two whole numbers");
    return;
  }
  r.seed_a = whole_of(t, *list->get(0), "[run] seeds: the first", 0, largest_a);
  r.seed_b = whole_of(t, *list->get(1), "[run] seeds: the second", 0, largest_b);
}

// Minutes, or false. A chain saves its state unless it is said to be classic.
stated<std::int32_t> read_state_every(const table_view& t, bool chain, const stated<sampler_kind>& sampler) {
  const bool classic = sampler.given && sampler.value == sampler_kind::classic;
  const toml::node* node = find(t, "state_every");
  if (node != nullptr && !node->is_integer()) {
    if (!node->is_boolean() || node->as_boolean()->get())
      wrong_type(t, *node, "[run] state_every", "false or a whole number");
    return {-1, place_of(*node), true};
  }
  if (node == nullptr) return {chain && !classic ? sampler_words{}.state_minutes : -1, {}, false};
  return read_whole(t, "state_every", -1, 0, most_state_minutes);
}

void read_run(const table_view& top) {
  run_section& r = top.description->run;
  const table_view t = open_table(top, "run", key_section::run, "[run]");
  r.at = place_of_table(top, "run");
  const stated<std::size_t> analysis = read_word(t, "analysis", words_of_analyses(), 0);
  r.analysis = {analysis_words[analysis.value].value, analysis.at, analysis.given};
  const bool chain = samples_solutions(r.analysis.value);
  r.burnin = read_whole(t, "burnin", chain ? 10000 : 0, 0);
  r.rounds = read_whole(t, "rounds", 100000, 1);
  r.interval = read_whole(t, "interval", chain ? 10 : 1, 1);
  read_seeds(t, r);
  r.restrict_solutions = read_truth(t, "restrict", false);
  r.test_level = read_whole(t, "test_level", 0, 0);
  r.continue_chain = read_truth(t, "continue", false);
  r.prune = read_truth(t, "prune", false);
  const std::vector<std::string> samplers = {"classic", "exact"};
  const stated<std::size_t> sampler = read_word(t, "sampler", samplers, 0);
  r.sampler = {static_cast<sampler_kind>(sampler.value), sampler.at, sampler.given};
  r.state_every = read_state_every(t, chain, r.sampler);
  r.moves = read_truth(t, "moves", false);
  r.density_points = read_whole(t, "density_points", 0, fewest_density_points, most_density_points);
}

void read_sections(const toml::table& table, model_description& d, message_log& log) {
  const table_view top{&table, "", &d, &log};
  refuse_unknown_keys(top, keys_of(key_section::top), table_of_key);
  const toml::node* title = find(top, "title");
  if (title != nullptr && title->is_string())
    d.title = {title->as_string()->get(), place_of(*title), true}; // may be empty
  else if (title != nullptr)
    wrong_type(top, *title, "title", "a text");
  read_data(top);
  read_named(top, "factor", key_section::factor, d.factors, read_factor);
  read_named(top, "trait", key_section::trait, d.traits, read_trait);
  read_named(top, "covariable", key_section::covariable, d.covariables, read_covariable);
  read_residual(top);
  read_derive(top);
  read_keep(top);
  read_run(top);
}

std::vector<std::string> lines_of(std::string_view text) {
  constexpr std::string_view byte_order_mark = "\xEF\xBB\xBF";
  if (text.starts_with(byte_order_mark)) text.remove_prefix(byte_order_mark.size());
  std::vector<std::string> lines;
  while (!text.empty()) {
    const std::size_t end = std::min(text.find('\n'), text.size());
    std::string_view line = text.substr(0, end);
    if (line.ends_with('\r')) line.remove_suffix(1);
    lines.emplace_back(line);
    text.remove_prefix(std::min(end + 1, text.size()));
  }
  return lines;
}

} // namespace

model_description parse_description(std::string_view text, const std::string& path, message_log& log) {
  model_description d;
  d.path = path;
  const std::size_t first = log.entries.size();
  if (text.size() > largest_file) {
    error_at(d, log, {}, "this is not a model description: it is larger than 16 MB");
    return d;
  }
  d.lines = lines_of(text);
  if (most_dots_of_a_key(text) > most_dots) {
    error_at(d, log, {}, "this is not a model description: a key has more than 16 dots");
    return d;
  }
  const toml::parse_result result = toml::parse(text, path);
  if (result.succeeded()) {
    read_sections(result.table(), d, log);
    check_description(d, log);
  } else {
    const toml::source_position at = result.error().source().begin;
    message& m = error_at(d, log, {static_cast<int>(at.line), static_cast<int>(at.column)},
                          std::string(result.error().description()));
    if (m.source_line.starts_with("[factor.") && m.source_line.find(':') != std::string::npos)
      m.hint = "a name with ':' is written in double quotes: [factor.\"herd:year\"]";
  }
  sort_by_place(log, first);
  return d;
}

model_description read_description(const std::string& path, message_log& log) {
  const std::string why = why_unreadable(path);
  if (why.empty()) {
    std::ifstream file(path, std::ios::binary);
    const std::string text{std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
    return parse_description(text, path, log);
  }
  model_description d;
  d.path = path;
  error_at(d, log, {}, "the file can't be read: " + why);
  return d;
}

} // namespace zeph::prepare
