# Solutions of class effects and regressions, by their names.

# Data frame (trait, effect, level, kind, records, value, sd, equation, reference): kind "level" or "slope". reference
# names the levels that zeph-prepare left without equation: solutions of the effect are then differences from them.
fixed_effects <- function(m, solutions) {
  rows <- solutions$rows[solutions$rows$kind < 3, ]
  rows <- rows[has_equations(m, rows), ]
  if (nrow(rows) == 0) return(NULL)
  codes <- fixed_codes(m)
  left_out <- levels_left_out(m)
  block <- paste(rows$kind, rows$trait, rows$place, rows$number)
  parts <- lapply(unique(block), function(b) block_of_effect(m, codes, left_out, rows[block == b, ]))
  do.call(rbind, parts)
}

# Class effects without equations of their own are in gibsol with zeros.
has_equations <- function(m, rows) {
  solved <- function(trait, place) m$traits[[trait]]$effects$solved[place]
  rows$kind == 1 | mapply(function(kind, trait, place) kind == 2 && solved(trait, place), rows$kind, rows$trait,
    rows$place)
}

# All rows of one effect or regression of one trait.
block_of_effect <- function(m, codes, left_out, rows) {
  first <- rows[1, ]
  trait <- m$trait_names[first$trait]
  slope <- first$kind == 1
  effect <- if (slope) regression_word(m, first) else effect_word(m, codes, first)
  level <- if (slope && first$place == 0) "" else level_words(codes, trait, first$place, rows, slope)
  gone <- if (slope) character(0) else left_out$level[left_out$trait == trait & left_out$effect == effect]
  data.frame(trait = trait, effect = effect, level = level, kind = if (slope) "slope" else "level",
    records = rows$records,
             value = rows$value, sd = rows$sd, equation = rows$equation, reference = paste(gone, collapse = ", "))
}

# codes_fixed.csv, or NULL: trait, effect, level, identification, number of the effect in the trait.
fixed_codes <- function(m) {
  path <- file.path(m$directory, "codes_fixed.csv")
  if (!m$labelled || !file.exists(path)) return(NULL)
  utils::read.csv(path, colClasses = c(identification = "character", effect = "character", trait = "character"))
}

# The name of the part of the model that holds the row's equation, or the short name in the model.
regression_word <- function(m, row) {
  holds <- function(e) e$part != "factor" && e$first <= row$equation && row$equation < e$first + e$equations
  named <- if (m$labelled) Filter(holds, m$names$equations_of)
  if (length(named) > 0) named[[1]]$name else m$traits[[row$trait]]$regressions$name[row$number]
}

effect_word <- function(m, codes, row) {
  at <- which(codes$trait == m$trait_names[row$trait] & codes$number == row$place)
  if (length(at) > 0) codes$effect[at[1]] else m$traits[[row$trait]]$effects$name[row$place]
}

# Identifications of the levels of class effect `place`; codes where there are none. The rows of a nested regression
# have the running number of the level in place of its code.
level_words <- function(codes, trait, place, rows, slope) {
  level <- if (slope) rows$code else rows$level
  mine <- codes[codes$trait == trait & codes$number == place, ]
  at <- if (is.null(codes)) rep(NA_integer_, nrow(rows)) else match(level, mine$level)
  ifelse(is.na(at), as.character(rows$code), mine$identification[at])
}

# Levels without equation, from the lines of prepare.txt under "Fixed part of TRAIT": "  effect:level  records  reason",
# levels of interactions in square brackets.
# Data frame (trait, effect, level).
levels_left_out <- function(m) {
  none <- data.frame(trait = character(0), effect = character(0), level = character(0))
  path <- file.path(m$directory, "prepare.txt")
  if (!m$labelled || !file.exists(path)) return(none)
  lines <- readLines(path, warn = FALSE)
  head <- "^Fixed part of (.*): level, records, kept or not, why$"
  trait <- c(NA, sub(head, "\\1", grep(head, lines, value = TRUE)))[cumsum(grepl(head, lines)) + 1L]
  at <- which(!is.na(trait) & startsWith(lines, "  ") & !grepl("  kept$", lines))
  words <- sub(" {2,}.*$", "", trimws(lines[at], "left"))
  effects <- unique(vapply(Filter(function(e) e$part == "class", m$names$equations_of), function(e) e$name, ""))
  rows <- lapply(effects[order(-nchar(effects))], function(e) {
    of <- startsWith(words, paste0(e, ":"))
    level <- gsub("^\\[|\\]$", "", substring(words[of], nchar(e) + 2L))
    data.frame(trait = trait[at][of], effect = rep(e, sum(of)), level = level)
  })
  rbind(none, do.call(rbind, rows))
}
