# Posterior probabilities of the components of mixtures, record by record.

# Data frame (record, trait, name, probability), from mixz_prob pooled over segments and chains by their numbers of
# samples; NULL when no segment wrote it. The first row of the file holds counts of the run.
read_memberships <- function(m, place) {
  places <- mixture_places(m)
  if (nrow(places) == 0) return(NULL)
  total <- 0
  n_all <- 0
  ids <- NULL
  for (chain in place$chains) for (s in chain$segments) {
    path <- file.path(s$path, "mixz_prob")
    if (!s$counts || !file.exists(path)) next
    lines <- whole_lines(path)[-1]
    values <- matrix(scan(text = lines, quiet = TRUE), ncol = m$nt + 1L, byrow = TRUE)
    n <- max(1, samples_in(m, s))
    ids <- values[, 1]
    total <- total + n * values[, places$trait + 1L, drop = FALSE]
    n_all <- n_all + n
  }
  if (n_all == 0) return(NULL)
  data.frame(record = rep(seq_along(ids), nrow(places)), first_integer = rep(ids, nrow(places)),
             name = rep(places$name, each = length(ids)), probability = as.vector(total / n_all))
}
