# Pooled solutions, contrasts, accuracies.

gibsol_lines <- function(value, sd) c(
  "0  4  7   2           0           0           0         0.00000             0.00000    ",
  sprintf("2  1  1   0%12d%12d%12d%20s%20s", 1:2, 2:3, 1:2, formatC(value[1:2], digits = 9, format = "g"),
    formatC(sd[1:2], digits = 9, format = "g")),
  sprintf("3  1  1   1%12d%12d%12d%20s%20s", 1:8, 0, 1:8, formatC(value[3:10], digits = 9, format = "g"),
    formatC(sd[3:10], digits = 9, format = "g")))

test_that("means are weighted by samples and SDs are those of all draws together", {
  set.seed(3)
  draws <- list(matrix(rnorm(30, 5), 3), matrix(rnorm(70, 6), 7), matrix(rnorm(40, 4), 4)) # sample x equation
  chain <- function(x) list(g = rep(1, nrow(x)), r = rep(1, nrow(x)), round = 100L + 10L * seq_len(nrow(x)))
  root <- study_of(list(list(chain(draws[[1]]), chain(draws[[2]])), list(chain(draws[[3]]))))
  paths <- file.path(root, c("chain1/seg1", "chain1/seg2", "chain2/seg1"))
  for (i in 1:3) writeLines(gibsol_lines(colMeans(draws[[i]]), apply(draws[[i]], 2, sd)), file.path(paths[i], "gibsol"))
  j <- joined_chains(root)
  pooled <- pool_solutions(j$model, j$place, j$chains, j$remarks)
  all <- do.call(rbind, draws)
  expect_equal(pooled$rows$value, colMeans(all), tolerance = 1e-8)
  expect_equal(pooled$rows$sd, apply(all, 2, sd), tolerance = 1e-8)
  expect_equal(pooled$rows$equation, 1:10)
  expect_equal(c(pooled$parts, pooled$samples), c(3, 14))
})

test_that("a segment without solutions is left out and named", {
  chain <- list(g = 1:3, r = 1:3, round = c(110L, 120L, 130L))
  root <- study_of(list(list(chain), list(chain)))
  writeLines(gibsol_lines(1:10, rep(1, 10)), file.path(root, "chain2/seg1/gibsol"))
  j <- joined_chains(root)
  pooled <- pool_solutions(j$model, j$place, j$chains, j$remarks)
  expect_equal(pooled$parts, 1)
  expect_match(j$remarks$all(), "no solutions of chain 1, segment 1: its run has not ended", all = FALSE)
  writeLines("Program ZEPH has concluded", file.path(root, "chain1/seg1/status")) # stopped in its burn-in
  j <- joined_chains(root)
  pool_solutions(j$model, j$place, j$chains, j$remarks)
  expect_false(any(grepl("no solutions", j$remarks$all())))
})

test_that("accuracy is sqrt(1 - SD^2 / ((1 + F) s2)), with identifications", {
  m <- read_model(one_trait())
  rows <- read_gibsol_text(gibsol_lines(1:10, rep(0.5, 10)))
  effects <- effects_of_factor(m, list(rows = rows), c("G[animal,y,y]" = 2), 1)
  expect_equal(effects$accuracy, sqrt(1 - 0.25 / ((1 + effects$F) * 2)))
  expect_setequal(effects$identification, c("s1", "d2", "s3", "c4", "c5", "c6", "c7", "c8"))
  expect_equal(effects$value, 3:10)
})

test_that("an inbred animal has its F", {
  # x: full sibs as parents, F = 1/4
  work <- prepared(c('[data]', 'file = "d.csv"', '[factor.animal]', 'pedigree = "p.csv"', '[trait.y]',
    'formula = "1 + (1 | animal)"', '[run]', 'analysis = "gibbs"'),
                   list(d.csv = c("animal,y", "x,1", "b,2", "a,4"), p.csv = c("animal,sire,dam", "s,,", "d,,", "a,s,d",
                     "b,s,d", "x,a,b")))
  levels <- read_levels(read_model(work), 1)
  expect_equal(levels$F[levels$identification == "x"], 0.25)
})

test_that("levels are contrasted with the first, with the SD of the differences where draws were kept", {
  fixed <- data.frame(trait = "y", effect = "herd", level = c("1", "2", "3"), kind = "level", records = 5L,
    value = c(10, 12, 9), sd = 1, equation = 1:3, reference = "")
  plain <- add_contrasts(fixed, NULL)
  expect_equal(plain$contrast, c(NA, 2, -1))
  expect_true(all(is.na(plain$contrast_sd)))
  expect_equal(plain$against, c("", "1", "1"))
  set.seed(5)
  common <- rnorm(400)
  draws <- array(c(10 + common, 12 + common + rnorm(400, sd = 0.1)), c(200, 2, 2), list(NULL, NULL, c("1", "2")))
  kept <- add_contrasts(fixed, draws)
  expect_equal(kept$contrast_sd[2], sd(draws[, , 2] - draws[, , 1]))
  expect_true(is.na(kept$contrast_sd[3]))
})

test_that("a level is contrasted with the level that zeph-prepare left out, with its own SD", {
  work <- prepared(c('[data]', 'file = "d.csv"', '[factor.animal]', '[trait.y]',
    'formula = "1 + herd + sex + (1 | animal)"', '[run]', 'analysis = "gibbs"',
                     'burnin = 10', 'rounds = 50', 'interval = 1', 'seeds = [3, 4]'),
                   list(d.csv = c("animal,herd,sex,y", sprintf("%d,%s,%s,%.2f", 1:12, c("a", "b"),
                     c("f", "f", "m", "m", "m", "f"), 1:12 / 3))))
  run_zeph(work)
  fixed <- report_of(work)$fixed
  sex <- fixed[fixed$effect == "sex", ]
  expect_equal(nrow(sex), 1L)
  expect_equal(sex$contrast, sex$value)
  expect_equal(sex$contrast_sd, sex$sd)
  expect_equal(setdiff(c("f", "m"), sex$level), sex$against)
})

test_that("DIC gets the n log(2 pi) that ZEPH leaves out", {
  place <- scratch()
  writeLines(c(" ", "DIC per trait                            ", "", "Trait       DIC            pD            ",
    "         bwt       2345.6224      338.26664    ",
               "         wwt       100.00000      10.000000    ", ""), file.path(place, "listing.txt"))
  d <- dic_of_listing(place, 2L)
  expect_equal(d$DIC, c(2345.6224, 100))
  expect_equal(d$pD, c(338.26664, 10))
  m <- list(nobs = 854L, nt = 2L, trait_names = c("bwt", "wwt"))
  one <- list(chains = list(list(number = 1L, segments = list(list(number = 1L, path = place, counts = TRUE,
    directives = list(analysis = 3))))))
  writeLines(rep("      1       1       1      0.5", 10), file.path(place, "py"))
  full <- read_dic(m, one)
  expect_equal(full$full - full$DIC, rep(854 * 1.8378770664093453, 2), tolerance = 1e-12)
  expect_equal(full$samples, c(10, 10))
  file.create(file.path(place, "py")) # stopped in its burn-in: the listing tells NaN, 0 samples
  expect_null(read_dic(m, one))
})

test_that("interactions and nested slopes have their names and levels", {
  records <- sprintf("%d,%s,%s,%s,%d,%.2f", 1:16, paste0("y", 1:16 %% 5), c("a", "b"), c("f", "f", "m", "m"),
    c(3, 5, 4, 7, 6, 2, 9, 8), sin(1:16))
  work <- prepared(c('[data]', 'file = "d.csv"', '[covariable.age]', '[factor.animal]', '[trait.y]',
                     'formula = "1 + year + herd:sex + herd:age + (1 | animal)"', '[run]', 'analysis = "predict"',
                     'burnin = 10', 'rounds = 50', 'interval = 1', 'seeds = [3, 4]'),
                   list(d.csv = c("animal,year,herd,sex,age,y", records)))
  run_zeph(work)
  fixed <- report_of(work)$fixed
  slopes <- fixed[fixed$kind == "slope", ]
  expect_equal(slopes$effect, c("herd:age", "herd:age"))
  expect_equal(slopes$level, c("a", "b"))
  pairs <- fixed[fixed$effect == "herd:sex", ]
  expect_true(nrow(pairs) > 0 && all(nzchar(pairs$reference)))
  gone <- strsplit(pairs$reference[1], ", ")[[1]]
  expect_setequal(c(pairs$level, gone), c("a:f", "a:m", "b:f", "b:m"))
})

test_that("solutions of another model among the segments are refused", {
  chain <- list(g = 1:3, r = 1:3, round = c(110L, 120L, 130L))
  root <- study_of(list(list(chain), list(chain)))
  writeLines(gibsol_lines(1:10, rep(1, 10)), file.path(root, "chain1/seg1/gibsol"))
  writeLines(gibsol_lines(1:10, rep(1, 10))[1:5], file.path(root, "chain2/seg1/gibsol"))
  j <- joined_chains(root)
  expect_error(pool_solutions(j$model, j$place, j$chains, j$remarks),
    "gibsol has .* rows, those of the segments before it have .*: are they of one model")
})

test_that("a burn-in beyond the samples leaves the solutions", {
  work <- run_zeph(one_trait(more = "", run = "burnin = 10\nrounds = 50\ninterval = 5\nseeds = [11, 12]",
    analysis = "predict"))
  r <- report_of(work, "--burnin", "5000")
  expect_equal(r$joined$length, 0L)
  expect_match(r$verdict$lines, "There are no samples", all = FALSE)
  expect_equal(nrow(r$effects$animal), 8L)
})
