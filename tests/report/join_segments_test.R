# Segments become chains, chains an array.

part <- function(round, from = round[1]) list(g = from + seq_along(round), r = rep(1, length(round)), round = round)

test_that("a round number that comes again after a stop is another draw, and is kept", {
  root <- study_of(list(list(part(c(110L, 120L, 130L), 0), part(c(130L, 140L), 10))))
  chain <- joined_chains(root)$chains[[1]]
  expect_equal(unname(chain$values[, "G[animal,y,y]"]), c(1, 2, 3, 11, 12))
  expect_equal(chain$round, c(110, 120, 130, 140, 150))
})

test_that("the shift that zeph-chains tells is added, and a segment that only ends a burn-in is left out", {
  toml <- list(list("counts = false\nshift = 0", "counts = true\nshift = 1", "counts = true\nshift = 2"))
  root <- study_of(list(list(part(50L, 90), part(c(109L, 119L), 0), part(c(118L, 128L), 10))), toml = toml)
  j <- joined_chains(root)
  expect_equal(unname(j$chains[[1]]$values[, 1]), c(1, 2, 11, 12))
  expect_equal(j$chains[[1]]$round, c(110, 120, 120, 130))
  expect_match(j$remarks$all(), "chain 1, segment 1 only ended a burn-in", all = FALSE)
})

test_that("--burnin leaves out rounds beside the burn-in of the chain", {
  root <- study_of(list(list(part(c(110L, 120L, 130L, 140L), 0))))
  expect_equal(joined_chains(root, 20)$chains[[1]]$round, c(130, 140)) # burn-in of the chain: 100
})

test_that("the first samples of each chain make the array when lengths differ; a chain far behind is left out", {
  rounds <- function(n) seq(110L, by = 10L, length.out = n)
  root <- study_of(list(list(part(rounds(10), 0)), list(part(rounds(8), 0)), list(part(rounds(3), 0))))
  j <- joined_chains(root)
  a <- array_of_chains(j$chains, j$remarks)
  expect_equal(dim(a$draws)[1:2], c(8L, 2L))
  expect_equal(a$used, 1:2)
  expect_equal(a$rounds, 10)
  expect_match(j$remarks$all(), "chain 3 has 3 of 10 samples", all = FALSE)
  expect_match(j$remarks$all(), "the first 8 samples of each", all = FALSE)
})

test_that("chains and segments go by number, not by the letters of their names", {
  root <- study_of(rep(list(list(part(110L, 0))), 11))
  expect_equal(vapply(find_chains(root)$chains, function(chain) chain$number, 1L), 1:11)
})

test_that("a chain stopped in its burn-in has no samples, and the report says so", {
  root <- study_of(list(list(part(c(110L, 120L), 0)), list(part(110L, 0))))
  for (file in c("gib.samples", "py")) file.create(file.path(root, "chain2/seg1", file))
  j <- joined_chains(root)
  expect_match(j$remarks$all(), "chain 2, segment 1 has no samples", all = FALSE)
  expect_equal(array_of_chains(j$chains, j$remarks)$used, 1L)
})

test_that("a run that did not come to its end is named", {
  root <- study_of(list(list(part(c(110L, 120L), 0))))
  writeLines("Round 125", file.path(root, "chain1/seg1/status"))
  expect_match(joined_chains(root)$remarks$all(), "running or killed: its 2 whole samples are used", all = FALSE)
  writeLines("27", file.path(root, "chain1/seg1/exit"))
  expect_match(joined_chains(root)$remarks$all(), "a run that ended with code 27", all = FALSE)
})

test_that("a segment that is resumed has not ended, whatever its former end has left", {
  home <- scratch()
  put <- function(name, ...) writeLines(c(...), file.path(home, name))
  put("segment.toml", "chain = 1", "segment = 1", "", "[[resume]]", "time = \"2026-11-22 09:30:00\"", "after = 300",
      "rounds = 500")
  put("gibsol", "")
  put("gparlast", "")
  put("status", "Current round is        340 out of        600 in model           1")
  expect_equal(segment_state(list(path = home)), "running or killed")
  put("exit", "0")
  put("status", "Program ZEPH has concluded")
  expect_equal(segment_state(list(path = home)), "finished")
})
