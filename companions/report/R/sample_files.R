# The sample files of one segment. A file may end in half a row, or in half a round, while the chain runs or when it was
# killed: only whole rows of whole rounds are used.

# Lines that end in a newline.
whole_lines <- function(path) {
  if (!file.exists(path) || file.size(path) == 0) return(character(0))
  lines <- readLines(path, warn = FALSE, skipNul = TRUE)
  file <- file(path, "rb")
  on.exit(close(file))
  seek(file, file.size(path) - 1)
  if (!identical(readBin(file, "raw", 1), as.raw(10L))) lines <- lines[-length(lines)]
  lines
}

# Rows of gib.samples (I8, 3I4, G15.6, I11): data frame (round, k, r, c, value), and `id`, the number of the round's
# place in the file. Rounds whose last row is not that of the last residual variance are left out, the last matrix
# being `n_matrices` of order `nt`.
read_matrix_rows <- function(path, n_matrices, nt) {
  lines <- whole_lines(path)
  lines <- lines[nchar(lines) >= 35]
  number <- function(from, to) suppressWarnings(as.integer(substr(lines, from, to)))
  rows <- data.frame(round = number(1, 8), k = number(9, 12), r = number(13, 16), c = number(17, 20),
                     value = suppressWarnings(as.numeric(substr(lines, 21, 35))))
  if (nrow(rows) == 0) return(cbind(rows, id = integer(0)))
  last <- rows$k == n_matrices & rows$r == nt & rows$c == nt
  id <- cumsum(c(TRUE, utils::head(last, -1))) # a round ends with its last residual variance
  whole <- id %in% id[last]
  rows$id <- id
  rows[whole, ]
}

# Free-format rows as a matrix of `n` columns; NULL when the file is not there.
read_free_rows <- function(path, n) {
  if (!file.exists(path)) return(NULL)
  lines <- whole_lines(path)
  words <- scan(text = lines, what = "", quiet = TRUE)
  words <- words[seq_len(length(words) %/% n * n)]
  matrix(suppressWarnings(as.numeric(words)), ncol = n, byrow = TRUE)
}

# The samples of a segment: list(round, values (a row a sample, a column a name), models (dimensions of the matrices a
# row a sample), lik). Elements that a smaller model leaves out are NA.
read_segment <- function(m, path, analysis) {
  fit <- read_free_rows(file.path(path, "py"), m$nramat + 3L)
  n_matrices <- m$nramat + length(m$groups)
  parts <- list()
  if (is.na(analysis) || samples_matrices(analysis)) parts$matrices <- matrix_samples(m, path, n_matrices)
  if (has_chain_for_each_model(analysis)) parts$matrices <- last_model(parts$matrices)
  parts$mixtures <- mixture_samples(m, path)
  parts$thresholds <- threshold_samples(m, path)
  parts <- Filter(Negate(is.null), parts)
  rounds <- if (length(parts) > 0) parts[[1]]$round else if (is.null(fit)) numeric(0) else fit[, 1]
  n <- min(length(rounds), vapply(parts, function(p) length(p$round), 1))
  # a killed chain between models may lack the row of `py`, and with it the model, of its last samples
  if (moves_between_models(analysis)) n <- min(n, match(NA, match(rounds, fit[, 1]), n + 1L) - 1L)
  rounds <- rounds[seq_len(n)]
  values <- lapply(parts, function(p) p$values[seq_len(n), , drop = FALSE])
  at <- match(rounds, fit[, 1])
  list(round = rounds, values = if (length(values) > 0) do.call(cbind, unname(values)) else matrix(0, n, 0),
       models = if (is.null(fit)) NULL else fit[at, 2:(m$nramat + 2L), drop = FALSE],
       lik = if (is.null(fit)) NULL else fit[at, m$nramat + 3L])
}

# Every element of every matrix by its key, never by its place.
matrix_samples <- function(m, path, n_matrices) {
  rows <- read_matrix_rows(file.path(path, "gib.samples"), n_matrices, m$nt)
  keys <- element_keys(m)
  place <- match(paste(rows$k, rows$r, rows$c), keys$key)
  id <- match(rows$id, unique(rows$id))
  values <- matrix(NA_real_, length(unique(id)), nrow(keys), dimnames = list(NULL, keys$name))
  known <- !is.na(place)
  values[cbind(id[known], place[known])] <- rows$value[known]
  list(round = rows$round[!duplicated(rows$id)], values = values)
}

# The samples of the last model of an enumeration: each model has a chain of its own, and round numbers begin again.
last_model <- function(samples) {
  from <- max(1, which(diff(samples$round) <= 0) + 1L)
  kept <- seq_along(samples$round) >= from
  list(round = samples$round[kept], values = samples$values[kept, , drop = FALSE])
}

# All elements of all matrices: data frame (key, name, k, r, c), lower triangles.
element_keys <- function(m) {
  orders <- c(vapply(m$factors, function(f) f$order, 1L), rep(m$nt, length(m$groups)))
  rows <- lapply(seq_along(orders), function(k) {
    r <- rep(seq_len(orders[k]), seq_len(orders[k]))
    c <- sequence(seq_len(orders[k]))
    data.frame(key = paste(k, r, c), name = name_of_element(m, k, r, c), k = k, r = r, c = c)
  })
  do.call(rbind, rows)
}

# Proportions: of the second component of a mixed trait, called by its indicator trait; of positive records of a
# sequence; of a trait with a cured fraction. mix_pi has one number per trait.
mixture_samples <- function(m, path) {
  places <- mixture_places(m)
  rows <- if (nrow(places) > 0) read_free_rows(file.path(path, "mix_pi"), m$nt + 1L)
  if (is.null(rows)) return(NULL)
  values <- rows[, places$trait + 1L, drop = FALSE]
  colnames(values) <- paste0("pi[", places$name, "]")
  list(round = rows[, 1], values = values)
}

# Data frame (trait, name): the traits that carry a mixture or a sequence, and what their proportion is called.
mixture_places <- function(m) {
  mixed <- vapply(m$traits, function(t) t$mixture, TRUE)
  indicator <- vapply(m$traits, function(t) t$indicator, 1L)
  trait <- sort(union(which(mixed), drawn_by(m, "sequences")))
  if (length(drawn_by(m, c("mixtures", "sequences"))) == 0) trait <- integer(0)
  known <- mixed[trait] & indicator[trait] >= 1L & indicator[trait] <= m$nt
  data.frame(trait = trait, name = m$trait_names[ifelse(known, indicator[trait], trait)])
}

# Thresholds. Every row names the first ordered trait: the order of the rows separates the traits, each of which
# begins with threshold 1.
threshold_samples <- function(m, path) {
  ordered <- with_thresholds(m)
  if (length(ordered) == 0) return(NULL)
  rows <- read_free_rows(file.path(path, "threshold"), 4L)
  if (is.null(rows) || nrow(rows) == 0) return(NULL)
  starts <- which(rows[, 3] == 1)
  per_round <- if (length(starts) > length(ordered)) starts[length(ordered) + 1L] - 1L else nrow(rows)
  n <- nrow(rows) %/% per_round
  head <- rows[seq_len(per_round), , drop = FALSE]
  trait <- ordered[cumsum(head[, 3] == 1)]
  values <- matrix(rows[seq_len(n * per_round), 4], n, per_round, byrow = TRUE,
                   dimnames = list(NULL, paste0("threshold[", m$trait_names[trait], ",", head[, 3], "]")))
  list(round = rows[seq(1, by = per_round, length.out = n), 1], values = values)
}
