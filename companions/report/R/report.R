# The order of a report: find, read, join, derive, judge, write.

# Runs the command; gives the exit code.
report_command <- function(words, home) {
  if ("--help" %in% words) {
    cat(usage_text)
    return(0L)
  }
  if ("--version" %in% words) {
    cat("zeph-report ", report_version, "\n", sep = "")
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

need_packages <- function() {
  needed <- c("posterior", "coda", "bayesplot", "dygraphs", "rmarkdown", "ncdf4", "jsonlite", "RcppTOML", "htmltools", "knitr", "ggplot2")
  missing <- Filter(function(p) !requireNamespace(p, quietly = TRUE), needed)
  if (length(missing) > 0) stop_report("missing R packages: ", paste(missing, collapse = " "), "; Debian has them as r-cran-", tolower(missing[1]), " and so on")
}

# Everything that the page and the exports show, as one list.
make_report <- function(arguments) {
  remarks <- new_remarks()
  place <- find_chains(arguments$directory)
  m <- read_model(place$model_directory)
  chains <- lapply(place$chains, function(chain) join_segments(m, chain, arguments$burnin, remarks))
  joined <- array_of_chains(chains, remarks)
  data <- read_records_of_data(m)
  formulas <- derived_formulas(m, data)
  asked <- asked_formulas(m)
  draws <- joined$draws
  if (dim(draws)[3] > 0) draws <- add_formula_draws(m, add_formula_draws(m, draws, formulas, NULL), asked, remarks)
  visits <- model_visits(m, chains)
  if (!is.null(visits)) draws <- bind_names(draws, dimension_draws(m, chains, joined$used, joined$length))
  table <- summarise_names(draws)
  fixed <- fixed_names(draws)
  asked_names <- if (nrow(asked) > 0) intersect(asked$name, table$name) else grep("^(h2|rg)\\[", table$name, value = TRUE)
  verdict <- verdict_of(place, m, table, asked_names, length(joined$used), joined$length, joined$rounds)
  solutions <- if (any_samples_or_solver(m, place)) pool_solutions(m, place, chains, remarks)
  parts <- solution_tables(m, place, solutions, table, joined)
  if (dim(draws)[1] == 0 && is.null(solutions)) stop_report("nothing to report in ", place$shown, ": no samples and no solutions. ", paste(remarks$all(), collapse = "; "), status = 1L)
  dic <- read_dic(m, place)
  c(list(place = place, model = m, chains = chains, joined = joined, draws = draws, table = table, fixed_names = fixed,
         formulas = rbind(formulas, if (nrow(asked) > 0) data.frame(asked, what = "asked for in [derive]")), asked = asked_names, verdict = verdict, visits = visits,
         moves = if (!is.null(visits)) read_moves(m, place), dic = dic, pooled_dic = pooled_dic(dic), memberships = read_memberships(m, place),
         curves = curves_of(m, data, draws), burnin = arguments$burnin, remarks = remarks$all(), solutions = solutions), parts)
}

any_samples_or_solver <- function(m, place) any(vapply(place$chains, function(chain) length(chain$segments) > 0, TRUE))

bind_names <- function(a, b) {
  array(c(a, b), c(dim(a)[1:2], dim(a)[3] + dim(b)[3]), list(NULL, NULL, c(dimnames(a)[[3]], dimnames(b)[[3]])))
}

asked_formulas <- function(m) {
  told <- if (m$labelled) m$names$derive else list()
  data.frame(name = vapply(told, function(d) d$name, ""), formula = vapply(told, function(d) d$formula, ""))
}

# Fixed effects with contrasts, and the effects of every factor.
solution_tables <- function(m, place, solutions, table, joined) {
  if (is.null(solutions)) return(list(fixed = NULL, effects = NULL))
  fixed <- fixed_effects(m, solutions)
  draws <- if (joined$length > 0) solution_draws(m, place, fixed$equation, joined$length)
  variances <- stats::setNames(table$mean, table$name)
  effects <- lapply(seq_along(m$factors), function(k) effects_of_factor(m, solutions, given_or(m, k, variances), k))
  names(effects) <- vapply(m$factors, function(f) f$name, "")
  list(fixed = add_contrasts(fixed, draws), effects = effects)
}

# Posterior means of the variances of a factor, or the start values where they were not sampled.
given_or <- function(m, k, variances) {
  f <- m$factors[[k]]
  for (r in seq_len(f$order)) {
    name <- name_of_element(m, k, r, r)
    if (!name %in% names(variances)) variances[[name]] <- f$start[r, r]
  }
  variances
}

# Prints the verdict, writes the page and the exports.
write_report <- function(report, arguments, home) {
  cat(verdict_head(report$verdict), "\n", sep = "")
  for (line in report$verdict$lines) cat("  ", line, "\n", sep = "")
  if (!is.null(report$verdict$command)) cat("  ", report$verdict$command, "\n", sep = "")
  for (line in report$remarks) cat("  note: ", line, "\n", sep = "")
  if (!is.null(arguments$csv)) export_csv(arguments$csv, tables_of(report), report$draws, report$joined$used)
  if (!is.null(arguments$coda)) export_coda(arguments$coda, report$draws, report$joined$rounds)
  if (!is.null(arguments$netcdf)) export_netcdf(arguments$netcdf, report$draws, report$joined$used, report$model$title, report$joined$rounds)
  page <- if (is.null(arguments$html)) file.path(report$place$shown, "report.html") else arguments$html
  write_page(report, page, home)
  cat("Page: ", page, "\n", sep = "")
}

# The tables of --csv by file name.
tables_of <- function(report) {
  effects <- report$effects
  if (length(effects) > 0) names(effects) <- paste0("effects_", gsub("[^A-Za-z0-9._-]", "_", names(effects)))
  fixed <- report$fixed
  fixed$equation <- NULL
  c(list(summary = report$table, segments = do.call(rbind, lapply(report$chains, function(chain) chain$segments)), fixed = fixed, dic = report$dic,
         memberships = report$memberships, curves = report$curves, models = report$visits$visits, transitions = report$visits$transitions, moves = report$moves),
    effects)
}
