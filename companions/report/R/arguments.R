# The command line.

usage_text <- "zeph-report: from chains to answers

    zeph-report RUNS|WORK [options]

RUNS is a directory of zeph-chains (chain1/seg1 and so on), WORK one work directory of ZEPH.

  --html FILE     the page; default report.html in RUNS or WORK
  --csv DIR       tables and draws as CSV files
  --coda DIR      draws as CODAindex.txt and one CODAchainN.txt per chain
  --netcdf FILE   draws as NetCDF-4, a variable of chain x draw for each name
  --burnin N      leave out the first N sampling rounds of every chain, after the burn-in of the chains
  --help, --version

Exit codes: 0 done, 1 there is nothing to report, 2 command line or files.
"

report_version <- "0.1.0"

option_words <- c("--html", "--csv", "--coda", "--netcdf", "--burnin")

# list(directory, html, csv, coda, netcdf, burnin); html NULL means the default place. Stops on anything else.
read_arguments <- function(words) {
  out <- list(directory = NULL, html = NULL, csv = NULL, coda = NULL, netcdf = NULL, burnin = 0L)
  at <- 1L
  while (at <= length(words)) {
    word <- words[at]
    value <- sub("^[^=]*=", "", word)
    name <- sub("=.*$", "", word)
    if (name %in% option_words) {
      if (!grepl("=", word, fixed = TRUE)) {
        at <- at + 1L
        if (at > length(words)) stop_report(name, " needs a value")
        value <- words[at]
      }
      out[[sub("--", "", name)]] <- value
    } else if (startsWith(word, "-")) {
      stop_report("unknown option ", word, "; known: ", paste(option_words, collapse = " "))
    } else if (is.null(out$directory)) {
      out$directory <- word
    } else {
      stop_report("one directory only: ", out$directory, " or ", word)
    }
    at <- at + 1L
  }
  if (is.null(out$directory)) stop_report("which directory? zeph-report RUNS|WORK; see --help")
  out$burnin <- burnin_of(out$burnin)
  out
}

burnin_of <- function(text) {
  n <- suppressWarnings(as.numeric(text))
  if (is.na(n) || n < 0 || n != round(n)) stop_report("--burnin needs a number of rounds, not \"", text, "\"")
  n
}
