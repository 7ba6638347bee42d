# HTML tables of the page.

# A data frame as a table that scrolls sideways on its own when the window is narrow. Numbers get `digits` significant
# digits, except columns named in `plain`, which stand as they are.
html_table <- function(x, head = names(x), digits = 4, class = "numbers") {
  cells <- lapply(x, function(column) if (is.numeric(column)) vapply(column, cell_number, "", digits = digits) else ifelse(is.na(column), "", as.character(column)))
  numeric <- vapply(x, is.numeric, TRUE)
  row <- function(i) htmltools::tags$tr(lapply(seq_along(cells), function(j) htmltools::tags$td(class = if (numeric[j]) "n", cells[[j]][i])))
  htmltools::div(class = "scroll", htmltools::tags$table(class = class,
    htmltools::tags$thead(htmltools::tags$tr(lapply(seq_along(head), function(j) htmltools::tags$th(class = if (numeric[j]) "n", head[j])))),
    htmltools::tags$tbody(lapply(seq_len(nrow(x)), row))))
}

cell_number <- function(x, digits) {
  if (is.na(x)) return("")
  if (x == round(x) && abs(x) < 1e9) return(format(x, big.mark = if (abs(x) >= 1e4) "," else "", scientific = FALSE, trim = TRUE))
  number_text(x, digits)
}

paragraphs <- function(lines) lapply(lines, htmltools::tags$p)

section <- function(id, title, ...) htmltools::tags$section(id = id, htmltools::tags$h2(title), ...)

# The summary table of some names.
summary_block <- function(table) {
  columns <- table[c("name", "mean", "median", "sd", "low", "high", "ess_bulk", "ess_tail", "rhat", "mcse", "draws")]
  columns$rhat <- ifelse(is.na(columns$rhat), "", formatC(columns$rhat, digits = 3, format = "f"))
  columns$ess_bulk <- round(columns$ess_bulk)
  columns$ess_tail <- round(columns$ess_tail)
  html_table(columns, c("name", "mean", "median", "SD", "95 % HPD from", "to", "bulk ESS", "tail ESS", "R-hat", "MCSE", "draws"))
}
