# Exports are read back by the packages that define the formats.

draws <- local({
  set.seed(8)
  array(round(rnorm(3 * 50 * 2), 8), c(50, 3, 2), list(NULL, NULL, c("G[animal,y,y]", "R[y,y]")))
})

test_that("coda reads the CODA files back", {
  place <- file.path(scratch(), "coda")
  expect_equal(export_coda(place, draws, 10), 2)
  for (chain in 1:3) {
    read <- coda::read.coda(file.path(place, paste0("CODAchain", chain, ".txt")), file.path(place, "CODAindex.txt"),
      quiet = TRUE)
    expect_equal(unname(as.matrix(read)), unname(draws[, chain, ]))
    expect_equal(coda::varnames(read), c("G[animal,y,y]", "R[y,y]"))
    expect_equal(coda::thin(read), 10)
  }
})

test_that("posterior reads the CSV draws back", {
  place <- scratch()
  export_csv(place, list(summary = summarise_names(draws)), draws)
  read <- posterior::as_draws_df(utils::read.csv(file.path(place, "draws.csv"), check.names = FALSE))
  back <- posterior::as_draws_array(read)
  expect_equal(dim(back), c(50L, 3L, 2L))
  expect_equal(as.numeric(back), as.numeric(draws))
  expect_equal(posterior::variables(back), c("G[animal,y,y]", "R[y,y]"))
  table <- utils::read.csv(file.path(place, "summary.csv"))
  expect_equal(table$mean, c(mean(draws[, , 1]), mean(draws[, , 2])))
})

test_that("ncdf4 reads the NetCDF file back, absent draws included", {
  path <- file.path(scratch(), "draws.nc")
  with_gap <- draws
  with_gap[4, 2, 1] <- NA
  export_netcdf(path, with_gap, c(1, 2, 4), "A title", 10)
  file <- ncdf4::nc_open(path)
  on.exit(ncdf4::nc_close(file))
  expect_equal(unname(t(ncdf4::ncvar_get(file, "R[y,y]"))), unname(draws[, , 2]))
  g <- t(ncdf4::ncvar_get(file, "G[animal,y,y]"))
  expect_true(is.na(g[4, 2]))
  expect_equal(unname(g[5, 2]), unname(draws[5, 2, 1]))
  expect_equal(as.vector(file$dim$chain$vals), c(1, 2, 4))
  expect_equal(ncdf4::ncatt_get(file, 0, "title")$value, "A title")
})

test_that("the CODA files leave out what is absent in some draw, and a file is written whole or not at all", {
  place <- scratch()
  with_gap <- draws
  with_gap[4, 2, 1] <- NA
  expect_equal(export_coda(place, with_gap, 10), 1)
  expect_setequal(list.files(place), c("CODAindex.txt", "CODAchain1.txt", "CODAchain2.txt", "CODAchain3.txt"))
  expect_error(write_whole(file.path(place, "x"), function(path) {
    writeLines("half", path)
    stop("no room")
  }), "can't write")
  expect_false(any(grepl("^x", list.files(place))))
})
