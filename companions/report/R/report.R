# The order of a report: find, read, join, derive, judge, write.

# Runs the command; gives the exit code.
report_command <- function(words, home) {
  if ("--help" %in% words) {
    say(usage_text)
    return(0L)
  }
  if ("--version" %in% words) {
    say("zeph-report ", report_version, "\n")
    return(0L)
  }
  tryCatch({
    arguments <- read_arguments(words)
    need_packages()
    report <- make_report(arguments)
    write_report(report, arguments, home)
    0L
  }, report_stop = function(e) {
    message("zeph-report: ", conditionMessage(e))
    e$status
  }, error = function(e) {
    message("zeph-report: ", conditionMessage(e))
    2L
  })
}

needed_packages <- c("posterior", "coda", "bayesplot", "dygraphs", "rmarkdown", "ncdf4", "jsonlite", "RcppTOML",
                     "htmltools", "knitr", "ggplot2")

need_packages <- function() {
  missing <- Filter(function(p) !nzchar(system.file(package = p)), needed_packages) # each is loaded when it is used
  if (length(missing) == 0) return(invisible())
  stop_report("missing R packages: ", paste(missing, collapse = " "), "; in Debian r-cran-", tolower(missing[1]),
              " and so on")
}

# Everything that the page and the exports show, as one list.
make_report <- function(arguments) {
  remarks <- new_remarks()
  place <- find_chains(arguments$directory)
  m <- read_model(place$model_directory)
  chains <- lapply(place$chains, function(chain) join_segments(m, chain, arguments$burnin, remarks))
  joined <- array_of_chains(chains, remarks)
  r <- list(place = place, model = m, chains = chains, joined = joined, burnin = arguments$burnin,
            sampler = read_sampler_words(m))
  r <- add_draws(r, read_records_of_data(m), remarks)
  r <- add_judgement(r, remarks)
  r <- add_results(r, remarks)
  r$remarks <- remarks$all()
  if (joined$length == 0 && is.null(r$solutions))
    stop_report("nothing to report in ", place$shown, ": no samples and no solutions. ",
      paste(r$remarks, collapse = "; "),
                status = 1L)
  r
}

# Draws with all that is derived on them, curves, and visits of models.
add_draws <- function(r, data, remarks) {
  m <- r$model
  derived <- derived_formulas(m, data)
  asked <- asked_formulas(m)
  draws <- r$joined$draws
  if (dim(draws)[3] > 0) draws <- add_formula_draws(m, draws, derived, NULL)
  if (dim(draws)[3] > 0) draws <- add_formula_draws(m, draws, asked, remarks)
  visits <- model_visits(m, models_in_use(r$chains, r$joined), moves_between_models(analysis_of(r$place)))
  if (r$sampler$exact) visits <- model_probabilities(visits, r$sampler$weights)
  if (!is.null(visits)) draws <- bind_names(draws, dimension_draws(m, r$chains, r$joined$used, r$joined$length))
  if (dim(draws)[1] > 0) draws <- draws[, , !apply(is.na(draws), 3, all), drop = FALSE]
  asked$what <- rep("asked for in [derive]", nrow(asked))
  c(r, list(draws = draws, formulas = rbind(derived, asked), visits = visits, curves = curves_of(m, data, draws)))
}

# The table of all names, those that are fixed, those whose errors the verdict reports, WAIC, and the verdict.
add_judgement <- function(r, remarks) {
  table <- summarise_names(r$draws)
  asked <- c(intersect(asked_formulas(r$model)$name, table$name), grep("^(h2|rg)\\[", table$name, value = TRUE))
  verdict <- verdict_of(r$place, r$model, table, asked, length(r$joined$used), r$joined$length, r$joined$rounds,
                        r$sampler)
  waic <- read_waic(r$model, r$place, r$chains, remarks)
  verdict$lines <- c(verdict$lines, model_lines(r$visits), waic_lines(waic))
  c(r, list(table = table, fixed_names = fixed_names(r$draws), asked = asked, waic = waic, verdict = verdict))
}

# Solutions, DIC, memberships, moves: what runs leave at their end.
add_results <- function(r, remarks) {
  solutions <- pool_solutions(r$model, r$place, r$chains, remarks)
  dic <- read_dic(r$model, r$place)
  memberships <- read_memberships(r$model, r$place)
  read <- if (r$sampler$exact) read_exact_moves else read_moves
  moves <- if (!is.null(r$visits)) read(r$model, r$place)
  c(r, list(solutions = solutions, dic = dic, pooled_dic = pooled_dic(dic), memberships = memberships, moves = moves,
            mixing = read_mixing(r$model, r$place), enumerated = enumerated_models(r$model, r$place, r$sampler$exact)),
    solution_tables(r$model, r$place, solutions, r$table, r$joined))
}

bind_names <- function(a, b) {
  array(c(a, b), c(dim(a)[1:2], dim(a)[3] + dim(b)[3]), list(NULL, NULL, c(dimnames(a)[[3]], dimnames(b)[[3]])))
}

asked_formulas <- function(m) {
  described <- if (m$labelled) m$names$derive else list()
  data.frame(name = vapply(described, function(d) d$name, ""), formula = vapply(described, function(d) d$formula, ""))
}

# Fixed effects with contrasts, and the effects of every factor.
solution_tables <- function(m, place, solutions, table, joined) {
  if (is.null(solutions)) return(list(fixed = NULL, effects = NULL))
  fixed <- fixed_effects(m, solutions)
  draws <- if (joined$length > 0) solution_draws(m, place, fixed$equation, joined$length)
  variances <- variances_of_rows(m, table, joined$length * length(joined$used))
  effects <- lapply(seq_along(m$factors), function(k) effects_of_factor(m, solutions, variances, k))
  names(effects) <- vapply(m$factors, function(f) f$name, "")
  list(fixed = add_contrasts(fixed, draws), effects = effects)
}

# Variances of all rows of the factors by name: posterior means, NA for a row that some model leaves out; the start
# values where no matrices were sampled.
variances_of_rows <- function(m, table, n_draws) {
  out <- numeric(0)
  given <- !any(startsWith(table$name, "G["))
  for (f in m$factors) for (r in seq_len(f$order)) {
    name <- name_of_element(m, f$number, r, r)
    at <- match(name, table$name)
    always <- !is.na(at) && table$draws[at] == n_draws
    out[name] <- if (given) f$start[r, r] else if (always) table$mean[at] else NA
  }
  out
}

# Prints the verdict, writes the exports and the page. Exports of draws that are not there are reported at the end.
write_report <- function(report, arguments, home) {
  print_verdict(report)
  draws <- report$draws
  joined <- report$joined
  none <- c(if (!is.null(arguments$coda) && length(whole_names(draws)) == 0) "--coda",
            if (!is.null(arguments$netcdf) && length(draws) == 0) "--netcdf")
  if (!is.null(arguments$csv)) export_csv(arguments$csv, tables_of(report), draws)
  if (!is.null(arguments$coda) && !"--coda" %in% none) export_coda(arguments$coda, draws, joined$rounds)
  if (!is.null(arguments$netcdf) && !"--netcdf" %in% none)
    export_netcdf(arguments$netcdf, draws, joined$used, report$model$title, joined$rounds)
  page <- if (is.null(arguments$html)) file.path(report$place$shown, "report.html") else arguments$html
  write_page(report, page, home)
  say("Page: ", page, "\n")
  if (length(none) > 0) stop_report("no draws for ", paste(none, collapse = " and "), status = 1L)
}

# Prints to the screen. A reader that closes its end early (`| head`) loses the rest of the text and stops nothing: R
# makes an error of the signal, known by its message in the user's language.
say <- function(...) {
  tryCatch(cat(..., sep = ""), error = function(e) {
    if (conditionMessage(e) != gettext("ignoring SIGPIPE signal", domain = "R")) stop(e)
  })
}

print_verdict <- function(report) {
  v <- report$verdict
  say(verdict_head(v), "\n")
  notes <- sprintf("note: %s", report$remarks)
  for (line in c(v$lines, v$command, notes)) say("  ", line, "\n")
}

# The tables of --csv by file name.
tables_of <- function(report) {
  effects <- report$effects
  if (length(effects) > 0) names(effects) <- paste0("effects_", gsub("[^A-Za-z0-9._-]", "_", names(effects)))
  fixed <- report$fixed
  fixed$equation <- NULL
  segments <- do.call(rbind, lapply(report$chains, function(chain) chain$segments))
  c(list(summary = report$table, segments = segments, fixed = fixed, waic = report$waic$table,
         waic_units = waic_of_each_unit(report$waic), dic = report$dic, memberships = report$memberships,
         curves = report$curves, models = report$visits$visits, transitions = report$visits$transitions,
         moves = report$moves, mixing = report$mixing, enumerated = report$enumerated),
    effects)
}
