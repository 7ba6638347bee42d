# Differences between levels of a class effect.

# Adds to the table of fixed_effects(): `contrast`, the difference to the first level of the effect, and its SD. When
# samples of the solutions were kept it is that of the differences of each draw; else it is given only where the
# solution is itself a difference (against levels without equation).
add_contrasts <- function(fixed, draws) {
  if (is.null(fixed)) return(NULL)
  fixed$contrast <- NA_real_
  fixed$contrast_sd <- NA_real_
  fixed$against <- ""
  fixed$ess <- fixed$rhat <- NA_real_
  for (key in unique(paste(fixed$trait, fixed$effect))) {
    at <- which(paste(fixed$trait, fixed$effect) == key & fixed$kind == "level")
    if (length(at) == 0) next
    fixed[at, ] <- if (nzchar(fixed$reference[at[1]])) against_left_out(fixed[at, ]) else against_first(fixed[at, ],
      draws)
  }
  fixed
}

against_left_out <- function(rows) {
  rows$contrast <- rows$value
  rows$contrast_sd <- rows$sd
  rows$against <- rows$reference
  rows
}

against_first <- function(rows, draws) {
  if (nrow(rows) < 2) return(rows)
  rows$contrast[-1] <- rows$value[-1] - rows$value[1]
  rows$against[-1] <- rows$level[1]
  known <- as.character(rows$equation) %in% dimnames(draws)[[3]]
  if (!known[1]) return(rows)
  for (i in which(known)[-1]) {
    difference <- matrix(draws[, , as.character(rows$equation[i])] - draws[, , as.character(rows$equation[1])],
      dim(draws)[1])
    s <- summarise_one("", difference)
    rows$contrast[i] <- s$mean
    rows$contrast_sd[i] <- s$sd
    rows$ess[i] <- s$ess_bulk
    rows$rhat[i] <- s$rhat
  }
  rows
}
