# Runs one file of tests: Rscript run.R FILE. Exit codes: 0 all hold, 1 a test failed, 77 a test was
# skipped; each reason is printed, "skipped: [code] text". A package that is missing is no reason but an error.
# Environment: ZEPH_SOURCE, the source tree; ZEPH_BIN, the directory of the programs; ZEPH_SHARED, data sets of others
# (../shared beside the source tree when it is not set).
invisible(compiler::enableJIT(0)) # as in main.R of the report
source_tree <- Sys.getenv("ZEPH_SOURCE")
programs <- Sys.getenv("ZEPH_BIN")
if (!nzchar(Sys.getenv("ZEPH_SHARED"))) Sys.setenv(ZEPH_SHARED = file.path(dirname(source_tree), "shared"))
needed <- c("testthat", "posterior", "coda", "bayesplot", "dygraphs", "rmarkdown", "ncdf4", "jsonlite", "RcppTOML",
  "png")
missing <- Filter(function(p) !nzchar(system.file(package = p)), needed)
missing <- c(missing, Filter(function(tool) !nzchar(Sys.which(tool)), c("chromium-headless-shell", "pandoc")))
if (length(missing) > 0) {
  cat("R packages and programs that are not installed:", missing, "(scripts/install)\n")
  quit(save = "no", status = 1)
}
for (part in list.files(file.path(source_tree, "companions/report/R"), pattern = "[.]R$",
  full.names = TRUE)) sys.source(part, globalenv())
sys.source(file.path(source_tree, "tests/report/support.R"), globalenv())
library(testthat)
results <- as.data.frame(test_file(commandArgs(TRUE)[1], reporter = Sys.getenv("REPORTER", "check"),
  stop_on_failure = FALSE))
failed <- sum(results$failed) + sum(results$error)
outcomes <- unlist(results$result, recursive = FALSE)
skips <- Filter(function(outcome) inherits(outcome, "expectation_skip"), outcomes)
for (skip in skips) cat("skipped: ", sub("^Reason: ", "", conditionMessage(skip)), "\n", sep = "")
status <- if (failed > 0 || nrow(results) == 0) 1 else if (length(skips) > 0) 77 else 0
quit(save = "no", status = status)
