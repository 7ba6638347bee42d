# The sections of the page, in their order. Each gives tags.

top_rows <- 20L

verdict_section <- function(r) {
  v <- r$verdict
  class <- if (is.na(v$good)) "verdict" else if (v$good) "verdict good" else "verdict more"
  section("verdict", "Verdict", htmltools::div(class = class, htmltools::tags$p(class = "head", verdict_head(v)), paragraphs(v$lines),
          if (!is.null(v$command)) htmltools::tags$pre(v$command)), paragraphs(r$remarks),
          if (r$burnin > 0) htmltools::tags$p(paste0("The first ", count_of(r$burnin, "sampling round"), " of each chain are left out (--burnin); the means of solutions still hold them.")))
}

model_section <- function(r) {
  m <- r$model
  section("model", "Model and data", model_table(r), prior_block(r), formula_block(m), segment_block(r), input_block(r), prepare_block(m))
}

model_table <- function(r) {
  m <- r$model
  factors <- vapply(m$factors, function(f) paste0(f$name, ": ", count_of(f$levels, "level"), ", ", structure_word(f$structure), ", ", count_of(f$order, "row"), " (", paste(f$rows$name, collapse = ", "), ")"), "")
  rows <- list(c("title", m$title), c("records in use", format(m$nobs, big.mark = ",")),
               c("traits", paste0(m$trait_names, " (", m$trait_kinds, ")", collapse = ", ")), c("fixed effects", fixed_in_words(m)),
               if (length(factors) > 0) c("random factors", paste(factors, collapse = "; ")),
               c("residual", if (m$several_groups) paste("one matrix for each of the groups", paste(m$groups, collapse = ", ")) else "one matrix"),
               c("equations", format(sum(m$NRALEV * vapply(m$factors, function(f) f$order, 1L)) + m$nfeq, big.mark = ",")))
  rows <- do.call(rbind, Filter(Negate(is.null), rows))
  html_table(data.frame(rows[, 1], rows[, 2]), c("", ""), class = "words")
}

fixed_in_words <- function(m) {
  one <- function(t) {
    effects <- if (m$labelled) unique(unlist(lapply(m$names$equations_of, function(e) if (e$part != "factor" && e$trait == m$trait_names[t]) e$name)))
               else c(m$traits[[t]]$effects$name, m$traits[[t]]$regressions$name[m$traits[[t]]$regressions$type < 2])
    paste0(m$trait_names[t], ": ", paste(effects, collapse = ", "))
  }
  paste(vapply(seq_len(m$nt), one, ""), collapse = "; ")
}

# Degrees of freedom of the priors stand in the directive file, a row for each factor and the residual.
prior_block <- function(r) {
  prior <- r$place$chains[[1]]$segments[[1]]$directives$prior
  names <- c(vapply(r$model$factors, function(f) f$name, ""), "residual")
  orders <- c(vapply(r$model$factors, function(f) f$order, 1L), r$model$nt)
  if (length(prior) < length(names)) return(NULL)
  one <- function(k) {
    df <- prior[[k]][2]
    if (is.na(df) || df <= orders[k] + 1) "flat" else paste0("inverse Wishart, ", df, " degrees of freedom, mean the start matrix")
  }
  htmltools::tagList(htmltools::tags$h3("Priors"), html_table(data.frame(names, vapply(seq_along(names), one, "")), c("matrix", "prior"), class = "words"))
}

formula_block <- function(m) {
  if (!m$labelled || length(m$names$derive) == 0) return(NULL)
  asked <- asked_formulas(m)
  htmltools::tagList(htmltools::tags$h3("Asked for in [derive]"), html_table(asked, c("name", "formula"), class = "words"))
}

segment_block <- function(r) {
  rows <- do.call(rbind, lapply(r$chains, function(chain) chain$segments))
  seeds <- unlist(lapply(r$place$chains, function(chain) vapply(chain$segments, function(s) paste(s$seeds, collapse = ", "), "")))
  out <- data.frame(rows[c("chain", "segment")], seeds, rows[c("samples", "first", "last", "state")])
  htmltools::tagList(htmltools::tags$h3("Chains"), html_table(out, c("chain", "segment", "seeds", "samples", "first round", "last round", "state")))
}

input_block <- function(r) {
  plan <- r$place$plan
  versions <- c(paste0("zeph-report ", report_version), paste0("model written ", stamp_text(r$model$stamp), " (format ", r$model$version, ", ", r$model$release, ")"),
                if (!is.null(plan$version)) paste0("zeph-chains ", plan$version), if (!is.null(plan$program)) paste0("program ", basename(plan$program), ", SHA-256 ", plan$program_sha256))
  files <- if (!is.null(plan$input)) rows_of(plan$input, c("file", "sha256"))
           else if (r$model$labelled) rows_of(r$model$names$inputs, c("file", "fnv1a64"))
  htmltools::tagList(htmltools::tags$h3("Versions and inputs"), paragraphs(paste(versions, collapse = "; ")),
                     if (NROW(files) > 0) htmltools::tags$details(htmltools::tags$summary("check sums of the input files"), html_table(files, class = "words")))
}

rows_of <- function(list, keys) {
  out <- lapply(keys, function(key) vapply(list, function(x) if (is.null(x[[key]])) "" else as.character(x[[key]]), ""))
  stats::setNames(as.data.frame(out), keys)
}

stamp_text <- function(stamp) sprintf("%04d-%02d-%02d %02d:%02d", stamp[3], stamp[2], stamp[1], stamp[4], stamp[5])

# What zeph-prepare said: counts, and what was dropped.
prepare_block <- function(m) {
  path <- file.path(m$directory, "prepare.txt")
  if (!m$labelled || !file.exists(path)) return(NULL)
  lines <- readLines(path, warn = FALSE)
  dropped <- grep("dropped|left out|without connection|not used|warning:", lines, value = TRUE)
  htmltools::tagList(htmltools::tags$h3("Data, and what was dropped"), if (length(dropped) > 0) htmltools::tags$ul(lapply(dropped, htmltools::tags$li)) else htmltools::tags$p("Nothing was dropped."),
                     htmltools::tags$details(htmltools::tags$summary("all that zeph-prepare said"), htmltools::tags$pre(paste(lines, collapse = "\n"))))
}

variance_section <- function(r) {
  if (nrow(r$table) == 0) return(section("variances", "(Co)variances", htmltools::tags$p("No samples of (co)variances: they were given.")))
  alive <- r$table[!r$table$name %in% r$fixed_names, ]
  derived <- alive$name %in% c(r$formulas$name, grep("^dimension", alive$name, value = TRUE))
  asked <- alive$name %in% asked_formulas(r$model)$name
  block <- function(rows, title) if (any(rows)) htmltools::tagList(htmltools::tags$h3(title), summary_block(alive[rows, ]))
  fixed <- r$table[r$table$name %in% r$fixed_names, ]
  section("variances", "(Co)variances and what follows from them", block(asked, "Asked for"), block(!derived & !asked, "Sampled"),
          block(derived & !asked & !grepl("^dimension", alive$name), "Derived on each draw"), denominator_block(r),
          if (nrow(fixed) > 0) htmltools::tags$p(paste0("Fixed by the model: ", paste0(fixed$name, " = ", vapply(fixed$mean, number_text, ""), collapse = ", "), ".")), curve_block(r))
}

denominator_block <- function(r) {
  f <- r$formulas[r$formulas$name %in% r$table$name, c("name", "formula")]
  if (nrow(f) == 0) return(NULL)
  htmltools::tags$details(open = if (nrow(f) <= 12) NA, htmltools::tags$summary("how they are derived"), html_table(f, class = "words"))
}

curve_block <- function(r) {
  if (is.null(r$curves)) return(NULL)
  htmltools::tagList(htmltools::tags$h3("Random regressions along the covariable"), curve_pictures(r$curves),
                     htmltools::tags$p("Lines are posterior means, bands the central 95 % of the draws."))
}

picture_section <- function(r) {
  names <- pictured_names(r$table, r$asked)
  if (length(names) == 0) return(section("pictures", "Pictures", htmltools::tags$p("No draws to draw.")))
  left <- sum(is.finite(r$table$ess_bulk)) - length(names)
  section("pictures", "Pictures", if (left > 0) htmltools::tags$p(paste0("Shown are ", length(names), " names, those asked for and the worst ones first; --csv has the draws of all.")),
          lapply(names, function(name) pictures_of_name(r$draws, name, r$joined$used, r$joined$rounds)))
}

solution_section <- function(r) {
  if (is.null(r$solutions)) return(section("solutions", "Fixed effects and breeding values", htmltools::tags$p("No run has ended with solutions yet.")))
  pooled <- paste0("Pooled over ", count_of(r$solutions$parts, "segment"), " by their numbers of samples, ", format(r$solutions$samples, big.mark = ","), " in all.")
  section("solutions", "Fixed effects and breeding values", htmltools::tags$p(pooled), fixed_block(r), lapply(names(r$effects), function(name) effect_block(r, name)))
}

fixed_block <- function(r) {
  f <- r$fixed
  if (is.null(f)) return(NULL)
  shown <- utils::head(f, 100)
  columns <- shown[c("trait", "effect", "level", "records", "value", "sd", "contrast", "contrast_sd", "against")]
  htmltools::tagList(htmltools::tags$h3("Fixed effects"), html_table(columns, c("trait", "effect", "level", "records", "mean", "SD", "contrast", "its SD", "against level")),
    if (nrow(f) > 100) htmltools::tags$p(paste0("The first 100 of ", nrow(f), " rows; all in --csv.")),
    if (any(!is.na(f$contrast) & is.na(f$contrast_sd)))
      htmltools::tags$p("A contrast without SD needs the samples of the solutions: [keep] solutions in the description."))
}

effect_block <- function(r, name) {
  e <- r$effects[[name]]
  if (is.null(e)) return(NULL)
  blocks <- lapply(unique(e$row), function(row) {
    rows <- e[e$row == row, ]
    rows <- utils::head(rows[order(-rows$value), ], top_rows)
    columns <- rows[c("identification", "value", "sd", "accuracy", "F", "records")]
    columns <- columns[vapply(columns, function(x) !all(is.na(x)), TRUE)]
    heads <- c(identification = "identification", value = "mean", sd = "SD", accuracy = "accuracy", F = "F", records = "records")
    htmltools::tagList(htmltools::tags$h4(row), html_table(columns, unname(heads[names(columns)])))
  })
  htmltools::tagList(htmltools::tags$h3(paste0("Factor ", name)), htmltools::tags$p(paste0("The ", min(top_rows, max(table(e$row))), " highest of ", format(max(table(e$row)), big.mark = ","), " levels; all in --csv.")), blocks)
}

fit_section <- function(r) {
  text <- "The rows of the listings called Log Marginal Likelihood, Var and Average, like the file py, leave out the logarithm of the residual scale: they are no measure of fit, and no Bayes factor is made from them."
  d <- r$pooled_dic
  if (is.null(d)) return(section("dic", "DIC per trait", htmltools::tags$p("No listing with DIC was found (listing.txt of each run)."), htmltools::tags$p(text)))
  columns <- d[c("trait", "DIC", "pD", "full", "lowest", "highest")]
  section("dic", "DIC per trait", html_table(columns, c("trait", "DIC as listed", "pD", "DIC with n log 2 pi", "lowest of the runs", "highest"), digits = 7),
          htmltools::tags$p(paste0("ZEPH leaves n log 2 pi out of its DIC (n = ", format(r$model$nobs, big.mark = ","), " records, missing values imputed). Means over runs by their numbers of samples.")), htmltools::tags$p(text))
}

latent_section <- function(r) {
  blocks <- list(membership_block(r), threshold_block(r), visit_block(r))
  if (all(vapply(blocks, is.null, TRUE))) return(section("latent", "Mixtures, thresholds, models", htmltools::tags$p("The model has none.")))
  section("latent", "Mixtures, thresholds, models", blocks)
}

membership_block <- function(r) {
  rows <- r$table[grepl("^pi\\[", r$table$name), ]
  if (nrow(rows) == 0) return(NULL)
  p <- r$memberships
  top <- if (!is.null(p)) utils::head(p[order(-p$probability), c("record", "first_integer", "name", "probability")], top_rows)
  htmltools::tagList(htmltools::tags$h3("Proportions"), summary_block(rows),
    if (!is.null(top)) htmltools::tagList(htmltools::tags$h3("Memberships"), htmltools::tags$p(paste0("Records with the highest probability of the second component, of ", format(nrow(p), big.mark = ","), "; all in --csv.")),
      html_table(top, c("record", "its first integer", "of", "probability"))))
}

threshold_block <- function(r) {
  rows <- r$table[grepl("^threshold\\[", r$table$name), ]
  if (nrow(rows) == 0) return(NULL)
  free <- rows[!rows$name %in% r$fixed_names, ]
  fixed <- rows[rows$name %in% r$fixed_names, ]
  htmltools::tagList(htmltools::tags$h3("Thresholds"), if (nrow(free) > 0) summary_block(free),
    if (nrow(fixed) > 0) htmltools::tags$p(paste0("Fixed: ", paste0(fixed$name, " = ", vapply(fixed$mean, number_text, ""), collapse = ", "), ".")))
}

visit_block <- function(r) {
  v <- r$visits
  if (is.null(v)) return(NULL)
  time <- v$visits
  htmltools::tagList(htmltools::tags$h3("Models"), htmltools::tags$p(paste0("A model is the number of rows of each factor in it (", paste(vapply(r$model$factors, function(f) f$name, ""), collapse = ", "), "). The share of the samples is the time that the chain spent in it.")),
    html_table(time), htmltools::tags$h3("Transitions between neighbouring samples"), html_table(v$transitions),
    htmltools::tags$h3("How often a row was in the model"), html_table(v$inclusion),
    if (!is.null(r$moves)) htmltools::tagList(htmltools::tags$h3("Moves proposed and accepted"), html_table(r$moves)))
}

glossary_section <- function(r) {
  g <- glossary_of(r$model, r$table$name, r$formulas, r$asked)
  section("glossary", "Glossary", htmltools::tags$dl(lapply(seq_len(nrow(g)), function(i) htmltools::tagList(htmltools::tags$dt(g$name[i]), htmltools::tags$dd(g$meaning[i])))))
}
