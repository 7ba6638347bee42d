# The draws and tables in the formats of other programs. Every file is written beside its place and then renamed, so
# that a report that is killed leaves no half file.

write_whole <- function(path, write) {
  part <- paste0(path, ".part")
  tryCatch({
    write(part)
    if (!file.rename(part, path)) stop("can't rename")
  }, report_stop = function(e) stop(e), error = function(e) {
    unlink(part)
    stop_report("can't write ", path)
  }, warning = function(w) {
    unlink(part)
    stop_report("can't write ", path)
  })
}

make_directory <- function(path) {
  if (!dir.exists(path)) suppressWarnings(dir.create(path, recursive = TRUE))
  if (!dir.exists(path)) stop_report("can't make the directory ", path)
}

# tables: named list of data frames; each becomes NAME.csv. draws.csv has the columns .chain, .iteration, .draw, then a
# column a name, as posterior::as_draws_df reads it.
export_csv <- function(directory, tables, draws) {
  make_directory(directory)
  write_csv <- function(x, name) write_whole(file.path(directory, paste0(name, ".csv")),
    function(path) utils::write.csv(x, path, row.names = FALSE, na = ""))
  for (name in names(tables)) if (!is.null(tables[[name]])) write_csv(tables[[name]], name)
  if (dim(draws)[3] > 0) write_csv(draws_table(draws), "draws")
}

draws_table <- function(draws) {
  n <- dim(draws)[1]
  chains <- dim(draws)[2]
  values <- matrix(draws, n * chains, dim(draws)[3], dimnames = list(NULL, dimnames(draws)[[3]]))
  data.frame(.chain = rep(seq_len(chains), each = n), .iteration = rep(seq_len(n), chains),
    .draw = seq_len(n * chains), values, check.names = FALSE)
}

# Names that every draw has.
whole_names <- function(draws) {
  if (length(draws) == 0) return(character(0))
  Filter(function(name) !anyNA(draws[, , name]), dimnames(draws)[[3]])
}

# CODAindex.txt (name, first and last row) and CODAchainN.txt (iteration, value), as coda::read.coda reads them. Names
# that a model left out of some draw are not written: the format has no missing values. Blanks of names become "_".
export_coda <- function(directory, draws, rounds) {
  make_directory(directory)
  whole <- whole_names(draws)
  n <- dim(draws)[1]
  index <- data.frame(gsub("[ \t]", "_", whole), (seq_along(whole) - 1) * n + 1, seq_along(whole) * n)
  rows <- function(x, path) utils::write.table(x, path, quote = FALSE, row.names = FALSE, col.names = FALSE)
  write_whole(file.path(directory, "CODAindex.txt"), function(path) rows(index, path))
  iterations <- format(seq_len(n) * rounds, scientific = FALSE, trim = TRUE)
  for (chain in seq_len(dim(draws)[2])) write_whole(file.path(directory, paste0("CODAchain", chain, ".txt")),
    function(path) {
    values <- formatC(as.vector(draws[, chain, whole]), digits = 15, format = "g")
    rows(data.frame(rep(iterations, length(whole)), values), path)
  })
  length(whole)
}

# One NetCDF-4 variable a name, dimensions chain and draw; absent values are the file's missing value.
export_netcdf <- function(path, draws, used, title, rounds) {
  names <- dimnames(draws)[[3]]
  chain <- ncdf4::ncdim_def("chain", "", as.integer(used))
  draw <- ncdf4::ncdim_def("draw", "", seq_len(dim(draws)[1]), longname = "sample of the chain after burn-in")
  variables <- lapply(names, function(name) ncdf4::ncvar_def(gsub("/", "_", name, fixed = TRUE), "",
    list(chain, draw), NaN, prec = "double"))
  write_whole(path, function(part) {
    file <- ncdf4::nc_create(part, variables, force_v4 = TRUE)
    tryCatch({
      for (i in seq_along(names)) ncdf4::ncvar_put(file, variables[[i]], t(matrix(draws[, , i], dim(draws)[1])))
      ncdf4::ncatt_put(file, 0, "title", title)
      ncdf4::ncatt_put(file, 0, "rounds_per_draw", rounds)
    }, finally = ncdf4::nc_close(file))
  })
}
