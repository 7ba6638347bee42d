# From CSV to answers on real data with known posteriors; skipped where the data sets are not there.

shared <- file.path(Sys.getenv("ZEPH_SHARED"), "data/textbook/gryphon")

# Four chains of a description on the gryphon data; run: lines of [run].
gryphon <- function(lines, run) {
  home <- scratch()
  writeLines(c('title = "Gryphons"', '[data]', sprintf('file = "%s/data.csv"', shared), '[factor.animal]',
    sprintf('pedigree = "%s/pedigree.csv"', shared), lines,
               '[run]', 'analysis = "gibbs"', run, 'seeds = [1201, 707]'), file.path(home, "model.toml"))
  for (step in list(c("zeph-prepare", file.path(home, "model.toml"), "--into", file.path(home, "work")),
                    c("zeph-chains", "run", file.path(home, "work"), "--chains", "4", "--into",
                      file.path(home, "RUNS")))) {
    done <- run_program(step[1], step[-1])
    if (done$status != 0) stop(paste(done$out, collapse = "\n"))
  }
  report_of(file.path(home, "RUNS"))
}

test_that("h2 of birth weight and its SD agree with the exact posterior within five Monte Carlo errors", {
  skip_if_not(dir.exists(shared), "[no-shared] ../shared is absent")
  # exact, by quadrature over the two variances: h2 0.47158 (SD 0.07349), Va 3.44998 (0.62259), Ve 3.84606 (0.50792)
  r <- gryphon(c('start = 3.0', '[trait.bwt]', 'formula = "1 + (1 | animal)"', '[residual]', 'start = 4.0'),
    c('burnin = 1000', 'rounds = 20000', 'interval = 10'))
  exact <- list("h2[bwt]" = c(0.47158, 0.07349), "G[animal,bwt,bwt]" = c(3.44998, 0.62259),
    "R[bwt,bwt]" = c(3.84606, 0.50792))
  for (name in names(exact)) {
    x <- matrix(r$draws[, , name], dim(r$draws)[1])
    expect_lt(abs(mean(x) - exact[[name]][1]) / posterior::mcse_mean(x), 5, label = name)
    expect_lt(abs(sd(x) - exact[[name]][2]) / posterior::mcse_sd(x), 5, label = paste("SD of", name))
  }
  expect_gt(min(r$table$ess_bulk), 400)
})

test_that("correlations of the bivariate model are the published ones within half a posterior SD", {
  skip_if_not(dir.exists(shared), "[no-shared] ../shared is absent")
  # REML: G 3.368396, 2.459806, 12.345782; R 3.849917, 3.313285, 17.64644
  r <- gryphon(c('start = [[3, 2], [2, 12]]', '[trait.bwt]', 'formula = "1 + (1 | animal)"', '[trait.tarsus]',
    'formula = "1 + (1 | animal)"', '[residual]',
                 'start = [[4, 3], [3, 18]]'), c('burnin = 1000', 'rounds = 12000', 'interval = 10'))
  reml <- c("rg[bwt,tarsus]" = 2.459806 / sqrt(3.368396 * 12.345782), "re[bwt,tarsus]" = 3.313285 /
    sqrt(3.849917 * 17.64644))
  for (name in names(reml))
    expect_lt(abs(value_of(r$table, name, "mean") - reml[[name]]) / value_of(r$table, name, "sd"), 0.5, label = name)
})
