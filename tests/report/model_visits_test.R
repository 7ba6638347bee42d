# Chains between models.

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

# ---- exact chains

test_that("exact chains give posterior probabilities, and Bayes factors against the prior", {
  dims <- list(c(1L, 1L, 2L, 2L, 2L, 2L, 1L, 2L), c(2L, 2L, 2L, 2L, 1L, 1L, 2L, 2L))
  r <- report_of(jump_study(dims, c("exact # every step", "", "model_prior 1 1 2 5", "state 10")))
  v <- r$visits$visits
  expect_equal(v$model, c("2", "1"))
  expect_equal(v$posterior_probability, c(11 / 16, 5 / 16))
  expect_equal(v$prior_probability, c(2 / 8, 1 / 8))
  # by hand: (11/5) / (2/6) and (5/11) / (1/7)
  expect_equal(v$bayes_factor, c(6.6, 35 / 11))
  expect_equal(v$changes, c(5, 5))
  expect_equal(r$visits$never, data.frame(model = "3", prior_probability = 5 / 8))
  expect_equal(names(v), c("model", "samples", "posterior_probability", "mcse", "rhat", "changes",
    "prior_probability", "bayes_factor", "chain 1", "chain 2"))
  expect_equal(r$visits$inclusion$posterior_probability, c(1, 11 / 16, 0))
  expect_match(r$verdict$lines, "^Model 2: posterior probability 0.6875, Monte Carlo error 0.[0-9]+[.]$", all = FALSE)
  expect_equal(names(tables_of(r)$models), names(v))
})

test_that("without model_prior all numbers of rows are alike, and of several factors the prior is the product", {
  m <- list(directory = scratch(), factors = list(list(order = 3L), list(order = 1L), list(order = 2L)))
  expect_equal(read_sampler_words(m), list(exact = FALSE, state = FALSE, moves = FALSE,
    weights = list(rep(1 / 3, 3), 1, c(1, 1) / 2)))
  path <- file.path(m$directory, "sampler")
  writeLines(c("# model_prior 1 9 9 9", "state 10", "model_prior 3 3 1 # rows", "\tmodel_prior\t1 2 1 1", "exact",
    "moves"), path)
  s <- read_sampler_words(m)
  expect_true(s$exact && s$state && s$moves)
  # 1 of 3 rows 1/2, 1/4, 1/4; 3 of 2 rows 3/4, 1/4
  expect_equal(prior_of_models(c("1 1 1", "3 1 2", "2 1 1"), s$weights), c(3 / 8, 1 / 16, 3 / 16))
  never <- never_visited(c("1 1 1", "3 1 2"), s$weights)
  expect_equal(never$model, c("1 1 2", "2 1 1", "2 1 2", "3 1 1"))
  expect_equal(never$prior_probability, c(1 / 8, 3 / 16, 1 / 16, 3 / 16))
  expect_null(never_visited("1", list(rep(1 / 1001, 1001))))
  for (line in c("model_prior 4 1 1", "model_prior 3 1", "model_prior 3 1 0", "model_prior 3 1 x", "model_prior",
    "model_prior 1.5 1 1 1")) {
    writeLines(c("exact", line), path)
    expect_error(read_sampler_words(m), paste0("damaged line 2 in ", path), fixed = TRUE, class = "report_stop")
  }
})

test_that("the error of an indicator that is a Markov chain is its closed form", {
  # P(0 to 1) a, P(1 to 0) b: share a / (a + b), autocorrelation 1 - a - b to the power of the lag, so that N draws have
  # the variance p (1 - p) (2 - a - b) / ((a + b) N) of their mean
  set.seed(12)
  a <- 0.05
  b <- 0.15
  chain <- function(n) {
    u <- runif(n)
    x <- integer(n)
    for (i in 2:n) x[i] <- if (x[i - 1] == 1L) as.integer(u[i] >= b) else as.integer(u[i] < a)
    x
  }
  x <- vapply(1:4, function(i) chain(10000), integer(10000))
  s <- indicator_summary(x)
  expect_equal(s$mcse, sqrt(0.25 * 0.75 * 1.8 / 0.2 / 40000), tolerance = 0.1)
  expect_lt(s$rhat, 1.01)
  expect_equal(s$changes, 40000 * 2 * 0.25 * 0.15, tolerance = 0.05)
})

test_that("R-hat of an indicator is that of the halves of the chains", {
  x <- cbind(rep(c(0, 0, 0, 1), 10), rep(c(0, 1, 1, 1, 1), 8), c(rep(0, 20), rep(1, 20)))
  # Gelman and others 2013, Bayesian Data Analysis, section 11.4, on 6 halves of 20
  halves <- matrix(x, 20)
  B <- 20 * var(colMeans(halves))
  W <- mean(apply(halves, 2, var))
  expect_equal(indicator_summary(x)$rhat, sqrt((19 / 20 * W + B / 20) / W), tolerance = 1e-12)
  expect_equal(indicator_summary(x)$changes, sum(x[-1, ] != x[-40, ]))
})

test_that("a model that no chain left, or all did, has no error, no R-hat and no Bayes factor", {
  r <- report_of(jump_study(list(rep(2L, 6), rep(2L, 6)), "exact"))
  v <- r$visits$visits
  expect_equal(v$posterior_probability, 1)
  expect_true(all(is.na(v[c("mcse", "rhat", "bayes_factor")])))
  expect_equal(v$changes, 0)
  expect_equal(r$visits$never$model, c("1", "3"))
  html <- as.character(visit_block(r))
  expect_true(grepl("Never visited, in brackets the prior probability: 1 (0.3333); 3 (0.3333).", html, fixed = TRUE))
  expect_match(r$verdict$lines, "^Model 2: posterior probability 1[.]$", all = FALSE)
  # chains that rest in models of their own
  apart <- report_of(jump_study(list(rep(1L, 6), rep(2L, 6)), "exact"))
  expect_equal(apart$visits$visits$rhat, c(Inf, Inf))
  expect_true(grepl("<td class=\"n\">Inf</td>", as.character(visit_block(apart)), fixed = TRUE))
})

test_that("models are counted over the samples of the tables: as many of each chain, none of a chain that lags", {
  r <- report_of(jump_study(list(rep(1:2, 5), c(rep(2L, 8), 1L, 1L, 1L, 1L), c(3L, 3L)), "exact"))
  expect_equal(r$visits$visits$model, c("2", "1"))
  expect_equal(r$visits$visits$samples, c(13, 7)) # 10 and 10
  expect_equal(r$visits$visits$`chain 2`, c(0.8, 0.2))
})

test_that("a killed chain that lacks the model of its last sample is used without it", {
  root <- jump_study(list(c(1L, 2L, 2L, 3L)))
  path <- file.path(root, "chain1/seg1/py")
  writeLines(readLines(path)[1:3], path)
  r <- report_of(root)
  expect_equal(r$joined$length, 3L)
  expect_equal(r$visits$visits$model, c("2", "1"))
  expect_false(anyNA(r$draws[, , "dimension[1]"]))
})

test_that("proposals of exact chains are counted", {
  root <- jump_study(list(c(1L, 2L)), "exact")
  writeLines(c(" starting", "1 1 1 2 -0.7 0.0 -1.2 -1.9 -0.3 F", "2 1 1 2 -0.7 0 3.2 2.5 -0.3 T",
    "3 1 2 3 0 0 0.5 0.5 -0.3 T", "4 1 3 2 0 0 -0.5 0.5"), file.path(root, "chain1/seg1/zeinfo"))
  moves <- report_of(root)$moves
  expect_equal(moves, data.frame(factor = "1", from = c("1", "2"), to = c("2", "3"), proposed = c(2, 1),
    accepted = c(1, 1)))
})

test_that("exact models of an enumeration have their elpd_waic, and no posterior probability", {
  root <- jump_study(list(c(3L, 3L)), "exact")
  path <- file.path(root, "chain1/seg1")
  writeLines(c("5 0", readLines(file.path(path, "zeph.dir"))[-1]), file.path(path, "zeph.dir"))
  writeLines(c("1 3 2 -101.5 2.5 100.25", "3 3 2 -99.5 3.5 97.75"), file.path(path, "lpm"))
  r <- report_of(root)
  expect_equal(r$enumerated, data.frame(chain = 1L, model = c("1", "3"), samples = 2, elpd_waic = c(-101.5, -99.5),
    p_waic = c(2.5, 3.5), mean_py = c(100.25, 97.75)))
  expect_true(grepl("Such chains give no posterior probability of a model", as.character(enumeration_block(r))))
})

test_that("other chains have shares of samples, and the page says what they are not", {
  r <- report_of(jump_study(list(rep(1:2, 3)), "state 10"))
  html <- as.character(visit_block(r))
  expect_true(grepl("<th class=\"n\">share of samples</th>", html, fixed = TRUE))
  expect_true(grepl("It is not a posterior probability, nor another measure", html, fixed = TRUE))
  expect_false(grepl("Bayes|posterior probability</th>", html))
})
