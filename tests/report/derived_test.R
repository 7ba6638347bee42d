# What is derived on each draw.

draws_of <- function(...) {
  values <- list(...)
  array(unlist(values), c(length(values[[1]]), 1, length(values)), list(NULL, NULL, names(values)))
}

formula_for <- function(m, name, data = read_records_of_data(m)) {
  f <- derived_formulas(m, data)
  f$formula[f$name == name]
}

test_that("heritability and correlations come from each draw, not from means", {
  m <- read_model(two_traits())
  draws <- draws_of("G[genetic,bwt,bwt]" = c(1, 3), "G[genetic,bwt,wwt]" = c(1, -1), "G[genetic,wwt,wwt]" = c(4, 4),
    "R[bwt,bwt]" = c(1, 9),
                    "R[bwt,wwt]" = c(2, 0), "R[wwt,wwt]" = c(16, 1))
  out <- add_formula_draws(m, draws, derived_formulas(m, read_records_of_data(m))[1:2], NULL)
  value <- function(name) as.vector(out[, 1, name])
  expect_equal(value("h2[bwt]"), c(1 / 2, 3 / 12))
  expect_equal(value("h2[wwt]"), c(4 / 20, 4 / 5))
  expect_equal(value("rg[bwt,wwt]"), c(1 / 2, -1 / sqrt(12)))
  expect_equal(value("re[bwt,wwt]"), c(2 / 4, 0))
  expect_equal(value("rp[bwt,wwt]"), c(3 / sqrt(2 * 20), -1 / sqrt(12 * 5)))
})

test_that("direct and maternal effects meet once in the phenotypic variance; a permanent effect of the dam is one", {
  # Willham 1972: VP = Vd + Vm + Cov + Vc + Ve
  work <- prepared(c('[data]', 'file = "d.csv"', '[factor.genetic]', 'pedigree = "p.csv"', '[factor.mpe]', '[trait.bw]',
                     'formula = "1 + (1 | genetic | animal) + (1 | genetic | dam) + (1 | mpe | dam)"', '[run]',
                     'analysis = "gibbs"'),
                   list(d.csv = c("animal,dam,bw", "a,m1,30", "b,m1,31", "c,m2,29", "d,m2,35"),
                     p.csv = c("animal,sire,dam", "a,,m1", "b,,m1", "c,,m2", "d,,m2", "m1,,", "m2,,")))
  m <- read_model(work)
  expect_equal(formula_for(m, "VP[bw]"),
    "G[genetic,bw.animal,bw.animal] + G[genetic,bw.animal,bw.dam] + G[genetic,bw.dam,bw.dam] + G[mpe,bw,bw] + R[bw,bw]")
  expect_equal(formula_for(m, "h2[bw]"), "G[genetic,bw.animal,bw.animal] / VP[bw]")
  expect_equal(formula_for(m, "m2[bw]"), "G[genetic,bw.dam,bw.dam] / VP[bw]")
  expect_equal(formula_for(m, "c2[mpe,bw]"), "G[mpe,bw,bw] / VP[bw]")
  expect_length(formula_for(m, "rg[bw.animal,bw.dam]"), 1)
})

test_that("a factor on the animals of repeated records gives the repeatability", {
  work <- prepared(c('[data]', 'file = "d.csv"', '[factor.animal]', 'pedigree = "p.csv"', '[factor.pe]', '[trait.y]',
                     'formula = "1 + (1 | animal) + (1 | pe | animal)"', '[run]', 'analysis = "gibbs"'),
                   list(d.csv = c("animal,y", "a,1", "a,2", "b,3", "b,2", "c,4"),
                     p.csv = c("animal,sire,dam", "c,,", "a,c,", "b,c,")))
  m <- read_model(work)
  expect_equal(formula_for(m, "repeatability[y]"), "(G[animal,y,y] + G[pe,y,y]) / VP[y]")
  expect_equal(formula_for(m, "pe2[pe,y]"), "G[pe,y,y] / VP[y]")
})

test_that("a sire model has four times the share of the sires", {
  work <- prepared(c('[data]', 'file = "d.csv"', '[factor.sires]', 'pedigree = "p.csv"', '[trait.y]',
    'formula = "1 + (1 | sires | sire)"', '[run]', 'analysis = "gibbs"'),
                   list(d.csv = c("sire,y", "a,1", "a,2", "b,3", "b,2"), p.csv = c("animal,sire,dam", "a,,", "b,a,")))
  expect_equal(formula_for(read_model(work), "h2[y]"), "4 * G[sires,y,y] / VP[y]")
})

test_that("two mates of a record count twice", {
  work <- prepared(c('[data]', 'file = "d.csv"', '[factor.social]', '[trait.y]',
    'formula = "1 + (1 | social | m1 + m2)"', '[run]', 'analysis = "gibbs"'),
                   list(d.csv = c("m1,m2,y", "a,b,1", "a,c,2", "b,c,3", "b,a,2")))
  expect_equal(formula_for(read_model(work), "VP[y]"), "2 * G[social,y,y] + R[y,y]")
})

test_that("the factor to the observed scale is that of Dempster and Lerner for two categories", {
  # incidence 1/2: (1 / sqrt(2 pi))^2 / (1/4) = 2 / pi; incidence p: height^2 / (p (1 - p))
  expect_equal(observed_factor(c(0.5, 0.5)), 2 / pi)
  expect_equal(observed_factor(c(0.9, 0.1)), dnorm(qnorm(0.9))^2 / 0.09)
  expect_true(is.na(observed_factor(1)))
})

test_that("ordered traits have both scales, and their thresholds too", {
  m <- read_model(file.path(source_tree, "tests/data/workdirs/cat3_t3"))
  f <- derived_formulas(m, read_records_of_data(m))
  expect_equal(f$formula[f$name == "threshold.unit[T1,2]"], "threshold[T1,2] / sqrt(R[T1,T1])")
  expect_equal(f$formula[f$name == "G.unit[1,1,1]"], "G[1,1,1] / R[T1,T1]")
})

test_that("formulas of the description are computed on each draw, with names in either order and by row or trait", {
  m <- read_model(two_traits())
  draws <- draws_of("G[genetic,bwt,wwt]" = c(2, 3), "R[bwt,wwt]" = c(5, 7), ratio = c(10, 20))
  value <- function(text) as.vector(formula_value(m, draws, text))
  expect_equal(value("G[genetic,wwt,bwt] + 2 * R[wwt,bwt]"), c(12, 17))
  expect_equal(value("G[ genetic, bwt.animal, wwt.animal ] ^ 2"), c(4, 9))
  expect_equal(value("sqrt(G[genetic,bwt,wwt] * 8) - 1e1 + ratio / 5"), c(4 - 10 + 2, sqrt(24) - 10 + 4))
  expect_equal(value("max(G[genetic,bwt,wwt], 2.5)"), c(2.5, 3))
})

test_that("a formula that does not hold is left out with its reason", {
  m <- read_model(two_traits())
  draws <- draws_of("R[bwt,wwt]" = c(5, 7))
  reason <- function(text) {
    remarks <- new_remarks()
    out <- add_formula_draws(m, draws, data.frame(name = "q", formula = text), remarks)
    expect_equal(dim(out)[3], 1L)
    remarks$all()
  }
  expect_equal(reason("R[bwt,fat]"), "[derive] q is left out: there is no R[bwt,fat]")
  expect_equal(reason("G[none,bwt,wwt]"), "[derive] q is left out: there is no G[none,bwt,wwt]")
  expect_equal(reason("R[bwt,wwt] +"), "[derive] q is left out: can't read \"R[bwt,wwt] +\"")
  expect_equal(reason("1; 2"), "[derive] q is left out: \";\" can't appear in a formula")
  expect_equal(reason("total / 2"), "[derive] q is left out: there is no total")
  expect_equal(reason("R[bwt,wwt] > 2"), "[derive] q is left out: \">\" can't appear in a formula")
  expect_equal(reason("'a'"), "[derive] q is left out: \"'\" can't appear in a formula")
  expect_match(reason("(function() 1)()"), "left out")
  expect_match(reason("system(2)"), "can't read \"system(2)\"", fixed = TRUE)
})

test_that("a combination of classes is called by its columns, and its levels by their texts", {
  work <- prepared(c('[data]', 'file = "d.csv"', '[factor."herd:year"]', '[trait.y]', 'formula = "1 + (1 | herd:year)"',
    '[run]', 'analysis = "gibbs"'), list(d.csv = c("herd,year,y", "10,1999,1", "7,1998,2", "7,1999,4", "10,1999,3",
    "7,1998,5", "10,1998,2")))
  m <- read_model(work)
  expect_equal(name_of_element(m, 1, 1, 1), "G[herd:year,y,y]")
  expect_equal(read_levels(m, 1)$identification, c("7:1998", "7:1999", "10:1998", "10:1999"))
  expect_equal(read_levels(m, 1)$records, c(2, 1, 1, 2))
  draws <- draws_of("G[herd:year,y,y]" = c(1, 3), "R[y,y]" = c(1, 1))
  expect_equal(as.vector(formula_value(m, draws, "G[herd:year,y.herd:year,y] / (G[ herd:year, y, y ] + R[y,y])")),
    c(1 / 2, 3 / 4))
})

# The list of formulas that zeph-prepare is tested with too; the model is told in its head.
test_that("the report takes and refuses the formulas that zeph-prepare does", {
  work <- prepared(c('[data]', 'file = "d.csv"', '[factor.genetic]', '[factor.pen]', '[trait.bwt]',
    'formula = "1 + (1 | genetic | animal) + (1 | genetic | dam) + (1 | pen)"', '[trait.ease]', 'kind = "ordered"',
    'formula = "1 + (1 | genetic | animal) + (1 | pen)"', '[run]', 'analysis = "gibbs"'),
    list(d.csv = c("animal,dam,pen,bwt,ease", sprintf("a%d,b%d,p%d,%d,%d", 1:12, rep(1:4, 3), rep(1:3, each = 4),
      c(3, 5, 4, 6, 2, 7, 8, 3, 5, 6, 4, 9), rep(1:3, 4)))))
  m <- read_model(work)
  pairs <- function(k, n) unlist(lapply(seq_len(n), function(i) name_of_element(m, k, i, i:n)))
  known <- c(pairs(1, 3), pairs(2, 2), pairs(3, 2), "threshold[ease,1]", "threshold[ease,2]", "h2[bwt]", "VP[bwt]",
    "re[bwt,ease]", "first")
  lines <- readLines(file.path(source_tree, "tests/data/derived_formulas.txt"), encoding = "UTF-8")
  lines <- lines[grepl("^(take|refuse) ", lines)]
  draws <- array(seq_len(2 * length(known)), c(2, 1, length(known)), list(NULL, NULL, known))
  for (line in lines) {
    formula <- gsub("\\n", "\n", sub("^[a-z]+ ", "", line), fixed = TRUE)
    taken <- tryCatch({
      value <- formula_value(m, draws, formula)
      is.matrix(value) && identical(dim(value), c(2L, 1L))
    }, report_stop = function(e) FALSE)
    expect_equal(taken, startsWith(line, "take"), info = line)
  }
  expect_gt(length(lines), 100)
})

test_that("random regressions become curves of z'Gz over the covariable in its own units", {
  work <- prepared(c('[data]', 'file = "d.csv"', '[covariable.age]', 'range = [0, 10]', '[factor.animal]', '[trait.y]',
                     'formula = "1 + (leg(age, 1) | animal | id)"', '[run]', 'analysis = "gibbs"'),
                   list(d.csv = c("id,age,y", "a,0,1", "a,5,2", "b,10,3", "b,2.5,2", "a,7,4", "b,4,4")))
  m <- read_model(work)
  expect_length(formula_for(m, "VP[y]"), 0)
  draws <- draws_of("G[animal,y.leg0,y.leg0]" = c(2, 4), "G[animal,y.leg0,y.leg1]" = c(1, 1),
    "G[animal,y.leg1,y.leg1]" = c(2, 2), "R[y,y]" = c(1, 1))
  c <- curves_of(m, read_records_of_data(m), draws)
  at <- c[c$quantity == "variance" & abs(c$x - 10) < 1e-5, ]
  # z(10) = (sqrt(1/2), sqrt(3/2)): 0.5 g00 + 2 sqrt(3)/2 g01 + 1.5 g11 = 1 + sqrt(3) + 3, and 1 more
  expect_equal(at$mean, (4 + sqrt(3) + 5 + sqrt(3)) / 2, tolerance = 1e-6)
  middle <- c[c$quantity == "share" & abs(c$x - 5) < 1e-5, ]
  expect_equal(middle$mean, (1 / 2 + 2 / 3) / 2, tolerance = 1e-6)
})
