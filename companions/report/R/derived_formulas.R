# What is derived on each draw: a list of formulas in the names of the report, in an order in which each needs only
# names that come before it.

# Data frame (name, formula, what): `what` is the glossary's sentence. data: records, or NULL.
derived_formulas <- function(m, data) {
  rows <- list()
  add <- function(name, formula, what) {
    rows[[length(rows) + 1L]] <<- data.frame(name = name, formula = formula, what = what)
  }
  if (m$nramat > 0) {
    roles <- lapply(seq_len(m$nt), function(t) roles_of(m, data, t))
    for (g in seq_along(m$groups)) for (t in seq_len(m$nt)) add_shares(m, data, roles[[t]], t, g, add)
    for (f in m$factors) add_factor_correlations(m, f, add)
  }
  for (g in seq_along(m$groups)) add_residual_correlations(m, data, g, add)
  add_other_scales(m, data, add)
  none <- data.frame(name = character(0), formula = character(0), what = character(0))
  if (length(rows) == 0) none else unique(do.call(rbind, rows))
}

genetic_structures <- c("PED", "GREL", "HINV", "RAM", "PGMIX")

# What the rows of the factors are to trait t: data frame (factor, row, role, weight, place, structure), role one of
# direct, maternal, paternal, associative, dominance, permanent, common. Direct is the first genetic row, or, where one
# row's level is the child of the other's, the child's. A permanent effect has an identity factor on the animals of the
# direct effect. `sire` marks a genetic effect of the sire alone: a quarter of the genetic variance.
roles_of <- function(m, data, t) {
  rows <- list()
  for (f in m$factors) {
    c <- f$contributions[f$contributions$trait == t & !f$contributions$regression, ]
    if (any(f$contributions$regression[f$contributions$trait == t])) return(NULL)
    for (r in unique(c$row)) {
      at <- which(c$row == r)[1]
      columns <- f$rows$columns[f$rows$row == r]
      rows[[length(rows) + 1L]] <- data.frame(factor = f$number, row = r, structure = f$structure, columns = columns,
                                              place = c$level_place[at], role = "common")
    }
  }
  if (length(rows) == 0) return(NULL)
  name_roles(m, data, t, do.call(rbind, rows))
}

name_roles <- function(m, data, t, rows) {
  rows$role[rows$structure == "DOM"] <- "dominance"
  genetic <- which(rows$structure %in% genetic_structures)
  rows$role[genetic] <- "associative"
  if (length(genetic) == 0) return(rows)
  direct <- genetic[1]
  for (i in genetic) for (j in genetic) if (i != j && parent_side(m, data, t, rows[i, ], rows[j, ]) > 0) direct <- i
  rows$role[direct] <- if (tolower(rows$columns[direct]) %in% c("sire", "father")) "sire" else "direct"
  for (j in setdiff(genetic, direct)) {
    side <- parent_side(m, data, t, rows[direct, ], rows[j, ])
    if (side > 0) rows$role[j] <- c("paternal", "maternal")[side]
  }
  for (j in which(rows$role == "common"))
    if (same_levels(data, t, rows$place[direct], rows$place[j])) rows$role[j] <- "permanent"
  rows
}

# 1 (sire) or 2 (dam) when in nearly all records the level of `other` is that parent of the level of `one`, else 0.
parent_side <- function(m, data, t, one, other) {
  if (is.null(data) || one$factor != other$factor) return(0L)
  parents <- read_parents(m, one$factor)
  if (is.null(parents)) return(0L)
  x <- data$levels[data$present[, t], one$place]
  y <- data$levels[data$present[, t], other$place]
  both <- x > 0 & y > 0 & x <= nrow(parents)
  if (!any(both)) return(0L)
  share <- vapply(1:2, function(side) mean(parents[x[both], side] == y[both]), 1)
  if (max(share) > 0.95) which.max(share) else 0L
}

# Whether two places of the records name the same units, each by its own numbers.
same_levels <- function(data, t, a, b) {
  if (is.null(data)) return(FALSE)
  x <- data$levels[data$present[, t], a]
  y <- data$levels[data$present[, t], b]
  if (anyDuplicated(x) == 0) return(FALSE)
  pairs <- unique(cbind(x, y))
  !anyDuplicated(pairs[, 1]) && !anyDuplicated(pairs[, 2])
}

# VP and the shares of trait t, residual group g.
add_shares <- function(m, data, roles, t, g, add) {
  if (is.null(roles)) return(invisible())
  parts <- covariance_parts(m, data, t, t)
  if (is.null(parts)) return(invisible())
  trait <- m$trait_names[t]
  key <- if (m$several_groups) paste0(m$groups[g], ",", trait) else trait
  vp <- paste0("VP[", key, "]")
  add(vp, formula_of_parts(m, parts, t, t, g), paste("phenotypic variance of", trait))
  element <- function(i) name_of_element(m, roles$factor[i], roles$row[i], roles$row[i])
  weight <- function(i) {
    own <- parts$factor == roles$factor[i] & parts$row == roles$row[i] & parts$other == roles$row[i]
    sum(parts$weight[own])
  }
  share <- function(i) {
    times <- if (abs(weight(i) - 1) > 1e-9) paste0(signif(weight(i), 4), " * ")
    paste0(times, element(i), " / ", vp)
  }
  for (i in seq_len(nrow(roles))) add_share(m, roles, i, key, share(i), add)
  add_repeatability(trait, roles, key, vp, element, add)
}

# Genetic and permanent effects of the animal together.
add_repeatability <- function(trait, roles, key, vp, element, add) {
  animal <- which(roles$role %in% c("direct", "permanent"))
  if (!all(c("direct", "permanent") %in% roles$role)) return(invisible())
  sum <- paste(vapply(animal, element, ""), collapse = " + ")
  add(paste0("repeatability[", key, "]"), paste0("(", sum, ") / ", vp),
      paste0("repeatability of ", trait, ": genetic and permanent effects of the animal over the phenotypic variance"))
}

# One share under the name of its role.
add_share <- function(m, roles, i, key, share, add) {
  f <- m$factors[[roles$factor[i]]]
  row <- f$rows$label[roles$row[i]]
  several <- sum(roles$factor == roles$factor[i]) > 1
  named <- function(word, ...) paste0(word, "[", paste(c(...), collapse = ","), "]")
  what <- function(text) paste0(text, ", as a share of the phenotypic variance")
  switch(roles$role[i],
    direct = add(named("h2", key), share, what("heritability: additive genetic variance (direct effect)")),
    sire = add(named("h2", key), paste("4 *", share),
      what("heritability of a sire model: four times the sires' variance")),
    maternal = add(named("m2", key), share, what("maternal genetic variance")),
    paternal = add(named("p2", key), share, what("paternal genetic variance")),
    dominance = add(named("d2", key), share, what("dominance variance")),
    permanent = add(named("pe2", f$name, key), share, what("variance of permanent effects of the animal")),
    associative = add(named("share", f$name, row, if (m$several_groups) key), share,
      what("variance of a further effect")),
    common = add(named("c2", f$name, key, if (several) row), share, what("variance of a factor (common environment)")))
}

# Correlations between the rows of a factor: rg for genetic ones, r for others.
add_factor_correlations <- function(m, f, add) {
  if (f$order < 2 || any(f$rows$basis != "1")) return(invisible())
  genetic <- f$structure %in% genetic_structures
  several <- sum(vapply(m$factors, function(x) x$structure %in% genetic_structures, TRUE)) > 1
  word <- if (!genetic) paste0("r[", f$name, ",") else if (several) paste0("rg[", f$name, ",") else "rg["
  for (r in seq_len(f$order)) for (c in seq_len(r - 1L)) {
    element <- function(i, j) name_of_element(m, f$number, i, j)
    effects <- if (genetic) "genetic correlation" else paste("correlation of the effects of", f$name)
    add(paste0(word, f$rows$label[c], ",", f$rows$label[r], "]"),
        paste0(element(c, r), " / sqrt(", element(c, c), " * ", element(r, r), ")"),
        paste(effects, "between two rows of a factor"))
  }
}

# re between residuals, rp between phenotypes.
add_residual_correlations <- function(m, data, g, add) {
  for (u in seq_len(m$nt)) for (t in seq_len(u - 1L)) {
    group <- if (m$several_groups) paste0(m$groups[g], ",")
    pair <- paste0("[", group, m$trait_names[t], ",", m$trait_names[u], "]")
    e <- function(i, j) name_of_element(m, m$nramat + g, i, j)
    add(paste0("re", pair), paste0(e(t, u), " / sqrt(", e(t, t), " * ", e(u, u), ")"),
      "residual correlation of two traits")
    variances <- lapply(c(t, u), function(i) covariance_parts(m, data, i, i))
    if (m$nramat == 0 || any(vapply(variances, is.null, TRUE))) next
    both <- formula_of_parts(m, covariance_parts(m, data, t, u), t, u, g)
    vp <- function(i) paste0("VP[", group, m$trait_names[i], "]")
    add(paste0("rp", pair), paste0("(", both, ") / sqrt(", vp(t), " * ", vp(u), ")"),
      "phenotypic correlation of two traits")
  }
}
