# Segments of a chain become one chain, chains become one array of draws.

# list(number, round, values, models, lik, segments): rounds numbered through, nothing dropped but what `burnin`
# asks for. segments: data frame (chain, segment, path, samples, first, last, state).
join_segments <- function(m, chain, burnin, remarks) {
  parts <- list()
  rows <- list()
  before <- 0
  for (s in chain$segments) {
    part <- if (s$counts) read_segment(m, s$path, s$directives$analysis)
    n <- length(part$round)
    if (n > 0) {
      part$round <- part$round + shift_of(s, part$round, before)
      before <- part$round[n]
      parts[[length(parts) + 1L]] <- part
    }
    state <- segment_state(s)
    remark_on_segment(chain$number, s, n, state, remarks)
    rows[[length(rows) + 1L]] <- segment_row(chain$number, s, part$round, state)
  }
  out <- list(number = chain$number, segments = do.call(rbind, rows))
  for (name in c("values", "models")) out[[name]] <- do.call(rbind, lapply(parts, function(p) p[[name]]))
  for (name in c("round", "lik")) out[[name]] <- unlist(lapply(parts, function(p) p[[name]]))
  leave_out(out, burnin + chain$segments[[1]]$burnin, burnin)
}

segment_row <- function(number, s, round, state) {
  n <- length(round)
  data.frame(chain = number, segment = s$number, path = s$path, samples = n, first = if (n > 0) round[1] else NA,
             last = if (n > 0) round[n] else NA, state = state)
}

remark_on_segment <- function(number, s, n, state, remarks) {
  where <- paste0("chain ", number, ", segment ", s$number)
  solver <- solves(s$directives$analysis)
  if (!s$counts) remarks$add(where, " only ended a burn-in and holds no samples")
  else if (n == 0 && !solver) remarks$add(where, " has no samples (stopped in its burn-in, or not begun)")
  else if (n > 0 && state != "finished")
    remarks$add(where, " is ", state, ": its ", count_of(n, "whole sample"), " are used")
}

# What is added to the rounds of a segment: the record of zeph-chains, or, without one, what makes a round number that
# comes again continue by one interval.
shift_of <- function(s, round, before) {
  if (!is.na(s$shift)) return(s$shift)
  if (round[1] > before) 0 else before - round[1] + s$interval
}

# Leaves out the rounds up to `last`; an NA burn-in of the directive file counts as 0.
leave_out <- function(chain, last, burnin) {
  if (burnin <= 0 || length(chain$round) == 0) return(chain)
  kept <- chain$round > (if (is.na(last)) burnin else last)
  for (name in c("values", "models")) if (!is.null(chain[[name]])) chain[[name]] <- chain[[name]][kept, , drop = FALSE]
  for (name in c("round", "lik")) if (!is.null(chain[[name]])) chain[[name]] <- chain[[name]][kept]
  chain
}

# "finished", "running or killed", "a run that ended with code 27", by what a run leaves at its end.
segment_state <- function(s) {
  code <- suppressWarnings(as.integer(readLines_or_na(file.path(s$path, "exit"))))
  if (!is.na(code) && code != 0) return(paste("a run that ended with code", code))
  status <- readLines_or_na(file.path(s$path, "status"))
  if (grepl("concluded", status)) return("finished")
  resumed <- any(grepl("[[resume]]", readLines_of(file.path(s$path, "segment.toml")), fixed = TRUE)) && is.na(code)
  ended <- file.exists(file.path(s$path, "gibsol")) || file.exists(file.path(s$path, "gparlast"))
  if (ended && !resumed) return("finished") # a resumed segment has the files of its former end
  if (is.na(status)) "not begun" else "running or killed"
}

readLines_of <- function(path) if (file.exists(path)) readLines(path, warn = FALSE) else character(0)

readLines_or_na <- function(path) {
  if (!file.exists(path)) return(NA_character_)
  lines <- readLines(path, n = 1, warn = FALSE)
  if (length(lines) == 0) NA_character_ else trimws(lines[1])
}

# Joined chains as an array draw x chain x name, of the length of the shortest chain in use. Chains with less than half
# of the longest are left out of it. list(draws, used (numbers of the chains), length, interval)
array_of_chains <- function(chains, remarks) {
  lengths <- vapply(chains, function(chain) length(chain$round), 1L)
  longest <- max(0L, lengths)
  used <- which(lengths > 0 & 2 * lengths >= longest)
  for (i in which(lengths > 0 & 2 * lengths < longest))
    remarks$add("chain ", chains[[i]]$number, " has ", lengths[i], " of ", longest,
      " samples and is left out of the tables")
  n <- if (length(used) > 0) min(lengths[used]) else 0L
  if (length(used) > 0 && any(lengths[used] != n))
    remarks$add("the chains differ in length: the first ", n, " samples of each are used (the longest has ", longest,
      ")")
  names <- if (length(used) > 0) colnames(chains[[used[1]]]$values) else character(0)
  draws <- array(NA_real_, c(n, length(used), length(names)), list(NULL, NULL, names))
  for (i in seq_along(used)) draws[, i, ] <- chains[[used[i]]]$values[seq_len(n), ]
  list(draws = draws, used = used, length = n, rounds = rounds_per_sample(chains[used]))
}

rounds_per_sample <- function(chains) {
  steps <- unlist(lapply(chains, function(chain) diff(chain$round)))
  if (length(steps) == 0) 1 else stats::median(steps)
}
