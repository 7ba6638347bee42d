# sol.samples, read as a stream: a few equations of every sample, without ever holding the whole file.

# Sample x equation matrix of the wanted equations of one segment, or NULL when the file does not have them all. Records:
# neq; then, for selector -1, a record a sample: round and all solutions; else a record an equation: round, equation,
# solution.
read_solution_samples <- function(path, selector, wanted) {
  if (!file.exists(path) || length(wanted) == 0) return(NULL)
  file <- file(path, "rb")
  on.exit(close(file))
  first <- next_record_of(file)
  if (is.null(first)) return(NULL)
  neq <- readBin(first, "integer", 1, 4L, endian = "little")
  if (selector == -1) samples_of_all(file, neq, wanted) else samples_of_list(file, wanted)
}

# The next whole record; NULL at the end of the file, or in a record that is not finished.
next_record_of <- function(file) {
  n <- readBin(file, "integer", 1, 4L, endian = "little")
  if (length(n) == 0) return(NULL)
  record <- readBin(file, "raw", n)
  close <- readBin(file, "integer", 1, 4L, endian = "little")
  if (length(record) < n || length(close) == 0 || close != n) NULL else record
}

samples_of_all <- function(file, neq, wanted) {
  if (any(wanted > neq)) return(NULL)
  rows <- list()
  while (!is.null(record <- next_record_of(file)))
    rows[[length(rows) + 1L]] <- readBin(record[-(1:4)], "double", neq, 8L, endian = "little")[wanted]
  if (length(rows) == 0) NULL else do.call(rbind, rows)
}

samples_of_list <- function(file, wanted) {
  values <- vector("list", length(wanted))
  while (!is.null(record <- next_record_of(file))) {
    at <- match(readBin(record[5:8], "integer", 1, 4L, endian = "little"), wanted)
    if (!is.na(at)) values[[at]] <- c(values[[at]], readBin(record[9:16], "double", 1, 8L, endian = "little"))
  }
  n <- min(lengths(values))
  if (n == 0) NULL else vapply(values, function(v) v[seq_len(n)], numeric(n))
}

# Draws of the solutions of `equations` (up to `most`) as draw x chain x equation over the joined chains; NULL when the
# samples were not kept. burn: samples to leave out at the head of each chain.
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
  draws <- array(NA_real_, c(n, length(chains), length(equations)), list(NULL, NULL, as.character(equations)))
  for (i in seq_along(chains)) draws[, i, ] <- utils::tail(matrix(chains[[i]], ncol = length(equations)), n)
  draws
}
