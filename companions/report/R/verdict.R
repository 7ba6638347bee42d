# Whether the chains are long enough, in words.
#
# Enough: R-hat at most 1.01 and bulk and tail effective sample sizes of at least 400 for every name (Vehtari, Gelman,
# Simpson, Carpenter and Buerkner 2021, Bayesian Analysis 16:667-718).

enough_rhat <- 1.01
enough_ess <- 400

# list(good, lines (sentences), worst_rhat, worst_ess, more (rounds per chain that are missing, 0 when good), command).
# asked: names whose Monte Carlo errors are told.
verdict_of <- function(place, model, table, asked, n_chains, n_draws, rounds) {
  judged <- table[is.finite(table$ess_bulk) | is.finite(table$rhat), ]
  if (n_draws == 0) return(list(good = NA, lines = nothing_to_judge(place, 0), more = 0, command = NULL))
  lines <- paste0(count_of(n_chains, "chain"), " of ", count_of(n_draws, "sample"), ", one every ",
    count_of(rounds, "round"), ".")
  if (nrow(judged) == 0) return(list(good = NA, lines = c(lines, nothing_to_judge(place, n_draws)), more = 0,
    command = NULL))
  r <- judged[which.max(judged$rhat), ]
  judged$ess <- pmin(judged$ess_bulk, judged$ess_tail, na.rm = TRUE)
  e <- judged[which.min(judged$ess), ]
  good <- all(judged$rhat <= enough_rhat, na.rm = TRUE) && e$ess >= enough_ess && !anyNA(judged$rhat)
  lines <- c(lines, paste0("Largest R-hat ", format(round(r$rhat, 3), nsmall = 3), " (", r$name,
    "); smallest effective sample size ",
                           format(round(e$ess)), " (", e$name, ")."), error_lines(table, asked))
  if (n_chains == 1) lines <- c(lines,
    "One chain only: R-hat compares its halves, which can't show that chains disagree.")
  more <- if (good) 0 else rounds_missing(r$rhat, e$ess, n_draws * rounds)
  list(good = good, lines = lines, worst_rhat = r, worst_ess = e, more = more,
       command = if (good) NULL else command_for(place, model, more))
}

nothing_to_judge <- function(place, n_draws) {
  if (n_draws > 0) return("The (co)variances were given, not sampled: there is nothing to judge chains by.")
  analysis <- place$chains[[1]]$segments[[1]]$directives$analysis
  if (!is.na(analysis) &&
    analysis < 2) "Solutions of the equations with given (co)variances; no chain was run." else "There are no samples."
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
  paste0(rows$name, " ", vapply(rows$mean, number_text, ""), ", SD ", vapply(rows$sd, number_text, ""),
    ", Monte Carlo error ",
         vapply(rows$mcse, function(x) number_text(x, 2), ""), ".")
}

number_text <- function(x, digits = 4) {
  if (!is.finite(x)) return("")
  format(signif(x, digits), scientific = abs(x) >= 1e7 || (x != 0 && abs(x) < 1e-5), trim = TRUE)
}

# What to type for more rounds. Chains with ordered traits can't be continued: they are run anew.
command_for <- function(place, model, more) {
  rounds <- format(more, scientific = FALSE, trim = TRUE)
  if (!place$study) return(paste("zeph-chains run", place$shown, "--chains 4    (with", rounds,
    "more rounds in [run] of the description)"))
  if ("ordered" %in% model$trait_kinds)
    return(paste0("zeph-chains run WORK --into NEW    (ordered traits can't be continued: ask for ", rounds,
      " more rounds in [run] of the description)"))
  paste("zeph-chains continue", place$shown, "--rounds", rounds)
}

verdict_head <- function(v) {
  if (is.na(v$good)) return("No verdict on the chains.")
  if (v$good) "The chains are long enough."
  else paste0("Not yet: about ", format(v$more, big.mark = ",", scientific = FALSE, trim = TRUE),
    " more rounds per chain.")
}
