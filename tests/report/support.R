# Work directories with samples made by the tests, and runs of the programs.

scratch <- function() {
  path <- tempfile("report")
  dir.create(path)
  normalizePath(path)
}

# Runs a program of the build; list(status, out): what it printed on both channels.
run_program <- function(name, words = character(0), directory = getwd()) {
  old <- setwd(directory)
  on.exit(setwd(old))
  out <- suppressWarnings(system2(file.path(programs, name), shQuote(words), stdout = TRUE, stderr = TRUE))
  status <- attr(out, "status")
  list(status = if (is.null(status)) 0L else status, out = as.vector(out))
}

# A work directory of zeph-prepare; files: named texts that stand beside the description.
prepared <- function(description, files, into = file.path(scratch(), "work")) {
  home <- scratch()
  for (name in names(files)) writeLines(files[[name]], file.path(home, name))
  writeLines(description, file.path(home, "model.toml"))
  done <- run_program("zeph-prepare", c(file.path(home, "model.toml"), "--into", into))
  if (done$status != 0) stop(paste(done$out, collapse = "\n"))
  into
}

run_zeph <- function(directory) {
  done <- run_program("ZEPH", directory = directory)
  writeLines(done$out, file.path(directory, "listing.txt"))
  if (done$status != 0) stop(paste(utils::tail(done$out, 5), collapse = "\n"))
  directory
}

# One trait, an animal factor with pedigree: G and R are 1 x 1.
one_trait <- function(run = "burnin = 100\nrounds = 1000\ninterval = 10\nseeds = [11, 12]", more = "",
                      into = file.path(scratch(), "work"), analysis = "gibbs") {
  prepared(c('title = "One trait"', '[data]', 'file = "d.csv"', '[factor.animal]', 'pedigree = "p.csv"', 'start = 3.0',
             '[trait.y]', 'formula = "1 + sex + (1 | animal)"', '[residual]', 'start = 4.0', '[run]',
             sprintf('analysis = "%s"', analysis), run, more), calves, into)
}

calves <- list(d.csv = c("animal,sex,y", "c4,m,4.5", "c5,f,2.9", "c6,f,3.9", "c7,m,3.5", "c8,m,5.0"),
               p.csv = c("animal,sire,dam", "s1,,", "d2,,", "s3,,", "c4,s1,", "c5,s3,d2", "c6,s1,d2", "c7,c4,c5",
                 "c8,s3,c6"))

# Two traits, the same factor: G and R are 2 x 2.
two_traits <- function(more = "", run = "burnin = 100\nrounds = 1000\ninterval = 10\nseeds = [11, 12]",
  into = file.path(scratch(), "work")) {
  set.seed(4)
  animals <- sprintf("a%02d", 1:40)
  parent <- function(pick) c(rep("", 10), sprintf("a%02d", pick))
  data <- c("animal,sex,bwt,wwt", sprintf("%s,%s,%.3f,%.3f", animals, c("m", "f"), rnorm(40, 30, 4),
    rnorm(40, 200, 20)))
  pedigree <- c("animal,sire,dam", paste(animals, parent(sample(1:5, 30, TRUE)), parent(sample(6:10, 30, TRUE)),
    sep = ","))
  prepared(c('title = "Two traits"', more, '[data]', 'file = "d.csv"', '[factor.genetic]', 'pedigree = "p.csv"',
    'start = [[6, 5], [5, 150]]',
    'prior_df = 6', '[trait.bwt]', 'formula = "1 + sex + (1 | genetic | animal)"', '[trait.wwt]',
    'formula = "1 + sex + (1 | genetic | animal)"', '[residual]', 'start = [[9, 10], [10, 250]]', 'prior_df = 6',
    '[run]', 'analysis = "gibbs"', run), list(d.csv = data, p.csv = pedigree), into)
}

# Rows of gib.samples (I8, 3I4, G15.6, I11) from a data frame (round, k, r, c, value, group).
matrix_lines <- function(rows) sprintf("%8d%4d%4d%4d%15s%11d", rows$round, rows$k, rows$r, rows$c,
  formatC(rows$value, digits = 6, format = "g"), rows$group)

# Writes samples of a one-trait model with one factor into its directory: draws of G and R, rounds.
write_one_trait_samples <- function(directory, g, r, round) {
  rows <- data.frame(round = rep(round, each = 2), k = rep(1:2, length(g)), r = 1L, c = 1L,
    value = as.vector(rbind(g, r)), group = rep(0:1, length(g)))
  writeLines(matrix_lines(rows), file.path(directory, "gib.samples"))
  writeLines(sprintf("%12d %12d %12d %20.10f", round, 1L, 1L, 100 + seq_along(g)), file.path(directory, "py"))
}

# A directory of chains, a list of lists of segments, each list(g, r, round); extra: lines of segment.toml by position.
study_of <- function(chains, base = one_trait(), toml = NULL) {
  root <- scratch()
  for (i in seq_along(chains)) for (j in seq_along(chains[[i]])) {
    path <- file.path(root, paste0("chain", i), paste0("seg", j))
    dir.create(path, recursive = TRUE)
    file.copy(list.files(base, full.names = TRUE), path)
    s <- chains[[i]][[j]]
    write_one_trait_samples(path, s$g, s$r, s$round)
    if (!is.null(toml)) writeLines(toml[[i]][[j]], file.path(path, "segment.toml"))
  }
  root
}

# A study over models made of samples: one factor of order 3, dims a list of chains, of each the number of its rows in
# each sample. sampler: lines of that file.
jump_study <- function(dims, sampler = NULL) {
  root <- scratch()
  for (i in seq_along(dims)) {
    path <- file.path(root, paste0("chain", i), "seg1")
    dir.create(path, recursive = TRUE)
    file.copy(list.files(file.path(source_tree, "tests/data/workdirs/jumpI3_t6"), full.names = TRUE), path)
    Sys.chmod(list.files(path, full.names = TRUE), "644")
    rounds <- 1000L + 5L * seq_along(dims[[i]])
    rows <- lapply(seq_along(rounds), function(j) {
      d <- dims[[i]][j]
      data.frame(round = rounds[j], k = c(rep(1L, d * (d + 1) / 2), rep(2L, 6)),
        r = c(rep(seq_len(d), seq_len(d)), 1L, 2L, 2L, 3L, 3L, 3L),
                 c = c(sequence(seq_len(d)), 1L, 1L, 2L, 1L, 2L, 3L), value = sin(j + d +
                   seq_len(d * (d + 1) / 2 + 6)), group = 0L)
    })
    writeLines(matrix_lines(do.call(rbind, rows)), file.path(path, "gib.samples"))
    writeLines(sprintf("%d %d 3 1.5", rounds, dims[[i]]), file.path(path, "py"))
    if (!is.null(sampler)) writeLines(sampler, file.path(path, "sampler"))
  }
  root
}

joined_chains <- function(root, burnin = 0) {
  place <- find_chains(root)
  m <- read_model(place$model_directory)
  remarks <- new_remarks()
  list(place = place, model = m, chains = lapply(place$chains, function(chain) join_segments(m, chain, burnin,
    remarks)), remarks = remarks)
}

report_of <- function(root, ...) make_report(read_arguments(c(root, ...)))

value_of <- function(table, name, column) table[[column]][table$name == name]
