# The page: one HTML file that needs nothing beside itself.

# Renders page/page.Rmd in a directory of its own and moves the result into place.
write_page <- function(report, path, home) {
  if (!dir.exists(dirname(path))) stop_report("can't write ", path, ": there is no directory ", dirname(path))
  work <- tempfile("page")
  dir.create(work)
  on.exit(unlink(work, recursive = TRUE))
  file.copy(file.path(home, "page", c("page.Rmd", "page.css", "head.html")), work)
  room <- new.env(parent = globalenv())
  room$report <- report
  made <- suppressMessages(rmarkdown::render(file.path(work, "page.Rmd"), page_format(report$model$title),
                                             output_file = "page.html", envir = room, quiet = TRUE))
  write_whole(path, function(part) if (!file.copy(made, part, overwrite = TRUE)) stop("can't write"))
}

page_format <- function(title) {
  head <- rmarkdown::includes(in_header = "head.html")
  pandoc_options <- c("--metadata", paste0("title=", title), "--metadata", paste0("pagetitle=", title))
  rmarkdown::html_document(theme = NULL, highlight = NULL, mathjax = NULL, self_contained = TRUE, css = "page.css",
                           section_divs = FALSE, includes = head, pandoc_args = pandoc_options)
}
