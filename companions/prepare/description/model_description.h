// The model description: a TOML file becomes plain records, with the place of every value, and is checked as
// far as it can be without data. This header is the reference of all keys; docs/prepare.md says the same to
// the user.
//
// File names are as the user wrote them; relative ones are meant from the folder of the description
// (path_of). Places are lines and columns of the description, 1-based; {0, 0} is a value that was not given.
//
//   title                text
//
//   [data]
//   file        needed   CSV file with a header line
//   missing     ["NA"]   list of texts or numbers (a single one needs no list) that mean "no value"; a list
//                        replaces the default; an empty cell is always missing
//   decimal     "."      "." or ","
//   separator            ",", ";", "tab" or "blanks" (any run of blanks and tabs). Left out: it is found from
//                        the first line of the file; the value is then "," or, with decimal = ",", ";"
//   columns     none     list of the names, for a file without a header line
//
//   [factor.NAME]        one random factor: one covariance matrix, one relationship of the levels. At most
//                        one of
//   pedigree             "file", or { file, animal = "column", sire = .., dam = .., selfing = false, groups =
//                        .., unknown = .., founders = .. }: inverse of the pedigree relationship. Columns
//                        by default: animal or id, sire or father, dam or mother; columns = [..] names them
//                        in a file without header. Unknown parents: empty, 0, NA, the missing codes and those
//                        of unknown. founders: parents without a line that
//                        are animals, though they look like such codes. selfing = true: an animal may be sire
//                        and dam. groups: phantom parent groups, the list of their codes, or one text where *
//                        and ? match any letters ("G*")
//   inverse              "file" or { file, form }: the inverse of a relationship matrix, ready made
//   relationship         "file" or { file, form, blend }: a relationship matrix; it is inverted
//   correlation          "file" or { file, form, blend, holds = "matrix" }: correlations of the levels
//   dominance            "file" or { file, form, blend, holds = "matrix" }: dominance relationship
//     form               "triplets": lines "i j value" of identifications, each pair once, all diagonals;
//                        "dense": header line of identifications, then the square. Left out: triplets when
//                        the file
//                        has three columns
//     holds              "matrix": it is inverted; "inverse": it is ready made
//     blend              0 to below 1: (1 - blend) M + blend I is inverted in place of M. Left out: 0.05 is
//                        blended in only when M is near singular (with a warning)
//   genotypes, single_step   known, not yet supported
//   (none of them)       identity; the levels are those of the data
//   start                order x order matrix (rows; the lower triangle alone will do; a number when the
//                        order is 1)
//   prior_df    0        whole number; 0 is flat
//   order                list of the names of the rows (factor_row), in the wanted order
//   deviations           "own": trait deviations of the levels are reported; "progeny": those of their
//                        progeny too (one factor; progeny: with pedigree)
//   deviations_every     0, rounds: progeny deviations also go to a file PTDn so often; those of levels with
//                        more
//   deviations_above     0  than this number of progeny
//
//   [trait.NAME]         in the order of the file: trait 1, 2, ..
//   formula     needed   see formula.h
//   column      NAME     column of the observations
//   kind    "gaussian"   also "censored", "ordered", "binary", "indicator", "sequence", "cured"
//   weight      none     column of weights
//   categories           list, lowest first: all of an ordered trait, or the two of a binary trait or a
//                        sequence. Left out: numbers, ascending (ordered), 0 and 1 (binary, sequence)
//   limits               kind censored, columns: { code, upper } with codes -1 0 1 2 or left none right
//                        interval; { event }: 1 seen, 0 not yet; { upper }: the pair (column, upper) of
//                        bounds, one may be missing
//   first                { upper = share, of = "trait" } (kind indicator): the records that begin in
//                        component 1, those with the largest values of the trait. Left out: 0.5 of the first
//                        trait with shift(..). With `column`, and without `first`, they are read from there
//                        (0 and 1)
//   subject     needed   kind sequence: column that says whose records belong together
//   position             kind sequence: column that numbers them, 1, 2, ..; left out: the order of the file
//   of          needed   kind cured: its trait of kind sequence
//
//   [covariable.NAME]    says that NAME in a formula is a number, not a class
//   column      NAME     column of the data
//   range                [low, high]: mapped to -1..1 by leg and poly; values outside are errors. Left out:
//                        leg takes the smallest and largest value of the data, poly the values themselves
//   center      false    true: less its mean over the records in use; or the number to subtract. Not used by
//                        leg
//   solution             "trait.effect" in place of a column: the current solution of that class effect (as
//                        its formula writes it; of a random term the column), less the mean of all its
//                        solutions
//   times                column that such a solution is multiplied by
//   standardize false    true: such solutions are divided by their standard deviation; alike in all
//
//   [residual]
//   start                traits x traits matrix, as in a factor
//   prior_df    0
//   zero                 pairs of traits without residual covariance: [["yw", "fat"]]
//   free                 pairs that their kinds would hold at zero, and that are to stay free
//   groups      none     column of the residual groups, each with a matrix of its own; or an indicator trait
//   start_by_group       table, code of the group = matrix; a group that is not named has `start`
//
//   [derive]             NAME = "formula on draws": kept as text for the report of the chains
//
//   [keep]
//   solutions   false    true, false, or a list of factors, of effects ("sex", "1") and of "trait.effect":
//                        samples kept
//   residuals   false
//
//   [run]
//   analysis   "solve"   "solve" 0, "sums" 1, "predict" 2, "gibbs" 3, "models" 5, "jump" 6
//   burnin               rounds; default 0 (solve, sums), else 10000
//   rounds               default 100000 (solve: at most, it ends when converged)
//   interval             default 1 (solve, sums), else 10
//   seeds       [0, 0]   two whole numbers, 0..31328 and 0..30081; 0 is set from the clock
//   restrict    false    true: full coding, and the program's own restrictions (analysis 0 to 2)
//   test_level  0        0 and up
//   continue    false    true: the chain continues from the files of the last run
//   prune       false    true: animals with no connection to the data are left out of the pedigree
#pragma once

#include "prepare/description/description_records.h"
#include "prepare/messages/messages.h"

#include <string>
#include <string_view>

namespace zeph::prepare {

// Reads and checks the description. All faults go to `log`, in the order of lines; nothing is thrown and
// nothing printed, whatever the text. The result is complete when no error was added.
model_description read_description(const std::string& path, message_log& log);

// The same for text in memory; `path` is used for messages only.
model_description parse_description(std::string_view text, const std::string& path, message_log& log);

} // namespace zeph::prepare
