// Covariables as the model uses them: centred values, powers, and Legendre polynomials.
#pragma once

#include "prepare/records/data_columns.h"
#include "prepare/records/record_selection.h"

#include <cstdint>
#include <string>
#include <vector>

namespace zeph::prepare {

// One curve of a covariable: a number for every record of the file, NaN where the covariable is missing.
struct covariable_curve {
  std::string name;      // "age", "dim.leg1", "dim.poly2"
  bool constant = false; // leg and poly of degree 0: `factor` in every record, no values
  double factor = 1.0;
  std::vector<double> value;
  int solution = -1; // made from solutions: index of the covariable's table; value is what they are
                     // multiplied by
  std::vector<double> stand_in; // then: what represents the unknown values in the search for dependence
};

// How a covariable was moved and scaled, for the listing: x' = (x - shift), and with a range low..high ->
// -1..1.
struct covariable_scale {
  std::string name;
  double shift = 0.0;
  bool mapped = false;
  double low = -1.0, high = 1.0;
};

// Normalised Legendre polynomial of degree n on -1..1: sqrt((2n+1)/2) P_n(x), by the recurrence
// (n+1) P_n+1 = (2n+1) x P_n - n P_n-1.
double normalised_legendre(int n, double x);

// The scale of a covariable of kind `kind` (column, leg, poly): leg uses the range given or else the smallest
// and largest value of the file; poly the range given or else the centred values; a plain covariable the
// centred values. The mean of `center = true` is that of the records in use. Errors: values outside a range
// (records named), a leg of a covariable with one value only.
covariable_scale scale_of(const model_description& d, const data_columns& data,
                          const record_selection& records, const atom& x, message_log& log);

// The curve of a degree. Plain covariables have degree 1 only.
covariable_curve curve_of(const model_description& d, const data_columns& data, const covariable_scale& scale,
                          const atom& x, int degree);

} // namespace zeph::prepare
