# Moves that mix: their acceptance, from listings as ZEPH writes them.

# A line of the listing: the label filled with dots to 51 characters and right-justified to column 60, two shares F8.3.
accepted_line <- function(label, burnin, after) {
  label <- paste0("Accepted moves, ", label)
  room <- 51 - nchar(label)
  if (room > 0) label <- paste0(label, " ", strrep(".", room - 1))
  share <- function(x) if (is.na(x)) sprintf("%8s", "-") else sprintf("%8.3f", x)
  paste0(strrep(" ", 9), label, share(burnin), share(after))
}

# A study of one-trait chains with listings, a list of their lines.
moved_study <- function(listings, base = one_trait(more = "moves = true")) {
  parts <- rep(list(list(list(g = 3 + sin(1:50), r = 4 + cos(1:50), round = 100L + 10L * (1:50)))), length(listings))
  root <- study_of(parts, base)
  for (i in seq_along(listings)) writeLines(listings[[i]], file.path(root, paste0("chain", i), "seg1/listing.txt"))
  root
}

test_that("each chain has the shares of its listing, the last of each move", {
  # the lines of the issue of a run, and those that a resumed run added
  first <- c("  some text", accepted_line("random factor no  1", 0.9, NA), "Accepted moves of another kind")
  second <- c(first, accepted_line("random factor no  1", 0.988, 0.991))
  j <- joined_chains(moved_study(list(second, accepted_line("random factor no  1", NA, 0.15), "no such line")))
  found <- read_mixing(j$model, j$place)
  expect_equal(found$chain, c(1, 2))
  expect_equal(found$move, rep("matrix and levels of factor animal", 2))
  expect_equal(found$burnin, c(0.988, NA))
  expect_equal(found$after, c(0.991, 0.15))
  pooled <- pooled_mixing(found)
  # means by hand: (0.991 + 0.15) / 2
  expect_equal(pooled, data.frame(move = "matrix and levels of factor animal", burnin = 0.988, after = 0.5705,
                                  lowest = 0.15, highest = 0.991))
})

test_that("moves are called by the factors and traits of the model", {
  m <- list(trait_names = c("milk", "ease"), factors = list(list(name = "animal"),
    list(name = "pe")))
  named <- function(label) move_in_words(label, m)
  expect_equal(named("random factor no  2"), "matrix and levels of factor pe")
  expect_equal(named("random factors no  1 and  2, first"), "exchange of factors: pe into animal")
  expect_equal(named("random factors no  1 and  2, second"), "exchange of factors: animal into pe")
  expect_equal(named("trait no  2"), "scale of trait ease")
  for (label in c("trait no  3", "random factor no  0", "random factors no  1 and  3, first", "random factor no", ""))
    expect_equal(named(label), NA_character_, info = label)
  lines <- c(accepted_line("random factors no  1 and  2, second", 0.18, 0.19), accepted_line("trait no  2", NA, NA))
  path <- scratch()
  writeLines(lines, file.path(path, "listing.txt"))
  expect_equal(mixing_of_listing(path, m), data.frame(move = c("exchange of factors: animal into pe",
    "scale of trait ease"), burnin = c(0.18, NA), after = c(0.19, NA)))
})

test_that("the page has a table of them, and says which gain little", {
  root <- moved_study(list(accepted_line("random factor no  1", 0.988, 0.991)))
  page <- function(r) paste(as.character(htmltools::tagList(mixing_block(r))), collapse = "")
  good <- page(report_of(root))
  for (text in c("Moves that mix", "matrix and levels of factor animal", "0.988", "0.991"))
    expect_true(grepl(text, good, fixed = TRUE), info = text)
  expect_false(grepl("gain", good))
  rare <- page(report_of(moved_study(list(accepted_line("random factor no  1", 0.3, 0.199)))))
  expect_true(grepl("below 0.2 after burn-in: the chain is right", rare, fixed = TRUE))
  none <- page(report_of(moved_study(list("a run that has not ended"))))
  expect_true(grepl("No listing of a run that has ended was found", none, fixed = TRUE))
  without <- moved_study(list(""), one_trait(more = "moves = false"))
  expect_null(mixing_block(report_of(without)))
})

test_that("mixing.csv has a row a chain and move", {
  root <- moved_study(list(accepted_line("random factor no  1", 0.988, 0.991)))
  expect_equal(tables_of(report_of(root))$mixing, data.frame(chain = 1L, segment = 1L,
    move = "matrix and levels of factor animal", burnin = 0.988, after = 0.991))
})
