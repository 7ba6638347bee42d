# Where the chains are: a directory of zeph-chains with chainN/segM, or one work directory.

# list(root, shown (as the user typed it), study, model_directory, plan, chains): chains is a list of list(number,
# segments), a segment list(number, path, counts, shift, burnin, rounds, interval, seeds, directives). `plan` holds
# chains.toml, or NULL. model_directory is where the model, names and codes are.
find_chains <- function(directory) {
  if (!dir.exists(directory)) stop_report("no such directory: ", directory)
  place <- chains_in(normalizePath(directory)) # rendering the page changes the working directory
  place$shown <- directory
  place
}

chains_in <- function(directory) {
  found <- numbered_directories(directory, "chain")
  if (length(found) == 0) return(single_directory(directory))
  plan <- read_toml(file.path(directory, "chains.toml"))
  chains <- lapply(names(found), function(n) list(number = as.integer(n), segments = segments_of(found[[n]])))
  chains <- Filter(function(chain) length(chain$segments) > 0, chains)
  if (length(chains) == 0) stop_report(directory, " has chains without segments (chain1/seg1)")
  first <- chains[[1]]$segments[[1]]$path
  list(root = directory, study = TRUE, plan = plan, chains = chains,
       model_directory = model_directory_of(first, directory, plan))
}

single_directory <- function(directory) {
  if (!file.exists(file.path(directory, "MODINF")))
    stop_report(directory, " holds neither chains (chain1/seg1) nor a work directory (MODINF)")
  list(root = directory, study = FALSE, plan = NULL, model_directory = directory,
       chains = list(list(number = 1L, segments = list(segment_of(directory, 1L)))))
}

# Directories word1, word2, .. by number.
numbered_directories <- function(directory, word) {
  names <- list.files(directory, pattern = paste0("^", word, "[0-9]+$"))
  names <- names[dir.exists(file.path(directory, names))]
  numbers <- as.integer(sub(word, "", names))
  stats::setNames(as.list(file.path(directory, names[order(numbers)])), sort(numbers))
}

segments_of <- function(directory) {
  found <- numbered_directories(directory, "seg")
  lapply(names(found), function(n) segment_of(found[[n]], as.integer(n)))
}

# The records that zeph-chains keeps of a segment; for a work directory its directive file, and the presence of the
# restart files, say the same.
segment_of <- function(path, number) {
  directives <- read_directives(path)
  continued <- file.exists(file.path(path, "oldsol")) && file.exists(file.path(path, "r_parm"))
  out <- list(number = number, path = path, counts = TRUE, shift = NA_integer_, directives = directives,
              seeds = directives$seeds, burnin = if (continued) 0 else directives$burnin, rounds = directives$rounds,
              interval = directives$interval)
  recorded <- read_toml(file.path(path, "segment.toml"))
  for (name in intersect(names(recorded), c("counts", "shift", "seeds", "burnin", "rounds",
    "interval"))) out[[name]] <- recorded[[name]]
  out
}

model_directory_of <- function(segment, root, plan) {
  if (file.exists(file.path(segment, "MODINF"))) return(segment)
  if (!is.null(plan$work)) {
    work <- if (startsWith(plan$work, "/")) plan$work else file.path(root, plan$work)
    if (file.exists(file.path(work, "MODINF"))) return(work)
  }
  stop_report(segment, " has no MODINF, nor has the work directory of ", root)
}

# A TOML file as a list; NULL when it is missing or can't be read.
read_toml <- function(path) {
  if (!file.exists(path)) return(NULL)
  tryCatch(RcppTOML::parseTOML(path), error = function(e) NULL)
}

# Type of analysis of the first segment, NA when it is not known.
analysis_of <- function(place) place$chains[[1]]$segments[[1]]$directives$analysis

# The directive file: analysis, seeds, burn-in, rounds, interval, prior degrees of freedom. NULL parts where it can't
# be read. MODINF names it in its first text field; zeph-prepare calls it zeph.dir.
read_directives <- function(path) {
  file <- directive_file_of(path)
  if (is.null(file)) return(list(analysis = NA_integer_, seeds = c(NA, NA), burnin = 0, rounds = NA, interval = 1))
  rows <- lapply(strsplit(gsub("[,\t]", " ", readLines(file, warn = FALSE)), " +"), function(words) {
    suppressWarnings(as.numeric(words[nzchar(words)]))
  })
  rows <- Filter(length, rows)
  line <- function(i, n) if (length(rows) >= i) c(rows[[i]], rep(NA, n))[seq_len(n)] else rep(NA_real_, n)
  list(analysis = line(1, 1), seeds = line(2, 2), burnin = line(3, 1), rounds = line(3, 2)[2],
       interval = max(1, line(3, 3)[3], na.rm = TRUE), prior = rows[-(1:3)])
}

directive_file_of <- function(path) {
  usual <- file.path(path, "zeph.dir")
  if (file.exists(usual)) return(usual)
  modinf <- file.path(path, "MODINF")
  if (!file.exists(modinf)) return(NULL)
  texts <- items_of(read_records(modinf)[[2]], modinf)$text(200, 5)
  found <- Filter(function(name) nzchar(name) && file.exists(file.path(path, basename(name))), texts)
  if (length(found) == 0) NULL else file.path(path, basename(found[1]))
}
