# HTML pieces of the page: tables, paragraphs, sections.

# A data frame as a table that scrolls sideways on its own when the window is narrow. Numbers get `digits` significant
# digits and are aligned right, as is the column rhat.
html_table <- function(x, head = names(x), digits = 4, class = "numbers") {
  as_text <- function(column) {
    if (is.numeric(column)) return(vapply(column, cell_number, "", digits = digits))
    ifelse(is.na(column), "", as.character(column))
  }
  cells <- lapply(x, as_text)
  side <- ifelse(vapply(x, is.numeric, TRUE) | names(x) == "rhat", "n", "")
  cell <- function(tag, text, j) if (nzchar(side[j])) tag(class = side[j], text) else tag(text)
  row <- function(i) tags$tr(lapply(seq_along(cells), function(j) cell(tags$td, cells[[j]][i], j)))
  heads <- tags$tr(lapply(seq_along(head), function(j) cell(tags$th, head[j], j)))
  tags$div(class = "scroll", tags$table(class = class, tags$thead(heads), tags$tbody(lapply(seq_len(nrow(x)), row))))
}

delayedAssign("tags", htmltools::tags) # a missing package is reported by need_packages

# A table of words: columns and their heads.
word_table <- function(..., head) html_table(data.frame(...), head, class = "words")

cell_number <- function(x, digits) {
  if (is.na(x)) return("")
  if (x != round(x) || abs(x) >= 1e9) return(number_text(x, digits))
  if (abs(x) >= 1e4) whole_number(x) else format(x, trim = TRUE)
}

whole_number <- function(x) format(x, big.mark = ",", scientific = FALSE, trim = TRUE)

# A paragraph of texts put together.
sentence <- function(...) tags$p(paste0(...))

paragraphs <- function(lines) lapply(lines, tags$p)

# A block under a heading of its own.
titled <- function(title, ...) htmltools::tagList(tags$h3(title), ...)

section <- function(id, title, ...) tags$section(id = id, tags$h2(title), ...)

# The summary table of some names.
summary_block <- function(table) {
  columns <- table[c("name", "mean", "median", "sd", "low", "high", "ess_bulk", "ess_tail", "rhat", "mcse", "draws")]
  columns$rhat <- rhat_text(columns$rhat)
  columns$ess_bulk <- round(columns$ess_bulk)
  columns$ess_tail <- round(columns$ess_tail)
  html_table(columns, c("name", "mean", "median", "SD", "95 % HPD from", "to", "bulk ESS", "tail ESS", "R-hat", "MCSE",
                        "draws"))
}

rhat_text <- function(rhat) ifelse(is.na(rhat), "", trimws(formatC(rhat, digits = 3, format = "f")))

# "name = value" of names that the model fixes.
fixed_values <- function(rows) paste0(rows$name, " = ", vapply(rows$mean, number_text, ""), collapse = ", ")
