# Sections three to eight of the page. Each gives tags.

top_rows <- 20L     # of a list of levels or records
fixed_rows <- 100L  # of fixed effects

# ---- (co)variances and what is derived from them

variance_section <- function(r) {
  title <- "(Co)variances and derived quantities"
  if (nrow(r$table) == 0) return(section("variances", title, tags$p("No samples of (co)variances: they were given.")))
  alive <- r$table[!r$table$name %in% r$fixed_names, ]
  fixed <- r$table[r$table$name %in% r$fixed_names, ]
  asked <- alive$name %in% asked_formulas(r$model)$name
  dimension <- grepl("^dimension\\[", alive$name)
  derived <- alive$name %in% r$formulas$name & !asked
  block <- function(rows, head) if (any(rows)) titled(head, summary_block(alive[rows, ]))
  absent <- if (anyNA(r$draws))
    tags$p("What some model leaves out is summarised over the draws of the models with it (column draws).")
  section("variances", title, block(asked, "Asked for"), block(!derived & !asked & !dimension, "Sampled"),
          block(derived, "Derived on each draw"), formula_block(r),
          if (nrow(fixed) > 0) sentence("The same in every draw: ", fixed_values(fixed), "."), absent, curve_block(r))
}

formula_block <- function(r) {
  f <- r$formulas[r$formulas$name %in% r$table$name, c("name", "formula")]
  if (nrow(f) == 0) return(NULL)
  tags$details(open = if (nrow(f) <= 12) NA, tags$summary("how they are derived"), html_table(f, class = "words"))
}

curve_block <- function(r) {
  if (is.null(r$curves)) return(NULL)
  titled("Random regressions along the covariable", curve_pictures(r$curves),
         tags$p("Lines are posterior means, bands the central 95 % of the draws."))
}

# ---- pictures

picture_section <- function(r) {
  names <- pictured_names(r$table, r$asked)
  if (length(names) == 0) return(section("pictures", "Pictures", tags$p("No draws to plot.")))
  left <- sum(is.finite(r$table$ess_bulk)) - length(names)
  rest <- if (left > 0)
    paste0(" ", length(names), " names are shown, those asked for and the worst first; --csv has the draws of all.")
  remark <- sentence("Drag in a trace to zoom, double click to go back.", rest)
  one <- function(name) pictures_of_name(r$draws, name, r$joined$used, r$joined$rounds)
  section("pictures", "Pictures", remark, lapply(names, one))
}

# ---- solutions

solution_section <- function(r) {
  title <- "Fixed effects and breeding values"
  if (is.null(r$solutions)) return(section("solutions", title, tags$p("No run has ended with solutions yet.")))
  pooled <- sentence("Pooled over ", count_of(r$solutions$parts, "segment"), " by their numbers of samples, ",
                     whole_number(r$solutions$samples), " in all.")
  factors <- lapply(names(r$effects), function(name) factor_block(name, r$effects[[name]]))
  section("solutions", title, pooled, fixed_block(r$fixed), factors)
}

fixed_block <- function(f) {
  if (is.null(f)) return(NULL)
  columns <- c(trait = "trait", effect = "effect", level = "level", records = "records", value = "mean", sd = "SD",
               contrast = "contrast", contrast_sd = "its SD", against = "against level")
  table <- html_table(utils::head(f[names(columns)], fixed_rows), columns)
  cut <- if (nrow(f) > fixed_rows) sentence("The first ", fixed_rows, " of ", nrow(f), " rows; all in --csv.")
  unknown <- if (any(!is.na(f$contrast) & is.na(f$contrast_sd)))
    tags$p("A contrast without SD needs the samples of the solutions: [keep] solutions in the description.")
  titled("Fixed effects", table, cut, unknown)
}

# The highest levels of each row of a factor.
factor_block <- function(name, effects) {
  if (is.null(effects)) return(NULL)
  heads <- c(identification = "identification", value = "mean", sd = "SD", accuracy = "accuracy", F = "F",
             records = "records")
  one <- function(row) {
    rows <- effects[effects$row == row, names(heads)]
    rows <- utils::head(rows[order(-rows$value), ], top_rows)
    rows <- rows[vapply(rows, function(x) !all(is.na(x)), TRUE)]
    htmltools::tagList(tags$h4(row), html_table(rows, heads[names(rows)]))
  }
  levels <- max(table(effects$row))
  remark <- sentence("The ", min(top_rows, levels), " highest of ", whole_number(levels), " levels; all in --csv.")
  titled(paste("Factor", name), remark, lapply(unique(effects$row), one))
}

# ---- WAIC

waic_section <- function(r) {
  if (is.null(r$waic)) return(NULL)
  heads <- c(chain = "chain", samples = "samples", units = "units", elpd_waic = "elpd_waic", se = "standard error",
             p_waic = "p_waic", lppd = "lppd", variance_above_0.4 = "units of variance above 0.4")
  what <- sentence("elpd_waic = lppd - p_waic estimates the log density of new data of the same size: larger is ",
                   "better, and of two models of the same data the difference counts, with the standard error of its ",
                   "parts (waic_units.csv of --csv). p_waic is the effective number of parameters. Units are records, ",
                   "or whole cure sequences.")
  section("waic", "Predictive fit (WAIC)", html_table(r$waic$table[names(heads)], unname(heads), digits = 6),
          paragraphs(what_waic_is_of(r)), what, paragraphs(waic_warnings(r$waic)))
}

# Of which samples: all of every chain, merged as if they were of one.
what_waic_is_of <- function(r) {
  type <- analysis_of(r$place)
  several <- nrow(r$waic$table) > 1
  c(if (several) "The row all is of the samples of all chains together, which is not the mean of their rows.",
    if (r$burnin > 0) "The samples that --burnin leaves out are in it.",
    if (has_chain_for_each_model(type)) "It is that of the last model; the others are in the table of the models.",
    if (moves_between_models(type))
      "The density is that over all models, each as often as the chains visited it: WAIC is of their mixture.")
}

waic_warnings <- function(waic) {
  w <- whole_waic(waic)
  if (!is.finite(w$elpd_waic))
    return(paste("Some unit has no log density. Records with three and more latent values need points for it:",
                 "density_points in [run] of the description."))
  own <- utils::head(waic$table$elpd_waic, -1)
  c(if (length(own) > 1) paste0("Between the chains elpd_waic has a standard deviation of ",
      number_text(stats::sd(own)), ", the Monte Carlo error of a single chain's."),
    if (w$variance_above_0.4 > 0) paste0("Units whose log density has a variance above 0.4 over the samples: ",
      whole_number(w$variance_above_0.4), " of ", whole_number(w$units), ". For them, and so for the sum, the ",
      "estimate may be unreliable."))
}

# ---- DIC

fit_section <- function(r) {
  no_measure <- if (!r$sampler$exact) not_measured()
  d <- r$pooled_dic
  if (is.null(d)) {
    type <- analysis_of(r$place)
    none <- if (has_several_models(type))
              "ZEPH computes no deviance in analyses over models: their listings have no DIC."
            else if (takes_given_matrices(type))
              "ZEPH reports DIC only where (co)variances are sampled; here they were given."
            else "No listing with DIC was found (listing.txt of each run)."
    return(section("dic", "DIC per trait", tags$p(none), no_measure))
  }
  heads <- c(trait = "trait", DIC = "DIC as listed", pD = "pD", full = "DIC with n log 2 pi",
    lowest = "lowest of the runs",
             highest = "highest")
  remark <- sentence("ZEPH leaves n log 2 pi out of its DIC (n = ", whole_number(r$model$nobs),
    " records, missing values ",
                   "imputed). Means over runs by their numbers of samples.")
  section("dic", "DIC per trait", html_table(d[names(heads)], heads, digits = 7), remark, no_measure)
}

not_measured <- function() {
  sentence("The rows of the listings called Log Marginal Likelihood, Var and Average, like the file py, leave out the ",
           "logarithm of the residual scale: they do not measure fit, and no Bayes factor is computed from them.")
}

# ---- mixtures, thresholds, chains between models

latent_section <- function(r) {
  title <- "Mixtures, thresholds, models"
  blocks <- Filter(Negate(is.null), list(membership_block(r), threshold_block(r), visit_block(r), enumeration_block(r)))
  if (length(blocks) == 0) blocks <- list(tags$p("The model has none."))
  section("latent", title, blocks)
}

membership_block <- function(r) {
  rows <- r$table[grepl("^pi\\[", r$table$name), ]
  if (nrow(rows) == 0) return(NULL)
  htmltools::tagList(titled("Proportions", summary_block(rows)), membership_list(r$memberships))
}

membership_list <- function(p) {
  if (is.null(p)) return(NULL)
  top <- utils::head(p[order(-p$probability), c("record", "first_integer", "name", "probability")], top_rows)
  titled("Memberships", sentence("Records with the highest probability of the second component, of ",
    whole_number(nrow(p)),
                                 "; all in --csv."),
         html_table(top, c("record", "its first integer", "of", "probability")))
}

threshold_block <- function(r) {
  rows <- r$table[grepl("^threshold\\[", r$table$name), ]
  if (nrow(rows) == 0) return(NULL)
  fixed <- rows$name %in% r$fixed_names
  titled("Thresholds", if (any(!fixed)) summary_block(rows[!fixed, ]),
         if (any(fixed)) sentence("Fixed: ", fixed_values(rows[fixed, ]), "."))
}

# A move up draws new solutions blind to the data, so that with many levels none is taken.
no_support <- paste(
  "The share of samples is the time that the chains spent there. It is not a posterior probability, nor another",
  "measure of what the data support: the moves weigh the models by other ratios, beyond some tens of levels a chain",
  "stays where it is whatever the truth, and with a flat prior a change of units reverses the shares. Exact chains",
  "(sampler = \"exact\" in [run] of the description) visit models by posterior probability.")

how_judged <- paste(
  "MCSE is the Monte Carlo standard error of a posterior probability and R-hat its split R-hat, both of the indicator",
  "that is 1 in samples of the model and else 0; changes are the neighbouring samples of a chain between which it",
  "changed. They are empty where the chains saw one model only. The Bayes factor is that of the model against all",
  "others together: its posterior odds divided by its prior odds.")

words_of_columns <- function(table) gsub("_", " ", names(table), fixed = TRUE)

visit_block <- function(r) {
  v <- r$visits
  if (is.null(v)) return(NULL)
  factors <- paste(vapply(r$model$factors, function(f) f$name, ""), collapse = ", ")
  htmltools::tagList(
    titled("Models", sentence("A model is the number of rows of each factor in it (", factors, "). ",
                              if (r$sampler$exact) how_judged else no_support),
           model_table_of(v$visits), if (r$sampler$exact) changes_in_words(v)),
    titled("Transitions between neighbouring samples", html_table(v$transitions)),
    titled("How often a row was in the model", html_table(v$inclusion, words_of_columns(v$inclusion))),
    if (!is.null(r$moves)) titled("Moves proposed and accepted", html_table(r$moves)))
}

model_table_of <- function(visits) {
  heads <- words_of_columns(visits)
  written <- c(mcse = "MCSE", rhat = "R-hat", "bayes factor" = "Bayes factor")
  heads <- ifelse(heads %in% names(written), written[heads], heads)
  if (!is.null(visits$rhat)) visits$rhat <- rhat_text(visits$rhat)
  html_table(visits, heads)
}

# How often the chains changed their model, and which models they never saw.
changes_in_words <- function(v) {
  moved <- sum(v$transitions$times[v$transitions$from != v$transitions$to])
  remark <- paste0("Between neighbouring samples the chains changed their model ", count_of(moved, "time"), ".")
  never <- v$never
  if (NROW(never) == 0) return(tags$p(remark))
  shown <- utils::head(never, top_rows)
  more <- nrow(never) - nrow(shown)
  sentence(remark, " Never visited, in brackets the prior probability: ",
           paste0(shown$model, " (", vapply(shown$prior_probability, number_text, ""), ")", collapse = "; "),
           if (more > 0) paste0("; and ", whole_number(more), " more"), ".")
}

enumeration_block <- function(r) {
  if (is.null(r$enumerated)) return(NULL)
  remark <- tags$p("Each model has a chain of its own. The tables above are those of the last one.",
                 if (r$sampler$exact)
                   "Such chains give no posterior probability of a model; larger elpd_waic is better.")
  titled("Models", remark, html_table(r$enumerated, words_of_columns(r$enumerated), digits = 6))
}

# ---- glossary

glossary_section <- function(r) {
  g <- glossary_of(r$model, r$table$name, r$formulas)
  entries <- lapply(seq_len(nrow(g)), function(i) htmltools::tagList(tags$dt(g$name[i]), tags$dd(g$meaning[i])))
  section("glossary", "Glossary", tags$dl(entries))
}
