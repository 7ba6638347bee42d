# Solutions of all segments and chains, pooled.

# Rows of gibsol (I1, 2I3, I4, 3I12, 2G20.6): data frame (kind, trait, place, number, code, records, level, value, sd).
# kind 1: regression `number` of a trait, nested in class effect `place` (0: none), `code` the level; 2: class effect
# `place` of a trait; 3: factor `number`, row by trait and `place`.
read_gibsol <- function(path) read_gibsol_text(whole_lines(path))

read_gibsol_text <- function(lines) {
  kind <- substr(lines, 1, 1)
  lines <- lines[kind %in% c("1", "2", "3")]
  whole <- function(from, to) suppressWarnings(as.integer(substr(lines, from, to)))
  real <- function(from, to) suppressWarnings(as.numeric(substr(lines, from, to)))
  data.frame(kind = whole(1, 1), trait = whole(2, 4), place = whole(5, 7), number = whole(8, 11), code = whole(12, 23),
             records = whole(24, 35), level = whole(36, 47), value = real(48, 67), sd = real(68, 87))
}

# Equation numbers of the rows, from the offsets of the model. The rows of a level are in the order of its equations.
equations_of <- function(m, rows) {
  out <- integer(nrow(rows))
  one <- rows$kind == 1
  out[one] <- m$NBEGREG[cbind(rows$trait[one], rows$number[one])] + pmax(rows$code[one], 1L)
  two <- rows$kind == 2
  out[two] <- m$NBEGF[cbind(rows$trait[two], rows$place[two])] + rows$level[two]
  for (f in m$factors) {
    three <- which(rows$kind == 3 & rows$number == f$number)
    out[three] <- m$NBEGRA[f$number] + seq_along(three)
  }
  out
}

# Pooled over segments by their numbers of samples: value, and SD from the variance within plus that between the parts.
# list(rows, parts (segments in it), samples, missing (texts)); NULL when no segment has ended with solutions.
pool_solutions <- function(m, place, chains, remarks) {
  total <- NULL
  samples <- numeric(0)
  for (i in seq_along(place$chains)) for (j in seq_along(place$chains[[i]]$segments)) {
    s <- place$chains[[i]]$segments[[j]]
    if (!s$counts) next
    path <- file.path(s$path, "gibsol")
    state <- chains[[i]]$segments$state[j]
    n <- max(1, samples_in(m, s))
    if (!file.exists(path) || file.size(path) == 0) {
      # a run that was stopped in its burn-in has ended without solutions: that it has no samples is said already
      if (state != "finished")
        remarks$add("no solutions of chain ", place$chains[[i]]$number, ", segment ", s$number,
          ": its run has not ended (", state, ")")
      next
    }
    total <- add_part(total, read_gibsol(path), n, path)
    samples <- c(samples, n)
  }
  if (is.null(total)) return(NULL)
  rows <- total$rows
  N <- sum(samples)
  rows$value <- total$sum / N
  if (N > 1) rows$sd <- sqrt(pmax(0, (total$within + total$squares - N * rows$value^2) / (N - 1)))
  rows$equation <- equations_of(m, rows)
  list(rows = rows, parts = length(samples), samples = N)
}

# Running sums: of n m, of n m^2 and of (n - 1) sd^2.
add_part <- function(total, rows, n, path) {
  if (is.null(total)) total <- list(rows = rows, sum = 0, squares = 0, within = 0)
  if (nrow(rows) != nrow(total$rows))
    stop_report(path, " has ", nrow(rows), " rows, those of the segments before it have ", nrow(total$rows),
                ": are they of one model?", status = 1L)
  sd <- ifelse(is.na(rows$sd), 0, rows$sd)
  total$sum <- total$sum + n * rows$value
  total$squares <- total$squares + n * rows$value^2
  total$within <- total$within + (n - 1) * sd^2
  total
}

# Sample rounds of a segment: rows of py.
samples_in <- function(m, s) length(whole_lines(file.path(s$path, "py")))

# ---- breeding values and other random effects

# Data frame of factor k, a row a level and matrix row: level, identification, row, value, sd, accuracy, F, records.
# accuracy = sqrt(1 - SD^2 / ((1 + F) s2)), s2 the variance of the row (NA: none).
effects_of_factor <- function(m, solutions, variances, k) {
  f <- m$factors[[k]]
  rows <- solutions$rows[solutions$rows$kind == 3 & solutions$rows$number == k, ]
  if (nrow(rows) == 0) return(NULL)
  names <- read_levels(m, k)
  row <- (seq_len(nrow(rows)) - 1L) %% f$order + 1L
  at <- if (is.null(names)) NA else match(rows$level, names$level)
  inbreeding <- if (is.null(names)) rep(NA_real_, nrow(rows)) else names$F[at]
  s2 <- variances[name_of_element(m, k, row, row)]
  reliability <- 1 - rows$sd^2 / ((1 + ifelse(is.na(inbreeding), 0, inbreeding)) * s2)
  data.frame(level = rows$level, identification = if (is.null(names)) as.character(rows$code)
    else names$identification[at],
             row = f$rows$label[row], value = rows$value, sd = rows$sd, accuracy = sqrt(pmax(0, reliability)),
             F = inbreeding, records = rows$records, row.names = NULL)
}
