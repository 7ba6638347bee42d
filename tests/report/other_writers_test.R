# Work directories that another program prepared: numbers instead of names.

whole_run <- function(name) {
  work <- file.path(scratch(), name)
  dir.create(work)
  file.copy(list.files(file.path(source_tree, "tests/data/workdirs", name), full.names = TRUE), work)
  Sys.chmod(list.files(work, full.names = TRUE), "644")
  run_zeph(work)
}

test_that("three traits with two factors are reported by numbers", {
  r <- report_of(whole_run("three3_t3"))
  expect_true(all(c("G[1,1,1]", "G[2,3,3]", "R[T1,T3]", "h2[T1]", "rg[1,2]", "c2[1,T3]") %in% r$table$name))
  expect_equal(length(r$effects), 2L)
  expect_false(anyNA(r$effects[[1]]$value))
  expect_equal(r$dic$trait, c("T1", "T2", "T3"))
})

test_that("every kind of trait is reported", {
  ordered <- report_of(whole_run("cat3_t3"))
  expect_true("threshold[T1,2]" %in% ordered$fixed_names)
  mixture <- report_of(whole_run("mix2_t3"))
  expect_true("pi[DISEASE]" %in% mixture$table$name)
  expect_true(all(mixture$memberships$probability >= 0 & mixture$memberships$probability <= 1))
  cured <- report_of(whole_run("cure_t3"))
  expect_true("pi[CURE]" %in% cured$table$name)
  censored <- report_of(whole_run("cens2_t3"))
  expect_true("G[1,3,3]" %in% censored$table$name)
})

test_that("solutions alone are reported", {
  r <- report_of(whole_run("tb_animal"))
  expect_match(r$verdict$lines, "no chain was run")
  expect_equal(nrow(r$effects[[1]]), 8L)
})

# Every kind occurs in one of these examples.
test_that("the table of kinds is that of names.json", {
  found <- do.call(rbind, lapply(c("binary_and_gaussian", "censored_times", "ordered_categories", "mixture", "cure"),
    function(name) {
      work <- file.path(scratch(), name)
      done <- run_program("zeph-prepare", c(file.path(source_tree, "examples", name, "model.toml"), "--into", work))
      expect_equal(done$status, 0L)
      names <- jsonlite::fromJSON(file.path(work, "names.json"))
      expect_true(all(names$traits$kind %in% names$kinds$word))
      names$kinds
    }))
  found <- unique(found[order(found$number), ])
  rownames(found) <- NULL
  expect_equal(found, kinds_by_number)
})

test_that("names.json says what a kind is; numbers without it are looked up", {
  m <- list(labelled = TRUE, traits = list(list(kind = 4L), list(kind = 3L)),
            names = list(kinds = list(list(number = 3L, word = "graded", unit_variance = FALSE,
                                           drawn_by = "liabilities",
                                           stored = TRUE, thresholds = TRUE),
                                      list(number = 4L, word = "both", unit_variance = TRUE, drawn_by = "liabilities",
                                           stored = TRUE, thresholds = FALSE))))
  expect_equal(kinds_of_traits(m)$word, c("both", "graded"))
  m$labelled <- FALSE
  expect_equal(kinds_of_traits(m)$word, c("binary", "ordered"))
  m$kinds <- kinds_of_traits(m)
  expect_equal(with_thresholds(m), 2L)
  expect_equal(drawn_by(m, "liabilities"), 1:2)
})
