# Formulas on draws: numbers, + - * / ^, brackets, a few functions, and names such as G[animal,bwt,bwt].

# The grammar; zeph-prepare refuses by the same one, and tests/data/derived_formulas.txt holds what both take:
#   formula = { sign } operand { operator { sign } operand }        sign + -, operator + - * / ^
#   operand = number | word | word "[" .. "]" | "(" formula ")" | function "(" formula { "," formula } ")"

formula_functions <- list(sqrt = c(1, 1), exp = c(1, 1), log = c(1, 2), abs = c(1, 1), min = c(1, Inf),
  max = c(1, Inf)) # how many values they take
deepest_bracket <- 40L
word_pattern <- "[A-Za-z_][A-Za-z0-9_.]*"
token_pattern <- paste0(word_pattern, "\\[[^]]*\\]|", word_pattern,
  "|([0-9]+[.]?[0-9]*|[.][0-9]+)([eE][-+]?[0-9]+)?|[-+*/^(),]")

# Adds the columns of `formulas` (name, formula) to the draws x name matrix of a chain list, in order; a formula that
# does not hold ends in a remark and is left out (silently when remarks is NULL). Every draw is computed from that
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

# list(call, names): the names are in the call as .v1, .v2 ..
parse_formula <- function(m, text, known) {
  tokens <- formula_tokens(text)
  check_grammar(tokens, text)
  operands <- grep(paste0("^", word_pattern), tokens)
  operands <- operands[!(tokens[operands] %in% names(formula_functions) & c(tokens, "")[operands + 1] == "(")]
  bare <- intersect(tokens[operands], names(formula_functions))
  if (length(bare) > 0) stop_report(bare[1], " is a function and needs brackets")
  values <- lapply(tokens[operands], function(word) known_name(m, word, known))
  places <- sprintf(".v%d", seq_along(operands))
  tokens[operands] <- places
  call <- tryCatch(parse(text = paste(tokens, collapse = " "), keep.source = FALSE),
    error = function(e) stop_report("can't read \"", text, "\""))
  list(call = call[[1]], names = stats::setNames(values, places))
}

formula_tokens <- function(text) {
  found <- gregexpr(token_pattern, text)
  strange <- gsub("[ \t\r\n]", "", paste(regmatches(text, found, invert = TRUE)[[1]], collapse = ""))
  if (nzchar(strange)) stop_report("\"", substr(strange, 1, 1), "\" can't appear in a formula")
  regmatches(text, found)[[1]]
}

# Ends in a remark when the tokens are no formula: after an operand comes an operator or the end of a bracket.
check_grammar <- function(tokens, text) {
  refuse <- function() stop_report("can't read \"", text, "\"")
  open <- list()
  operand <- TRUE # one is wanted
  for (i in seq_along(tokens)) {
    token <- tokens[i]
    called <- token %in% names(formula_functions) && identical(tokens[i + 1L], "(")
    if (operand && (called || token %in% c("+", "-"))) next
    if (operand && token == "(") {
      if (length(open) == deepest_bracket) refuse()
      before <- if (i > 1) tokens[i - 1L] else ""
      open[[length(open) + 1L]] <- list(values = 1, allowed = formula_functions[[before]])
    } else if (operand) {
      if (!grepl("^[A-Za-z0-9_.]", token)) refuse()
      operand <- FALSE
    } else if (token == ")") {
      last <- if (length(open) > 0) open[[length(open)]] else refuse()
      if (!is.null(last$allowed) && (last$values < last$allowed[1] || last$values > last$allowed[2])) refuse()
      open[[length(open)]] <- NULL
    } else if (token == ",") {
      if (length(open) == 0 || is.null(open[[length(open)]]$allowed)) refuse()
      open[[length(open)]]$values <- open[[length(open)]]$values + 1
      operand <- TRUE
    } else {
      if (!token %in% c("+", "-", "*", "/", "^")) refuse()
      operand <- TRUE
    }
  }
  if (operand || length(open) > 0) refuse()
}

# The name of the draws that a formula means: blanks are dropped; the rows of G, R and correlations may be in either
# order, those of G by their full names ("bwt.animal") or by the trait.
known_name <- function(m, word, known) {
  word <- gsub("[ \t\r\n]", "", word)
  if (word %in% known) return(word)
  kind <- sub("\\[.*$", "", word)
  parts <- strsplit(sub("\\]$", "", sub("^[^[]*\\[", "", word)), ",", fixed = TRUE)[[1]]
  n <- length(parts)
  candidates <- character(0)
  if (kind == "G" && n == 3) candidates <- element_of_factor(m, parts)
  if (kind %in% c("R", "re", "rp", "rg", "r") && n >= 2)
    candidates <- paste0(kind, "[", paste(c(parts[seq_len(n - 2)], parts[n], parts[n - 1]), collapse = ","), "]")
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
