# DIC from the listings. ZEPH leaves out n log(2 pi) of each trait's deviance; it is added here, and both are shown.

# Data frame (chain, segment, trait, DIC, pD, full): one row per trait and listing; full = DIC + n log(2 pi), n the
# number of records. NULL when no listing is there, and for analyses over models, in which ZEPH computes no deviance.
read_dic <- function(m, place) {
  if (has_several_models(analysis_of(place))) return(NULL)
  rows <- list()
  for (chain in place$chains) for (s in chain$segments) {
    samples <- samples_in(m, s)
    found <- if (s$counts && samples > 0) dic_of_listing(s$path, m$nt)
    if (is.null(found)) next
    found$trait <- m$trait_names
    rows[[length(rows) + 1L]] <- cbind(chain = chain$number, segment = s$number, found, samples = samples)
  }
  out <- do.call(rbind, rows)
  if (!is.null(out)) out$full <- out$DIC + m$nobs * log(2 * pi)
  out
}

# The `nt` rows under "DIC per trait" (T8, A10, 2G15.8) of the last model of a listing; listing.txt, or another text
# file of the directory that holds them.
dic_of_listing <- function(path, nt) {
  for (file in listing_files(path)) {
    lines <- readLines(file, warn = FALSE, skipNul = TRUE)
    at <- grep("^DIC per trait", lines)
    if (length(at) == 0) next
    rows <- lines[-seq_len(max(at))]
    head <- match(TRUE, startsWith(rows, "Trait"))
    if (is.na(head) || length(rows) < head + nt) return(NULL)
    rows <- rows[head + seq_len(nt)]
    number <- function(from) suppressWarnings(as.numeric(substr(rows, from, from + 14)))
    return(data.frame(trait = trimws(substr(rows, 8, 17)), DIC = number(18), pD = number(33)))
  }
  NULL
}

listing_files <- function(path) {
  usual <- file.path(path, "listing.txt")
  if (file.exists(usual)) return(usual)
  files <- list.files(path, pattern = "[.](txt|lst|list|log|out)$|^(lst|listing|log|out|nohup)", full.names = TRUE)
  files[file.size(files) < 5e7]
}

# Means over segments and chains, weighted by their numbers of samples.
pooled_dic <- function(dic) {
  if (is.null(dic)) return(NULL)
  rows <- lapply(split(dic, factor(dic$trait, unique(dic$trait))), function(d) {
    mean_of <- function(x) stats::weighted.mean(x, d$samples)
    data.frame(trait = d$trait[1], DIC = mean_of(d$DIC), pD = mean_of(d$pD), full = mean_of(d$full),
      lowest = min(d$full), highest = max(d$full))
  })
  do.call(rbind, rows)
}
