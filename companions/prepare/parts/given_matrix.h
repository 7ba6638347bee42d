// A relationship between the levels of a factor that the user gives as a text file: its inverse, or the
// matrix itself, which is inverted here.
#pragma once

#include "prepare/description/description_records.h"
#include "prepare/messages/messages.h"
#include "prepare/parts/pedigree_inverse.h"

#include <functional>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace zeph::prepare {

enum class matrix_kind { inverse, relationship, correlation, dominance };

struct matrix_request {
  std::string file{};
  matrix_kind kind = matrix_kind::inverse;
  matrix_form form = matrix_form::by_columns;
  std::optional<double>
      blend{}; // fraction 0..1 of the blending matrix; none: 0.05, and only when near singular
  // Matrix that is blended in, dense, for the identifications in order (A among them, say); none: identity.
  std::function<std::vector<double>(std::span<const std::string>)> blend_with{};
  std::string blend_name = "I"; // its name in messages
};

struct given_inverse {
  std::vector<std::string> identification; // level l at index l - 1, in the order of first appearance
  std::vector<matrix_element> element;     // lower triangle by i, then j; each pair once, every diagonal once
  double smallest_eigenvalue = 0.0;        // of the matrix given; 0 unless it was found
  double blended = 0.0;                    // fraction that was blended in
};

// Reads the file: rows "identification identification value" (one triangle, or both when they agree; a
// heading is allowed), or a square matrix under a line of identifications, its rows with or without theirs.
// Values are separated by blanks, tabs, commas or semicolons. By columns: three in every line are triplets,
// unless the first line holds no number, as many lines follow as it has words, and they are numbers only.
// Kind inverse is used as it is; the others are inverted by LAPACK's dpotrf and dpotri. Errors: no
// number, comment lines and decimal commas (one error each), two values for a pair, no diagonal, not
// symmetric, not positive definite (with the smallest eigenvalue, dsyevr). Warning: near singular (smallest
// eigenvalue below 1e-6 of the mean diagonal), then blended. After an error no elements come back.
given_inverse read_given_matrix(const matrix_request& request, message_log& log);

// The same from text in memory; request.file is the name for messages.
given_inverse given_matrix_of_text(std::string_view content, const matrix_request& request, message_log& log);

} // namespace zeph::prepare
