# The optional file `sampler` of a work directory, as far as the report asks for it.

plain_sampler <- list(exact = FALSE, state = FALSE, moves = FALSE) # without the file

# list(exact, state, moves, weights): whether the chains draw every step from its full conditional distribution, save
# their whole state, and take the moves that mix; weights, a list with an element for each factor: prior probabilities
# of 1, 2, .. rows of it, alike without a line `model_prior k w1 .. wq`. Stops on such a line that does not fit the
# model.
read_sampler_words <- function(m) {
  path <- file.path(m$directory, "sampler")
  out <- c(plain_sampler, list(weights = lapply(m$factors, function(f) rep(1 / f$order, f$order))))
  if (!file.exists(path)) return(out)
  lines <- strsplit(trimws(sub("#.*", "", readLines(path, warn = FALSE, skipNul = TRUE))), "[ \t]+")
  first <- vapply(lines, function(words) if (length(words) > 0) words[1] else "", "")
  for (word in names(plain_sampler)) out[[word]] <- word %in% first
  for (i in which(first == "model_prior")) {
    values <- suppressWarnings(as.numeric(lines[[i]][-1]))
    k <- values[1]
    fits <- k %in% seq_along(m$factors) && length(values) == m$factors[[k]]$order + 1L && all(is.finite(values)) &&
      all(values > 0)
    if (!fits) stop_report("damaged line ", i, " in ", path)
    out$weights[[k]] <- values[-1] / sum(values[-1])
  }
  out
}
