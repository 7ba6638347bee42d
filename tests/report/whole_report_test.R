# Whole reports: what is printed, which files are written, and what a killed report leaves.

study <- function() {
  set.seed(9)
  rounds <- 100L + 10L * (1:60)
  study_of(rep(list(list(list(g = 3 + rnorm(60, sd = 0.1), r = 4 + rnorm(60, sd = 0.1), round = rounds))), 2))
}

told <- function(words, directory = getwd()) run_program("zeph-report", words, directory)

test_that("the verdict is printed, and all files are written", {
  root <- study()
  r <- told(c(root, "--csv", file.path(root, "csv"), "--coda", file.path(root, "coda"), "--netcdf",
    file.path(root, "draws.nc"), "--html", file.path(root, "page.html"), "--burnin", "100"))
  expect_equal(r$status, 0L)
  expect_match(r$out[1], "^Not yet: about [0-9,]+ more rounds per chain.$")
  expect_equal(r$out[2], "  2 chains of 50 samples, one every 10 rounds.")
  expect_match(r$out, "^  zeph-chains continue .* --rounds [0-9]+$", all = FALSE)
  expect_equal(r$out[length(r$out)], paste("Page:", file.path(root, "page.html")))
  expect_true(all(file.exists(file.path(root, c("page.html", "csv/draws.csv", "csv/summary.csv",
    "coda/CODAindex.txt", "coda/CODAchain2.txt", "draws.nc")))))
})

test_that("a report that is killed leaves chains as they were and no half page; the next one does its work", {
  root <- study()
  before <- tools::md5sum(list.files(root, recursive = TRUE, full.names = TRUE))
  log <- file.path(scratch(), "pid")
  system2("sh", c("-c", shQuote(paste0("echo $$ > ", log, "; exec ", file.path(programs, "zeph-report"), " ",
    root))), wait = FALSE, stdout = FALSE, stderr = FALSE)
  Sys.sleep(1.5)
  tools::pskill(as.integer(readLines(log)), 9)
  Sys.sleep(0.2)
  expect_equal(tools::md5sum(names(before)), before)
  expect_false(file.exists(file.path(root, "report.html")))
  expect_equal(told(root)$status, 0L)
  expect_true(file.exists(file.path(root, "report.html")))
})
