# Chains between models.

# Rounds of one factor of order 3: d is the number of its rows in each sample.
jump_study <- function(dims) {
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
  }
  root
}

test_that("visits, time and transitions are counted", {
  root <- jump_study(list(c(1L, 1L, 2L, 3L, 2L), c(2L, 2L, 2L, 1L, 1L)))
  r <- report_of(root)
  v <- r$visits$visits
  expect_equal(v$samples[v$model == "2"], 5)
  expect_equal(v$share_of_samples[v$model == "3"], 0.1)
  expect_equal(v$`chain 1`[v$model == "1"], 0.4)
  t <- r$visits$transitions
  expect_equal(t$times[t$from == "1" & t$to == "2"], 1)
  expect_equal(t$times[t$from == "2" & t$to == "2"], 2)
  expect_equal(sum(t$times), 8)
  expect_equal(names(r$visits$inclusion), c("factor", "row", "share_of_samples"))
  expect_equal(r$visits$inclusion$share_of_samples, c(1, 0.6, 0.1)) # of 10 samples: 10, 6, 1
  expect_equal(value_of(r$table, "G[1,2,2]", "draws"), 6L)
  expect_equal(value_of(r$table, "dimension[1]", "mean"), 1.7)
})

test_that("a chain that never moved shows its model, and one sample has no transitions", {
  v <- report_of(jump_study(list(c(2L, 2L, 2L))))$visits
  expect_equal(v$visits, data.frame(model = "2", samples = 3, share_of_samples = 1, "chain 1" = 1, check.names = FALSE))
  expect_equal(v$transitions$times, 2)
  expect_equal(nrow(report_of(jump_study(list(2L)))$visits$transitions), 0L)
})

test_that("moves proposed and accepted are read from zeinfo", {
  root <- jump_study(list(c(1L, 2L)))
  path <- file.path(root, "chain1/seg1")
  m <- read_model(path)
  writeLines(c("", "1 0.5 0.5 0.5 0.5 0.0", "1 1 3 2 3 0.5 0.5 F -1.2 -0.3 F", "", "2 1 3 2 3 0.5 0.5 F 1.2 -0.3 T",
    "3 2 3 1 3 0.5 0.5 T 1.2 -0.3 T"), file.path(path, "zeinfo"))
  moves <- read_moves(m, find_chains(root))
  expect_equal(moves$proposed, c(2, 1))
  expect_equal(moves$accepted, c(1, 1))
})

test_that("of an enumeration the last model is shown, and all are listed", {
  root <- jump_study(list(c(3L, 3L)))
  path <- file.path(root, "chain1/seg1")
  directives <- readLines(file.path(path, "zeph.dir"))
  writeLines(c("5 0", directives[-1]), file.path(path, "zeph.dir"))
  last <- readLines(file.path(path, "gib.samples"))
  first <- matrix_lines(data.frame(round = c(rep(1005L, 7), rep(1010L, 7)), k = c(1L, rep(2L, 6)),
    r = c(1L, 1L, 2L, 2L, 3L, 3L, 3L), c = c(1L, 1L, 1L, 2L, 1L, 2L, 3L),
                                   value = 77, group = 0L))
  writeLines(c(first, last), file.path(path, "gib.samples"))
  writeLines(c("1 3 2 -1.0 2.0 3.0", "3 3 2 -1.0 2.0 3.0"), file.path(path, "lpm"))
  r <- report_of(root)
  expect_equal(r$joined$length, 2L)
  expect_false(any(r$draws == 77, na.rm = TRUE))
  expect_equal(r$enumerated, data.frame(chain = 1L, model = c("1", "3"), samples = c(2, 2)))
  expect_null(r$visits)
})

test_that("a row that some model leaves out has no accuracy; given variances serve where none were sampled", {
  r <- report_of(jump_study(list(c(1L, 1L, 2L, 1L))))
  s2 <- variances_of_rows(r$model, r$table, 4)
  expect_equal(unname(s2["G[1,1,1]"]), value_of(r$table, "G[1,1,1]", "mean"))
  expect_true(all(is.na(s2[c("G[1,2,2]", "G[1,3,3]")])))
  m <- read_model(one_trait())
  expect_equal(variances_of_rows(m, empty_summary(), 0), c("G[animal,y,y]" = 3))
})
