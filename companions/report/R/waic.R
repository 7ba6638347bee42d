# The widely applicable information criterion of exact chains, merged over chains from their files `waic`: S. Watanabe,
# Journal of Machine Learning Research 11 (2010) 3571-3594; A. Vehtari, A. Gelman and J. Gabry, Statistics and Computing
# 27 (2017) 1413-1432.
#
# A unit is a record, or a whole cure sequence. Its row holds its position in the user's data, and of its log density x
# over the samples: their number, log(mean of exp x), mean, sum of squared deviations.

doubtful_variance <- 0.4 # Vehtari, Gelman and Gabry 2017, section 2.2

# list(units (all chains merged), table (a row a chain, then one of all chains)); NULL when no chain has ended with one.
# Stops when chains have other units, or units are missing.
read_waic <- function(m, place, chains, remarks) {
  by_chain <- list()
  first <- NULL
  for (i in seq_along(place$chains)) for (s in place$chains[[i]]$segments) {
    path <- file.path(s$path, "waic")
    units <- if (s$counts) read_waic_units(path)
    if (NROW(units) == 0) next
    check_units(m, units, path)
    if (is.null(first)) first <- list(path = path, position = units$position)
    if (!identical(units$position, first$position))
      stop_report(path, " has other units than ", first$path, ": are they of one model and one data file?")
    remark_on_waic(place$chains[[i]]$number, s$number, units$samples[1], chains[[i]]$segments, remarks)
    name <- as.character(place$chains[[i]]$number)
    by_chain[[name]] <- if (is.null(by_chain[[name]])) units else merge_units(by_chain[[name]], units)
  }
  if (length(by_chain) == 0) return(NULL)
  all <- Reduce(merge_units, by_chain)
  rows <- if (length(by_chain) > 1) c(by_chain, list(all = all)) else by_chain
  table <- do.call(rbind, lapply(names(rows), function(name) cbind(chain = name, waic_of(rows[[name]]))))
  list(units = all, table = table)
}

# A unit is a record; with sequences the records of each are one.
check_units <- function(m, units, path) {
  n <- nrow(units)
  whole <- if (length(drawn_by(m, "sequences")) > 0) n <= m$nobs else n == m$nobs
  if (!whole) stop_report(path, " has ", n, " units, the model ", m$nobs, " records: it is cut, or of another model")
}

# A chain that runs again from its saved state has the file of its former end.
remark_on_waic <- function(chain, segment, n, segments, remarks) {
  samples <- segments$samples[segments$segment == segment]
  if (n != samples)
    remarks$add("waic of chain ", chain, ", segment ", segment, " is of ", count_of(n, "sample"), ", the segment has ",
      samples)
}

# Data frame (position, samples, log_mean_exp, mean, ss), a row a unit; NULL when the file is not there, or empty as the
# chain had no samples. The file is written whole: a row that is cut, or holds other than its five numbers, stops.
read_waic_units <- function(path) {
  if (!file.exists(path) || file.size(path) == 0) return(NULL)
  damaged <- function(line) stop_report("damaged line ", line, " in ", path)
  line <- first_unreadable(path)
  if (line > 0) damaged(line)
  fields <- utils::count.fields(path, quote = "", comment.char = "", blank.lines.skip = FALSE)
  wrong <- which(fields != 5L)
  if (length(wrong) > 0) damaged(wrong[1])
  x <- suppressWarnings(as.numeric(scan(path, "", quote = "", comment.char = "", quiet = TRUE)))
  x <- matrix(x, ncol = 5L, byrow = TRUE)
  wrong <- which(!is_unit_row(x))
  if (length(wrong) > 0) damaged(wrong[1])
  data.frame(position = x[, 1], samples = x[, 2], log_mean_exp = x[, 3], mean = x[, 4], ss = x[, 5])
}

# Number of the first line with a byte that no number has, or of a last line without its end; 0 when there is none.
first_unreadable <- function(path) {
  bytes <- as.integer(readBin(path, "raw", file.size(path)))
  ends <- bytes == 10L
  odd <- match(TRUE, (bytes < 32L & !ends) | bytes > 126L)
  if (!is.na(odd)) return(sum(ends[seq_len(odd)]) + 1)
  if (ends[length(ends)]) 0 else sum(ends) + 1
}

# Positions of their own, one number of samples, sums of squares that can be; densities may be NaN or without bound.
is_unit_row <- function(x) {
  numbers <- rowSums(is.na(x) & !is.nan(x)) == 0
  count <- function(v) is.finite(v) & v >= 1 & v == round(v)
  numbers & count(x[, 1]) & count(x[, 2]) & x[, 2] %in% x[1, 2] & !duplicated(x[, 1]) & (is.nan(x[, 5]) | x[, 5] >= 0)
}

# The units of two sets of samples as those of both: log-mean-exp weighted by the numbers of samples; mean and sum of
# squared deviations by T. F. Chan, G. H. Golub and R. J. LeVeque, The American Statistician 37 (1983) 242-247.
merge_units <- function(a, b) {
  n <- a$samples + b$samples
  top <- pmax(a$log_mean_exp, b$log_mean_exp)
  scaled <- function(u) u$samples / n * exp(u$log_mean_exp - top)
  difference <- b$mean - a$mean
  data.frame(position = a$position, samples = n,
             log_mean_exp = ifelse(is.finite(top), top + log(scaled(a) + scaled(b)), top),
             mean = a$mean + difference * (b$samples / n),
             ss = a$ss + b$ss + difference^2 * (a$samples * (b$samples / n)))
}

# One row (samples, units, lppd, p_waic, elpd_waic, se, variance_above_0.4): lppd the sum of log-mean-exp, p_waic that
# of the variances, elpd_waic = lppd - p_waic, se = (n var of the units' parts of it)^1/2; the last are the units of
# variance above 0.4.
waic_of <- function(units) {
  variance <- variance_of_units(units)
  elpd <- units$log_mean_exp - variance
  data.frame(samples = units$samples[1], units = nrow(units), lppd = sum(units$log_mean_exp), p_waic = sum(variance),
             elpd_waic = sum(elpd), se = sqrt(nrow(units) * stats::var(elpd)),
             variance_above_0.4 = sum(variance > doubtful_variance, na.rm = TRUE))
}

variance_of_units <- function(units) ifelse(units$samples > 1, units$ss / (units$samples - 1), 0)

# What models are compared by, unit by unit: data frame (position, samples, log_mean_exp, variance, elpd_waic).
waic_of_each_unit <- function(waic) {
  if (is.null(waic)) return(NULL)
  variance <- variance_of_units(waic$units)
  data.frame(waic$units[c("position", "samples", "log_mean_exp")], variance = variance,
             elpd_waic = waic$units$log_mean_exp - variance)
}

# The row of all chains.
whole_waic <- function(waic) waic$table[nrow(waic$table), ]
