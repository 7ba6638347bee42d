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

# Equation numbers of the rows, from the offsets of the model. The rows of a level stand in the order of its equations.
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
    n <- max(1, samples_in(m, s))
    if (!file.exists(path) || file.size(path) == 0) {
      remarks$add("no solutions of chain ", place$chains[[i]]$number, ", segment ", s$number,
        ": its run has not ended (",
                  chains[[i]]$segments$state[j], ")")
      next
    }
    total <- add_part(total, read_gibsol(path), n)
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
add_part <- function(total, rows, n) {
  if (is.null(total)) total <- list(rows = rows, sum = 0, squares = 0, within = 0)
  if (nrow(rows) != nrow(total$rows))
    stop_report("gibsol differs in length between segments: are they of one model?", status = 1L)
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
# accuracy = sqrt(1 - SD^2 / ((1 + F) s2)), s2 the posterior mean of the row's variance; none for curves.
effects_of_factor <- function(m, solutions, variances, k) {
  f <- m$factors[[k]]
  rows <- solutions$rows[solutions$rows$kind == 3 & solutions$rows$number == k, ]
  if (nrow(rows) == 0) return(NULL)
  names <- read_levels(m, k)
  row <- (seq_len(nrow(rows)) - 1L) %% f$order + 1L
  at <- if (is.null(names)) NA else match(rows$level, names$level)
  F <- if (is.null(names)) rep(NA_real_, nrow(rows)) else names$F[at]
  s2 <- variances[name_of_element(m, k, row, row)]
  reliability <- 1 - rows$sd^2 / ((1 + ifelse(is.na(F), 0, F)) * s2)
  data.frame(level = rows$level, identification = if (is.null(names)) as.character(rows$code)
    else names$identification[at],
             row = f$rows$label[row], value = rows$value, sd = rows$sd, accuracy = sqrt(pmax(0, reliability)), F = F,
             records = rows$records, row.names = NULL)
}

# ---- fixed part

# Data frame (trait, effect, level, records, kind, value, sd): kind "level mean" (the effect carries the mean of the
# trait), "contrast" (against the levels without equation) or "slope". A contrast against a level with an equation has
# no SD of its own here, since it needs the covariance of the two: see contrast_draws.
fixed_effects <- function(m, solutions) {
  rows <- solutions$rows[solutions$rows$kind < 3, ]
  if (nrow(rows) == 0) return(NULL)
  codes <- fixed_codes(m)
  words <- lapply(seq_len(nrow(rows)), function(i) fixed_words(m, codes, rows[i, ]))
  out <- do.call(rbind, words)
  out$records <- rows$records
  out$value <- rows$value
  out$sd <- rows$sd
  out$equation <- rows$equation
  out$reference <- vapply(seq_len(nrow(out)), function(i) reference_of(m, codes, out[i, ]), "")
  out
}

fixed_codes <- function(m) {
  path <- file.path(m$directory, "codes_fixed.csv")
  if (!m$labelled || !file.exists(path)) return(NULL)
  utils::read.csv(path, colClasses = c(identification = "character", effect = "character", trait = "character"))
}

fixed_words <- function(m, codes, row) {
  trait <- m$trait_names[row$trait]
  model <- m$traits[[row$trait]]
  if (row$kind == 1) {
    level <- if (row$place > 0) level_word(codes, trait, row$place, row$code) else ""
    return(data.frame(trait = trait, effect = regression_word(m, model, row), level = level, kind = "slope"))
  }
  effect <- if (is.null(codes)) model$effects$name[row$place] else effect_word(codes, trait, row$place, model)
  data.frame(trait = trait, effect = effect, level = level_word(codes, trait, row$place, row$level, row$code),
    kind = "level")
}

regression_word <- function(m, model, row) {
  told <- if (m$labelled) Filter(function(e) e$part != "factor" && e$first <= row$equation &&
    row$equation < e$first + e$equations, m$names$equations_of)
  if (length(told) > 0) told[[1]]$name else model$regressions$name[row$number]
}

effect_word <- function(codes, trait, place, model) {
  at <- which(codes$trait == trait & codes$number == place)
  if (length(at) > 0) codes$effect[at[1]] else model$effects$name[place]
}

level_word <- function(codes, trait, place, level, code = level) {
  at <- if (is.null(codes)) integer(0) else which(codes$trait == trait & codes$number == place & codes$level == level)
  if (length(at) > 0) codes$identification[at[1]] else as.character(code)
}

# What the solution of a class level is measured from: levels that zeph-prepare left without equation, by prepare.txt.
reference_of <- function(m, codes, row) {
  if (row$kind != "level" || !m$labelled) return("")
  path <- file.path(m$directory, "prepare.txt")
  if (!file.exists(path)) return("")
  lines <- readLines(path, warn = FALSE)
  from <- match(paste0("Fixed part of ", row$trait, ": level, records, kept or not, why"), lines)
  if (is.na(from)) return("")
  block <- lines[-seq_len(from)]
  block <- block[seq_len(match(TRUE, !startsWith(block, "  "), nomatch = length(block) + 1L) - 1L)]
  of_effect <- block[startsWith(trimws(block), paste0(row$effect, ":"))]
  gone <- of_effect[!grepl("  kept$", of_effect)]
  paste(sub("^[^:]*:(.*?) {2,}.*$", "\\1", trimws(gone), perl = TRUE), collapse = ", ")
}
