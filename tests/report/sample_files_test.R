# Whole rounds only, elements by key.

test_that("half a row and half a round at the end are left out", {
  work <- one_trait()
  write_one_trait_samples(work, c(1, 2, 3), c(4, 5, 6), c(110L, 120L, 130L))
  m <- read_model(work)
  path <- file.path(work, "gib.samples")
  cat(sprintf("%8d%4d%4d%4d%15s%11d\n", 140L, 1L, 1L, 1L, "7.00000    ", 0L), file = path, append = TRUE) # R is missing
  expect_equal(read_segment(m, work, 3)$round, c(110, 120, 130))
  cat("     140   2   1   1    8.0", file = path, append = TRUE) # half a row
  s <- read_segment(m, work, 3)
  expect_equal(s$round, c(110, 120, 130))
  expect_equal(s$values[, "G[animal,y,y]"], c(1, 2, 3))
  expect_equal(s$values[, "R[y,y]"], c(4, 5, 6))
})

test_that("elements are told by matrix, row and column, whatever the order of their rows", {
  m <- read_model(two_traits())
  rows <- data.frame(round = 10L, k = c(1L, 1L, 1L, 2L, 2L, 2L), r = c(2L, 1L, 2L, 2L, 1L, 2L),
    c = c(2L, 1L, 1L, 1L, 1L, 2L), value = 1:6,
                     group = c(0L, 0L, 0L, 1L, 1L, 1L))
  path <- file.path(m$directory, "gib.samples")
  writeLines(matrix_lines(rows), path)
  s <- read_segment(m, m$directory, 3)
  expect_equal(s$values[1, c("G[genetic,bwt,bwt]", "G[genetic,bwt,wwt]", "G[genetic,wwt,wwt]", "R[bwt,bwt]",
    "R[bwt,wwt]", "R[wwt,wwt]")],
               c("G[genetic,bwt,bwt]" = 2, "G[genetic,bwt,wwt]" = 3, "G[genetic,wwt,wwt]" = 1, "R[bwt,bwt]" = 5,
                 "R[bwt,wwt]" = 4, "R[wwt,wwt]" = 6))
})

test_that("a smaller model of a round leaves its absent elements empty", {
  m <- read_model(file.path(source_tree, "tests/data/workdirs/jumpI3_t6"))
  place <- scratch()
  rows <- function(round, d) {
    r <- rep(seq_len(d), seq_len(d))
    data.frame(round = round, k = c(rep(1L, d * (d + 1) / 2), rep(2L, 6)), r = c(r, 1L, 2L, 2L, 3L, 3L, 3L),
               c = c(sequence(seq_len(d)), 1L, 1L, 2L, 1L, 2L, 3L), value = round, group = 0L)
  }
  writeLines(matrix_lines(rbind(rows(1L, 1), rows(2L, 3), rows(3L, 2))), file.path(place, "gib.samples"))
  writeLines(sprintf("%d %d 3 1.5", 1:3, c(1L, 3L, 2L)), file.path(place, "py"))
  s <- read_segment(m, place, 6)
  expect_equal(unname(s$values[, "G[1,1,1]"]), c(1, 2, 3))
  expect_equal(unname(s$values[, "G[1,2,2]"]), c(NA, 2, 3))
  expect_equal(unname(s$values[, "G[1,3,3]"]), c(NA, 2, NA))
  expect_equal(s$models[, 1], c(1, 3, 2))
})

test_that("thresholds belong to the traits in the order of the rows, though each row names the first", {
  m <- list(nt = 3L, trait_names = c("ease", "y", "score"), kinds = data.frame(thresholds = c(TRUE, FALSE, TRUE)))
  place <- scratch()
  one <- function(round, v) c(sprintf("%d 1 1 0.0", round), sprintf("%d 1 2 1.0", round),
    sprintf("%d 1 1 0.0", round), sprintf("%d 1 2 %.2f", round, v), sprintf("%d 1 3 1.0", round))
  writeLines(c(one(5, 0.4), one(10, 0.6), "15 1 1 0.0"), file.path(place, "threshold"))
  t <- threshold_samples(m, place)
  expect_equal(colnames(t$values), c("threshold[ease,1]", "threshold[ease,2]", "threshold[score,1]",
    "threshold[score,2]", "threshold[score,3]"))
  expect_equal(t$values[, "threshold[score,2]"], c(0.4, 0.6))
  expect_equal(t$round, c(5, 10))
})

test_that("a mixing proportion is called by its indicator and stands in the column of the mixed trait", {
  m <- read_model(file.path(source_tree, "tests/data/workdirs/mix2_t3"))
  place <- scratch()
  writeLines(c("10 0.25 0.0", "20 0.5 0.0"), file.path(place, "mix_pi"))
  expect_equal(mixture_samples(m, place)$values, matrix(c(0.25, 0.5), 2, 1, dimnames = list(NULL, "pi[DISEASE]")))
})

test_that("numbers that are none are read as such", {
  place <- scratch()
  writeLines(c("1 1 1 NaN", "2 1 1 Infinity", "3 1 1 -0.5"), file.path(place, "py"))
  expect_equal(read_free_rows(file.path(place, "py"), 4L)[, 4], c(NaN, Inf, -0.5))
})

test_that("kept solutions are read in both layouts, up to the last whole record", {
  place <- scratch()
  frame <- function(...) {
    bytes <- c(...)
    n <- writeBin(length(bytes), raw(), endian = "little")
    c(n, bytes, n)
  }
  i4 <- function(x) writeBin(as.integer(x), raw(), endian = "little")
  r8 <- function(x) writeBin(as.double(x), raw(), endian = "little")
  all <- file.path(place, "all")
  cut <- utils::head(frame(i4(3), r8(c(9, 9, 9))), -5)
  writeBin(c(frame(i4(3)), frame(i4(1), r8(c(1, 2, 3))), frame(i4(2), r8(c(4, 5, 6))), cut), all)
  expect_equal(read_solution_samples(all, -1, c(1L, 3L, 7L)), matrix(c(1, 4, 3, 6), 2,
    dimnames = list(NULL, c("1", "3"))))
  list_file <- file.path(place, "list")
  writeBin(c(frame(i4(3)), frame(i4(1), i4(2), r8(5)), frame(i4(1), i4(3), r8(6)), frame(i4(2), i4(2), r8(7)),
    frame(i4(2), i4(3), r8(8))), list_file)
  expect_equal(read_solution_samples(list_file, 2, c(3L, 2L, 1L)), matrix(c(5, 7, 6, 8), 2,
    dimnames = list(NULL, c("2", "3"))))
})
