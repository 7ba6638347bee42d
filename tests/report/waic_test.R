# WAIC of exact chains, merged from their files `waic`.

# Sums over samples of a matrix x (sample x unit) of log densities, as a chain writes them, by their definitions.
waic_lines_of <- function(x, position = seq_len(ncol(x))) {
  number <- function(v) formatC(v, digits = 17, format = "g")
  top <- apply(x, 2, max)
  squares <- colSums(sweep(x, 2, colMeans(x))^2)
  paste(position, nrow(x), number(top + log(colMeans(exp(sweep(x, 2, top))))), number(colMeans(x)), number(squares))
}

# A study of chains with log densities xs, a list of matrices, one a chain.
waic_study <- function(xs, base = one_trait()) {
  parts <- lapply(xs, function(x) list(list(g = 3 + sin(seq_len(nrow(x))), r = 4 + cos(seq_len(nrow(x))),
    round = 100L + 10L * seq_len(nrow(x)))))
  root <- study_of(parts, base)
  for (i in seq_along(xs)) writeLines(waic_lines_of(xs[[i]]), file.path(root, paste0("chain", i), "seg1/waic"))
  root
}

read_of <- function(root) {
  j <- joined_chains(root)
  c(read_waic(j$model, j$place, j$chains, j$remarks), list(remarks = j$remarks$all()))
}

# Log densities of 5 units in chains of 40, 25 and 7 samples; two units far below what exp() can hold.
densities <- function() {
  set.seed(21)
  x <- matrix(rnorm(72 * 5), 72) %*% diag(c(0.2, 0.3, 0.9, 0.1, 1.2))
  x <- sweep(x, 2, c(-1, -3, 0.5, -900, -2000), "+")
  list(x[1:40, ], x[41:65, ], x[66:72, ])
}

test_that("chains are merged as if their samples were of one", {
  xs <- densities()
  w <- read_of(waic_study(xs))
  x <- do.call(rbind, xs)
  # of all 72 samples: log mean exp relative to each unit's centre, variances by var()
  centre <- c(-1, -3, 0.5, -900, -2000)
  lppd <- centre + log(colMeans(exp(sweep(x, 2, centre))))
  p <- apply(x, 2, var)
  all <- w$table[w$table$chain == "all", ]
  expect_equal(all$samples, 72)
  expect_equal(all$units, 5L)
  expect_equal(all$lppd, sum(lppd), tolerance = 1e-13)
  expect_equal(all$p_waic, sum(p), tolerance = 1e-12)
  expect_equal(all$elpd_waic, sum(lppd) - sum(p), tolerance = 1e-13)
  expect_equal(all$se, sqrt(5 * var(lppd - p)), tolerance = 1e-12)
  expect_equal(all$variance_above_0.4, 2L)
  expect_equal(w$units$mean, colMeans(x), tolerance = 1e-13)
  each <- waic_of_each_unit(w)
  expect_equal(each$variance, p, tolerance = 1e-12)
  expect_equal(each$elpd_waic, lppd - p, tolerance = 1e-13)
})

test_that("each chain has its own row", {
  xs <- densities()
  w <- read_of(waic_study(xs))$table
  expect_equal(w$chain, c("1", "2", "3", "all"))
  expect_equal(w$samples, c(40, 25, 7, 72))
  expect_equal(w$p_waic[2], sum(apply(xs[[2]], 2, var)), tolerance = 1e-12)
  expect_equal(read_of(waic_study(xs[1]))$table$chain, "1")
})

test_that("two units by hand", {
  # densities 1/2, 1/4 and 1/8, 1/8: lppd log(3/8) + log(1/8); p (log 2)^2 / 2 + 0
  path <- file.path(scratch(), "waic")
  writeLines(waic_lines_of(log(cbind(c(1 / 2, 1 / 4), c(1 / 8, 1 / 8)))), path)
  w <- waic_of(read_waic_units(path))
  expect_equal(w$lppd, log(3 / 64))
  expect_equal(w$p_waic, log(2)^2 / 2)
  # se: two terms a and b have sqrt(2 var) = |a - b|
  expect_equal(w$se, log(3) - log(2)^2 / 2)
  expect_equal(w$variance_above_0.4, 0L)
})

test_that("a file of the former end of a chain that runs on is named", {
  root <- waic_study(densities()[1])
  writeLines(waic_lines_of(densities()[[2]]), file.path(root, "chain1/seg1/waic"))
  expect_match(read_of(root)$remarks, "waic of chain 1, segment 1 is of 25 samples, the segment has 40", all = FALSE)
})

test_that("chains without WAIC, or without samples in it, have none", {
  root <- waic_study(densities()[1:2])
  writeLines(character(0), file.path(root, "chain1/seg1/waic"))
  expect_equal(read_of(root)$table$chain, "2")
  unlink(file.path(root, c("chain1", "chain2"), "seg1/waic"))
  expect_length(read_of(root), 1L) # the remarks
})

test_that("chains of other units are refused, damaged files named with their line", {
  root <- waic_study(densities()[1:2])
  path <- file.path(root, "chain2/seg1/waic")
  good <- readLines(path)
  fault <- function(text, lines, end = "\n") {
    cat(paste(lines, collapse = "\n"), end, file = path, sep = "")
    expect_error(read_of(root), text, fixed = TRUE, class = "report_stop")
  }
  other <- paste0(path, " has other units than ", file.path(root, "chain1/seg1/waic"),
    ": are they of one model and one data file?")
  fault(other, sub("^5 ", "6 ", good))
  fault(paste0(path, " has 4 units, the model 5 records: it is cut, or of another model"), good[-5])
  in_line <- function(n) paste0("damaged line ", n, " in ", path)
  fault(in_line(3), replace(good, 3, sub("^3 25 ", "3 25.5 ", good[3])))
  fault(in_line(3), replace(good, 3, sub("^3 25 ", "3 24 ", good[3])))
  fault(in_line(2), replace(good, 2, "2 25 -3.0 x 2.0"))
  fault(in_line(2), replace(good, 2, "2 25 -3.0 -3.1 -2.0"))
  fault(in_line(4), replace(good, 4, paste(good[4], "7")))
  fault(in_line(4), append(good, "", 3))
  fault(in_line(5), replace(good, 5, good[4]))
  fault(in_line(5), good, end = "")
})

test_that("without sequences each record is a unit, with them there are fewer units", {
  five <- data.frame(position = 1:5)
  model <- function(n, kinds) list(nobs = n, kinds = kinds_by_number[kinds_by_number$word %in% kinds, ])
  expect_error(check_units(model(6L, "gaussian"), five, "waic"), "waic has 5 units, the model 6 records")
  expect_error(check_units(model(4L, c("sequence", "cured")), five, "waic"), "waic has 5 units, the model 4 records")
  expect_silent(check_units(model(5L, "gaussian"), five, "waic"))
  expect_silent(check_units(model(9L, c("sequence", "cured")), five, "waic"))
})

test_that("a file cut anywhere but after a row is refused, and one of changed bytes holds numbers or is refused", {
  root <- waic_study(densities()[1])
  path <- file.path(root, "chain1/seg1/waic")
  bytes <- readBin(path, "raw", file.size(path))
  for (n in seq_len(length(bytes) - 1L)) {
    writeBin(bytes[seq_len(n)], path)
    outcome <- tryCatch(nrow(read_waic_units(path)), report_stop = function(e) "refused")
    rows <- sum(bytes[seq_len(n)] == as.raw(10L))
    expect_equal(outcome, if (bytes[n] == as.raw(10L)) rows else "refused", info = n)
  }
  set.seed(4)
  for (i in 1:300) { # bytes changed: refused, or numbers in their ranges
    writeBin(replace(bytes, sample(length(bytes), 2), as.raw(sample(0:255, 2))), path)
    units <- tryCatch(suppressWarnings(read_waic_units(path)), report_stop = function(e) NULL)
    if (!is.null(units)) expect_false(anyNA(units$position) || anyNA(units$samples))
  }
})

test_that("units without density leave no WAIC, and the report says why", {
  xs <- densities()[1:2]
  root <- waic_study(xs)
  for (i in 1:2) {
    path <- file.path(root, paste0("chain", i), "seg1/waic")
    lines <- readLines(path)
    lines[2] <- paste("2", nrow(xs[[i]]), "NaN NaN NaN")
    writeLines(lines, path)
  }
  r <- report_of(root)
  expect_true(all(is.nan(r$waic$table$elpd_waic)))
  expect_match(r$verdict$lines, "No WAIC: some unit of the data has no log density.", fixed = TRUE, all = FALSE)
  expect_match(waic_warnings(r$waic), "density_points in [run]", fixed = TRUE)
})

test_that("the verdict, the page and --csv have the merged WAIC", {
  xs <- densities()
  r <- report_of(waic_study(xs[1:2]))
  all <- whole_waic(r$waic)
  expect_match(r$verdict$lines, paste0("elpd_waic ", signif(all$elpd_waic, 6), ", standard error ", signif(all$se, 4),
    "; p_waic ", signif(all$p_waic, 4), "."), fixed = TRUE, all = FALSE)
  html <- as.character(waic_section(r))
  for (text in c("<th class=\"n\">elpd_waic</th>", "<td>all</td>",
    "The row all is of the samples of all chains together", "Between the chains elpd_waic has a standard deviation of ",
    "has a variance above 0.4 over the samples: 2 of 5."))
    expect_true(grepl(text, html, fixed = TRUE), info = text)
  expect_equal(names(tables_of(r)$waic),
    c("chain", "samples", "units", "lppd", "p_waic", "elpd_waic", "se", "variance_above_0.4"))
  expect_equal(nrow(tables_of(r)$waic_units), 5L)
  expect_null(waic_section(list(waic = NULL)))
})
