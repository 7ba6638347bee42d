# A page of every kind of study: one chain, moves between models, a chain for each model, latent traits, burn-ins that
# were stopped, solutions alone.

assign("picture_limit", 2L, globalenv()) # names with pictures; page_test.R has as many as a page may have

# The report of a directory, and the text of its page.
page_of <- function(root) {
  r <- report_of(root)
  path <- file.path(scratch(), "page.html")
  write_page(r, path, file.path(source_tree, "companions/report"))
  c(r, list(html = paste(readLines(path, warn = FALSE), collapse = "\n")))
}

has <- function(page, ...) for (text in c(...)) expect_true(grepl(text, page$html, fixed = TRUE), info = text)

# An example of the source tree with fewer rounds, run: by ZEPH alone, or in two chains; sampler: "exact" or "classic",
# NULL as the example has it.
example_run <- function(name, rounds, file = "model.toml", chains = FALSE, sampler = NULL) {
  home <- scratch()
  folder <- file.path(source_tree, "examples", name)
  file.copy(list.files(folder, full.names = TRUE), home)
  lines <- readLines(file.path(folder, file))
  lines <- sub("^rounds( *)=.*", paste("rounds =", rounds), sub("^interval( *)=.*", "interval = 4", lines))
  lines <- sub("^burnin( *)=.*", "burnin = 100", lines)
  if (!is.null(sampler)) lines <- sub("^(analysis *=.*)", sprintf('\\1\nsampler = "%s"', sampler), lines)
  writeLines(lines, file.path(home, "short.toml"))
  done <- run_program("zeph-prepare", c(file.path(home, "short.toml"), "--into", file.path(home, "work")))
  if (done$status != 0) stop(paste(done$out, collapse = "\n"))
  if (!chains) return(run_zeph(file.path(home, "work")))
  run_program("zeph-chains", c("run", file.path(home, "work"), "--chains", "2", "--into", file.path(home, "RUNS")))
  file.path(home, "RUNS")
}

test_that("one chain alone: densities, no ranks", {
  set.seed(2)
  root <- study_of(list(list(list(g = 3 + rnorm(60), r = 4 + rnorm(60), round = 100L + 10L * (1:60)))))
  page <- page_of(root)
  has(page, "One chain only", "<figcaption>density</figcaption>", "<figcaption>autocorrelation by lag</figcaption>")
  expect_false(grepl("ranks by chain", page$html, fixed = TRUE))
})

test_that("one chain that moves between models, and one for each model", {
  page <- page_of(jump_study(list(rep(2L, 40))))
  has(page, "The same in every draw: dimension[1] = ", "<h3>Models</h3>", "Transitions between neighbouring samples",
      "their listings have no DIC", "<th class=\"n\">share of samples</th>",
      "The share of samples is the time that the chains spent there. It is not a posterior probability, ",
      "beyond some tens of levels a chain stays where it is whatever the truth, ",
      "and with a flat prior a change of units reverses the shares.")
  expect_false(grepl("<th[^>]*>(posterior probability|Bayes factor)</th>", page$html)) # the chain gives none of a model
  page <- page_of(example_run("number_of_traits", 200, "models.toml", sampler = "classic"))
  has(page, "Each model has a chain of its own; the verdict is on the last one.")
  expect_equal(nrow(page$enumerated), 3L)
})

test_that("two exact chains that move between models", {
  runs <- example_run("number_of_traits", 1200, "jump.toml", chains = TRUE, sampler = "exact")
  page <- page_of(runs)
  has(page, "<th class=\"n\">posterior probability</th>", "<th class=\"n\">Bayes factor</th>",
      "Moves proposed and accepted", "<h2>Predictive fit (WAIC)</h2>", "WAIC is of their mixture")
  expect_false(grepl("share of samples|no Bayes factor is computed", page$html))
  expect_equal(sum(page$moves$proposed), 2400)
  expect_equal(page$waic$table$samples, c(300, 300, 600))
  for (i in 1:2) { # what the chain's own listing says
    listing <- readLines(file.path(runs, paste0("chain", i), "seg1/listing.txt"))
    of <- function(label) as.numeric(substring(grep(label, listing, fixed = TRUE, value = TRUE), 51))
    expect_equal(page$waic$table$lppd[i], of("Log pointwise predictive density"), tolerance = 1e-10)
    expect_equal(page$waic$table$elpd_waic[i], of("Expected log predictive density"), tolerance = 1e-10)
    expect_equal(page$waic$table$se[i], of("Standard error of elpd"), tolerance = 1e-9)
  }
})

test_that("cured, mixed, ordered, censored and binary traits", {
  cured <- page_of(example_run("cure", 400))
  has(cured, "One chain only", "Memberships", "none: given, not sampled", "here they were given")
  mixed <- page_of(example_run("mixture", 400, chains = TRUE))
  has(mixed, "ranks by chain", "pi[infected]", "Memberships")
  ordered <- page_of(example_run("ordered_categories", 400))
  has(ordered, "The (co)variances were given, not sampled", "Thresholds")
  censored <- page_of(example_run("censored_times", 400))
  has(censored, "One chain only", "DIC with n log 2 pi")
  binary <- page_of(example_run("binary_and_gaussian", 400))
  has(binary, "there is nothing by which to judge the chains", "No samples of (co)variances")
})

test_that("chains of some samples only", {
  for (n in c(1L, 2L, 4L, 6L)) {
    part <- list(list(g = 3 + sin(seq_len(n)), r = 4 + cos(seq_len(n)), round = 100L + 10L * seq_len(n)))
    page <- page_of(study_of(if (n == 6L) list(part) else list(part, part)))
    if (n < 6L) has(page, "Too few samples to judge the chains") else has(page, "Not yet: about")
  }
})

test_that("chains stopped in their burn-ins have nothing to report; those that went on lack nothing", {
  home <- scratch()
  work <- two_traits(run = c("burnin = 100000\nrounds = 400\ninterval = 10\nseeds = [11, 12]", 'sampler = "classic"'),
    into = file.path(home, "work"))
  runs <- file.path(home, "RUNS")
  system2(file.path(programs, "zeph-chains"), c("run", work, "--chains", "1", "--into", runs), wait = FALSE,
          stdout = FALSE)
  status <- file.path(runs, "chain1/seg1/status")
  for (i in 1:500) {
    if (file.exists(status) && any(grepl("Current", readLines(status, warn = FALSE)))) break
    Sys.sleep(0.02)
  }
  run_program("zeph-chains", c("stop", runs))
  for (i in 1:500) if (file.exists(file.path(runs, "chain1/seg1/exit"))) break else Sys.sleep(0.02)
  none <- tryCatch(report_of(runs), report_stop = function(e) e)
  expect_equal(none$status, 1L)
  expect_equal(conditionMessage(none), paste0("nothing to report in ", runs,
    ": no samples and no solutions. chain 1, segment 1 has no samples (stopped in its burn-in, or not begun)"))
  expect_equal(run_program("zeph-chains", c("continue", runs))$status, 0L)
  page <- page_of(runs)
  has(page, "chain 1, segment 2 only ended a burn-in and holds no samples", "DIC with n log 2 pi")
  expect_false(grepl("no solutions of", page$html, fixed = TRUE))
  expect_equal(page$dic$segment, c(3L, 3L))
  expect_true(all(is.finite(page$dic$DIC)))
})

test_that("solutions alone", {
  has(page_of(example_run("animal_model", 8000)), "no chain was run", "No draws to plot.", "Factor animal")
})
