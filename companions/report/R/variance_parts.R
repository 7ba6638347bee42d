# Which variances make up the phenotypic variance of a trait, and with which coefficients.
#
# A record's value of trait t is the sum over the contributions c of t of z(c) u(row(c), level(c)), plus the residual.
# Its variance is the sum over pairs of contributions of one factor of z(c) z(d) A(level(c), level(d)) G(row(c),
# row(d)), plus R(t,t). A is 1 for one level, 1/2 for parent and offspring, and left out otherwise (inbreeding not
# counted); the coefficients are averages over the records that have both levels. With direct and maternal effects this
# is G(d,d) + G(d,m) + G(m,m) + R (Willham 1972).

# Data frame (factor, row, other, weight) of the elements of Cov(t, u) over all factors, row <= other; the weight of an
# element off the diagonal holds both its places. NULL when a trait has regressions on covariables among its random
# effects: its variance depends on the covariable.
covariance_parts <- function(m, data, t, u) {
  parts <- list()
  for (f in m$factors) {
    c <- f$contributions
    ct <- c[c$trait == t, ]
    cu <- c[c$trait == u, ]
    if (any(ct$regression) || any(cu$regression)) return(NULL)
    if (nrow(ct) == 0 || nrow(cu) == 0) next
    parts[[length(parts) + 1L]] <- parts_of_factor(f, ct, cu, pair_weight(m, data, f$number, t, u))
  }
  do.call(rbind, parts)
}

# weight(a, b): mean relationship between the levels at places a and b of the records of traits t and u.
pair_weight <- function(m, data, k, t, u) {
  if (is.null(data)) return(function(a, b) as.numeric(a == b))
  has <- data$present[, t] & data$present[, u]
  parents <- read_parents(m, k)
  function(a, b) {
    if (a == b) return(1)
    x <- data$levels[has, a]
    y <- data$levels[has, b]
    both <- x > 0 & y > 0
    if (!any(both)) 0 else mean(relationship(x[both], y[both], parents))
  }
}

# 1 for one level, 1/2 for parent and offspring, else 0.
relationship <- function(x, y, parents) {
  a <- as.numeric(x == y)
  if (is.null(parents)) return(a)
  child <- function(of, one) of <= nrow(parents) & (parents[pmin(of, nrow(parents)),
    1] == one | parents[pmin(of, nrow(parents)), 2] == one)
  a[a == 0 & (child(x, y) | child(y, x))] <- 0.5
  a
}

parts_of_factor <- function(f, ct, cu, weight) {
  pairs <- expand.grid(i = seq_len(nrow(ct)), j = seq_len(nrow(cu)))
  w <- mapply(function(i, j) ct$coefficient[i] * cu$coefficient[j] * weight(ct$level_place[i], cu$level_place[j]),
              pairs$i, pairs$j)
  a <- ct$row[pairs$i]
  b <- cu$row[pairs$j]
  sums <- stats::aggregate(list(weight = w), list(row = pmin(a, b), other = pmax(a, b)), sum)
  data.frame(factor = f$number, sums[abs(sums$weight) > 1e-9, ])
}

# The formula of a (co)variance in the names of the report: parts of the factors, and the residual of group g.
formula_of_parts <- function(m, parts, t, u, g) {
  terms <- character(0)
  for (i in seq_len(NROW(parts))) {
    name <- name_of_element(m, parts$factor[i], parts$row[i], parts$other[i])
    w <- parts$weight[i]
    terms <- c(terms, if (abs(w - 1) < 1e-9) name else paste(format(signif(w, 4)), "*", name))
  }
  paste(c(terms, name_of_element(m, m$nramat + g, t, u)), collapse = " + ")
}
