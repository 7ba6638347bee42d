# What every name on the page means.

statistics_glossary <- c(
  "mean, median, SD" = "of the posterior distribution, over the draws of all chains",
  "95 % HPD" = "the shortest interval that holds 95 % of the draws (highest posterior density)",
  "bulk ESS, tail ESS" = "how many independent draws would estimate centre and 5 % tails as precisely; 400 are needed",
  "R-hat" = paste("rank-normalised split R-hat: how much the chains differ beyond the variation within them;",
    "it should be at most 1.01"),
  "MCSE" = "Monte Carlo standard error: how far the posterior mean may be off because the chains are finite",
  "draws" = "samples in which the name exists, over all chains",
  "accuracy" = "correlation of true and predicted effect: sqrt(1 - SD^2 / ((1 + F) s2)), s2 the variance of the effect",
  "F" = "coefficient of inbreeding",
  "DIC, pD" = "deviance information criterion and effective number of parameters, for each trait",
  "elpd_waic, p_waic, lppd" = paste("expected log density of new data by the widely applicable information criterion,",
    "effective number of parameters, and log density of the data averaged over the draws: elpd_waic = lppd - p_waic"),
  "sample, round" = "the chain runs round by round; the last round of every interval is a sample")

name_kinds <- c(
  "^G\\[" = "(co)variance of a random factor: factor, row, row",
  "^G\\.unit\\[" = "variance of a random factor where the residual variance of the liability is 1",
  "^R\\[" = "residual (co)variance: trait, trait; the group's code first where there are residual groups",
  "^threshold\\[" = "threshold of the liability above an ordered category: trait, number",
  "^threshold\\.unit\\[" = "threshold where the residual variance of the liability is 1",
  "^pi\\[" = "share of the records in the second component of a mixture, or of positive ones in a sequence",
  "^VP\\[" = "phenotypic variance: the sum shown with it",
  "^dimension\\[" = "number of rows of a factor that are in the model")

# Data frame (name, meaning): the statistics, then every name of the tables.
glossary_of <- function(m, names, formulas) {
  meaning <- vapply(names, function(name) meaning_of(m, name, formulas), "")
  rbind(data.frame(name = names(statistics_glossary), meaning = unname(statistics_glossary)),
        data.frame(name = names, meaning = unname(meaning)))
}

meaning_of <- function(m, name, formulas) {
  at <- match(name, formulas$name)
  if (!is.na(at)) return(paste0(formulas$what[at], ": ", formulas$formula[at]))
  element <- element_in_words(m, name)
  if (!is.null(element)) return(element)
  kind <- which(vapply(names(name_kinds), grepl, TRUE, x = name))
  if (length(kind) > 0) name_kinds[[kind[1]]] else ""
}

# "variance of factor animal in bwt", "residual covariance of bwt and tarsus".
element_in_words <- function(m, name) {
  keys <- element_keys(m)
  at <- match(name, keys$name)
  if (is.na(at)) return(NULL)
  k <- keys$k[at]
  kind <- if (keys$r[at] == keys$c[at]) "variance" else "covariance"
  if (k > m$nramat) {
    group <- if (m$several_groups) paste0(" in residual group ", m$groups[k - m$nramat]) else ""
    return(paste0("residual ", kind, " of ", paste(unique(m$trait_names[c(keys$c[at], keys$r[at])]),
      collapse = " and "), group))
  }
  f <- m$factors[[k]]
  paste0(kind, " of factor ", f$name, " (", structure_word(f$structure), ") in ",
    paste(unique(f$rows$name[c(keys$c[at], keys$r[at])]), collapse = " and "))
}

structure_word <- function(structure) {
  words <- c(I = "identity", PED = "pedigree", GREL = "relationship matrix", COR = "correlations", DOM = "dominance",
    HINV = "pedigree and genotypes")
  if (structure %in% names(words)) words[[structure]] else structure
}
