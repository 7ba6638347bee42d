# Categorical traits on other scales than that of the chain.
#
# The chain fixes the first inner threshold of an ordered trait at 0 and the last at 1. With the residual variance at 1
# instead, variances are divided by R and thresholds by its root: the names end in ".unit". On the observed scale,
# where a category counts as its number, h2 is that of the liability times (sum of the normal densities at the
# thresholds)^2 over
# the variance of the scores (Dempster and Lerner 1950 for two categories, Gianola 1979 for more); densities and
# variance are those of the frequencies in the data. It is called h2.observed.

add_other_scales <- function(m, data, add) {
  for (t in drawn_by(m, "liabilities")) {
    name <- m$trait_names[t]
    for (g in seq_along(m$groups)) {
      if (m$kinds$thresholds[t]) add_unit_scale(m, data, t, g, add)
      factor <- observed_factor(category_shares(m, data, t))
      h2 <- paste0("h2[", if (m$several_groups) paste0(m$groups[g], ","), name, "]")
      if (is.finite(factor) && has_h2(m, data, t))
        add(sub("^h2", "h2.observed", h2), paste(signif(factor, 8), "*", h2),
          "heritability on the observed scale, categories counting as 1, 2, ..")
    }
  }
}

has_h2 <- function(m, data, t) {
  if (m$nramat == 0) return(FALSE)
  roles <- roles_of(m, data, t)
  !is.null(roles) && any(roles$role %in% c("direct", "sire")) && !is.null(covariance_parts(m, data, t, t))
}

add_unit_scale <- function(m, data, t, g, add) {
  r <- name_of_element(m, m$nramat + g, t, t)
  group <- if (m$several_groups) paste0(m$groups[g], ",") else ""
  for (f in m$factors) for (row in f$rows$row[!is.na(f$rows$trait) & f$rows$trait == t]) {
    element <- name_of_element(m, f$number, row, row)
    add(sub("^G\\[", paste0("G.unit[", group), element), paste(element, "/", r),
      "variance on the scale where the residual variance of the liability is 1")
  }
  n <- length(category_shares(m, data, t))
  for (k in seq_len(max(0, n - 1L)))
    add(paste0("threshold.unit[", group, m$trait_names[t], ",", k, "]"),
      paste0("threshold[", m$trait_names[t], ",", k, "] / sqrt(", r, ")"),
        "threshold on the scale where the residual variance of the liability is 1")
}

# Shares of the categories of trait t in the data, lowest first.
category_shares <- function(m, data, t) {
  if (is.null(data)) return(numeric(0))
  y <- data$values[data$present[, t], m$traits[[t]]$y_place]
  as.numeric(table(y)) / length(y)
}

observed_factor <- function(shares) {
  n <- length(shares)
  if (n < 2) return(NA_real_)
  scores <- seq_len(n)
  variance <- sum(scores^2 * shares) - sum(scores * shares)^2
  sum(stats::dnorm(stats::qnorm(utils::head(cumsum(shares), -1))))^2 / variance
}
