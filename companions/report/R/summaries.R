# Tables over draws. All figures come from the packages posterior and coda.

# Data frame, a row a name: mean, median, sd, the 95 % highest-density interval (low, high), ess_bulk, ess_tail, rhat,
# mcse (of the mean), draws. Names that do not vary, or vary only because a model leaves them out, have NA there; names
# that are absent in some draws are summed up over the draws that have them, without ESS and R-hat.
summarise_names <- function(draws) {
  names <- dimnames(draws)[[3]]
  if (length(names) == 0 || dim(draws)[1] == 0) return(empty_summary())
  rows <- lapply(names, function(name) summarise_one(name, matrix(draws[, , name], dim(draws)[1])))
  do.call(rbind, rows)
}

empty_summary <- function() {
  data.frame(name = character(0), mean = numeric(0), median = numeric(0), sd = numeric(0), low = numeric(0),
    high = numeric(0),
             ess_bulk = numeric(0), ess_tail = numeric(0), rhat = numeric(0), mcse = numeric(0), draws = integer(0))
}

summarise_one <- function(name, x) {
  values <- x[!is.na(x)]
  out <- data.frame(name = name, mean = NA_real_, median = NA_real_, sd = NA_real_, low = NA_real_, high = NA_real_,
    ess_bulk = NA_real_,
                    ess_tail = NA_real_, rhat = NA_real_, mcse = NA_real_, draws = length(values))
  if (length(values) == 0) return(out)
  out$mean <- mean(values)
  out$median <- stats::median(values)
  if (length(values) < 2) return(out)
  out$sd <- stats::sd(values)
  interval <- coda::HPDinterval(coda::as.mcmc(values), prob = 0.95)
  out$low <- interval[1, "lower"]
  out$high <- interval[1, "upper"]
  if (anyNA(x) || nrow(x) < 4 || all(values == values[1])) return(out)
  suppressWarnings({ # very short chains: ESS is capped
    out$ess_bulk <- posterior::ess_bulk(x)
    out$ess_tail <- posterior::ess_tail(x)
    out$rhat <- posterior::rhat(x)
    out$mcse <- posterior::mcse_mean(x)
  })
  out
}

# Names whose draws are all one value: fixed by the model.
fixed_names <- function(draws) {
  names <- dimnames(draws)[[3]]
  Filter(function(name) {
    v <- draws[, , name]
    v <- v[!is.na(v)]
    length(v) > 0 && all(v == v[1])
  }, names)
}
