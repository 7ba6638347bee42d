# The records of the data as the model holds them.

# list(levels (integer matrix, a record a row), values (double matrix), present (logical, record x trait)); NULL when
# the files are not there.
read_records_of_data <- function(m) {
  integers <- file.path(m$directory, "RCDATA_I")
  reals <- file.path(m$directory, "RCDATA_R")
  if (!file.exists(integers) || !file.exists(reals)) return(NULL)
  levels <- read_record_matrix(integers, "integer", 4L)
  if (ncol(levels) < m$iv_50 || m$iv_50 < 3) return(NULL)
  mask <- levels[, m$iv_50 - 2L]
  present <- vapply(seq_len(m$nt), function(t) bitwAnd(bitwShiftR(mask, m$nt - t), 1L) == 1L, logical(length(mask)))
  list(levels = levels, values = read_record_matrix(reals, "double", 4L),
       present = matrix(present, ncol = m$nt))
}

# Sires and dams of the levels of factor k, a row a level (0 unknown, negative: phantom group); NULL without a pedigree.
read_parents <- function(m, k) {
  path <- file.path(m$directory, paste0("PEDFILE", k))
  if (!file.exists(path)) return(NULL)
  pairs <- unlist(lapply(read_records(path), function(r) readBin(r, "integer", length(r) %/% 4L, 4L,
    endian = "little")))
  matrix(pairs, ncol = 2, byrow = TRUE)
}
