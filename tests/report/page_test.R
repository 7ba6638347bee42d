# The page in a browser: nothing is fetched, no script fails, every picture is drawn, at 400 and at 1400 pixels.

browser <- unname(Sys.which("chromium-headless-shell"))

# A study on made data with everything on its page: two traits, a formula, chains of two segments.
home <- scratch()
work <- two_traits(more = c('[derive]', 'total = "G[genetic,bwt,bwt] + R[bwt,bwt]"'),
  run = c("burnin = 200\nrounds = 2000\ninterval = 5\nseeds = [11, 12]", 'sampler = "classic"'),
  into = file.path(home, "work"))
made <- run_program("zeph-chains", c("run", work, "--chains", "2", "--into", file.path(home, "RUNS")))
more <- run_program("zeph-chains", c("continue", file.path(home, "RUNS"), "--rounds", "500"))
page <- file.path(home, "report.html")
done <- run_program("zeph-report", c(file.path(home, "RUNS"), "--html", page))
html <- paste(readLines(page, warn = FALSE), collapse = "\n")

test_that("the way from a work directory to the page", {
  expect_equal(c(made$status, more$status, done$status), c(0L, 0L, 0L))
  expect_match(done$out, "2 chains of 500 samples, one every 5 rounds", all = FALSE)
})

test_that("the sections stand in their order", {
  titles <- c("Verdict", "Model and data", "\\(Co\\)variances and derived quantities", "Pictures",
    "Fixed effects and breeding values", "DIC per trait",
              "Mixtures, thresholds, models", "Glossary")
  at <- vapply(titles, function(t) regexpr(paste0("<h2>", t, "</h2>"), html)[1], 1)
  expect_true(all(at > 0))
  expect_false(is.unsorted(at))
})

test_that("the page tells seeds, priors, formulas, check sums, DIC in both forms, and no Bayes factor", {
  for (text in c("11, 12", "inverse Wishart, 6 degrees of freedom", "SHA-256", "G[genetic,bwt,bwt] + R[bwt,bwt]",
    "DIC with n log 2 pi", "no Bayes factor is computed",
                 "zeph-chains 0", "a40", "accuracy"))
    expect_true(grepl(text, html, fixed = TRUE), info = text)
})

test_that("every name of the page stands in its glossary", {
  table <- report_of(file.path(home, "RUNS"))$table
  for (name in table$name) expect_true(grepl(paste0("<dt>", name, "</dt>"), html, fixed = TRUE), info = name)
})

# Opens the page with a script that reports in the title of the document; list(title, console).
opened <- function(width) {
  probe <- file.path(home, "probe.html")
  script <- paste0("<script>window.addEventListener('load', function () { setTimeout(function () {",
    "var images = [].slice.call(document.images), graphs = [].slice.call(document.querySelectorAll('.dygraphs'));",
    "document.title = ['images', images.length,",
    "'drawn', images.filter(function (i) { return i.complete && i.naturalWidth > 0; }).length,",
    "'graphs', graphs.length, 'canvas', graphs.filter(function (g) { return g.querySelector('canvas'); }).length,",
    "'over', document.documentElement.scrollWidth - document.documentElement.clientWidth,",
    "'width', window.innerWidth, 'fetched', performance.getEntriesByType('resource').length].join(' ');",
    "}, 400); });</script></body>")
  writeLines(sub("</body>", script, html, fixed = TRUE), probe)
  out <- browse(c("--enable-logging=stderr", "--virtual-time-budget=5000", paste0("--window-size=", width, ",900"),
    "--dump-dom", paste0("file://", probe)))
  title <- regmatches(out, regexpr("<title>[^<]*", out))[1]
  words <- strsplit(sub("<title>", "", title), " ")[[1]]
  list(counts = stats::setNames(as.numeric(words[c(FALSE, TRUE)]), words[c(TRUE, FALSE)]),
    console = grep("CONSOLE", out, value = TRUE))
}

browse <- function(words) suppressWarnings(system2(browser, c("--headless", "--no-sandbox", "--disable-gpu", words),
  stdout = TRUE, stderr = TRUE))

test_that("in a browser nothing is fetched, no script fails and every picture is drawn", {
  for (width in c(400, 1400)) {
    seen <- opened(width)
    expect_equal(seen$console, character(0))
    expect_equal(unname(seen$counts["fetched"]), 0)
    expect_gt(seen$counts["images"], 20)
    expect_equal(unname(seen$counts["drawn"]), unname(seen$counts["images"]))
    expect_gt(seen$counts["graphs"], 8)
    expect_equal(unname(seen$counts["canvas"]), unname(seen$counts["graphs"]))
    expect_equal(unname(seen$counts["width"]), width)
    expect_equal(unname(seen$counts["over"]), 0) # nothing is wider than the window
  }
})

test_that("the page forbids its browser to fetch, and names no other place", {
  expect_true(grepl("Content-Security-Policy\" content=\"default-src &#39;none&#39;; script-src", html, fixed = TRUE))
  expect_false(grepl("<(script|img|link|iframe)[^>]+(src|href)=\"(https?:)?//", html))
})

test_that("the browser's log of its net holds no address but the page's", {
  log <- file.path(home, "net.json")
  browse(c(paste0("--log-net-log=", log), "--virtual-time-budget=5000", "--dump-dom", paste0("file://", page)))
  text <- paste(readLines(log, warn = FALSE), collapse = "\n")
  urls <- regmatches(text, gregexpr("\"url\":\"[^\"]*", text))[[1]]
  expect_equal(grep("data:|file:", urls, invert = TRUE, value = TRUE), character(0))
})

test_that("pictures of the screen show something at both widths", {
  for (width in c(400, 1400)) {
    shot <- file.path(home, paste0("shot", width, ".png"))
    browse(c("--virtual-time-budget=5000", paste0("--window-size=", width, ",2400"), paste0("--screenshot=", shot),
      paste0("file://", page)))
    picture <- png::readPNG(shot)
    expect_equal(dim(picture)[2], width)
    expect_gt(mean(picture[, , 1:3] < 0.9), 0.01) # ink
  }
  keep <- Sys.getenv("ZEPH_SCREENSHOTS")
  if (nzchar(keep)) file.copy(file.path(home, c("shot400.png", "shot1400.png")), keep, overwrite = TRUE)
})
