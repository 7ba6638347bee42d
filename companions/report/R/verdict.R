# Whether the chains are long enough, in words.
#
# Enough: R-hat at most 1.01 and bulk and tail effective sample sizes of at least 400 for every name (Vehtari, Gelman,
# Simpson, Carpenter and Buerkner 2021, Bayesian Analysis 16:667-718).

enough_rhat <- 1.01
enough_ess <- 400

# list(good, lines (sentences), worst_rhat, worst_ess, more (rounds per chain that are missing, 0 when good), command).
# asked: names whose Monte Carlo errors are reported. sampler: of read_sampler_words().
verdict_of <- function(place, model, table, asked, n_chains, n_draws, rounds, sampler = plain_sampler) {
  none <- function(...) list(good = NA, lines = c(...), more = 0, command = NULL)
  if (n_draws == 0) return(none(nothing_to_judge(place, 0)))
  size <- paste0(count_of(n_chains, "chain"), " of ", count_of(n_draws, "sample"), ", one every ",
                 count_of(rounds, "round"), ".")
  judged <- table[is.finite(table$ess_bulk) | is.finite(table$ess_tail), ]
  if (nrow(judged) == 0) return(none(size, nothing_to_judge(place, n_draws)))
  judged$ess <- pmin(judged$ess_bulk, judged$ess_tail, na.rm = TRUE)
  r <- judged[which.max(replace(judged$rhat, is.na(judged$rhat), -Inf)), ] # NA: no chain moves by itself
  e <- judged[which.min(judged$ess), ]
  good <- all(judged$rhat <= enough_rhat) && e$ess >= enough_ess
  good <- isTRUE(good)
  more <- if (good) 0 else rounds_missing(r$rhat, e$ess, n_draws * rounds)
  largest <- if (is.na(r$rhat)) "No R-hat: within each chain nothing moves; "
             else paste0("Largest R-hat ", formatC(r$rhat, digits = 3, format = "f"), " (", r$name, "); ")
  worst <- paste0(largest, "smallest effective sample size ", round(e$ess), " (", e$name, ").")
  single <- if (n_chains == 1) "One chain only: R-hat compares its halves, which can't show that chains disagree."
  last <- if (has_chain_for_each_model(analysis_of(place)))
    "Each model has a chain of its own; the verdict is on the last one."
  list(good = good, lines = c(size, worst, error_lines(table, asked), single, last), worst_rhat = r, worst_ess = e,
    more = more,
       command = if (good) NULL else command_for(place, model, more, sampler))
}

nothing_to_judge <- function(place, n_draws) {
  if (n_draws > 0 && samples_matrices(analysis_of(place)))
    return("Too few samples to judge the chains: let them run longer.")
  if (n_draws > 0) return("The (co)variances were given, not sampled: there is nothing by which to judge the chains.")
  if (gives_solutions_only(analysis_of(place)))
    return("Solutions of the equations with given (co)variances; no chain was run.")
  "There are no samples."
}

# ESS grows with the length of the chains; R-hat above its limit asks for twice the length at least.
rounds_missing <- function(rhat, ess, done) {
  more <- done * (enough_ess / max(ess, 1) - 1) * 1.1
  if (!is.finite(rhat) || rhat > enough_rhat) more <- max(more, done)
  ceiling(signif(max(more, done * 0.1), 2))
}

# Monte Carlo error of what was asked for, at most eight names.
error_lines <- function(table, asked) {
  rows <- utils::head(table[match(asked, table$name, nomatch = 0), ], 8)
  rows <- rows[is.finite(rows$mcse), ]
  if (nrow(rows) == 0) return(character(0))
  text <- function(x, digits) vapply(x, number_text, "", digits = digits)
  paste0(rows$name, " ", text(rows$mean, 4), ", SD ", text(rows$sd, 4), ", Monte Carlo error ", text(rows$mcse, 2), ".")
}

# The models of at least a tenth of the posterior probability, at most four.
model_lines <- function(visits) {
  v <- visits$visits
  if (is.null(v$posterior_probability)) return(character(0))
  v <- utils::head(v[v$posterior_probability >= 0.1, ], 4)
  error <- ifelse(is.na(v$mcse), "", paste0(", Monte Carlo error ", vapply(v$mcse, number_text, "", digits = 2)))
  paste0("Model ", v$model, ": posterior probability ", vapply(v$posterior_probability, number_text, ""), error, ".")
}

waic_lines <- function(waic) {
  if (is.null(waic)) return(character(0))
  w <- whole_waic(waic)
  if (!is.finite(w$elpd_waic)) return("No WAIC: some unit of the data has no log density.")
  paste0("elpd_waic ", number_text(w$elpd_waic, 6), ", standard error ", number_text(w$se), "; p_waic ",
         number_text(w$p_waic), ".")
}

number_text <- function(x, digits = 4) {
  if (!is.finite(x)) return("")
  format(signif(x, digits), scientific = abs(x) >= 1e7 || (x != 0 && abs(x) < 1e-5), trim = TRUE)
}

# What to type for more rounds. Chains that save their whole state can all be continued; of others those with ordered
# traits, those over models and exact ones can't be: they are run again from scratch.
command_for <- function(place, model, more, sampler) {
  rounds <- format(more, scientific = FALSE, trim = TRUE)
  asked <- paste(rounds, "more rounds in [run] of the description)")
  if (!place$study) return(paste("zeph-chains run", place$shown, "--chains 4    (with", asked))
  kept <- !sampler$exact && length(with_thresholds(model)) == 0 && !has_several_models(analysis_of(place))
  if (!sampler$state && !kept)
    return(paste("zeph-chains run WORK --into NEW    (such chains can't be continued: ask for", asked))
  paste("zeph-chains continue", place$shown, "--rounds", rounds)
}

verdict_head <- function(v) {
  if (is.na(v$good)) return("No verdict on the chains.")
  if (v$good) return("The chains are long enough.")
  paste0("Not yet: about ", whole_number(v$more), " more rounds per chain.")
}
