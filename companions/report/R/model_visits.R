# Chains between models: which models were visited, how often, and from where to where.

# list(visits, transitions, inclusion) of the joined chains; NULL when all samples are of one model and the
# chains could not leave it (`moving`: an analysis with moves between models).
# visits: data frame (model, samples, share_of_samples, by chain ..); a model is the dimension of every factor.
# transitions: data frame (from, to, times) of neighbouring samples.
# inclusion: data frame (factor, row, share_of_samples), how often a row was in the model.
model_visits <- function(m, chains, moving = FALSE) {
  chains <- Filter(function(chain) NROW(chain$models) > 0, chains)
  if (length(chains) == 0 || m$nramat == 0) return(NULL)
  words <- lapply(chains, function(chain) apply(chain$models[, seq_len(m$nramat), drop = FALSE], 1, paste,
    collapse = " "))
  all <- unlist(words)
  if (length(unique(all)) < 2 && !moving) return(NULL)
  models <- names(sort(table(all), decreasing = TRUE))
  by_chain <- do.call(cbind, lapply(words, function(w) as.numeric(table(factor(w, models))) / length(w)))
  colnames(by_chain) <- paste("chain", vapply(chains, function(chain) chain$number, 1L))
  samples <- as.numeric(table(factor(all, models)))
  list(visits = data.frame(model = models, samples = samples, share_of_samples = samples / sum(samples), by_chain,
    check.names = FALSE),
       transitions = transitions_of(words), inclusion = inclusion_of(m, chains), words = words)
}

# Models of an enumeration, each with a chain of its own: data frame (chain, model, samples) from lpm; NULL otherwise.
# The likelihoods of that file do not measure fit and are left out.
enumerated_models <- function(m, place) {
  if (!has_chain_for_each_model(analysis_of(place))) return(NULL)
  rows <- lapply(place$chains, function(chain) {
    lpm <- read_free_rows(file.path(chain$segments[[1]]$path, "lpm"), m$nramat + 5L)
    if (NROW(lpm) == 0) return(NULL)
    model <- apply(lpm[, seq_len(m$nramat), drop = FALSE], 1, paste, collapse = " ")
    data.frame(chain = chain$number, model = model, samples = lpm[, m$nramat + 2L])
  })
  do.call(rbind, rows)
}

transitions_of <- function(words) {
  pairs <- unlist(lapply(words, function(w) if (length(w) > 1) paste(utils::head(w, -1), utils::tail(w, -1),
    sep = " -> ")))
  if (length(pairs) == 0) return(data.frame(from = character(0), to = character(0), times = numeric(0)))
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
    words <- strsplit(trimws(grep("[TF]\\s*$", whole_lines(file.path(s$path, "zeinfo")), value = TRUE)), "[ ,]+")
    words <- words[lengths(words) == width]
    if (length(words) == 0) next
    w <- do.call(rbind, words)
    from <- apply(w[, 1L + seq_len(m$nramat), drop = FALSE], 1, paste, collapse = " ")
    to <- apply(w[, 2L + m$nramat + seq_len(m$nramat), drop = FALSE], 1, paste, collapse = " ")
    rows[[length(rows) + 1L]] <- data.frame(from = from, to = to, accepted = as.numeric(startsWith(w[, width], "T")))
  }
  moves <- do.call(rbind, rows)
  if (is.null(moves)) return(NULL)
  out <- stats::aggregate(list(accepted = moves$accepted, proposed = 1 + 0 * moves$accepted), moves[c("from", "to")],
    sum)
  out[order(out$from, out$to), c("from", "to", "proposed", "accepted")]
}
