# Random regressions as curves over the covariable.

# For each trait with random regressions: the variances of its factors, and their shares of the phenotypic variance, at
# points of the covariable that are in the data (at most `points`). Data frame (trait, factor, x, quantity ("variance"
# or "share"), mean, sd, low, high), the bounds those of the central 95 % of the draws.
curves_of <- function(m, data, draws, points = 41L) {
  if (is.null(data) || dim(draws)[1] == 0 || m$nramat == 0) return(NULL)
  out <- lapply(seq_len(m$nt), function(t) curves_of_trait(m, data, draws, t, points))
  do.call(rbind, out)
}

curves_of_trait <- function(m, data, draws, t, points) {
  terms <- lapply(m$factors, function(f) f$contributions[f$contributions$trait == t, ])
  if (!any(vapply(terms, function(c) any(c$regression), TRUE))) return(NULL)
  wanted <- unlist(lapply(seq_along(terms), function(k) if (nrow(terms[[k]]) > 0) name_of_element(m, k,
    terms[[k]]$row, terms[[k]]$row)))
  residual <- name_of_element(m, m$nramat + 1L, t, t) # of the first residual group
  if (!all(c(wanted, residual) %in% dimnames(draws)[[3]])) return(NULL)
  axis <- axis_of(m, data, t, terms, points)
  residual <- draws[, , residual]
  variances <- lapply(seq_along(terms), function(k) if (nrow(terms[[k]]) > 0) variance_along(m, data, draws, k,
    terms[[k]], axis$records))
  names(variances) <- vapply(m$factors, function(f) f$name, "")
  variances <- Filter(Negate(is.null), variances)
  total <- Reduce(`+`, variances) + as.vector(residual)
  rows <- lapply(names(variances), function(name) rbind(
    curve_rows(m, t, name, axis$x, variances[[name]], "variance"),
    curve_rows(m, t, name, axis$x, variances[[name]] / total, "share")))
  out <- do.call(rbind, rows)
  out$covariable <- axis$name
  out
}

# The axis: the first covariable of the trait's random regressions, in its own units where the description says how it
# was scaled. list(x, records (rows of the data), name)
axis_of <- function(m, data, t, terms, points) {
  k <- which(vapply(terms, function(c) any(c$regression), TRUE))[1]
  first <- which(terms[[k]]$regression)[1]
  values <- data$values[, terms[[k]]$value_place[first]]
  records <- which(data$present[, t])
  records <- records[!duplicated(values[records])]
  records <- records[order(values[records])]
  keep <- unique(round(seq(1, length(records), length.out = min(points, length(records)))))
  unscaled <- own_units(m$factors[[k]], terms[[k]]$row[first], values[records[keep]])
  list(x = unscaled$x, records = records[keep], name = unscaled$name)
}

# Covariable values back from the coefficient of a row of degree 1: leg is sqrt(3/2) u on -1..1.
own_units <- function(f, row, z) {
  term <- f$rows[f$rows$row == row, ]
  scale <- f$scales[[term$covariable]]
  if (is.null(scale) || !(term$basis %in% c("leg", "poly", "covariable")) ||
    (term$basis != "covariable" && term$degree != 1))
    return(list(x = z, name = if (nzchar(term$covariable)) term$covariable else "covariable, as scaled in the model"))
  u <- if (term$basis == "leg") z / sqrt(1.5) else z
  x <- if (isTRUE(scale$mapped)) scale$low + (u + 1) / 2 * (scale$high - scale$low) else u + scale$shift
  list(x = x, name = term$covariable)
}

# Draw x point matrix of z' G z, z the coefficients of the records; contributions to one level only.
variance_along <- function(m, data, draws, k, terms, records) {
  z <- vapply(seq_len(nrow(terms)), function(i) terms$coefficient[i] *
    (if (terms$regression[i]) data$values[records, terms$value_place[i]] else rep(1, length(records))),
              numeric(length(records)))
  z <- matrix(z, ncol = nrow(terms))
  out <- 0
  for (i in seq_len(nrow(terms))) for (j in seq_len(nrow(terms))) {
    if (terms$level_place[i] != terms$level_place[j]) next
    g <- as.vector(draws[, , name_of_element(m, k, terms$row[i], terms$row[j])])
    out <- out + outer(g, z[, i] * z[, j])
  }
  out
}

curve_rows <- function(m, t, factor, x, values, quantity) {
  bounds <- apply(values, 2, stats::quantile, c(0.025, 0.975), na.rm = TRUE, names = FALSE)
  data.frame(trait = m$trait_names[t], factor = factor, x = x, quantity = quantity,
    mean = colMeans(values, na.rm = TRUE),
             sd = apply(values, 2, stats::sd, na.rm = TRUE), low = bounds[1, ], high = bounds[2, ])
}
