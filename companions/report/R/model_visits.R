# Chains between models: which models were visited, how often, and from where to where.

# list(visits, transitions, inclusion, words) of the joined chains; NULL when all samples are of one model and the
# chains could not leave it (`moving`: an analysis with moves between models).
# visits: data frame (model, samples, share_of_samples, by chain ..); a model is the dimension of every factor.
# transitions: data frame (from, to, times) of neighbouring samples.
# inclusion: data frame (factor, row, share_of_samples), how often a row was in the model.
# words: the model of each sample, a matrix sample x chain.
model_visits <- function(m, chains, moving = FALSE) {
  chains <- Filter(function(chain) NROW(chain$models) > 0, chains)
  if (length(chains) == 0 || m$nramat == 0) return(NULL)
  words <- do.call(cbind, lapply(chains, function(chain) words_of_models(m, chain$models)))
  all <- as.vector(words)
  if (length(unique(all)) < 2 && !moving) return(NULL)
  models <- names(sort(table(all), decreasing = TRUE))
  by_chain <- vapply(models, function(model) colMeans(words == model), numeric(ncol(words)))
  by_chain <- matrix(by_chain, length(models), byrow = TRUE)
  colnames(by_chain) <- paste("chain", vapply(chains, function(chain) chain$number, 1L))
  samples <- as.numeric(table(factor(all, models)))
  list(visits = data.frame(model = models, samples = samples, share_of_samples = samples / sum(samples), by_chain,
    check.names = FALSE),
       transitions = transitions_of(words), inclusion = inclusion_of(m, chains), words = words)
}

# The samples of the chains that the tables use, as many of each: their `models`.
models_in_use <- function(chains, joined) {
  lapply(chains[joined$used], function(chain) {
    chain$models <- chain$models[seq_len(joined$length), , drop = FALSE]
    chain
  })
}

# A model in a word: the dimensions of the factors, "2 3".
words_of_models <- function(m, dimensions) {
  apply(dimensions[, seq_len(m$nramat), drop = FALSE], 1, paste, collapse = " ")
}

# Models of an enumeration, each with a chain of its own: data frame (chain, model, samples) from lpm, and elpd_waic,
# p_waic and mean_py, the mean of minus the log density of the data, where the chains are exact; NULL otherwise. The
# likelihoods of other chains do not measure fit and are left out.
enumerated_models <- function(m, place, exact) {
  if (!has_chain_for_each_model(analysis_of(place))) return(NULL)
  rows <- lapply(place$chains, function(chain) {
    lpm <- read_free_rows(file.path(chain$segments[[1]]$path, "lpm"), m$nramat + 5L)
    if (NROW(lpm) == 0) return(NULL)
    after <- function(place) lpm[, m$nramat + 1L + place]
    out <- data.frame(chain = chain$number, model = words_of_models(m, lpm), samples = after(1L))
    if (exact) cbind(out, elpd_waic = after(2L), p_waic = after(3L), mean_py = after(4L)) else out
  })
  do.call(rbind, rows)
}

transitions_of <- function(words) {
  n <- nrow(words)
  pairs <- paste(words[-n, ], words[-1, ], sep = " -> ")
  if (n < 2) return(data.frame(from = character(0), to = character(0), times = numeric(0)))
  counts <- sort(table(pairs), decreasing = TRUE)
  parts <- strsplit(names(counts), " -> ", fixed = TRUE)
  data.frame(from = vapply(parts, `[`, "", 1), to = vapply(parts, `[`, "", 2), times = as.numeric(counts))
}

inclusion_of <- function(m, chains) {
  models <- do.call(rbind, lapply(chains, function(chain) chain$models))
  rows <- lapply(m$factors, function(f) data.frame(factor = f$name, row = f$rows$label,
    share_of_samples = vapply(f$rows$row, function(r) mean(models[, f$number] >= r), 1)))
  do.call(rbind, rows)
}

# Draws of the dimensions of the factors, so that R-hat and ESS judge the visits too: draw x chain x factor.
dimension_draws <- function(m, chains, used, n) {
  draws <- array(NA_real_, c(n, length(used), m$nramat), list(NULL, NULL,
    paste0("dimension[", vapply(m$factors, function(f) f$name, ""), "]")))
  for (i in seq_along(used)) draws[, i, ] <- chains[[used[i]]]$models[seq_len(n), seq_len(m$nramat)]
  draws
}

# Moves proposed and accepted, from zeinfo: the lines of a round that end in T or F. Data frame (chain, from, to,
# proposed, accepted); the rounds of the burn-in are not in the file.
read_moves <- function(m, place) {
  rows <- list()
  width <- 2L * (m$nramat + 1L) + 7L
  for (chain in place$chains) for (s in chain$segments) {
    w <- rows_of_moves(s$path, width)
    if (is.null(w)) next
    rows[[length(rows) + 1L]] <- data.frame(from = words_of_models(m, w[, -1L, drop = FALSE]),
      to = words_of_models(m, w[, -seq_len(m$nramat + 2L), drop = FALSE]), accepted = accepted_of(w))
  }
  moves_counted(do.call(rbind, rows))
}

# The same of exact chains, which have a line a proposal: round, factor, its rows in force, proposed, three terms, log
# ratio, log uniform, T or F. Data frame (factor, from, to, proposed, accepted).
read_exact_moves <- function(m, place) {
  rows <- list()
  names <- vapply(m$factors, function(f) f$name, "")
  for (chain in place$chains) for (s in chain$segments) {
    w <- rows_of_moves(s$path, 10L)
    if (is.null(w)) next
    rows[[length(rows) + 1L]] <- data.frame(factor = names[match(w[, 2], seq_along(names))], from = w[, 3], to = w[, 4],
      accepted = accepted_of(w))
  }
  moves_counted(do.call(rbind, rows))
}

# Lines of zeinfo of `width` words that end in T or F, a matrix of texts; NULL when there are none.
rows_of_moves <- function(path, width) {
  words <- strsplit(trimws(grep("[TF]\\s*$", whole_lines(file.path(path, "zeinfo")), value = TRUE)), "[ ,]+")
  do.call(rbind, words[lengths(words) == width])
}

accepted_of <- function(w) as.numeric(startsWith(w[, ncol(w)], "T"))

# Numbers of equal moves, `accepted` being the last column.
moves_counted <- function(moves) {
  if (is.null(moves)) return(NULL)
  kind <- moves[-ncol(moves)]
  out <- stats::aggregate(list(proposed = 1 + 0 * moves$accepted, accepted = moves$accepted), kind, sum)
  out <- out[do.call(order, unname(as.list(out[names(kind)]))), ]
  rownames(out) <- NULL
  out
}
