# The model of a work directory as MODINF describes it: sizes, traits, fixed part, factors, residual, equations.

# Steps through the records of MODINF; next_record() gives the items of the next one.
modinf_walk <- function(path) {
  if (!file.exists(path)) stop_report(dirname(path), " is not a work directory of ZEPH: it has no MODINF")
  records <- read_records(path)
  at <- 0L
  list(next_record = function() {
    at <<- at + 1L
    if (at > length(records)) stop_report("MODINF of ", dirname(path), " ends too early")
    items_of(records[[at]], path)
  }, skip = function(n = 1L) at <<- at + n)
}

# list(version, stamp, nobs, scaled, nt, ncat, mnef, mxreg, nramat, nfeq, NLEV (nt x mnef), NRALEV, traits, factors,
# residual, NBEGREG, NBEGF, NBEGRA, SPRE, iv_50, n_real, n_sol_cv); numbers are 1-based throughout.
read_modinf <- function(path) {
  w <- modinf_walk(path)
  m <- modinf_header(w)
  m <- c(m, modinf_sizes(w, m))
  m$traits <- lapply(seq_len(m$nt), function(i) modinf_trait(w))
  m$structures <- lapply(seq_len(m$nramat + 1L), function(k) modinf_structure(w, m$nt, k <= m$nramat))
  c(m, modinf_offsets(w, m))
}

modinf_header <- function(w) {
  r <- w$next_record()
  m <- list(version = r$text(1), release = r$text(3), stamp = r$i4(6))
  w$skip(2)
  r <- w$next_record()
  r$i4(2)
  m$scaled <- r$i4() == 1L
  r$skip(8)
  m$nobs <- r$i4(4)[3]
  w$skip(1)
  r <- w$next_record()
  m$nt <- r$i4()
  r$i4(2)
  m$ncat <- r$i4()
  w$skip(1)
  if (w$next_record()$i4() > 0) w$skip(1)
  w$skip(1)
  m
}

modinf_sizes <- function(w, m) {
  r <- w$next_record()
  mnef <- r$i4()
  r$i4(2)
  s <- list(mnef = mnef, mxreg = r$i4(), nramat = w$next_record()$i4())
  r <- w$next_record()
  s$nregt <- r$i4()
  w$skip(1)
  s$nfeq <- w$next_record()$i4()
  r <- w$next_record()
  s$NLEV <- matrix(r$i4(m$nt * mnef), m$nt, mnef)
  s$NRALEV <- r$i4(s$nramat)
  w$skip(3)
  s
}

# One trait: kind, name, place of the observation, weight, class effects and regressions.
modinf_trait <- function(w) {
  r <- w$next_record()
  t <- list(kind = r$i4(), input = r$i4(), name = r$text(8), y_place = r$i4())
  r <- w$next_record()
  r$i4()
  t$weighted <- r$i4() != 0L
  r$skip(8 + 4)
  t$mixture <- r$l4()
  t$indicator <- r$i4() # of a mixed trait: the trait that gives the component
  n_abs <- w$next_record()$i4()
  r <- w$next_record()
  n_ef <- r$i4()
  n_f <- r$i4()
  n_r <- r$i4()
  r <- w$next_record()
  n_reg <- r$i4()
  n_tms <- r$i4()
  w$skip(2 + (n_abs >= 1))
  t <- c(t, modinf_effects(w, n_ef, n_f), modinf_regressions(w, n_reg, n_tms))
  w$skip(1 + 2 + 7)
  t$censored <- w$next_record()$l4()
  if (t$censored) w$skip(1)
  t
}

modinf_effects <- function(w, n_ef, n_f) {
  r <- w$next_record()
  r$skip(3 * 4 * n_ef)
  solved <- r$l4(n_ef)[seq_len(n_f)]
  r <- w$next_record()
  r$i4(n_f)
  names <- r$text(8, n_f)
  w$skip(1)
  list(effects = data.frame(name = names, solved = solved))
}

modinf_regressions <- function(w, n_reg, n_tms) {
  if (n_reg < 1) return(list(regressions = data.frame(type = integer(0), name = character(0), nested_in = integer(0))))
  r <- w$next_record()
  type <- r$i4(n_reg)
  r$i4(n_reg)
  r$l4(n_reg)
  name <- r$text(8, n_reg)
  r <- w$next_record()
  r$i4(n_reg)
  r$text(18, n_reg)
  r$i4(n_reg)
  nested_in <- r$i4(n_reg)
  w$skip(1)
  list(regressions = data.frame(type = type, name = name, nested_in = nested_in))
}

# A factor: structure, order, contributions (row, trait, places of level and covariable, coefficient), row names; the
# residual: its groups.
modinf_structure <- function(w, nt, is_factor) {
  r <- w$next_record()
  n_cont <- r$i4()
  s <- list(order = r$i4(), n_t = r$i4())
  r <- w$next_record()
  s$structure <- r$text(12)
  r$skip(4 + 4 + 4 + 24 + 16)
  s$n_phg <- r$i4()
  w$skip(2 + (s$n_phg > 0))
  w$skip(1)
  if (is_factor) s$contributions <- modinf_contributions(w$next_record(), n_cont)
  if (is_factor) w$skip(5)
  w$skip(1)
  s$row_names <- w$next_record()$text(8, s$n_t)
  s$start <- matrix(w$next_record()$r8(s$order^2), s$order)
  if (is_factor) w$skip(1) else s <- c(s, modinf_groups(w, nt))
  w$skip(4)
  s
}

modinf_contributions <- function(r, n) {
  row <- r$i4(n)
  r$i4(n)
  trait <- r$i4(n)
  r$skip(4 * 4 * n)
  r$i4(n)
  level_place <- r$i4(n)
  r$i4(n)
  value_place <- r$i4(n)
  r$skip(3 * 8 * n)
  coefficient <- r$r8(n)
  data.frame(row = row, trait = trait, level_place = level_place, value_place = value_place,
             coefficient = coefficient, regression = r$l4(n))
}

modinf_groups <- function(w, nt) {
  w$skip(1)
  r <- w$next_record()
  r$i4()
  place <- r$i4()
  r$text(8)
  n <- r$i4()
  w$skip(1)
  r <- w$next_record()
  codes <- r$i4(n + 1L)[-1]
  w$skip(1)
  list(groups = data.frame(number = seq_len(n), code = codes, records = r$i4(n + 1L)[-1]), group_place = place)
}

modinf_offsets <- function(w, m) {
  r <- w$next_record()
  out <- list(NBEGREG = matrix(r$i4(m$nt * m$mxreg), m$nt, m$mxreg), NBEGF = matrix(r$i4(m$nt * m$mnef), m$nt, m$mnef),
              NBEGRA = r$i4(m$nramat + 1L))
  out$SPRE <- w$next_record()$r8(m$nt)
  w$skip(1)
  r <- w$next_record()
  out$iv_50 <- r$i4()
  out$n_real <- r$i4()
  w$skip(1)
  out$n_sol_cv <- w$next_record()$i4()
  out
}
