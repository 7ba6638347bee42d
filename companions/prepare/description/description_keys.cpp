#include "prepare/description/description_keys.h"

namespace zeph::prepare {

namespace {

using s = key_section;
using k = key_type;

constexpr key_row key_rows[] = {
    {s::top, "title", k::text, "the name of the model on the page of the report"},
    {s::top, "data", k::table, "the file of the records"},
    {s::top, "factor", k::table, "random factors, a table each"},
    {s::top, "trait", k::table, "traits, a table each"},
    {s::top, "covariable", k::table, "covariables, a table each"},
    {s::top, "residual", k::table, "the residual matrix"},
    {s::top, "derive", k::table, "quantities that the report computes on every draw"},
    {s::top, "keep", k::table, "samples to keep"},
    {s::top, "run", k::table, "what the run does"},

    {s::data, "file", k::text, "CSV file of the records"},
    {s::data, "missing", k::codes, "texts and numbers that mean no value"},
    {s::data, "decimal", k::word, "the decimal sign"},
    {s::data, "separator", k::word, "what separates the values of a line"},
    {s::data, "columns", k::texts, "names of the columns of a file without a line of names"},

    {s::factor, "pedigree", k::file_or_table, "inverse of the pedigree relationship, with inbreeding"},
    {s::factor, "inverse", k::file_or_table, "the inverse of a relationship matrix, ready made"},
    {s::factor, "relationship", k::file_or_table, "a relationship matrix"},
    {s::factor, "genotypes", k::unsupported, "not yet supported"},
    {s::factor, "single_step", k::unsupported, "not yet supported"},
    {s::factor, "dominance", k::file_or_table, "dominance relationship, or its inverse"},
    {s::factor, "correlation", k::file_or_table, "correlations between the levels, or their inverse"},
    {s::factor, "start", k::matrix, "start value of G, and the expected matrix of its prior"},
    {s::factor, "prior_df", k::whole, "degrees of freedom of the prior"},
    {s::factor, "model_prior", k::numbers, "prior weights of the numbers of rows"},
    {s::factor, "order", k::texts, "names of all rows in the wanted order"},
    {s::factor, "deviations", k::word, "trait deviations of the levels, or of their progeny too"},
    {s::factor, "deviations_every", k::whole, "rounds between two files of progeny deviations"},
    {s::factor, "deviations_above", k::whole, "only levels with more progeny go to these files"},

    {s::pedigree, "file", k::text, "CSV file of the pedigree"},
    {s::pedigree, "animal", k::text, "its column of the animal"},
    {s::pedigree, "sire", k::text, "its column of the sire"},
    {s::pedigree, "dam", k::text, "its column of the dam"},
    {s::pedigree, "columns", k::texts, "names of the columns of a file without a line of names"},
    {s::pedigree, "selfing", k::truth, "an animal may be sire and dam"},
    {s::pedigree, "groups", k::codes, "codes of phantom parent groups, or a pattern of them"},
    {s::pedigree, "unknown", k::codes, "further codes of an unknown parent"},
    {s::pedigree, "founders", k::codes, "parents without a line of their own that are animals"},

    {s::inverse, "file", k::text, "text file of the matrix"},
    {s::inverse, "form", k::word, "triplets, or the dense square"},

    {s::relationship, "file", k::text, "text file of the matrix"},
    {s::relationship, "form", k::word, "triplets, or the dense square"},
    {s::relationship, "blend", k::number, "b of (1 - b) M + b I"},

    {s::matrix_or_inverse, "file", k::text, "text file of the matrix"},
    {s::matrix_or_inverse, "form", k::word, "triplets, or the dense square"},
    {s::matrix_or_inverse, "holds", k::word, "the matrix, or its inverse"},
    {s::matrix_or_inverse, "blend", k::number, "b of (1 - b) M + b I"},

    {s::trait, "formula", k::text, "fixed and random effects of the trait"},
    {s::trait, "column", k::text, "column of the observations"},
    {s::trait, "kind", k::word, "what the observations are"},
    {s::trait, "weight", k::text, "column of weights w: residual variance R / w"},
    {s::trait, "categories", k::codes, "the categories, lowest first"},
    {s::trait, "limits", k::table, "columns that say what is known of a censored value"},
    {s::trait, "first", k::table, "the first membership of a mixture"},
    {s::trait, "subject", k::text, "sequence: column that says whose record it is"},
    {s::trait, "position", k::text, "sequence: column that numbers the records of a subject"},
    {s::trait, "of", k::text, "cured: its trait of kind sequence"},

    {s::limits, "code", k::text, "column that says on which side the value is open"},
    {s::limits, "event", k::text, "column of 1 where the event was observed, else 0"},
    {s::limits, "upper", k::text, "column of upper bounds"},

    {s::first, "upper", k::number, "share of the records that begin in component 1"},
    {s::first, "of", k::text, "the trait by whose size they are taken"},

    {s::covariable, "column", k::text, "column of the data"},
    {s::covariable, "range", k::range, "the values that become -1 and 1 in leg and poly"},
    {s::covariable, "center", k::truth_or_number, "what is subtracted: the mean, or a number"},
    {s::covariable, "solution", k::text, "the class effect of another trait whose solutions it takes"},
    {s::covariable, "times", k::text, "column that the solution is multiplied by"},
    {s::covariable, "standardize", k::truth, "solutions are divided by their standard deviation"},

    {s::residual, "start", k::matrix, "start value of R, and the expected matrix of its prior"},
    {s::residual, "prior_df", k::whole, "degrees of freedom of the prior"},
    {s::residual, "zero", k::pairs, "traits without residual covariance"},
    {s::residual, "free", k::pairs, "traits whose residual covariance their kinds do not hold at zero"},
    {s::residual, "groups", k::text, "column of residual groups, or an indicator trait"},
    {s::residual, "start_by_group", k::matrices, "start matrices of residual groups"},

    {s::keep, "solutions", k::truth_or_texts, "samples of solutions: all, or of factors and effects"},
    {s::keep, "residuals", k::truth, "the residual of every record"},

    {s::run, "analysis", k::word, "what the run does"},
    {s::run, "burnin", k::whole, "rounds before sampling"},
    {s::run, "rounds", k::whole, "sampling rounds"},
    {s::run, "interval", k::whole, "rounds from one sample to the next"},
    {s::run, "seeds", k::wholes, "the two seeds of the random numbers"},
    {s::run, "restrict", k::truth, "all levels are written, and the run sets its own restrictions"},
    {s::run, "test_level", k::whole, "level of test output"},
    {s::run, "continue", k::truth, "the chain continues from the files of the last run"},
    {s::run, "prune", k::truth, "animals with no connection to the data are left out"},
    {s::run, "sampler", k::word, "\"exact\": every step draws from its full conditional distribution"},
    {s::run, "state_every", k::false_or_whole, "minutes between saves of the chain's whole state"},
    {s::run, "moves", k::truth, "the chain takes steps that let matrices, scales and thresholds move freely"},
    {s::run, "density_points", k::whole, "points for the density of three and more latent values"},
};

bool holds(key_section section, std::string_view key) {
  for (const key_row& row : key_rows)
    if (row.section == section && row.key == key) return true;
  return false;
}

} // namespace

std::span<const key_row> description_keys() { return key_rows; }

std::vector<std::string> keys_of(key_section section) {
  std::vector<std::string> keys;
  for (const key_row& row : key_rows)
    if (row.section == section) keys.emplace_back(row.key);
  return keys;
}

std::string table_of_key(std::string_view key) {
  for (std::size_t i = 1; i < section_titles.size(); ++i)
    if (holds(static_cast<key_section>(i), key)) return std::string(section_titles[i]);
  return {};
}

} // namespace zeph::prepare
