# Files of binary records: each framed by its length in bytes (4-byte little-endian integer) before and after.

# All records of a file, as raw vectors. Stops on a frame that does not close.
read_records <- function(path) {
  bytes <- readBin(path, "raw", file.size(path))
  length_at <- function(at) readBin(bytes[at + 0:3], "integer", size = 4, endian = "little")
  out <- list()
  at <- 1
  while (at + 7 <= length(bytes)) {
    n <- length_at(at)
    if (n < 0 || at + n + 7 > length(bytes) || length_at(at + 4 + n) != n) stop_report("damaged record ",
      length(out) + 1L, " in ", path)
    out[[length(out) + 1L]] <- bytes[at + 3 + seq_len(n)]
    at <- at + n + 8
  }
  out
}

# The items of one record in turn: i4(n), r4(n), r8(n) numbers, l4(n) logicals, text(width, n) texts without trailing
# blanks, skip(bytes). path: of its file, for messages.
items_of <- function(record, path) {
  force(record) # the walk moves on
  at <- 0L
  take <- function(n) {
    if (at + n > length(record)) stop_report("a record of ", path, " is shorter than its items")
    part <- record[at + seq_len(n)]
    at <<- at + n
    part
  }
  numbers <- function(n, what, size) {
    if (n == 0) return(if (what == "integer") integer(0) else double(0))
    readBin(take(n * size), what, n, size, endian = "little")
  }
  list(i4 = function(n = 1L) numbers(n, "integer", 4L),
       r4 = function(n = 1L) numbers(n, "double", 4L),
       r8 = function(n = 1L) numbers(n, "double", 8L),
       l4 = function(n = 1L) bitwAnd(numbers(n, "integer", 4L), 1L) == 1L,
       text = function(width, n = 1L) vapply(seq_len(n), function(i) sub(" +$", "", text_of_bytes(take(width))), ""),
       skip = function(bytes) invisible(take(bytes)))
}

# Bytes as a text; bytes that are not printable ASCII become "?".
text_of_bytes <- function(bytes) {
  v <- as.integer(bytes)
  v[v < 32L | v > 126L] <- 63L
  rawToChar(as.raw(v))
}

# A file of records of one length as a matrix, a record a row. what: "integer" (4 bytes) or "double" of `size` bytes.
# A cut last record is left out.
read_record_matrix <- function(path, what, size) {
  bytes <- readBin(path, "raw", file.size(path))
  if (length(bytes) < 8) return(matrix(numeric(0), 0, 0))
  n <- readBin(bytes[1:4], "integer", size = 4, endian = "little")
  rows <- length(bytes) %/% (n + 8)
  if (n == 0 || rows == 0) return(matrix(numeric(0), rows, 0))
  block <- matrix(bytes[seq_len(rows * (n + 8))], nrow = n + 8)
  values <- readBin(as.vector(block[4 + seq_len(n), ]), what, rows * (n %/% size), size, endian = "little")
  matrix(values, nrow = rows, byrow = TRUE)
}
