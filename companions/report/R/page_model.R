# The first two sections of the page: verdict; model and data.

verdict_section <- function(r) {
  v <- r$verdict
  class <- if (is.na(v$good)) "verdict" else if (v$good) "verdict good" else "verdict more"
  box <- tags$div(class = class, tags$p(class = "head", verdict_head(v)), paragraphs(v$lines),
                  if (!is.null(v$command)) tags$pre(v$command))
  left_out <- if (r$burnin > 0)
    sentence("The first ", count_of(r$burnin, "sampling round"),
      " of each chain are left out (--burnin); the means of ",
             "solutions", if (!is.null(r$waic)) " and WAIC", " still include them.")
  section("verdict", "Verdict", box, paragraphs(r$remarks), left_out)
}

model_section <- function(r) {
  section("model", "Model and data", model_table(r$model), prior_block(r), asked_block(r$model), chain_block(r),
          mixing_block(r), input_block(r), prepare_block(r$model))
}

model_table <- function(m) {
  rows <- c("title" = m$title,
            "records in use" = whole_number(m$nobs),
            "traits" = paste0(m$trait_names, " (", m$kinds$word, ")", collapse = ", "),
            "fixed effects" = paste(vapply(seq_len(m$nt), function(t) fixed_in_words(m, t), ""), collapse = "; "),
            "random factors" = paste(vapply(m$factors, factor_in_words, ""), collapse = "; "),
            "residual" = residual_in_words(m),
            "equations" = whole_number(m$nfeq + sum(m$NRALEV * vapply(m$factors, function(f) f$order, 1L))))
  rows <- rows[nzchar(rows)]
  word_table(names(rows), unname(rows), head = c("", ""))
}

factor_in_words <- function(f) {
  rows <- paste0(count_of(f$order, "row"), " (", paste(f$rows$name, collapse = ", "), ")")
  paste0(f$name, ": ", count_of(f$levels, "level"), ", ", structure_word(f$structure), ", ", rows)
}

residual_in_words <- function(m) {
  if (!m$several_groups) return("one matrix")
  paste("one matrix for each of the groups", paste(m$groups, collapse = ", "))
}

fixed_in_words <- function(m, t) {
  model <- m$traits[[t]]
  mine <- Filter(function(e) e$part != "factor" && e$trait == m$trait_names[t], m$names$equations_of)
  effects <- if (m$labelled) vapply(mine, function(e) e$name, "")
             else c(model$effects$name, model$regressions$name[model$regressions$type < 2])
  paste0(m$trait_names[t], ": ", paste(unique(effects), collapse = ", "))
}

# Degrees of freedom of the priors are in the directive file, a row for each factor and the residual.
prior_block <- function(r) {
  prior <- r$place$chains[[1]]$segments[[1]]$directives$prior
  names <- c(vapply(r$model$factors, function(f) f$name, ""), "residual")
  orders <- c(vapply(r$model$factors, function(f) f$order, 1L), r$model$nt)
  if (length(prior) < length(names)) return(NULL)
  given <- takes_given_matrices(analysis_of(r$place))
  one <- function(k) {
    if (given) return("none: given, not sampled")
    df <- prior[[k]][2]
    if (is.na(df) || df <= orders[k] + 1) return("flat")
    paste0("inverse Wishart, ", df, " degrees of freedom, mean the start matrix")
  }
  titled("Priors", word_table(names, vapply(seq_along(names), one, ""), head = c("matrix", "prior")))
}

asked_block <- function(m) {
  asked <- asked_formulas(m)
  if (nrow(asked) > 0) titled("Asked for in [derive]", html_table(asked, class = "words"))
}

chain_block <- function(r) {
  rows <- do.call(rbind, lapply(r$chains, function(chain) chain$segments))
  seeds <- lapply(r$place$chains, function(chain) vapply(chain$segments, function(s) paste(s$seeds, collapse = ", "),
    ""))
  out <- data.frame(rows[c("chain", "segment")], seeds = unlist(seeds), rows[c("samples", "first", "last", "state")])
  titled("Chains", html_table(out, c("chain", "segment", "seeds", "samples", "first round", "last round", "state")))
}

# Steps beside the draws, and how often they were accepted.
mixing_block <- function(r) {
  if (!r$sampler$moves) return(NULL)
  title <- "Moves that mix"
  pooled <- pooled_mixing(r$mixing)
  none <- "No listing of a run that has ended was found, or it has no moves."
  if (is.null(pooled)) return(titled(title, tags$p(none)))
  rare <- pooled$move[!is.na(pooled$after) & pooled$after < rare_move]
  heads <- c("move", "accepted in burn-in", "after burn-in", "lowest of the chains", "highest")
  titled(title, html_table(pooled, heads, digits = 3),
         if (length(rare) > 0) sentence("Accepted with a share below ", rare_move, " after burn-in: the chain is right",
                                        ", but gains little by it: ", paste(rare, collapse = "; "), "."))
}

input_block <- function(r) {
  m <- r$model
  plan <- r$place$plan
  versions <- c(paste0("zeph-report ", report_version),
                paste0("model written ", stamp_text(m$stamp), " (format ", m$version, ", ", m$release, ")"),
                if (!is.null(plan$version)) paste0("zeph-chains ", plan$version),
                if (!is.null(plan$program)) paste0("program ", basename(plan$program), ", SHA-256 ",
                  plan$program_sha256))
  given <- if (m$labelled) columns_of(m$names$inputs, c("file", "fnv1a64"))
  linked <- if (!is.null(plan$input)) columns_of(plan$input, c("file", "sha256"))
  sums <- Filter(Negate(is.null), list(given, linked))
  titled("Versions and inputs", sentence(paste(versions, collapse = "; "), "."),
         if (length(sums) > 0) tags$details(tags$summary("check sums of the input files"),
                                            lapply(sums, html_table, class = "words")))
}

# A list of records as a data frame of texts.
columns_of <- function(records, keys) {
  column <- function(key) vapply(records, function(x) if (is.null(x[[key]])) "" else as.character(x[[key]]), "")
  stats::setNames(as.data.frame(lapply(keys, column)), keys)
}

stamp_text <- function(stamp) {
  sprintf("%04d-%02d-%02d %02d:%02d", stamp[3], stamp[2], stamp[1], stamp[4], stamp[5])
}

# What zeph-prepare said: counts, and what was dropped.
prepare_block <- function(m) {
  path <- file.path(m$directory, "prepare.txt")
  if (!m$labelled || !file.exists(path)) return(NULL)
  lines <- readLines(path, warn = FALSE)
  dropped <- grep("dropped|left out|without connection|not used|warning:", lines, value = TRUE)
  remark <- if (length(dropped) > 0) tags$ul(lapply(dropped, tags$li)) else tags$p("Nothing was dropped.")
  titled("Data, and what was dropped", remark,
         tags$details(tags$summary("all that zeph-prepare said"), tags$pre(paste(lines, collapse = "\n"))))
}
