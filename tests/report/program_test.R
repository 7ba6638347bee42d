# The command as the user calls it: messages and exit codes.

study <- function() {
  set.seed(9)
  rounds <- 100L + 10L * (1:60)
  study_of(rep(list(list(list(g = 3 + rnorm(60, sd = 0.1), r = 4 + rnorm(60, sd = 0.1), round = rounds))), 2))
}

told <- function(words, directory = getwd()) run_program("zeph-report", words, directory)

test_that("--help and --version", {
  help <- told("--help")
  expect_equal(help$status, 0L)
  expect_match(help$out, "zeph-report RUNS|WORK [options]", fixed = TRUE, all = FALSE)
  expect_equal(told("--version"), list(status = 0L, out = paste("zeph-report", report_version)))
})

test_that("every fault of the command line and the files has its message and exit code", {
  place <- scratch()
  work <- one_trait()
  fault <- function(words, text, status = 2L) {
    r <- told(words, place)
    expect_equal(r$status, status)
    expect_equal(r$out, paste0("zeph-report: ", text))
  }
  fault(character(0), "which directory? zeph-report RUNS|WORK; see --help")
  fault("none", "no such directory: none")
  fault(c("a", "b"), "one directory only: a or b")
  fault(c("a", "--colour", "blue"), "unknown option --colour; known: --html --csv --coda --netcdf --burnin")
  fault(c("a", "--csv"), "--csv needs a value")
  fault(c("a", "--burnin", "-5"), "--burnin needs a number of rounds, not \"-5\"")
  fault(c("a", "--burnin=many"), "--burnin needs a number of rounds, not \"many\"")
  dir.create(file.path(place, "empty"))
  fault("empty", paste0(file.path(place, "empty"), " holds neither chains (chain1/seg1) nor a work directory (MODINF)"))
  dir.create(file.path(place, "bare/chain1"), recursive = TRUE)
  fault("bare", paste0(file.path(place, "bare"), " has chains without segments (chain1/seg1)"))
  dir.create(file.path(place, "bare/chain1/seg1"))
  fault("bare", paste0(file.path(place, "bare/chain1/seg1"), " has no MODINF, nor has the work directory of ",
    file.path(place, "bare")))
  fault(work, paste0("nothing to report in ", work,
    ": no samples and no solutions. chain 1, segment 1 has no samples (stopped in its burn-in, or not begun); ",
                     "no solutions of chain 1, segment 1: its run has not ended (not begun)"), 1L)
})

test_that("damaged model files are told", {
  work <- one_trait()
  path <- file.path(work, "MODINF")
  bytes <- readBin(path, "raw", file.size(path))
  writeBin(c(as.raw(7), bytes[-1]), path)
  expect_match(told(work)$out, "^zeph-report: damaged record [0-9]+ in .*MODINF$")
  writeBin(bytes[1:2000], path)
  expect_match(told(work)$out, "^zeph-report: (damaged record|MODINF of)")
})

test_that("places that can't be written are told, and exports of nothing", {
  root <- study()
  none <- file.path(root, "none", "page.html")
  expect_match(told(c(root, "--html", none))$out, "can't write .*page.html: there is no directory", all = FALSE)
  file.create(file.path(root, "taken"))
  expect_match(told(c(root, "--csv", file.path(root, "taken")))$out, "can't make the directory .*taken", all = FALSE)
  expect_match(told(c(root, "--netcdf", file.path(root, "none", "x.nc")))$out, "can't write .*x.nc", all = FALSE)
  solved <- run_zeph(prepared(c('[data]', 'file = "d.csv"', '[trait.y]', 'formula = "1 + sex"', '[run]',
    'analysis = "solve"'), calves))
  r <- told(c(solved, "--coda", file.path(root, "c"), "--netcdf", file.path(root, "n.nc")))
  expect_equal(r$status, 1L)
  expect_equal(r$out[length(r$out)], "zeph-report: no draws for --coda and --netcdf")
  expect_true(file.exists(file.path(solved, "report.html"))) # the page is written all the same
  expect_false(any(file.exists(file.path(root, c("c", "n.nc")))))
})

# What is printed is for a reader who may leave (`| head`); the exit code and the page are for others, too.
test_that("a reader that closes its end early costs neither the page nor a message", {
  root <- study()
  errors <- file.path(root, "errors")
  piped <- function(words) {
    command <- sprintf("%s %s 2> %s | true; exit ${PIPESTATUS[0]}", shQuote(file.path(programs, "zeph-report")),
      paste(shQuote(words), collapse = " "), shQuote(errors))
    system2("bash", c("-c", shQuote(command)))
  }
  for (words in list(root, "--help", "--version")) {
    expect_equal(piped(words), 0L, label = words)
    expect_equal(readLines(errors), character(0), label = words)
  }
  expect_true(file.exists(file.path(root, "report.html")))
})

test_that("what is missing on the machine is told", {
  kept <- needed_packages
  assign("needed_packages", c("stats", "not.a.Package"), globalenv())
  on.exit(assign("needed_packages", kept, globalenv()))
  expect_error(need_packages(), "missing R packages: not.a.Package; in Debian r-cran-not.a.package")
  place <- scratch()
  for (tool in c("dirname", "readlink")) file.symlink(Sys.which(tool), file.path(place, tool))
  told <- suppressWarnings(system2("/usr/bin/env", c(paste0("PATH=", place), "/bin/sh",
    file.path(programs, "zeph-report"), "x"), stdout = TRUE, stderr = TRUE))
  expect_equal(as.vector(told), "zeph-report: Rscript is missing: install the packages of scripts/packages.txt")
  expect_equal(attr(told, "status"), 2L)
})

test_that("model files that are too short are told", {
  place <- scratch()
  path <- file.path(place, "MODINF")
  frame <- function(n) {
    length <- writeBin(as.integer(n), raw(), endian = "little")
    c(length, raw(n), length)
  }
  writeBin(c(frame(2)), path)
  expect_error(read_modinf(path), "a record of .*MODINF is shorter than its items")
  writeBin(c(frame(28), frame(1004), frame(12)), path)
  expect_error(read_modinf(path), "MODINF of .* ends too early")
  expect_error(read_modinf(file.path(place, "none", "MODINF")),
    "none is not a work directory of ZEPH: it has no MODINF")
})
