# Formulas on draws: numbers, + - * / ^, brackets, a few functions, and names such as G[animal,bwt,bwt].

formula_functions <- c("+", "-", "*", "/", "^", "(", "sqrt", "exp", "log", "abs", "min", "max")
name_pattern <- "[A-Za-z][A-Za-z0-9_.]*\\[[^]]*\\]"

# Adds the columns of `formulas` (name, formula) to the draws x name matrix of a chain list, in order; a formula that
# does not hold ends in a remark and is left out (without a word when remarks is NULL). Every draw is computed from that
# draw.
add_formula_draws <- function(m, draws, formulas, remarks) {
  for (i in seq_len(nrow(formulas))) {
    value <- tryCatch(formula_value(m, draws, formulas$formula[i]), report_stop = function(e) {
      if (!is.null(remarks)) remarks$add("[derive] ", formulas$name[i], " is left out: ", conditionMessage(e))
      NULL
    })
    if (is.null(value)) next
    names <- c(dimnames(draws)[[3]], formulas$name[i])
    draws <- array(c(draws, value), dim(draws) + c(0, 0, 1), list(NULL, NULL, names))
  }
  draws
}

# Draw x chain matrix of a formula's values.
formula_value <- function(m, draws, text) {
  parsed <- parse_formula(m, text, dimnames(draws)[[3]])
  values <- stats::setNames(lapply(parsed$names, function(name) draws[, , name]), names(parsed$names))
  out <- suppressWarnings(eval(parsed$call, c(values, list(min = pmin, max = pmax)),
    baseenv())) # a root of a negative: NaN
  matrix(as.numeric(out), dim(draws)[1], dim(draws)[2])
}

# list(call, names): the names stand in the call as .v1, .v2 ..; only the functions above are let through.
parse_formula <- function(m, text, known) {
  found <- regmatches(text, gregexpr(name_pattern, text))[[1]]
  bare <- unlist(regmatches(text, gregexpr(name_pattern, text), invert = TRUE))
  places <- sprintf(".v%d", seq_along(found))
  words <- unique(unlist(regmatches(bare, gregexpr("(?<![A-Za-z0-9_.])[A-Za-z_][A-Za-z0-9_.]*", bare, perl = TRUE))))
  words <- setdiff(words, formula_functions)
  values <- lapply(found, function(word) known_name(m, word, known))
  pieces <- character(0)
  for (i in seq_along(bare)) pieces <- c(pieces, replace_words(bare[i], words, known),
    if (i <= length(found)) paste0(" ", places[i], " "))
  call <- tryCatch(parse(text = paste(pieces, collapse = ""), keep.source = FALSE),
    error = function(e) stop_report("can't read \"", text, "\""))
  if (length(call) != 1) stop_report("can't read \"", text, "\"")
  check_call(call[[1]])
  plain <- intersect(words, known)
  list(call = call[[1]], names = c(stats::setNames(values, places), stats::setNames(as.list(plain),
    sprintf(".n_%s", plain))))
}

# Names without brackets: earlier derived values.
replace_words <- function(text, words, known) {
  for (word in words) {
    if (!word %in% known) stop_report("there is no ", word)
    text <- gsub(paste0("(?<![A-Za-z0-9_.])", gsub(".", "\\.", word, fixed = TRUE), "(?![A-Za-z0-9_.])"),
      paste0(".n_", word), text, perl = TRUE)
  }
  text
}

check_call <- function(x) {
  if (is.call(x)) {
    word <- deparse(x[[1]])
    if (!word %in% formula_functions) stop_report("\"", word, "\" can't stand in a formula")
    for (part in as.list(x)[-1]) check_call(part)
  } else if (is.name(x) && !startsWith(as.character(x), ".v") && !startsWith(as.character(x), ".n_")) {
    stop_report("there is no ", as.character(x))
  } else if (!is.name(x) && !is.numeric(x)) {
    stop_report("\"", deparse(x), "\" can't stand in a formula")
  }
}

# The name of the draws that a formula means: blanks are dropped; the rows of G and R may stand in either order, and by
# their full names ("bwt.animal") or by the trait.
known_name <- function(m, word, known) {
  word <- gsub("[ \t]", "", word)
  if (word %in% known) return(word)
  kind <- sub("\\[.*$", "", word)
  parts <- strsplit(sub("\\]$", "", sub("^[^[]*\\[", "", word)), ",", fixed = TRUE)[[1]]
  n <- length(parts)
  candidates <- character(0)
  if (kind == "G" && n == 3) candidates <- element_of_factor(m, parts)
  if (kind == "R" && n >= 2) candidates <- paste0("R[", paste(c(parts[seq_len(n - 2)], parts[n], parts[n - 1]),
    collapse = ","), "]")
  found <- intersect(candidates, known)
  if (length(found) == 0) stop_report("there is no ", word)
  found[1]
}

element_of_factor <- function(m, parts) {
  for (f in m$factors) {
    if (f$name != parts[1]) next
    row <- function(word) {
      at <- which(f$rows$label == word | f$rows$name == word)
      if (length(at) == 0) at <- which(m$trait_names[f$rows$trait] == word)
      if (length(at) == 1) at else NA_integer_
    }
    rows <- vapply(parts[2:3], row, 1L)
    if (!anyNA(rows)) return(name_of_element(m, f$number, rows[1], rows[2]))
  }
  character(0)
}
