# zeph-report: reads chains, prints a verdict, writes the page and the exports.
# Exit codes: 0 done, 1 the chains hold nothing to report, 2 command line or files.
invisible(compiler::enableJIT(0)) # most of the code runs once: to compile it first takes longer
local({
  file <- sub("^--file=", "", grep("^--file=", commandArgs(FALSE), value = TRUE)[1])
  home <- dirname(normalizePath(file))
  for (part in sort(list.files(file.path(home, "R"), pattern = "[.]R$", full.names = TRUE))) sys.source(part,
    globalenv())
  quit(save = "no", status = report_command(commandArgs(TRUE), home))
})
