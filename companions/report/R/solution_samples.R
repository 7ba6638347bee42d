# sol.samples, read as a stream: a few equations of every sample, without ever holding the whole file.

block_bytes <- 2^24 # read at a time

# Sample x equation matrix of those of the wanted equations that the file has, named by equation; NULL without any.
# Records: neq (4 bytes); then, for selector -1, a record a sample: round and all solutions; else a record an equation:
# round, equation, solution.
read_solution_samples <- function(path, selector, wanted) {
  if (!file.exists(path) || length(wanted) == 0) return(NULL)
  file <- file(path, "rb")
  on.exit(close(file))
  first <- readBin(file, "integer", 3, 4L, endian = "little")
  if (length(first) < 3) return(NULL)
  neq <- first[2]
  wanted <- wanted[wanted <= neq]
  if (selector == -1) samples_of_all(file, neq, wanted) else samples_of_list(file, wanted)
}

# Calls take(block) for blocks of whole records of `size` bytes as raw matrices, a record a column, frames cut off;
# ends at the first record that is cut or of another length.
each_block <- function(file, size, take) {
  frame <- writeBin(as.integer(size), raw(), endian = "little")
  at_once <- max(1, block_bytes %/% (size + 8))
  repeat {
    bytes <- readBin(file, "raw", at_once * (size + 8))
    n <- length(bytes) %/% (size + 8)
    if (n == 0) break
    block <- matrix(bytes[seq_len(n * (size + 8))], nrow = size + 8)
    good <- colSums(block[1:4, , drop = FALSE] == frame & block[size + 5:8, , drop = FALSE] == frame) == 4
    whole <- sum(cumprod(good))
    if (whole > 0) take(block[4 + seq_len(size), seq_len(whole), drop = FALSE])
    if (whole < at_once) break
  }
}

doubles_at <- function(block, from) readBin(as.vector(block[from + 0:7, ]), "double", ncol(block), 8L,
  endian = "little")

samples_of_all <- function(file, neq, wanted) {
  parts <- list()
  each_block(file, 4 + 8 * neq, function(block) {
    columns <- vapply(wanted, function(e) doubles_at(block, 5 + 8 * (e - 1)), numeric(ncol(block)))
    parts[[length(parts) + 1L]] <<- matrix(columns, ncol = length(wanted))
  })
  if (length(parts) == 0) return(NULL)
  values <- do.call(rbind, parts)
  colnames(values) <- wanted
  values
}

samples_of_list <- function(file, wanted) {
  equation <- list()
  value <- list()
  each_block(file, 16, function(block) {
    e <- readBin(as.vector(block[5:8, ]), "integer", ncol(block), 4L, endian = "little")
    keep <- e %in% wanted
    equation[[length(equation) + 1L]] <<- e[keep]
    value[[length(value) + 1L]] <<- doubles_at(block, 9)[keep]
  })
  parts <- split(unlist(value), unlist(equation))
  if (length(parts) == 0) return(NULL)
  n <- min(lengths(parts))
  vapply(parts, function(v) v[seq_len(n)], numeric(n))
}

# Draws of the solutions of `equations` (up to `most`), of those that were kept, as draw x chain x equation over the
# joined chains, the last `lengths_kept` of each; NULL when no samples were kept.
solution_draws <- function(m, place, equations, lengths_kept, most = 200L) {
  if (m$n_sol_cv == 0 || length(equations) == 0) return(NULL)
  equations <- utils::head(equations, most)
  chains <- lapply(place$chains, function(chain) {
    parts <- lapply(Filter(function(s) s$counts, chain$segments),
                    function(s) read_solution_samples(file.path(s$path, "sol.samples"), m$n_sol_cv, equations))
    do.call(rbind, parts)
  })
  chains <- Filter(Negate(is.null), chains)
  if (length(chains) == 0) return(NULL)
  n <- min(vapply(chains, NROW, 1L), lengths_kept)
  found <- Reduce(intersect, lapply(chains, colnames))
  draws <- array(NA_real_, c(n, length(chains), length(found)), list(NULL, NULL, found))
  for (i in seq_along(chains)) draws[, i, ] <- utils::tail(chains[[i]][, found, drop = FALSE], n)
  draws
}
