# Effective sizes of the chains of work directories, by coda: Rscript --vanilla effective_sizes.R DIRECTORY ..
# A line a directory: samples, the smallest effective size of all (co)variances and thresholds, that of the thresholds
# alone (NA without any), the name of the first. What never moves (a variance of 1, the outer thresholds) is left out.

# Columns of a fixed-width file as a matrix of samples x names; parts: the integer columns that name a value.
samples_of <- function(path, widths, parts, value) {
  x <- utils::read.fwf(path, widths)
  split(x[[value]], do.call(paste, c(x[parts], sep = ",")))
}

# gib.samples: round I8, matrix, row, column 3I4, value G15.6, residual group; threshold: round, trait, number, value.
series_of <- function(directory) {
  matrices <- samples_of(file.path(directory, "gib.samples"), c(8L, 4L, 4L, 4L, 15L, 11L), c(2, 3, 4, 6), 5)
  names(matrices) <- paste0("matrix ", names(matrices))
  path <- file.path(directory, "threshold")
  if (!file.exists(path) || file.size(path) == 0) return(matrices)
  x <- utils::read.table(path)
  thresholds <- split(x[[4]], paste(x[[2]], x[[3]], sep = ","))
  names(thresholds) <- paste0("threshold ", names(thresholds))
  c(matrices, thresholds)
}

for (directory in commandArgs(TRUE)) {
  series <- Filter(function(x) stats::var(x) > 0, series_of(directory))
  size <- vapply(series, function(x) unname(coda::effectiveSize(coda::mcmc(x))), 1)
  worst <- which.min(size)
  of_thresholds <- size[startsWith(names(size), "threshold")]
  least <- if (length(of_thresholds) > 0) min(of_thresholds) else NA
  cat(length(series[[1]]), size[worst], least, names(size)[worst], "\n")
}
