# Residual matrices of several groups: names with the group's code, numbers of its own rows.

test_that("each group has its own residual variance and heritability", {
  set.seed(6)
  animals <- sprintf("a%02d", 1:40)
  data <- c("animal,herd,y", sprintf("%s,%s,%.3f", animals, c("north", "south"), rnorm(40, 30, c(2, 6))))
  pedigree <- c("animal,sire,dam", sprintf("%s,,", animals[1:10]), sprintf("%s,%s,%s", animals[11:40],
    sample(animals[1:5], 30, TRUE), sample(animals[6:10], 30, TRUE)))
  work <- run_zeph(prepared(c('[data]', 'file = "d.csv"', '[factor.animal]', 'pedigree = "p.csv"', 'start = 4.0',
    'prior_df = 6', '[trait.y]', 'formula = "1 + (1 | animal)"', '[residual]', 'start = 9.0', 'prior_df = 6',
    'groups = "herd"', '[run]', 'analysis = "gibbs"', 'burnin = 100', 'rounds = 1000', 'interval = 5',
    'seeds = [3, 4]'), list(d.csv = data, p.csv = pedigree)))
  r <- report_of(work)
  expect_true(all(c("R[north,y,y]", "R[south,y,y]", "h2[north,y]", "h2[south,y]") %in% r$table$name))
  rows <- read.table(file.path(work, "gib.samples"), col.names = c("round", "k", "r", "c", "value", "group"))
  for (g in 1:2) { # matrix 1 is that of the factor
    own <- rows$value[rows$k == 1 + g]
    name <- paste0("R[", c("north", "south")[g], ",y,y]")
    expect_equal(value_of(r$table, name, "mean"), mean(own), tolerance = 1e-10)
  }
  expect_lt(value_of(r$table, "R[north,y,y]", "mean"), value_of(r$table, "R[south,y,y]", "mean")) # SD 2 and 6
  G <- rows$value[rows$k == 1]
  expect_equal(value_of(r$table, "h2[north,y]", "mean"), mean(G / (G + rows$value[rows$k == 2])),
               tolerance = 1e-10)
})
