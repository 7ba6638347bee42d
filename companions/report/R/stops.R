# The ways in which a report ends early, and the messages on the way.

# Ends the report with a text for the user; `status` is the exit code.
stop_report <- function(..., status = 2L) {
  stop(structure(class = c("report_stop", "error", "condition"),
                 list(message = paste0(...), call = NULL, status = status)))
}

# Remarks on the chains (a chain without samples, a cut file), in order; they go to the screen and onto the page.
new_remarks <- function() {
  lines <- character(0)
  list(add = function(...) lines <<- unique(c(lines, paste0(...))), all = function() lines)
}

# Text of a count and its noun: "1 chain", "4 chains".
count_of <- function(n, noun) {
  paste(format(n, big.mark = ",", scientific = FALSE, trim = TRUE), if (n == 1) noun else paste0(noun, "s"))
}
