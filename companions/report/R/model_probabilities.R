# Posterior probabilities of models, from exact chains that move between them.

# The visits of exact chains (see model_visits): share_of_samples becomes posterior_probability, in `inclusion` too, and
# visits gets for each model, of its indicator (1 in samples of the model, else 0):
#   mcse               Monte Carlo standard error of its mean
#   rhat               split R-hat
#   changes            how often neighbouring samples of a chain differ in it
#   prior_probability  product over the factors of the prior probabilities of their rows
#   bayes_factor       of the model against all others: posterior odds / prior odds; NA where one of the odds is none
# `never`: data frame (model, prior_probability) of the models without a sample; NULL where there are thousands.
# weights: of read_sampler_words().
model_probabilities <- function(visits, weights) {
  if (is.null(visits)) return(NULL)
  v <- visits$visits
  names(v)[names(v) == "share_of_samples"] <- "posterior_probability"
  names(visits$inclusion)[names(visits$inclusion) == "share_of_samples"] <- "posterior_probability"
  own <- do.call(rbind, lapply(v$model, function(model) indicator_summary(1 * (visits$words == model))))
  own$prior_probability <- prior_of_models(v$model, weights)
  own$bayes_factor <- bayes_factor(v$posterior_probability, own$prior_probability)
  visits$visits <- cbind(v[1:3], own, v[-(1:3)])
  visits$never <- never_visited(v$model, weights)
  visits
}

# Prior probabilities of models ("2 3"); weights: a list of the probabilities of 1, 2, .. rows by factor.
prior_of_models <- function(models, weights) {
  rows <- strsplit(models, " ", fixed = TRUE)
  vapply(rows, function(row) prod(mapply(function(w, n) w[n], weights, as.integer(row))), 1)
}

most_models <- 1000 # that are looked through for those never visited

never_visited <- function(models, weights) {
  if (prod(lengths(weights)) > most_models) return(NULL)
  all <- Reduce(function(words, w) paste(rep(words, each = length(w)), seq_along(w)), weights, "")
  never <- setdiff(trimws(all), models)
  data.frame(model = never, prior_probability = prior_of_models(never, weights))
}

# One row (mcse, rhat, changes) of the indicator x, a matrix sample x chain. Without variation, or with fewer than four
# samples a chain, mcse and rhat are NA. On the values themselves: ranks of two values are those values again.
indicator_summary <- function(x) {
  out <- data.frame(mcse = NA_real_, rhat = NA_real_, changes = sum(abs(diff(x))))
  if (nrow(x) < 4 || all(x == x[1])) return(out)
  suppressWarnings({ # very short chains: ESS is capped
    out$mcse <- posterior::mcse_mean(x)
    out$rhat <- posterior::rhat_basic(x)
  })
  out
}

bayes_factor <- function(posterior, prior) {
  odds <- function(p) ifelse(p > 0 & p < 1, p / (1 - p), NA)
  odds(posterior) / odds(prior)
}
