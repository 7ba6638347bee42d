# Draws with known R-hat, effective sample size and quantiles.

array_of <- function(x) array(x, c(dim(x), 1), list(NULL, NULL, "x"))

test_that("four chains whose halves hold the same values have R-hat sqrt((n - 1) / n), n the length of a half", {
  # between-chain variance 0: var+ = (n - 1) / n W, on ranks and on folded ranks (Vehtari and others 2021, equations
  # 1-4)
  half <- function(seed) {
    set.seed(seed)
    sample(stats::qnorm((1:100 - 0.5) / 100))
  }
  x <- vapply(1:4, function(i) c(half(i), half(10 + i)), numeric(200))
  s <- summarise_names(array_of(x))
  expect_equal(s$rhat, sqrt(99 / 100), tolerance = 1e-12)
  expect_equal(s$median, 0, tolerance = 1e-12)
  expect_equal(s$mean, 0, tolerance = 1e-12)
})

test_that("two chains that never meet have the R-hat of their ranks", {
  set.seed(1)
  values <- seq_len(50)
  x <- cbind(c(sample(values), sample(values)), 1000 + c(sample(values), sample(values)))
  # ranks with ties by their average, normal scores of (rank - 3/8) / (S + 1/4), four half chains of 50
  z <- stats::qnorm((rank(as.vector(x)) - 0.375) / (200 + 0.25))
  halves <- matrix(z, 50)
  B <- 50 * stats::var(colMeans(halves))
  W <- mean(apply(halves, 2, stats::var))
  expected <- sqrt((49 / 50 * W + B / 50) / W)
  expect_gt(expected, 1.5)
  expect_equal(summarise_names(array_of(x))$rhat, expected, tolerance = 1e-10)
})

test_that("an autoregressive chain has n (1 - rho) / (1 + rho) effective samples", {
  # 60,000 draws, rho 0.5: 20,000; the estimate's own error is a few percent
  set.seed(7)
  x <- vapply(1:4, function(i) as.numeric(stats::arima.sim(list(ar = 0.5), 15000)), numeric(15000))
  s <- summarise_names(array_of(x))
  expect_equal(s$ess_bulk, 20000, tolerance = 0.08)
  expect_lt(s$rhat, 1.001)
  expect_equal(s$mcse, sqrt(4 / 3) / sqrt(20000), tolerance = 0.08)
})

test_that("mean, median, SD and highest-density interval of an exponential grid are those of its law", {
  # Exp(1): mean 1, median log 2, SD 1, shortest 95 % interval from 0 to log 20
  values <- stats::qexp((1:20000 - 0.5) / 20000)
  set.seed(2)
  s <- summarise_names(array_of(matrix(sample(values), 5000)))
  expect_equal(s$mean, 1, tolerance = 1e-3)
  expect_equal(s$median, log(2), tolerance = 1e-3)
  expect_equal(s$sd, 1, tolerance = 1e-2)
  expect_equal(c(s$low, s$high), c(0, log(20)), tolerance = 2e-3)
})

test_that("a name that does not vary has no R-hat, and one that is absent in some draws is summed up over the others", {
  fixed <- summarise_names(array_of(matrix(1, 50, 2)))
  expect_true(is.na(fixed$rhat))
  expect_equal(fixed_names(array_of(matrix(1, 50, 2))), "x")
  x <- matrix(as.numeric(1:100), 50)
  x[1:10, 1] <- NA
  s <- summarise_names(array_of(x))
  expect_equal(s$draws, 90L)
  expect_equal(s$mean, mean(11:100))
  expect_true(is.na(s$ess_bulk))
})

of_kind <- function(word) kinds_by_number[kinds_by_number$word == word, ]

test_that("the verdict asks for what is missing", {
  place <- list(study = TRUE, shown = "RUNS",
    chains = list(list(segments = list(list(directives = list(analysis = 3))))))
  model <- list(kinds = of_kind("gaussian"))
  row <- function(rhat, ess) data.frame(name = "h2[y]", mean = 0.4, median = 0.4, sd = 0.1, low = 0.2, high = 0.6,
    ess_bulk = ess, ess_tail = 900, rhat = rhat, mcse = 0.002, draws = 4000L)
  good <- verdict_of(place, model, row(1.004, 812), "h2[y]", 4, 1000, 10)
  expect_true(good$good)
  expect_equal(verdict_head(good), "The chains are long enough.")
  expect_equal(good$lines, c("4 chains of 1,000 samples, one every 10 rounds.",
    "Largest R-hat 1.004 (h2[y]); smallest effective sample size 812 (h2[y]).",
                             "h2[y] 0.4, SD 0.1, Monte Carlo error 0.002."))
  short <- verdict_of(place, model, row(1.004, 200), "h2[y]", 4, 1000, 10) # 10,000 (400/200 - 1) 1.1
  expect_equal(short$more, 11000)
  expect_equal(short$command, "zeph-chains continue RUNS --rounds 11000")
  expect_equal(verdict_head(short), "Not yet: about 11,000 more rounds per chain.")
  apart <- verdict_of(place, model, row(1.2, 900), "h2[y]", 4, 1000, 10) # as many again
  expect_equal(apart$more, 10000)
  ordered <- verdict_of(place, list(kinds = of_kind("ordered")), row(1.2, 900), "h2[y]", 4, 1000, 10)
  expect_match(ordered$command, "such chains can't be continued")
  words <- function(...) utils::modifyList(plain_sampler, list(...))
  exact <- verdict_of(place, model, row(1.2, 900), "h2[y]", 4, 1000, 10, words(exact = TRUE))
  expect_match(exact$command, "such chains can't be continued")
  for (kind in c("gaussian", "ordered")) { # the whole state of a chain is saved
    saved <- verdict_of(place, list(kinds = of_kind(kind)), row(1.2, 900), "h2[y]", 4, 1000, 10,
      words(exact = kind == "ordered", state = TRUE))
    expect_equal(saved$command, "zeph-chains continue RUNS --rounds 10000")
  }
  single <- verdict_of(list(study = FALSE, shown = "WORK"), model, row(1.2, 900), "h2[y]", 1, 1000, 10)
  expect_match(single$command, "zeph-chains run WORK --chains 4")
  expect_match(single$lines, "One chain only", all = FALSE)
})

test_that("chains that rest at values of their own are never long enough, and few samples are not judged", {
  place <- list(study = TRUE, shown = "RUNS",
    chains = list(list(segments = list(list(directives = list(analysis = 6))))))
  judged <- function(x) {
    draws <- array(x, c(dim(x), 1), list(NULL, NULL, "dimension[pen]"))
    verdict_of(place, list(kinds = of_kind("gaussian")), summarise_names(draws), character(0), ncol(x), nrow(x), 1)
  }
  apart <- judged(cbind(rep(1, 1000), rep(2, 1000)))
  expect_false(apart$good)
  expect_match(apart$lines[2], "^No R-hat: within each chain nothing moves; smallest effective sample size 2 ")
  few <- judged(cbind(c(1, 2, 2, 1), c(2, 1, 1, 2)))
  expect_equal(verdict_head(few), "No verdict on the chains.")
  expect_equal(few$lines[2], "Too few samples to judge the chains: let them run longer.")
})
